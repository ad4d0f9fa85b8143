#include "mail/stores/MboxReplacement.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

#include "lorvale/platform/log.h"

namespace lorvale {

namespace {

constexpr std::uint64_t kCopyBlock = 1 << 20;
constexpr std::uint64_t kLargestMailbox = std::numeric_limits<std::uint32_t>::max();
constexpr mode_t kNewMailboxPermissions = 0700;

}  // namespace

MboxReplacement::MboxReplacement(std::string path, const MboxSnapshot& now, std::optional<mode_t> permissions)
    : _path(std::move(path)), _temporaryPath(_path + ".tmp"), _now(now) {
    begin(permissions);
}

void MboxReplacement::begin(std::optional<mode_t> permissions) {
    auto& files = FileSystem::current();
    if (_now.size() > 0 && (_source = files.openForReading(_path, &_status)) == nullptr) return;
    // What a crash has left goes first.  The new file is made, never opened: somebody else's link of that name
    // must not lead our mail elsewhere.
    if (files.linkAttributes(_temporaryPath)) {
        if (_status = files.remove(_temporaryPath); !_status) return;
    }
    const auto old = _now.permissions();
    const auto mode = permissions.value_or(old.value_or(kNewMailboxPermissions));
    _file = files.openForWriting(_temporaryPath, WriteMode::createNew, mode & 0777, &_status);
    _isTemporary = _file != nullptr;
    // Opening took the process's mask into account, which the old file may once have escaped.
    if (good() && !permissions && old) _status = files.setPermissions(_temporaryPath, mode);
}

MboxReplacement::~MboxReplacement() {
    // The failure to tell was told before; a file that stays here goes with the next replacement.
    if (_isTemporary) static_cast<void>(FileSystem::current().remove(_temporaryPath));
}

void MboxReplacement::copy(std::uint64_t from, std::uint64_t to) {
    while (good() && from < to) {
        const auto block = _source->read(from, static_cast<std::size_t>(std::min(to - from, kCopyBlock)));
        if (!block || block->empty()) {
            _status = FileStatus(EIO, formatText("%@ could not be read up to byte %@", _path, to));
            return;
        }
        write(block->view());
        from += block->size();
    }
}

void MboxReplacement::write(std::string_view bytes) {
    if (!good() || bytes.empty()) return;
    if (bytes.size() > kLargestMailbox - _file->position()) {
        _status = FileStatus(EFBIG, formatText("%@ would grow above 4 GB", _path));
        return;
    }
    _status = _file->write(bytes);
    _last = bytes.back();
}

void MboxReplacement::endLine() {
    if (_last != '\n') write("\n\n");
}

MboxReplacement::Outcome MboxReplacement::commit() {
    if (!good()) return Outcome::failed;
    if (_status = _file->sync(); !_status) return Outcome::failed;
    if (_status = _file->close(); !_status) return Outcome::failed;
    // A program that honours no lock may have delivered while we copied.
    if (!_now.isCurrent()) return Outcome::sourceChanged;
    auto& files = FileSystem::current();
    if (_status = files.rename(_temporaryPath, _path); !_status) return Outcome::failed;
    _isTemporary = false;
    // The mailbox is the new one whatever becomes of this; only a power loss could still bring back the old.
    if (const auto synced = files.syncFolder(folderOf(_path)); !synced) log("%@", synced.text());
    return Outcome::done;
}

}  // namespace lorvale
