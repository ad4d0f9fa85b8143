#pragma once
#include <chrono>
#include <condition_variable>
#include <functional>
#include <stop_token>
#include <string>
#include <thread>

#include "lorvale/export.h"
#include "lorvale/platform/mutex.h"

namespace lorvale {

/// A lock with an integer condition, which changes only while it is held: threads hand work over by waiting
/// for a value and leaving another.  Not recursive.  Waits end at their deadline, which is why they have one.
class LORVALE_EXPORT LORVALE_CAPABILITY("mutex") ConditionLock {
public:
    using Clock = std::chrono::steady_clock;

    explicit ConditionLock(int condition = 0) : _condition(condition) {}
    ConditionLock(const ConditionLock&) = delete;
    ConditionLock& operator=(const ConditionLock&) = delete;

    /// Whatever the condition is.
    void lock() LORVALE_ACQUIRE();
    [[nodiscard]] bool try_lock() LORVALE_TRY_ACQUIRE(true);
    [[nodiscard]] bool tryLock() LORVALE_TRY_ACQUIRE(true) { return try_lock(); }
    /// Waits until the lock is free and its condition is `condition`.
    void lockWhenCondition(int condition) LORVALE_ACQUIRE();
    /// False, and not locked, when the deadline came first.
    [[nodiscard]] bool lockWhenCondition(int condition, Clock::time_point deadline) LORVALE_TRY_ACQUIRE(true);
    [[nodiscard]] bool tryLockWhenCondition(int condition) LORVALE_TRY_ACQUIRE(true);
    /// The same until somebody asks to stop.
    [[nodiscard]] bool lockWhenCondition(int condition, const std::stop_token& stop) LORVALE_TRY_ACQUIRE(true);

    void unlock() LORVALE_RELEASE();
    void unlockWithCondition(int condition) LORVALE_RELEASE();

    /// At this moment; certain only for the thread that holds the lock.
    int condition() const;

private:
    mutable std::mutex _mutex;  // held for moments only
    std::condition_variable_any _changed;
    bool _locked = false;  // guarded by _mutex, as is the condition
    int _condition;
};

using ConditionLockGuard = BasicMutexLock<ConditionLock>;

/// A thread that is told to stop and joined before its owner goes: make it the owner's last member.  When the
/// thread itself drops its owner, it cannot wait for its own end: it is told to stop and goes on by itself,
/// with its body.  The body's exceptions are logged and end the thread, never the process.
class LORVALE_EXPORT Thread {
public:
    using Body = std::function<void(std::stop_token)>;

    /// Priority for work behind the user's back.
    static constexpr int kBackgroundPriority = 10;

    Thread() = default;
    /// `name` shows in debuggers (its first 15 bytes) and logs.  `priority` as for setCurrentPriority(). Throws
    /// GenericException when the system has no thread left.
    Thread(std::string name, int priority, Body body);
    Thread(std::string name, Body body) : Thread(std::move(name), 0, std::move(body)) {}
    Thread(Thread&&) noexcept = default;
    Thread& operator=(Thread&& other) noexcept;
    ~Thread() { end(); }

    /// Gives the calling thread its share of the processor: 0 is the process's own, up to 19 means less.  False
    /// when the system refuses, as it does for more than the thread has; that costs nothing but speed.
    static bool setCurrentPriority(int priority);

    bool joinable() const { return _thread.joinable(); }
    /// Waits for the end.  Returns at once when there is nothing to wait for, and in the thread itself.
    void join();
    void requestStop() { _thread.request_stop(); }
    std::stop_token stopToken() const { return _thread.get_stop_token(); }
    std::thread::id id() const { return _thread.get_id(); }

private:
    void end() noexcept;

    std::jthread _thread;
};

/// Sleeps until the time has passed (true) or somebody asks to stop (false).
[[nodiscard]] LORVALE_EXPORT bool sleepUnlessStopped(const std::stop_token& stop,
                                                     std::chrono::steady_clock::duration duration);

/// The one handler in which the body of every thread and of every posted call ends: runs `body` and logs
/// "what: reason" for an exception.  False when there was one.
LORVALE_EXPORT bool runLoggingExceptions(std::string_view what, const std::function<void()>& body) noexcept;

}  // namespace lorvale
