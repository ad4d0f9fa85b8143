#include "base/files/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <thread>

namespace lorvale {

FileLock::FileLock(const std::string& path, std::chrono::milliseconds patience)
    : FileLock(path, O_RDWR | O_CREAT, patience) {}

FileLock FileLock::ofFolder(const std::string& path, std::chrono::milliseconds patience) {
    return {path, O_RDONLY | O_DIRECTORY, patience};
}

FileLock::FileLock(const std::string& path, int flags, std::chrono::milliseconds patience) {
    constexpr std::chrono::milliseconds kGlance(2);  // the system's own wait has no end that one could choose
    Descriptor file(::open(path.c_str(), flags | O_CLOEXEC, 0600));
    if (!file) {
        _failure = FileStatus::failed("open", path);
        return;
    }
    const auto end = std::chrono::steady_clock::now() + patience;
    while (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR) continue;
        _isTaken = errno == EWOULDBLOCK;
        if (!_isTaken) _failure = FileStatus::failed("lock", path);
        if (!_isTaken || std::chrono::steady_clock::now() >= end) return;
        std::this_thread::sleep_for(kGlance);
    }
    _isTaken = false;
    _file = std::move(file);
}

}  // namespace lorvale
