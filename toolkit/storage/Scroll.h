#pragma once
#include <cstddef>
#include <cstdint>

#include "toolkit/storage/PageImage.h"

namespace brindle {

/// Two neighbouring pages and their separator spread out flat, to decide where to part them anew: a view of
/// them, for as long as none of them changes.  The places of a page's objects are running sums of their sizes
/// already.
class Scroll {
public:
    /// The left page's entries, the separator, which is an entry of their parent, and the right page's entries.
    Scroll(const PageImage& leftPage, const PageImage& parent, std::size_t separator,
           const PageImage& rightPage);

    std::size_t Count() const { return separatorAt + 1 + right.Count(); }
    /// What a page of the entries [begin, end) takes.
    std::size_t IntervalSize(std::size_t begin, std::size_t end) const {
        return SizeBefore(end) - SizeBefore(begin) + BTPageOverhead;
    }
    std::size_t EntrySize(std::size_t index) const { return SizeBefore(index + 1) - SizeBefore(index); }

    /// The index of the entry that had best be the new separator; 0 if there is none that leaves two pages
    /// within `pageSize`.  Among those that leave both at least half full the shortest one wins, which keeps
    /// interior pages wide; without such, the one that parts most evenly.  On a tie the higher index wins.
    std::size_t BestTwoPagination(std::uint32_t pageSize, std::uint32_t minSize,
                                  std::uint32_t maxEntrySize) const;

private:
    /// Indexes, from first to last.
    struct Range {
        std::size_t first;
        std::size_t last;
    };

    std::size_t SizeBefore(std::size_t index) const {
        if (index <= separatorAt) return left.EntryStart(index) - BTPageOverhead;
        return left.StoreSize() + separatorSize + right.EntryStart(index - separatorAt - 1) -
               2 * BTPageOverhead;
    }
    /// What the two pages take when the entry parts them.
    std::size_t LeftSize(std::size_t index) const { return IntervalSize(0, index); }
    std::size_t RightSize(std::size_t index) const { return IntervalSize(index + 1, Count()); }
    /// The first index in the range of which the question is true, or the one behind; true from somewhere on.
    template <class Question>
    static std::size_t FirstOf(Range range, Question question);
    std::size_t Shortest(Range range, std::size_t most) const;
    std::size_t Evenest(Range range, std::size_t most) const;

    const PageImage& left;
    const PageImage& right;
    const std::size_t separatorAt;
    const std::size_t separatorSize;  // what it would take in these pages
};

}  // namespace brindle
