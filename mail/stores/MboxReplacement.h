#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/files/FileSystem.h"
#include "mail/stores/MboxSnapshot.h"

namespace lorvale {

/// A new version of a flat mailbox file under construction: a file beside it ("PATH.tmp"), which in the end is
/// renamed over it.  Until that one step the old mailbox stands whole, from then on the new one; a crash leaves
/// at most the unfinished file, which the next replacement takes away.  Without commit() nothing is left
/// behind. The caller holds the mailbox's lock.
class MboxReplacement {
public:
    enum class Outcome {
        done,
        failed,         ///< the mailbox is as it was
        sourceChanged,  ///< likewise: another program wrote into it meanwhile, so it must be copied anew
    };

    /// `now` is the mailbox as it is, just mapped; borrowed.  Without `permissions` the new file gets those of
    /// the old one.  A failure shows in commit().
    MboxReplacement(std::string path, const MboxSnapshot& now, std::optional<mode_t> permissions);
    ~MboxReplacement();
    MboxReplacement(const MboxReplacement&) = delete;
    MboxReplacement& operator=(const MboxReplacement&) = delete;

    /// Adds bytes of the mailbox from one place up to another.
    void copy(std::uint64_t from, std::uint64_t to);
    void write(std::string_view bytes);
    /// Makes what was added so far end with an empty line if it does not end with a newline.
    void endLine();

    /// Makes it the mailbox.
    Outcome commit();
    /// Why the outcome was a failure.
    const std::string& reason() const { return _status.text(); }

private:
    void begin(std::optional<mode_t> permissions);
    bool good() const { return _file != nullptr && static_cast<bool>(_status); }

    const std::string _path, _temporaryPath;
    const MboxSnapshot& _now;  // borrowed from the caller
    FileStatus _status;        // the first failure; nothing is done after it
    std::unique_ptr<ReadableFile> _source;
    std::unique_ptr<WritableFile> _file;
    char _last = '\n';          // the last byte added
    bool _isTemporary = false;  // the temporary file is there and ours
};

}  // namespace lorvale
