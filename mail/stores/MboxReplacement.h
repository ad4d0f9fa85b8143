#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/files/FileSystem.h"
#include "mail/stores/MboxContents.h"

namespace lorvale {

/// A new version of a flat mailbox file under construction: a file beside it ("PATH.tmp"), which in the end is
/// renamed over it.  Until that one step the old mailbox stands whole, from then on the new one; a crash leaves
/// at most the unfinished file, which the next replacement takes away.  Without commit() nothing is left
/// behind.  The messages of the new file are found while it is written.
class MboxReplacement {
public:
    enum class Outcome {
        done,
        failed,         ///< the mailbox is as it was
        sourceChanged,  ///< likewise: another program has changed it meanwhile, so it must be read anew
    };

    /// `now` is the mailbox as it is, borrowed, and `state` what the file at its path looked like before the
    /// copying.  Without `permissions` the new file gets those of the old one; owner and group stay in any case
    /// (see takeAccessOf()).  A failure shows in commit().
    MboxReplacement(const MboxContents& now, const std::optional<FileAttributes>& state,
                    std::optional<mode_t> permissions);
    ~MboxReplacement();
    MboxReplacement(const MboxReplacement&) = delete;
    MboxReplacement& operator=(const MboxReplacement&) = delete;

    /// Copies what stands in front of the first message.
    void copyStart();
    /// Copies messages of the mailbox that stand one behind the other, and looks whether they still have their
    /// bytes.  Before any writeMessage().
    void copy(std::span<const MboxEntry> messages);
    /// Makes what was copied end with an empty line if it does not end with a newline.
    void endLine();
    /// Adds a message, which gets an empty line behind it if it has none.
    void writeMessage(std::string_view header, std::string_view body);

    /// Makes it the mailbox.
    Outcome commit();
    /// Why the outcome was a failure.
    const std::string& reason() const { return _status.text(); }
    /// The new mailbox, once that was done.
    std::shared_ptr<const MboxContents> contents() const { return _contents; }

private:
    void begin(std::optional<mode_t> permissions);
    void write(std::string_view bytes);
    bool good() const { return _file != nullptr && static_cast<bool>(_status); }
    void copyBytes(std::uint64_t from, std::uint64_t to);
    bool copiedWhatWasRead() const;
    /// Opens the finished file, so that nothing can go wrong behind the switch.
    std::unique_ptr<ReadableFile> openFinished();

    const MboxContents& _now;  // borrowed from the caller
    const std::optional<FileAttributes> _state;
    const std::string _temporaryPath;
    FileStatus _status;  // the first failure; nothing is done after it
    std::unique_ptr<WritableFile> _file;
    MboxContents::Reading _written;
    MboxScanner _scanner{[this](const MboxEntry& entry) { _written.entries.push_back(entry); }};
    std::vector<MboxEntry> _copied;  // which the first ones written must be equal to
    bool _lengthened = false;        // the last of them has got a newline more
    std::string _tail = "\n";        // the last two bytes added
    bool _isTemporary = false;       // the temporary file is there and ours
    std::shared_ptr<const MboxContents> _contents;
};

}  // namespace lorvale
