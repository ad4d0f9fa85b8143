#include "mail/accounts/MailboxRemoval.h"

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/platform/log.h"
#include "mail/stores/StoreLock.h"
#include "mail/stores/TarnNames.h"

namespace lorvale {

namespace {

/// Takes the lock of a mailbox, and keeps it until the mailbox is gone together with the lock.
class RemovalLock {
public:
    /// A disk that has no room for a lock file must not keep a mailbox from being removed: without one nobody
    /// has the mailbox open.
    explicit RemovalLock(std::string path) : _path(std::move(path)) {
        auto& files = FileSystem::current();
        _isFree = !files.linkAttributes(_path) || shouldOpenDespiteLockFile(_path);
        if (!_isFree) return;
        _isMade = createLockFile(_path);
        _isFree = _isMade || !files.linkAttributes(_path);
    }
    ~RemovalLock() {
        if (_isMade && FileSystem::current().linkAttributes(_path)) deletePath(_path);
    }
    RemovalLock(const RemovalLock&) = delete;
    RemovalLock& operator=(const RemovalLock&) = delete;
    bool isFree() const { return _isFree; }

private:
    const std::string _path;
    bool _isFree = false, _isMade = false;
};

bool removeInOneStep(const std::string& path) {
    const auto aside = temporaryPathBeside(path);
    if (const auto moved = replaceFile(path, aside); !moved) {
        log("%@", moved.text());
        return false;
    }
    return deletePath(aside);
}

}  // namespace

bool removeMailboxFiles(const std::string& path) {
    const auto attributes = FileSystem::current().linkAttributes(path);
    if (!attributes) return true;
    if (attributes->isLink || !path.ends_with(".mbox")) return deletePath(path);
    const RemovalLock lock(path + (attributes->isDirectory ? "/" : "") + std::string(kLockName));
    if (!lock.isFree()) {
        log("The mailbox %@ is in use, and is not removed", path);
        return false;
    }
    return attributes->isDirectory ? removeInOneStep(path) : deletePath(path);
}

}  // namespace lorvale
