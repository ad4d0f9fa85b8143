#include "lorvale/toolkit/storage/sort.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <numeric>
#include <vector>

#include "lorvale/toolkit/storage/exception.h"

namespace brindle {

namespace {

/// The places of the elements in order.  The elements themselves stay where they are while they are compared.
std::vector<std::uint32_t> OrderOf(const std::uint8_t* base, std::uint32_t count, std::size_t size,
                                   int (*compare)(const void*, const void*)) {
    std::vector<std::uint32_t> places(count);
    std::iota(places.begin(), places.end(), 0u);
    std::stable_sort(places.begin(), places.end(), [&](std::uint32_t a, std::uint32_t b) {
        return compare(base + a * size, base + b * size) < 0;
    });
    return places;
}

/// Brings the element places[i] to place i, for all i, one cycle of the permutation after the other.
void Rearrange(std::uint8_t* base, std::vector<std::uint32_t>& places, std::size_t size, std::uint8_t* spare) {
    for (std::uint32_t start = 0; start < places.size(); ++start) {
        if (places[start] == start) continue;
        std::memcpy(spare, base + start * size, size);
        std::uint32_t to = start;
        while (places[to] != start) {
            const std::uint32_t from = places[to];
            std::memcpy(base + to * size, base + from * size, size);
            places[to] = to;
            to = from;
        }
        std::memcpy(base + to * size, spare, size);
        places[to] = to;
    }
}

}  // namespace

void IASort(void* base, std::uint32_t count, std::uint32_t elementSize,
            int (*compare)(const void*, const void*)) {
    if (count < 2 || elementSize == 0) return;
    auto* const bytes = static_cast<std::uint8_t*>(base);
    try {
        std::vector<std::uint8_t> spare(elementSize);
        auto places = OrderOf(bytes, count, elementSize, compare);
        Rearrange(bytes, places, elementSize, spare.data());
    } catch (const std::bad_alloc&) {
        IAFail("failed to allocate a node!", IAAssertionFailure);
    }
}

int TFComponentOrder(const void* a, const void* b) {
    std::uint32_t left;
    std::uint32_t right;
    std::memcpy(&left, a, sizeof left);
    std::memcpy(&right, b, sizeof right);
    return left < right ? -1 : left > right;
}

}  // namespace brindle
