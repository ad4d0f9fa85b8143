#include "lorvale/toolkit/storage/memory.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include "lorvale/toolkit/storage/exception.h"

namespace brindle {

IAAllocationFunction IAAllocationFunc = nullptr;
IADeAllocationFunction IADeAllocationFunc = nullptr;

namespace {

std::atomic<std::size_t> bytesAllocated{0};

void* Obtain(std::size_t size) {
    if (IAAllocationFunc != nullptr) {
        void* const block = IAAllocationFunc(size);
        IAAssertion(block != nullptr, "function allocator failure", IAAssertionFailure);
        return block;
    }
    void* const block = std::malloc(size);
    IAAssertion(block != nullptr, "system allocator failure", IAAssertionFailure);
    return block;
}

void GiveBack(void* block) noexcept {
    if (IADeAllocationFunc != nullptr)
        IADeAllocationFunc(block);
    else
        std::free(block);
}

#ifdef NDEBUG
constexpr bool kCounting = false;
#else
constexpr bool kCounting = true;
#endif

// In a debug build the size of a block of IAMalloc stands in front of it, in a piece that keeps the alignment.
constexpr std::size_t kPrefix = kCounting ? alignof(std::max_align_t) : 0;
static_assert(!kCounting || kPrefix >= sizeof(std::size_t));

}  // namespace

void* IAMallocSized(std::size_t size) {
    if (size == 0) return nullptr;
    void* const block = Obtain(size);
    if constexpr (kCounting) bytesAllocated += size;
    return block;
}

void IAFreeSized(void* block, [[maybe_unused]] std::size_t size) noexcept {
    if (block == nullptr) return;
    if constexpr (kCounting) bytesAllocated -= size;
    GiveBack(block);
}

void* IAMalloc(std::size_t size) {
    if (size == 0) return nullptr;
    IAAssertion(size <= SIZE_MAX - kPrefix, "system allocator failure", IAAssertionFailure);
    void* const whole = IAMallocSized(size + kPrefix);
    if constexpr (kCounting) new (whole) std::size_t(size + kPrefix);
    return static_cast<std::byte*>(whole) + kPrefix;
}

void IAFree(void* block) noexcept {
    if (block == nullptr) return;
    void* const whole = static_cast<std::byte*>(block) - kPrefix;
    if constexpr (kCounting)
        IAFreeSized(whole, *static_cast<const std::size_t*>(whole));
    else
        GiveBack(whole);
}

void IAReportMemoryUsage() {}

std::size_t IABytesAllocated() noexcept {
    return bytesAllocated;
}

}  // namespace brindle
