#include "toolkit/storage/Scroll.h"

namespace brindle {

Scroll::Scroll(const PageImage& leftPage, const PageImage& parent, std::size_t separator,
               const PageImage& rightPage)
    : left(leftPage),
      right(rightPage),
      separatorAt(leftPage.Count()),
      separatorSize(parent.Object(separator).size() + (leftPage.IsLeaf() ? 0 : BTEntryOverhead)) {}

template <class Question>
std::size_t Scroll::FirstOf(Range range, Question question) {
    std::size_t low = range.first;
    for (std::size_t high = range.last + 1; low < high;) {
        const std::size_t middle = low + (high - low) / 2;
        if (question(middle))
            high = middle;
        else
            low = middle + 1;
    }
    return low;
}

std::size_t Scroll::BestTwoPagination(std::uint32_t pageSize, std::uint32_t minSize,
                                      std::uint32_t maxEntrySize) const {
    // Going up, the left page grows and the right one shrinks, so each condition holds from some index on, or
    // up to one.
    if (Count() < 3) return 0;
    const Range all{1, Count() - 2};
    const Range fitting{FirstOf(all, [&](std::size_t i) { return RightSize(i) <= pageSize; }),
                        FirstOf(all, [&](std::size_t i) { return LeftSize(i) > pageSize; }) - 1};
    if (fitting.first > fitting.last) return 0;
    const Range full{FirstOf(fitting, [&](std::size_t i) { return LeftSize(i) >= minSize; }),
                     FirstOf(fitting, [&](std::size_t i) { return RightSize(i) < minSize; }) - 1};
    const std::size_t shortest = Shortest(full, maxEntrySize);
    return shortest != 0 ? shortest : Evenest(fitting, pageSize);
}

std::size_t Scroll::Shortest(Range range, std::size_t most) const {
    std::size_t found = 0;
    for (std::size_t i = range.first; i <= range.last; ++i) {
        if (EntrySize(i) > most) continue;
        found = i;
        most = EntrySize(i);
    }
    return found;
}

std::size_t Scroll::Evenest(Range range, std::size_t most) const {
    std::size_t found = 0;
    for (std::size_t i = range.first; i <= range.last; ++i) {
        const std::size_t difference =
            LeftSize(i) > RightSize(i) ? LeftSize(i) - RightSize(i) : RightSize(i) - LeftSize(i);
        if (difference > most) continue;
        found = i;
        most = difference;
    }
    return found;
}

}  // namespace brindle
