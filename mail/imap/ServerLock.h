#pragma once
#include <atomic>
#include <chrono>
#include <functional>
#include <utility>

#include "lorvale/platform/mutex.h"
#include "lorvale/platform/run_loop.h"

namespace lorvale {

/// The lock over exchanges with a server.  Recursive.  The main thread does not block on it: while another
/// thread talks to the server, it goes on serving its run loop, since that thread may need it.
class LORVALE_CAPABILITY("mutex") ServerLock {
public:
    /// What whoever has to wait for the lock calls, in his thread: it asks a holder that does nothing but wait
    /// for news of the server to give way.  Before the lock is shared.
    void setAsking(std::function<void()> ask) { _ask = std::move(ask); }
    bool isWanted() const { return _waiting > 0; }

    void lock() LORVALE_ACQUIRE() {
        if (_mutex.try_lock()) return;
        const Waiting waiting(_waiting);
        if (!RunLoop::isMainThread()) {
            if (_ask) _ask();
            _mutex.lock();
            return;
        }
        // A glance at the lock from time to time: a turn of the loop ends at once when something is to do.
        while (!_mutex.try_lock()) {
            if (_ask) _ask();
            RunLoop::current()->runOnce(RunLoop::Clock::now() + kGlance);
        }
    }
    void unlock() LORVALE_RELEASE() { _mutex.unlock(); }

private:
    static constexpr std::chrono::milliseconds kGlance{10};

    struct Waiting {
        explicit Waiting(std::atomic<int>& counted) : count(counted) { ++count; }
        ~Waiting() { --count; }
        std::atomic<int>& count;
    };

    RecursiveMutex _mutex;
    std::function<void()> _ask;
    std::atomic<int> _waiting = 0;
};

using ServerTurn = BasicMutexLock<ServerLock>;

}  // namespace lorvale
