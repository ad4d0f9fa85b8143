#pragma once
#include <memory>
#include <mutex>

#include "lorvale/toolkit/storage/mutex.h"

namespace brindle::testing {

/// While it lives the toolkit's objects are made for several threads, as a host with threads has them.
class ToolkitThreads {
public:
    ToolkitThreads() {
        IANewMutex = []() -> std::unique_ptr<IAMutex> { return std::make_unique<RecursiveMutex>(); };
    }
    ~ToolkitThreads() { IANewMutex = _before; }
    ToolkitThreads(const ToolkitThreads&) = delete;
    ToolkitThreads& operator=(const ToolkitThreads&) = delete;

private:
    class RecursiveMutex : public IAMutex {
    public:
        void Lock() override LORVALE_NO_THREAD_SAFETY_ANALYSIS { _mutex.lock(); }
        void Unlock() override LORVALE_NO_THREAD_SAFETY_ANALYSIS { _mutex.unlock(); }

    private:
        std::recursive_mutex _mutex;
    };

    std::unique_ptr<IAMutex> (*const _before)() = IANewMutex;
};

}  // namespace brindle::testing
