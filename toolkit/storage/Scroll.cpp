#include "toolkit/storage/Scroll.h"

namespace brindle {

Scroll::~Scroll() = default;

void Scroll::Fill(const Page& left, const Page& parent, Page::Finger separator, const Page& right) {
    sizes.resize(1);
    sizes.reserve(left.Count() + right.Count() + 2);
    left.AddSizes(sizes);
    // The separator is reckoned as what it would take in these pages.
    sizes.push_back(sizes.back() + parent.ObjectStoreSize(separator) + (left.IsLeaf() ? 0 : BTEntryOverhead));
    right.AddSizes(sizes);
}

std::size_t Scroll::BestTwoPagination(std::uint32_t pageSize, std::uint32_t minSize,
                                      std::uint32_t maxEntrySize) const {
    std::size_t shortest = 0;
    std::size_t shortestSize = maxEntrySize;
    std::size_t evenest = 0;
    std::size_t evenestDifference = pageSize;
    for (std::size_t i = 1; i + 2 <= Count(); ++i) {
        const std::size_t left = IntervalSize(0, i);
        const std::size_t right = IntervalSize(i + 1, Count());
        if (left > pageSize || right > pageSize) continue;
        if (left >= minSize && right >= minSize && EntrySize(i) <= shortestSize) {
            shortest = i;
            shortestSize = EntrySize(i);
        }
        const std::size_t difference = left > right ? left - right : right - left;
        if (difference <= evenestDifference) {
            evenest = i;
            evenestDifference = difference;
        }
    }
    return shortest != 0 ? shortest : evenest;
}

}  // namespace brindle
