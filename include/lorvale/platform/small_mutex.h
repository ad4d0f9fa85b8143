#pragma once
#include <atomic>
#include <cstdint>

#include "lorvale/platform/mutex.h"

namespace lorvale {

/// A mutex of one byte, for objects of which there are very many, each seldom asked by two threads at once.  To
/// be held for a few instructions only: who waits may be woken for another one's sake.
class LORVALE_CAPABILITY("mutex") SmallMutex {
public:
    void lock() LORVALE_ACQUIRE() LORVALE_NO_THREAD_SAFETY_ANALYSIS {
        auto state = kFree;
        if (_state.compare_exchange_strong(state, kLocked, std::memory_order_acquire)) return;
        while (_state.exchange(kAwaited, std::memory_order_acquire) != kFree) _state.wait(kAwaited);
    }
    void unlock() LORVALE_RELEASE() LORVALE_NO_THREAD_SAFETY_ANALYSIS {
        if (_state.exchange(kFree, std::memory_order_release) == kAwaited) _state.notify_one();
    }

private:
    static constexpr std::uint8_t kFree = 0, kLocked = 1, kAwaited = 2;
    std::atomic<std::uint8_t> _state = kFree;
};

using SmallMutexLock = BasicMutexLock<SmallMutex>;

}  // namespace lorvale
