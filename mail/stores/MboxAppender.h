#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/files/FileSystem.h"
#include "mail/stores/MboxScan.h"

namespace lorvale {

/// Adds messages at the end of a file of mail.  What stands there is never touched: a crash leaves a piece of a
/// message behind it at most, and a failure nothing.  A piece that an earlier crash has left without an end of
/// line is closed first, so that it cannot swallow the next message.
///
/// What is added is collected, and written by flush(), which must not be put off for more than a few megabytes.
/// Each flush() ends on the disk: of two writes that a loss of power hits the later one alone may be kept, and
/// the hole between would belong to the message before it.
class MboxAppender {
public:
    /// Opens the file, which is made if missing.  Not one with something else than mail at its start, where
    /// nobody would find what is appended.
    explicit MboxAppender(const std::string& path);
    MboxAppender(const MboxAppender&) = delete;
    MboxAppender& operator=(const MboxAppender&) = delete;
    ~MboxAppender() = default;

    /// The last failure.
    const FileStatus& status() const { return _status; }
    /// Collects a message, which gets an empty line behind it if it has none, and answers where it will lie.
    /// Nullopt when there is no room for it.
    std::optional<MboxRange> append(std::string_view header, std::string_view body);
    /// Whether it is time for flush().
    bool isFull() const { return _waiting.size() >= kEnough; }
    /// Returns when everything collected is on disk.  False when that fails; the file is then without it.
    bool flush();
    /// Adds all messages of another file, and flushes.  Nullopt when that fails; the file is then as before.
    std::optional<MboxRange> appendFile(ReadableFile& mail);

private:
    static constexpr std::size_t kEnough = 2 << 20;

    FileStatus prepare(ReadableFile& file);
    bool hasRoom(std::uint64_t size);
    bool cutBack(std::uint64_t position);

    const std::string _path;
    FileStatus _status;
    std::unique_ptr<WritableFile> _file;  // null: nothing can be written any more
    std::uint64_t _position = 0;          // up to where the file is on disk
    std::string _waiting;                 // what comes behind
};

}  // namespace lorvale
