#pragma once
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/files/FileSystem.h"
#include "lorvale/values/data.h"
#include "mail/stores/MboxScan.h"

namespace lorvale {

/// The bytes of a flat mailbox file as they were when it was looked at, as a mapping.
///
/// Renaming another file over it, which is how this library writes, leaves a mapping alone.  But other programs
/// change mailboxes in place, and touching a mapping behind the new end of a file that got shorter kills the
/// process.  So whole-file work (the scan) is done right after mapping, and what is handed out later goes
/// through operations that look at the file first and copy: a message on the screen no longer depends on the
/// file.  What is left is a race of microseconds against a program that honours no lock.
class MboxSnapshot {
public:
    /// A missing file counts as empty.  Null when it cannot be read or is too large, with the reason.
    static std::unique_ptr<MboxSnapshot> ofFile(const std::string& path, std::string& reason);

    std::size_t size() const { return _data.size(); }
    /// For work on all bytes right after mapping.
    std::string_view view() const { return _data.view(); }
    /// Copies: of any bytes, of the header block of a message, of what follows it.  Nullopt when the file has
    /// been cut off before the end of the range.
    std::optional<Data> bytes(MboxRange range) const;
    std::optional<Data> headerBytes(MboxRange message) const;
    std::optional<Data> bodyBytes(MboxRange message) const;

    /// Whether the file at the path is still the one that was mapped, unchanged.
    bool isCurrent() const;
    /// Where the messages of this snapshot, whose ranges these were, stand in one taken later: the same places,
    /// when other programs have done no more than append mail.  Nullopt when they have done anything else.
    std::optional<std::vector<MboxRange>> rangesIn(const MboxSnapshot& later,
                                                   const std::vector<MboxRange>& ranges) const;
    /// The permissions of the file; nullopt when there was none.
    std::optional<mode_t> permissions() const;

private:
    MboxSnapshot(std::string path, Data data, std::optional<FileAttributes> attributes);
    /// The bytes themselves, for use at once; nullopt when they are not there any more.
    std::optional<std::string_view> touch(MboxRange range) const;

    const std::string _path;
    const Data _data;
    const std::optional<FileAttributes> _attributes;  // of the mapped file; nullopt for a missing one
};

}  // namespace lorvale
