#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

#include "lorvale/export.h"

namespace brindle {

/// The toolkit's memory comes from these four.  A block of IAMalloc goes back by IAFree, one of IAMallocSized
/// by IAFreeSized with the same size.  A size of 0 gives null, and null may be freed.  All of them raise
/// "system allocator failure" or, with the hooks set, "function allocator failure" when there is no memory.
/// Blocks are aligned for any ordinary type.  Any thread.
LORVALE_EXPORT void* IAMalloc(std::size_t size);
LORVALE_EXPORT void IAFree(void* block) noexcept;
LORVALE_EXPORT void* IAMallocSized(std::size_t size);
LORVALE_EXPORT void IAFreeSized(void* block, std::size_t size) noexcept;

/// A host that wants the toolkit's memory from its own allocator sets both, before it makes any object of
/// the toolkit: a block must go back to where it came from.  Null at the start.
using IAAllocationFunction = void* (*)(std::size_t size);
using IADeAllocationFunction = void (*)(void* block);
extern LORVALE_EXPORT IAAllocationFunction IAAllocationFunc;
extern LORVALE_EXPORT IADeAllocationFunction IADeAllocationFunc;

/// The standard containers' way to that memory.
template <class T>
struct IAStdAllocator {
    using value_type = T;
    IAStdAllocator() = default;
    template <class Other>
    IAStdAllocator(const IAStdAllocator<Other>&) noexcept {}
    T* allocate(std::size_t count) {
        return static_cast<T*>(IAMallocSized(count <= SIZE_MAX / sizeof(T) ? count * sizeof(T) : SIZE_MAX));
    }
    void deallocate(T* block, std::size_t count) noexcept { IAFreeSized(block, count * sizeof(T)); }
    bool operator==(const IAStdAllocator&) const = default;
};
template <class T>
using IAVector = std::vector<T, IAStdAllocator<T>>;

/// Does nothing.
LORVALE_EXPORT void IAReportMemoryUsage();

/// Bytes handed out and not yet given back.  Counted in debug builds only, 0 in others: a test compares the
/// figure before and after.
LORVALE_EXPORT std::size_t IABytesAllocated() noexcept;

}  // namespace brindle
