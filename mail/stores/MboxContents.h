#pragma once
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/files/FileSystem.h"
#include "lorvale/values/data.h"
#include "mail/stores/MboxPass.h"

namespace lorvale {

class MboxContents;
class MboxReplacement;

/// What became of a rewriting.
struct MboxRewriting {
    std::shared_ptr<const MboxContents> before;  ///< the mailbox that was copied
    std::shared_ptr<const MboxContents> after;   ///< as it is now; null when nothing was changed
    std::string reason;                          ///< why nothing was; empty when the caller wanted it so
};

/// A flat mailbox file as it was read: an open descriptor, the places of the messages, a digest of each.
///
/// Other programs may shorten, overwrite, rename or replace the file at any moment.  A replaced or renamed file
/// still reads, since the descriptor stays with it.  A message that was cut off or overwritten does not: its
/// bytes are compared with the digest each time.  So whatever is handed out is what was found here once.
/// Nothing of the file is mapped, because touching a mapping behind the end of a file that got shorter kills
/// the process.
///
/// Never changes; any thread may use it.  It takes 20 bytes a message and one descriptor.
class MboxContents : public std::enable_shared_from_this<MboxContents> {
public:
    /// Reads the file at a path once, from its beginning to its end.  A missing file counts as empty.  Of a
    /// file to which mail is being appended all this moment, the last message is left out, as it is not
    /// complete (but for an only one: mail must not look gone).  Null, with the reason, when the file cannot be
    /// read, is too large, or keeps being shortened or overwritten.
    static std::shared_ptr<const MboxContents> ofFile(const std::string& path, std::string& reason);

    /// One reading of a file from its beginning to its end.
    struct Reading {
        MboxPass::Outcome read(ReadableFile& file);
        /// Leaves only the messages that an earlier reading found, too; false when some of its complete ones,
        /// all but the last, are not there any more.
        bool keepWhatStoodIn(const Reading& earlier);

        FileAttributes attributes;  ///< when the end was reached
        std::vector<MboxEntry> entries;
        std::uint64_t size = 0;
        bool isMbox = true;
    };
    /// What was read, or was scanned while it was written.  For ofFile() and MboxReplacement.
    MboxContents(std::string path, std::unique_ptr<ReadableFile> file, Reading reading);
    /// A missing file.
    explicit MboxContents(std::string path);

    const std::string& path() const { return _path; }
    /// The open file, for who goes on with it; null for a missing one.
    const std::shared_ptr<ReadableFile>& file() const { return _file; }
    bool exists() const { return _file != nullptr; }
    std::uint64_t size() const { return _size; }
    /// Whether messages can stand in the file; otherwise nobody would find one there.
    bool isMbox() const { return _isMbox; }
    /// In the order of the file.
    std::span<const MboxEntry> entries() const { return _entries; }
    /// The message that lies there; null when there is none.
    const MboxEntry* entryAt(MboxRange range) const;
    /// "message 3 of the mailbox /mail/inbox", for logs.
    std::string nameOf(const MboxEntry& entry) const;

    /// The bytes of a message, in two parts; nullopt when they are not there any more.
    std::optional<Data> headerOf(const MboxEntry& entry) const {
        return bytes(entry.header(), entry.headerDigest);
    }
    std::optional<Data> bodyOf(const MboxEntry& entry) const { return bytes(entry.body(), entry.bodyDigest); }
    /// Bytes of the file as they are now, fewer at its end; nullopt for a failure.
    std::optional<std::size_t> readInto(std::span<char> buffer, std::uint64_t offset) const;

    /// Writes all of the mailbox, as it was read, to another file.
    FileStatus copyTo(WritableFile& file) const;

    /// Whether a file with these attributes seems to be this one, unchanged.  A change within the same tick of
    /// the file system's clock cannot be seen so.
    bool isDescribedBy(const std::optional<FileAttributes>& attributes) const;
    /// Whether a later state of the mailbox begins with the messages of this one: other programs have done no
    /// more than append, perhaps with newlines of their own behind our last message.
    bool leadsTo(const MboxContents& later) const;

    /// Writes the mailbox anew beside itself and puts that in its place.  `fill` is given the mailbox as it is
    /// at this moment and writes what shall be there; it answers false to leave everything as it is.  It is
    /// called again when another program changes the file meanwhile, three times in all.  Everything that can
    /// fail is done before the switch: `after` is the new file, open and scanned.  Without `permissions` it
    /// gets those of the old one.  The caller holds the mailbox's lock.
    using Fill = std::function<bool(const MboxContents& now, MboxReplacement& next)>;
    MboxRewriting rewrite(std::optional<mode_t> permissions, const Fill& fill) const;

private:
    std::optional<Data> bytes(MboxRange range, std::uint32_t digest) const;
    bool continues(const MboxEntry& entry, const MboxEntry& earlier) const;

    const std::string _path;
    const std::shared_ptr<ReadableFile> _file;  // null for a missing one
    const FileAttributes _attributes;           // of the file when its end was reached
    const std::vector<MboxEntry> _entries;
    const std::uint64_t _size = 0;  // of what was read
    const bool _isMbox = true;
};

}  // namespace lorvale
