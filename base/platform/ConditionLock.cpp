#include <cassert>
#include <utility>

#include "lorvale/platform/thread.h"

// The analysis cannot follow a lock that is itself made of a flag and a condition variable, so it is off here.

namespace lorvale {

void ConditionLock::lock() LORVALE_NO_THREAD_SAFETY_ANALYSIS {
    std::unique_lock guard(_mutex);
    _changed.wait(guard, [this] { return !_locked; });
    _locked = true;
}

bool ConditionLock::try_lock() LORVALE_NO_THREAD_SAFETY_ANALYSIS {
    const std::lock_guard guard(_mutex);
    return !std::exchange(_locked, true);
}

void ConditionLock::lockWhenCondition(int condition) LORVALE_NO_THREAD_SAFETY_ANALYSIS {
    std::unique_lock guard(_mutex);
    _changed.wait(guard, [&] { return !_locked && _condition == condition; });
    _locked = true;
}

bool ConditionLock::lockWhenCondition(int condition,
                                      Clock::time_point deadline) LORVALE_NO_THREAD_SAFETY_ANALYSIS {
    std::unique_lock guard(_mutex);
    if (!_changed.wait_until(guard, deadline, [&] { return !_locked && _condition == condition; }))
        return false;
    return _locked = true;
}

bool ConditionLock::tryLockWhenCondition(int condition) LORVALE_NO_THREAD_SAFETY_ANALYSIS {
    const std::lock_guard guard(_mutex);
    if (_locked || _condition != condition) return false;
    return _locked = true;
}

bool ConditionLock::lockWhenCondition(int condition,
                                      const std::stop_token& stop) LORVALE_NO_THREAD_SAFETY_ANALYSIS {
    std::unique_lock guard(_mutex);
    if (!_changed.wait(guard, stop, [&] { return !_locked && _condition == condition; })) return false;
    return _locked = true;
}

void ConditionLock::unlock() LORVALE_NO_THREAD_SAFETY_ANALYSIS {
    const std::lock_guard guard(_mutex);
    assert(_locked);
    _locked = false;
    _changed.notify_all();  // under the lock: a thread that gets in at once may destroy this object
}

void ConditionLock::unlockWithCondition(int condition) LORVALE_NO_THREAD_SAFETY_ANALYSIS {
    const std::lock_guard guard(_mutex);
    assert(_locked);
    _condition = condition;
    _locked = false;
    _changed.notify_all();
}

int ConditionLock::condition() const {
    const std::lock_guard guard(_mutex);
    return _condition;
}

}  // namespace lorvale
