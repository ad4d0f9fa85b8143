#include "mail/stores/MboxReplacement.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "lorvale/platform/log.h"

namespace lorvale {

namespace {

bool sameState(const std::optional<FileAttributes>& a, const std::optional<FileAttributes>& b) {
    if (!a || !b) return !a && !b;
    return a->isSameFileAs(*b) && a->size == b->size && a->modified == b->modified &&
           a->modifiedNanoseconds == b->modifiedNanoseconds && a->changed == b->changed &&
           a->changedNanoseconds == b->changedNanoseconds;
}

}  // namespace

MboxReplacement::MboxReplacement(const MboxContents& now, const std::optional<FileAttributes>& state,
                                 std::optional<mode_t> permissions)
    : _now(now), _state(state), _temporaryPath(now.path() + ".tmp") {
    begin(permissions);
}

void MboxReplacement::begin(std::optional<mode_t> permissions) {
    auto& files = FileSystem::current();
    // What a crash has left goes first.  The new file is made, never opened: somebody else's link of that name
    // must not lead our mail elsewhere.
    if (files.linkAttributes(_temporaryPath)) {
        if (_status = files.remove(_temporaryPath); !_status) return;
    }
    const auto mode = permissions.value_or(_state ? _state->permissions : kMailboxPermissions);
    _file = files.openForWriting(_temporaryPath, WriteMode::createNew, _state ? 0600 : mode, &_status);
    _isTemporary = _file != nullptr;
    if (good() && _state) _status = takeAccessOf(*_state, _temporaryPath, mode);
}

MboxReplacement::~MboxReplacement() {
    // The failure to tell was told before; a file that stays here goes with the next replacement.
    if (_isTemporary) static_cast<void>(FileSystem::current().remove(_temporaryPath));
}

void MboxReplacement::copyStart() {
    copyBytes(0, _now.entries().empty() ? _now.size() : _now.entries().front().range.location);
}

void MboxReplacement::copy(std::span<const MboxEntry> messages) {
    if (messages.empty()) return;
    _copied.insert(_copied.end(), messages.begin(), messages.end());
    copyBytes(messages.front().range.location, messages.back().range.end());
}

void MboxReplacement::copyBytes(std::uint64_t from, std::uint64_t to) {
    std::vector<char> block(static_cast<std::size_t>(std::min<std::uint64_t>(to - from, kMboxBlock)));
    while (good() && from < to) {
        const auto wanted =
            std::span(block).first(static_cast<std::size_t>(std::min<std::uint64_t>(to - from, block.size())));
        const auto count = _now.readInto(wanted, from);
        if (!count) {
            _status = FileStatus::failed("read", _now.path());
        } else if (*count == 0) {
            return;  // cut off, which commit() will find
        } else {
            write({wanted.data(), *count});
            from += *count;
        }
    }
}

void MboxReplacement::write(std::string_view bytes) {
    if (!good() || bytes.empty()) return;
    if (bytes.size() > kLargestMbox - _scanner.size()) {
        _status = FileStatus(EFBIG, formatText("%@ would grow above 4 GB", _now.path()));
        return;
    }
    _status = _file->write(bytes);
    _scanner.add(bytes);
    _tail.append(bytes.substr(bytes.size() - std::min<std::size_t>(bytes.size(), 2)));
    _tail.erase(0, _tail.size() - std::min<std::size_t>(_tail.size(), 2));
}

void MboxReplacement::endLine() {
    if (_tail.ends_with('\n')) return;
    _lengthened = !_copied.empty();
    write("\n\n");
}

void MboxReplacement::writeMessage(std::string_view header, std::string_view body) {
    write(header);
    write(body);
    write(mboxPadding(_tail));
}

bool MboxReplacement::copiedWhatWasRead() const {
    const auto same = [](const MboxEntry& a, const MboxEntry& b) { return a.hasBytesOf(b); };
    auto count = _copied.size();
    if (_written.entries.size() < count) return false;
    // With newlines behind it the last one looks different; whether it is the same the old file must tell.
    if (_lengthened && (!_now.headerOf(_copied[--count]) || !_now.bodyOf(_copied[count]))) return false;
    return std::equal(_copied.begin(), _copied.begin() + static_cast<std::ptrdiff_t>(count),
                      _written.entries.begin(), same);
}

std::unique_ptr<ReadableFile> MboxReplacement::openFinished() {
    auto file = FileSystem::current().openForReading(_temporaryPath, &_status);
    if (file == nullptr) return nullptr;
    const auto attributes = file->attributes();
    _written.attributes = attributes.value_or(FileAttributes());
    _written.size = _scanner.size();
    if (!attributes || static_cast<std::uint64_t>(attributes->size) != _written.size)
        _status = FileStatus(EIO, formatText("%@ is not as it was written", _temporaryPath));
    return file;
}

MboxReplacement::Outcome MboxReplacement::commit() {
    if (!good()) return Outcome::failed;
    _scanner.finish();
    if (!copiedWhatWasRead()) return Outcome::sourceChanged;
    if (_status = _file->sync(); !_status) return Outcome::failed;
    if (_status = _file->close(); !_status) return Outcome::failed;
    auto finished = openFinished();
    if (!_status) return Outcome::failed;
    auto& files = FileSystem::current();
    // A program that honours no lock may have delivered while we copied.
    if (!sameState(files.attributes(_now.path()), _state)) return Outcome::sourceChanged;
    if (_status = files.rename(_temporaryPath, _now.path()); !_status) return Outcome::failed;
    _isTemporary = false;
    _contents = std::make_shared<MboxContents>(_now.path(), std::move(finished), std::move(_written));
    // The mailbox is the new one whatever becomes of this; only a power loss could still bring back the old.
    if (const auto synced = files.syncFolder(folderOf(_now.path())); !synced) log("%@", synced.text());
    return Outcome::done;
}

}  // namespace lorvale
