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

bool isCurrent(const std::jthread& thread) {
    return thread.get_id() == std::this_thread::get_id();
}

}  // namespace

bool Thread::setCurrentPriority(int priority) {
    // On Linux the nice value belongs to the thread, and the process's own is that of its first thread. Counted
    // from there, or the threads of a process that runs below all others would ask for more.
    const auto self = static_cast<id_t>(::syscall(SYS_gettid));
    const auto first = static_cast<id_t>(::getpid());
    const int nice = std::clamp(::getpriority(PRIO_PROCESS, first) + priority, -20, 19);
    return nice == ::getpriority(PRIO_PROCESS, self) || ::setpriority(PRIO_PROCESS, self, nice) == 0;
}

void Thread::end() noexcept {
    if (!_thread.joinable()) return;
    _thread.request_stop();
    isCurrent(_thread) ? _thread.detach() : _thread.join();
}

Thread& Thread::operator=(Thread&& other) noexcept {
    if (this == &other) return *this;
    end();
    _thread = std::move(other._thread);
    return *this;
}

void Thread::join() {
    if (_thread.joinable() && !isCurrent(_thread)) _thread.join();
}

Thread::Thread(std::string name, int priority, Body body) {
    try {
        _thread = std::jthread(
            [name = std::move(name), priority, body = std::move(body)](const std::stop_token& stop) {
                ::pthread_setname_np(::pthread_self(), name.substr(0, 15).c_str());
                setCurrentPriority(priority);
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
