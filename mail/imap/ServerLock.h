#pragma once
#include <chrono>

#include "lorvale/platform/mutex.h"
#include "lorvale/platform/run_loop.h"

namespace lorvale {

/// The lock over exchanges with a server.  Recursive.  The main thread does not block on it: while another
/// thread talks to the server, it goes on serving its run loop, since that thread may need it.
class LORVALE_CAPABILITY("mutex") ServerLock {
public:
    void lock() LORVALE_ACQUIRE() {
        if (!RunLoop::isMainThread()) {
            _mutex.lock();
            return;
        }
        // A glance at the lock from time to time: a turn of the loop ends at once when something is to do.
        while (!_mutex.try_lock()) RunLoop::current()->runOnce(RunLoop::Clock::now() + kGlance);
    }
    void unlock() LORVALE_RELEASE() { _mutex.unlock(); }

private:
    static constexpr std::chrono::milliseconds kGlance{10};
    RecursiveMutex _mutex;
};

using ServerTurn = BasicMutexLock<ServerLock>;

}  // namespace lorvale
