#pragma once
#include <sys/epoll.h>

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <utility>

#include "base/files/Descriptor.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/platform/run_loop.h"

namespace lorvale {

/// What waits in one loop, and the turn that serves it.  Any thread may add and cancel; turn() belongs to the
/// loop's thread.  Nothing of the caller's runs or is destroyed under the mutex.
class RunLoop::Implementation {
public:
    Implementation();

    CallID add(Callback callback, bool whenIdle);
    CallID addTimer(Callback callback, Clock::time_point when);
    bool cancel(CallID call);
    std::uint64_t addSource(int descriptor, Ready wanted, std::function<void(Ready)> callback);
    void removeSource(std::uint64_t number);
    void requestStop();
    bool takeStop();
    bool turn(Clock::time_point deadline);
    int descriptor() const { return _epoll.get(); }
    /// The thread ends: drops everything and takes no more.
    void close();

private:
    struct Call {
        CallID id = 0;
        Callback callback;
    };
    struct Watch {
        int descriptor;
        std::uint32_t wanted;  // events of epoll
        std::function<void(Ready)> callback;
    };
    // What the descriptor of an epoll event stands for; sources have higher numbers.
    static constexpr std::uint64_t kWakeUp = 0, kTimer = 1;
    using TimerKey = std::pair<Clock::time_point, CallID>;

    void wakeUp() LORVALE_REQUIRES(_mutex);
    void setTimer() LORVALE_REQUIRES(_mutex);
    void acknowledge(std::uint64_t number);
    std::shared_ptr<Watch> watchOf(std::uint64_t number);
    bool runSource(const epoll_event& event, bool isFresh);
    bool runTimers();
    bool runPending();
    bool runIdle();
    std::optional<Call> takeDueTimer(Clock::time_point now);
    std::optional<Call> takePending(CallID last);
    std::optional<Call> takeIdle();

    const Descriptor _epoll, _wake, _timer;
    Mutex _mutex;
    std::deque<Call> _pending LORVALE_GUARDED_BY(_mutex);
    std::deque<Call> _idle LORVALE_GUARDED_BY(_mutex);
    std::map<TimerKey, Callback> _timers LORVALE_GUARDED_BY(_mutex);
    std::unordered_map<CallID, Clock::time_point> _timerTimes LORVALE_GUARDED_BY(_mutex);
    std::unordered_map<std::uint64_t, std::shared_ptr<Watch>> _watches LORVALE_GUARDED_BY(_mutex);
    CallID _lastCall LORVALE_GUARDED_BY(_mutex) = 0;
    std::uint64_t _lastSource LORVALE_GUARDED_BY(_mutex) = kTimer;
    bool _awake LORVALE_GUARDED_BY(_mutex) = false;  // _wake is readable
    bool _stopping LORVALE_GUARDED_BY(_mutex) = false;
    bool _closed LORVALE_GUARDED_BY(_mutex) = false;
};

}  // namespace lorvale
