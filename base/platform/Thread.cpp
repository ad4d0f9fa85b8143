#include "lorvale/platform/thread.h"

#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <system_error>
#include <utility>

#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"

namespace lorvale {

namespace {

void setUpCurrentThread(const std::string& name, int priority) {
    ::pthread_setname_np(::pthread_self(), name.substr(0, 15).c_str());
    if (priority == 0) return;
    // On Linux the nice value belongs to the thread.  Counted from the process's own, or the threads of one
    // that runs below all others would ask for more.  A refusal costs nothing but speed.
    const auto self = static_cast<id_t>(::syscall(SYS_gettid));
    ::setpriority(PRIO_PROCESS, self, std::min(::getpriority(PRIO_PROCESS, self) + priority, 19));
}

}  // namespace

Thread::Thread(std::string name, int priority, Body body) {
    try {
        _thread = std::jthread(
            [name = std::move(name), priority, body = std::move(body)](const std::stop_token& stop) {
                setUpCurrentThread(name, priority);
                runLoggingExceptions("Thread " + name, [&] { body(stop); });
            });
    } catch (const std::system_error& error) {
        throw GenericException(std::string("Could not start a thread: ") + error.what());
    }
}

bool sleepUnlessStopped(const std::stop_token& stop, std::chrono::steady_clock::duration duration) {
    std::mutex mutex;
    std::condition_variable_any never;
    std::unique_lock lock(mutex);
    never.wait_for(lock, stop, duration, [] { return false; });
    return !stop.stop_requested();
}

bool runLoggingExceptions(std::string_view what, const std::function<void()>& body) noexcept {
    try {
        try {
            body();
            return true;
        } catch (const std::exception& error) {
            log("%@: %@", what, error.what());
        } catch (...) {
            log("%@: an exception of unknown kind", what);
        }
    } catch (...) {
        // Even the log failed.  There is nobody left to tell, and the thread must live.
    }
    return false;
}

}  // namespace lorvale
