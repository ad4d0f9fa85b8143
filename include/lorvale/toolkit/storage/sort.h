#pragma once
#include <cstdint>

#include "lorvale/export.h"

namespace brindle {

/// Sorts `count` elements of `elementSize` bytes in place.  Stable.  `compare` answers below, at or above 0.
/// Raises "failed to allocate a node!" when there is no memory for the order; the elements are then untouched.
LORVALE_EXPORT void IASort(void* base, std::uint32_t count, std::uint32_t elementSize,
                           int (*compare)(const void*, const void*));

/// Orders two components by their first 32-bit word, as unsigned numbers: -1, 0 or 1.
LORVALE_EXPORT int TFComponentOrder(const void* a, const void* b);

}  // namespace brindle
