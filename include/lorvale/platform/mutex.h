#pragma once
#include <mutex>

#include "lorvale/export.h"

namespace lorvale {

/// The standard mutexes under clang's thread-safety analysis.  Guarded members are marked
/// LORVALE_GUARDED_BY(mutex) and touched under a MutexLock.
class LORVALE_CAPABILITY("mutex") Mutex {
public:
    void lock() LORVALE_ACQUIRE() { _mutex.lock(); }
    void unlock() LORVALE_RELEASE() { _mutex.unlock(); }
    [[nodiscard]] bool try_lock() LORVALE_TRY_ACQUIRE(true) { return _mutex.try_lock(); }
    std::mutex& native() { return _mutex; }  ///< for waiting on a condition variable

private:
    std::mutex _mutex;
};

class LORVALE_CAPABILITY("mutex") RecursiveMutex {
public:
    void lock() LORVALE_ACQUIRE() { _mutex.lock(); }
    void unlock() LORVALE_RELEASE() { _mutex.unlock(); }
    [[nodiscard]] bool try_lock() LORVALE_TRY_ACQUIRE(true) { return _mutex.try_lock(); }

private:
    std::recursive_mutex _mutex;
};

template <class M>
class LORVALE_SCOPED_CAPABILITY BasicMutexLock {
public:
    explicit BasicMutexLock(M& mutex) LORVALE_ACQUIRE(mutex) : _mutex(mutex) { _mutex.lock(); }
    ~BasicMutexLock() LORVALE_RELEASE() { _mutex.unlock(); }
    BasicMutexLock(const BasicMutexLock&) = delete;
    BasicMutexLock& operator=(const BasicMutexLock&) = delete;

private:
    M& _mutex;
};

using MutexLock = BasicMutexLock<Mutex>;
using RecursiveMutexLock = BasicMutexLock<RecursiveMutex>;

}  // namespace lorvale
