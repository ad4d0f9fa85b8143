#include "lorvale/toolkit/storage/sort.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <utility>

#include "lorvale/toolkit/storage/exception.h"
#include "lorvale/toolkit/storage/memory.h"

namespace brindle {

namespace {

using Places = IAVector<std::uint32_t>;

/// What a sort needs beside the elements.
struct Room {
    Room(std::uint32_t count, std::size_t elementSize) : places(count), merged(count), spare(elementSize) {}
    Places places;
    Places merged;
    IAVector<std::uint8_t> spare;
};

Room MakeRoom(std::uint32_t count, std::size_t elementSize) {
    try {
        return {count, elementSize};
    } catch (const IAException&) {
        IAFail("failed to allocate a node!", IAAssertionFailure);
    }
}

/// Sorts the places by merging runs, each time twice as long ones.  std::stable_sort() does the same, but takes
/// its buffer from elsewhere.
template <class Less>
void MergeSort(Places& places, Places& merged, Less less) {
    constexpr std::size_t kFirstRun = 8;
    const std::size_t count = places.size();
    for (std::size_t begin = 0; begin < count; begin += kFirstRun)
        for (std::size_t i = begin + 1; i < std::min(begin + kFirstRun, count); ++i)
            for (std::size_t at = i; at > begin && less(places[at], places[at - 1]); --at)
                std::swap(places[at], places[at - 1]);
    for (std::size_t run = kFirstRun; run < count; run *= 2) {
        for (std::size_t begin = 0; begin < count; begin += 2 * run) {
            const auto* const from = places.data();
            const std::size_t middle = std::min(begin + run, count);
            const std::size_t end = std::min(middle + run, count);
            std::merge(from + begin, from + middle, from + middle, from + end, merged.data() + begin, less);
        }
        places.swap(merged);
    }
}

/// Brings the element places[i] to place i, for all i, one cycle of the permutation after the other.
void Rearrange(std::uint8_t* base, Places& places, std::size_t size, std::uint8_t* spare) {
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
    Room room = MakeRoom(count, elementSize);
    std::iota(room.places.begin(), room.places.end(), 0u);
    // The elements themselves stay where they are while they are compared.
    MergeSort(room.places, room.merged, [bytes, elementSize, compare](std::uint32_t a, std::uint32_t b) {
        return compare(bytes + std::size_t{a} * elementSize, bytes + std::size_t{b} * elementSize) < 0;
    });
    Rearrange(bytes, room.places, elementSize, room.spare.data());
}

int TFComponentOrder(const void* a, const void* b) {
    std::uint32_t left;
    std::uint32_t right;
    std::memcpy(&left, a, sizeof left);
    std::memcpy(&right, b, sizeof right);
    return left < right ? -1 : left > right;
}

}  // namespace brindle
