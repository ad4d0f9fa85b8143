#include "mail/stores/MboxAppender.h"

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include "lorvale/values/format.h"
#include "lorvale/values/text.h"

namespace lorvale {

MboxAppender::MboxAppender(const std::string& path) : _path(path) {
    auto& files = FileSystem::current();
    _file = files.openForWriting(path, WriteMode::append, kMailboxPermissions, &_status);
    if (_file == nullptr) return;
    const auto file = files.openForReading(path, &_status);
    if (file != nullptr) _status = prepare(*file);
    if (!_status) _file.reset();
}

FileStatus MboxAppender::prepare(ReadableFile& file) {
    constexpr std::size_t kLook = 4096;
    _position = _file->position();
    const auto start = file.read(0, kLook),
               tail = file.read(_position - std::min<std::uint64_t>(_position, 2), 2);
    if (!start || !tail) return FileStatus::failed("read", _path);
    const auto first = trimmed(start->view());
    if (_position < kEnvelopeMark.size() && kEnvelopeMark.starts_with(first)) {
        // Not even the mark of a message, and so nobody's mail.
        return _position > 0 ? cutBack(0) : FileStatus();
    }
    if (!first.empty() && !first.starts_with(trimmed(kEnvelopeMark)))
        return {EINVAL, formatText("%@ is no mailbox, so nothing is appended to it", _path)};
    _tail = tail->toString();
    if (!_tail.ends_with('\n')) write("\n\n");
    return _status;
}

void MboxAppender::write(std::string_view bytes) {
    if (!_status || bytes.empty()) return;
    if (bytes.size() > kLargestMbox - _position) {
        _status = {EFBIG, formatText("%@ would grow above 4 GB", _path)};
        return;
    }
    if (_status = _file->write(bytes); !_status) return;
    _position += bytes.size();
    _tail.append(bytes.substr(bytes.size() - std::min<std::size_t>(bytes.size(), 2)));
    _tail.erase(0, _tail.size() - std::min<std::size_t>(_tail.size(), 2));
}

std::optional<MboxRange> MboxAppender::append(std::string_view header, std::string_view body) {
    if (_file == nullptr) return std::nullopt;
    const auto start = _position;
    _status = {};
    write(header);
    write(body);
    return end(start);
}

std::optional<MboxRange> MboxAppender::appendFile(ReadableFile& mail) {
    if (_file == nullptr) return std::nullopt;
    const auto start = _position;
    std::vector<char> block(kMboxBlock);
    _status = {};
    while (_status) {
        const auto count = mail.readInto(block, _position - start);
        if (!count) {
            _status = FileStatus::failed("read what is to be appended to", _path);
        } else if (*count == 0) {
            break;
        } else {
            write({block.data(), *count});
        }
    }
    return end(start);
}

/// Ends what began at `start`: with an empty line, or not at all.
std::optional<MboxRange> MboxAppender::end(std::uint64_t start) {
    if (_position > start) write(mboxPadding(_tail));
    if (_status) {
        return MboxRange{static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(_position - start)};
    }
    // The failure to tell is the first one; where it cannot be undone nothing more is written.
    if (!cutBack(start)) _file.reset();
    return std::nullopt;
}

FileStatus MboxAppender::cutBack(std::uint64_t position) {
    auto status = _file->truncate(position);
    if (status) status = _file->seek(position);
    if (!status) return status;
    _position = position;
    _tail = position == 0 ? "" : "\n\n";
    return status;
}

FileStatus MboxAppender::finish() {
    if (_file == nullptr) return _status;
    auto status = _file->sync();
    if (status) status = _file->close();
    _file.reset();
    return status;
}

}  // namespace lorvale
