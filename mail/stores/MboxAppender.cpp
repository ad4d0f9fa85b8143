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
        return _position == 0 || cutBack(0) ? FileStatus() : _status;
    }
    if (!first.empty() && !first.starts_with(trimmed(kEnvelopeMark)))
        return {EINVAL, formatText("%@ is no mailbox, so nothing is appended to it", _path)};
    if (tail->view().ends_with('\n')) return {};
    _waiting = "\n\n";
    return flush() ? FileStatus() : _status;
}

bool MboxAppender::hasRoom(std::uint64_t size) {
    if (_file == nullptr) return false;
    if (size <= kLargestMbox - _position - _waiting.size()) return true;
    _status = {EFBIG, formatText("%@ would grow above 4 GB", _path)};
    return false;
}

std::optional<MboxRange> MboxAppender::append(std::string_view header, std::string_view body) {
    constexpr std::size_t kPadding = 2;
    if (!hasRoom(header.size() + body.size() + kPadding)) return std::nullopt;
    const auto start = _waiting.size();
    _waiting.append(header).append(body);
    _waiting += mboxPadding(std::string_view(_waiting).substr(start));
    return MboxRange{static_cast<std::uint32_t>(_position + start),
                     static_cast<std::uint32_t>(_waiting.size() - start)};
}

bool MboxAppender::flush() {
    if (_file == nullptr) return false;
    if (_waiting.empty()) return true;
    _status = _file->write(_waiting);
    if (_status) _status = _file->sync();
    if (_status) {
        _position += _waiting.size();
    } else if (!cutBack(_position)) {
        _file.reset();
    }
    _waiting.clear();
    return static_cast<bool>(_status);
}

std::optional<MboxRange> MboxAppender::appendFile(ReadableFile& mail) {
    const auto start = _position;
    std::string tail;
    std::vector<char> block(kEnough);
    const auto add = [&](std::string_view bytes) {
        if (!hasRoom(bytes.size())) return false;
        _waiting.append(bytes);
        return flush();
    };
    for (std::uint64_t offset = 0;;) {
        const auto count = mail.readInto(block, offset);
        if (!count) _status = FileStatus::failed("read what is to be appended to", _path);
        const bool isEnd = count && *count == 0;
        if (isEnd && add(mboxPadding(tail)))
            return MboxRange{static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(_position - start)};
        if (!count || isEnd || !add({block.data(), *count})) break;
        offset += *count;
        tail.append(block.data() + *count - std::min<std::size_t>(*count, 2), std::min<std::size_t>(*count, 2));
        tail.erase(0, tail.size() - std::min<std::size_t>(tail.size(), 2));
    }
    _waiting.clear();
    if (_file != nullptr && !cutBack(start)) _file.reset();
    return std::nullopt;
}

/// Takes away what stands behind a position; the failure to tell is the one before.
bool MboxAppender::cutBack(std::uint64_t position) {
    if (!_file->truncate(position) || !_file->seek(position)) return false;
    _position = position;
    return true;
}

}  // namespace lorvale
