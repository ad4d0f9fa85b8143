#include "base/platform/RunLoopImplementation.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>

#include "lorvale/platform/exception.h"
#include "lorvale/platform/thread.h"
#include "lorvale/values/format.h"

namespace lorvale {

namespace {

// What epoll says is handed to poll and back.
static_assert(EPOLLIN == POLLIN && EPOLLOUT == POLLOUT && EPOLLHUP == POLLHUP && EPOLLERR == POLLERR);

using Clock = RunLoop::Clock;

/// For epoll_wait(): rounded up, or a deadline within the millisecond would be waited for by spinning.
int millisecondsUntil(Clock::time_point deadline) {
    if (deadline == Clock::time_point::max()) return -1;
    const auto now = Clock::now();
    if (deadline <= now) return 0;
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
    return static_cast<int>(std::min<std::int64_t>(wait, std::numeric_limits<int>::max()));
}

Descriptor requireDescriptor(int descriptor, std::string_view what) {
    if (descriptor < 0) throw GenericException(formatText("No %@ left (error %d)", what, errno));
    return Descriptor(descriptor);
}

}  // namespace

RunLoop::Implementation::Implementation()
    : _epoll(requireDescriptor(::epoll_create1(EPOLL_CLOEXEC), "event queue")),
      _wake(requireDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "event descriptor")),
      _timer(requireDescriptor(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timer")) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = kWakeUp;
    ::epoll_ctl(_epoll.get(), EPOLL_CTL_ADD, _wake.get(), &event);
    event.data.u64 = kTimer;
    ::epoll_ctl(_epoll.get(), EPOLL_CTL_ADD, _timer.get(), &event);
}

void RunLoop::Implementation::wakeUp() {
    if (std::exchange(_awake, true)) return;
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written =
        ::write(_wake.get(), &one, sizeof one);  // fails only when readable anyway
}

void RunLoop::Implementation::setTimer() {
    itimerspec next{};  // all zero: off
    if (!_timers.empty() && _timers.begin()->first.first != Clock::time_point::max()) {
        const auto when = std::max<std::int64_t>(
            std::chrono::nanoseconds(_timers.begin()->first.first.time_since_epoch()).count(), 1);
        next.it_value.tv_sec = static_cast<time_t>(when / 1'000'000'000);
        next.it_value.tv_nsec = static_cast<long>(when % 1'000'000'000);
    }
    ::timerfd_settime(_timer.get(), TFD_TIMER_ABSTIME, &next, nullptr);
}

RunLoop::CallID RunLoop::Implementation::add(Callback callback, bool whenIdle) {
    const MutexLock lock(_mutex);
    if (_closed) return 0;
    (whenIdle ? _idle : _pending).push_back({++_lastCall, std::move(callback)});
    wakeUp();
    return _lastCall;
}

RunLoop::CallID RunLoop::Implementation::addTimer(Callback callback, Clock::time_point when) {
    const MutexLock lock(_mutex);
    if (_closed) return 0;
    const CallID id = ++_lastCall;
    _timers.emplace(TimerKey{when, id}, std::move(callback));
    _timerTimes.emplace(id, when);
    if (_timers.begin()->first.second == id) setTimer();
    return id;
}

bool RunLoop::Implementation::cancel(CallID call) {
    Callback dropped;  // destroyed without the lock: what it holds may come back here
    const MutexLock lock(_mutex);
    if (const auto found = _timerTimes.find(call); found != _timerTimes.end()) {
        const auto timer = _timers.find({found->second, call});
        dropped.swap(timer->second);
        _timers.erase(timer);
        _timerTimes.erase(found);
        setTimer();
        return true;
    }
    for (auto* const calls : {&_pending, &_idle}) {
        const auto found = std::ranges::find(*calls, call, &Call::id);
        if (found == calls->end()) continue;
        dropped.swap(found->callback);
        calls->erase(found);
        return true;
    }
    return false;
}

std::uint64_t RunLoop::Implementation::addSource(int descriptor, Ready wanted,
                                                 std::function<void(Ready)> callback) {
    const MutexLock lock(_mutex);
    if (_closed) return 0;
    epoll_event event{};
    event.events = (wanted.readable ? EPOLLIN : 0u) | (wanted.writable ? EPOLLOUT : 0u);
    event.data.u64 = ++_lastSource;
    if (::epoll_ctl(_epoll.get(), EPOLL_CTL_ADD, descriptor, &event) != 0) {
        throw InvalidArgumentException(
            formatText("The descriptor %d cannot be watched (error %d)", descriptor, errno));
    }
    _watches.emplace(_lastSource,
                     std::make_shared<Watch>(Watch{descriptor, event.events, std::move(callback)}));
    return _lastSource;
}

void RunLoop::Implementation::removeSource(std::uint64_t number) {
    std::shared_ptr<Watch> dropped;  // destroyed without the lock
    const MutexLock lock(_mutex);
    const auto found = _watches.find(number);
    if (found == _watches.end()) return;
    dropped = std::move(found->second);
    _watches.erase(found);
    ::epoll_ctl(_epoll.get(), EPOLL_CTL_DEL, dropped->descriptor, nullptr);
}

void RunLoop::Implementation::requestStop() {
    const MutexLock lock(_mutex);
    _stopping = true;
    wakeUp();
}

bool RunLoop::Implementation::takeStop() {
    const MutexLock lock(_mutex);
    return std::exchange(_stopping, false);
}

/// Takes the readiness of one of our own descriptors back.
void RunLoop::Implementation::acknowledge(std::uint64_t number) {
    const MutexLock lock(_mutex);
    std::uint64_t count = 0;
    [[maybe_unused]] const auto size =
        ::read(number == kWakeUp ? _wake.get() : _timer.get(), &count, sizeof count);
    if (number == kWakeUp) _awake = false;
}

std::shared_ptr<RunLoop::Implementation::Watch> RunLoop::Implementation::watchOf(std::uint64_t number) {
    const MutexLock lock(_mutex);
    const auto found = _watches.find(number);
    return found == _watches.end() ? nullptr : found->second;
}

/// `isFresh`: no callback has run since the event came in.
bool RunLoop::Implementation::runSource(const epoll_event& event, bool isFresh) {
    const auto watch = watchOf(event.data.u64);
    if (watch == nullptr) return false;  // removed by a callback of the same turn
    auto events = event.events;
    if (!isFresh) {
        // A callback before this one, or a loop that it ran inside, may have used up what was there.
        pollfd now{watch->descriptor, static_cast<short>(watch->wanted), 0};
        if (::poll(&now, 1, 0) != 1) return false;
        events = static_cast<std::uint32_t>(now.revents);
    }
    const Ready ready{(events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0, (events & (EPOLLOUT | EPOLLERR)) != 0};
    runLoggingExceptions("Run loop source", [&] { watch->callback(ready); });
    return true;
}

std::optional<RunLoop::Implementation::Call> RunLoop::Implementation::takeDueTimer(Clock::time_point now) {
    const MutexLock lock(_mutex);
    if (_timers.empty() || _timers.begin()->first.first > now) return std::nullopt;
    const auto first = _timers.begin();
    Call call{first->first.second, std::move(first->second)};
    _timerTimes.erase(call.id);
    _timers.erase(first);
    return call;
}

std::optional<RunLoop::Implementation::Call> RunLoop::Implementation::takePending(CallID last) {
    const MutexLock lock(_mutex);
    if (_pending.empty() || _pending.front().id > last) return std::nullopt;
    Call call = std::move(_pending.front());
    _pending.pop_front();
    return call;
}

std::optional<RunLoop::Implementation::Call> RunLoop::Implementation::takeIdle() {
    const MutexLock lock(_mutex);
    if (_idle.empty()) return std::nullopt;
    Call call = std::move(_idle.front());
    _idle.pop_front();
    return call;
}

bool RunLoop::Implementation::runTimers() {
    bool ran = false;
    // As of one moment: a call that sets itself again without a delay waits for the next turn.
    const auto now = Clock::now();
    while (const auto call = takeDueTimer(now)) {
        runLoggingExceptions("Delayed call", call->callback);
        ran = true;
    }
    const MutexLock lock(_mutex);
    setTimer();
    return ran;
}

bool RunLoop::Implementation::runPending() {
    CallID last = 0;
    {
        const MutexLock lock(_mutex);
        last = _lastCall;
    }
    bool ran = false;
    // Calls that are added meanwhile wait for the next turn, or descriptors would starve.
    while (const auto call = takePending(last)) {
        runLoggingExceptions("Posted call", call->callback);
        ran = true;
    }
    return ran;
}

bool RunLoop::Implementation::runIdle() {
    const auto call = takeIdle();
    if (call) runLoggingExceptions("Idle call", call->callback);
    return call.has_value();
}

bool RunLoop::Implementation::turn(Clock::time_point deadline) {
    std::array<epoll_event, 32> events;
    const int count =
        ::epoll_wait(_epoll.get(), events.data(), static_cast<int>(events.size()), millisecondsUntil(deadline));
    bool ran = false;
    for (int i = 0; i < count; ++i) {
        const auto& event = events[static_cast<std::size_t>(i)];
        if (event.data.u64 <= kTimer) {
            acknowledge(event.data.u64);
        } else {
            ran = runSource(event, !ran) || ran;
        }
    }
    ran = runTimers() || ran;
    ran = runPending() || ran;
    if (!ran) ran = runIdle();
    const MutexLock lock(_mutex);
    if (!_pending.empty() || !_idle.empty()) wakeUp();
    return ran;
}

void RunLoop::Implementation::close() {
    std::deque<Call> pending, idle;  // all destroyed without the lock
    std::map<TimerKey, Callback> timers;
    std::unordered_map<std::uint64_t, std::shared_ptr<Watch>> watches;
    const MutexLock lock(_mutex);
    _closed = true;
    pending.swap(_pending);
    idle.swap(_idle);
    timers.swap(_timers);
    watches.swap(_watches);
    _timerTimes.clear();
}

}  // namespace lorvale
