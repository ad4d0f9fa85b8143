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
class MboxAppender {
public:
    /// Opens the file, which is made if missing.  Not one with something else than mail at its start, where
    /// nobody would find what is appended.
    explicit MboxAppender(const std::string& path);
    MboxAppender(const MboxAppender&) = delete;
    MboxAppender& operator=(const MboxAppender&) = delete;
    ~MboxAppender() = default;

    /// The first failure that stands in the way of more; after a failed append() one that was undone.
    const FileStatus& status() const { return _status; }
    /// Where the next message begins.
    std::uint64_t position() const { return _position; }
    /// Adds a message, which gets an empty line behind it if it has none.  Nullopt when it cannot be written;
    /// the file is then as before.
    std::optional<MboxRange> append(std::string_view header, std::string_view body);
    /// Adds all messages of another file, likewise.
    std::optional<MboxRange> appendFile(ReadableFile& mail);
    /// Takes away what was added from that position on.
    FileStatus cutBack(std::uint64_t position);
    /// Returns when everything is on disk.
    FileStatus finish();

private:
    FileStatus prepare(ReadableFile& file);
    void write(std::string_view bytes);
    std::optional<MboxRange> end(std::uint64_t start);

    const std::string _path;
    FileStatus _status;
    std::unique_ptr<WritableFile> _file;  // null: nothing can be written any more
    std::uint64_t _position = 0;
    std::string _tail;  // the last two bytes
};

}  // namespace lorvale
