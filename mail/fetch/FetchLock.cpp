#include "mail/fetch/FetchLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "base/files/FileSystem.h"
#include "lorvale/platform/log.h"

namespace lorvale {

FetchLock::FetchLock(const std::string& path)
    : _file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (!_file) {
        log("%@", FileStatus::failed("open", path).text());
    } else if (::flock(_file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) log("%@", FileStatus::failed("lock", path).text());
        _file.reset();
    }
}

}  // namespace lorvale
