#pragma once
#include <cstdint>
#include <limits>

#include "toolkit/storage/Page.h"

namespace brindle {

class IAStorage;
class IAStoreStream;

/// The blocks of a tree's pages: where pages are read from and written to.  All is borrowed for life.
class PageBlocks {
public:
    /// A null stream stands for the storage's own.  Pages larger than `treePageSize` are refused.
    PageBlocks(IAStorage& pageStorage, IAStoreStream* pageStream, const IAOrderedStorable& pagePrototype,
               std::uint32_t treePageSize = std::numeric_limits<std::uint32_t>::max());

    /// Reads the page in the block `id`, unless the storage remembers it: a leaf if it has no right child.
    /// Raises StorageInvalid for a block that holds no page, or one too large for the page size, and what
    /// reading beyond the block or the store raises.
    Page Read(std::uint32_t id) const;
    /// Writes the page to its block, which may move for that, or leaves it to the storage to do so in time.
    void Write(Page& page) const;

private:
    bool Fits(const PageImage& image) const;
    SharedPageImage ReadImage(std::uint32_t id) const;

    IAStorage* storage;
    IAStoreStream* stream;
    const IAOrderedStorable* prototype;
    std::uint32_t pageSize;
    PageMemory* memory;  // of the storage; may be null
};

}  // namespace brindle
