#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

#include "toolkit/storage/Page.h"

namespace brindle {

/// Two neighbouring pages and their separator spread out flat, to decide where to part them anew.  Its arrays
/// grow to the largest count seen and stay.
class Scroll : public IAStruct {
public:
    Scroll() = default;
    ~Scroll() override;

    /// Takes the sizes of the left page's entries, the separator and the right page's entries, in order.
    void Fill(const Page& left, const Page& parent, Page::Finger separator, const Page& right);

    std::size_t Count() const { return sizes.size() - 1; }
    /// What a page of the entries [begin, end) takes.
    std::size_t IntervalSize(std::size_t begin, std::size_t end) const {
        return sizes[end] - sizes[begin] + BTPageOverhead;
    }
    std::size_t EntrySize(std::size_t index) const { return sizes[index + 1] - sizes[index]; }

    /// The index of the entry that had best be the new separator; 0 if there is none that leaves two pages
    /// within `pageSize`.  Among those that leave both at least half full the shortest one wins, which keeps
    /// interior pages wide; without such, the one that parts most evenly.  On a tie the higher index wins.
    std::size_t BestTwoPagination(std::uint32_t pageSize, std::uint32_t minSize,
                                  std::uint32_t maxEntrySize) const;

private:
    std::vector<std::size_t> sizes{0};  // running sums, one more than there are entries
};

}  // namespace brindle
