#pragma once
#include <functional>
#include <memory>
#include <optional>

#include "base/files/FileSystem.h"
#include "lorvale/values/data.h"
#include "mail/stores/MboxScan.h"

namespace lorvale {

inline std::uint64_t sizeOf(const FileAttributes& attributes) {
    return static_cast<std::uint64_t>(attributes.size);
}
/// Whether a file was written last at the same moment.
inline bool sameTime(const FileAttributes& a, const FileAttributes& b) {
    return a.modified == b.modified && a.modifiedNanoseconds == b.modifiedNanoseconds;
}
/// Waits until the next change of a file would show in its times, which come from a clock that ticks every few
/// milliseconds.
void letClockTick(const FileAttributes& file);

/// The bytes there, if they still have this digest; nullopt otherwise.
std::optional<Data> readMboxBytes(ReadableFile& file, MboxRange range, std::uint32_t digest);

/// One reading of a flat mailbox file from its beginning to its end, block by block, while other programs may
/// change it.  Borrows the file.
class MboxPass {
public:
    enum class Outcome {
        done,
        grown,      ///< another program has added to the file meanwhile, and perhaps done more
        disturbed,  ///< it has shortened or overwritten the file
        failed,
        tooLarge,
    };

    /// `found` gets each message once its end is known, the last one by the step that answers false.
    MboxPass(ReadableFile& file, std::function<void(const MboxEntry&)> found)
        : _file(file), _scanner(std::move(found)) {}

    /// Reads a block; false when there are no more, and outcome() tells why.
    [[nodiscard]] bool step();
    Outcome outcome() const { return _outcome; }
    /// Of the file when it was looked at last.
    const FileAttributes& attributes() const { return _attributes; }
    std::uint64_t sizeAtBeginning() const { return _sizeAtBeginning; }
    std::uint64_t size() const { return _scanner.size(); }
    bool isMbox() const { return _scanner.isMbox(); }

private:
    Outcome begin();
    Outcome end();

    ReadableFile& _file;
    MboxScanner _scanner;
    std::unique_ptr<char[]> _block;  // null before the first step
    FileAttributes _attributes;
    std::uint64_t _sizeAtBeginning = 0;
    Outcome _outcome = Outcome::done;
};

}  // namespace lorvale
