// Reading a page: from its block, or from what the storage remembers of it.

#include <algorithm>
#include <span>

#include "lorvale/toolkit/storage/exception.h"
#include "lorvale/toolkit/storage/storage.h"
#include "toolkit/storage/MemoryBlock.h"
#include "toolkit/storage/Page.h"
#include "toolkit/storage/PageImageStore.h"

namespace brindle {

namespace {

/// The bytes of a block, as many as there are.  Its space is a claim until they have been read.
struct BlockBytes {
    std::vector<std::uint8_t> bytes;
    std::uint32_t size;  ///< what the block should have
};

/// Reads the first `most` bytes of the block.  The memory follows what the store really has, step by step.
BlockBytes ReadBlock(IAStorage* storage, std::uint32_t id, IAStoreStream* stream, std::uint32_t most) {
    if (stream == nullptr) stream = storage->GetStoreStream();
    std::uint32_t address = 0;
    std::uint32_t size = 0;
    {
        const IALock lock(storage->GetMutex());
        address = storage->GetReadAddress(id);
        size = storage->GetBlockSize(id);
    }
    const IALock lock(stream->GetMutex());
    stream->SetPosition(address, size);  // what somebody's failed write left in the buffer comes first
    constexpr std::uint32_t kStep = 16 * IADiskBlockSize;
    BlockBytes block{{}, std::min(size, most)};
    std::uint32_t have = 0;
    for (bool more = true; more && have < block.size;) {
        const std::uint32_t want = std::min(block.size - have, std::max(kStep, have));
        block.bytes.resize(have + want);
        const std::uint32_t got = stream->Read(address + have, block.bytes.data() + have, want);
        have += std::min(got, want);
        more = got == want;
    }
    block.bytes.resize(have);
    return block;
}

std::unique_ptr<Page> NewPage(std::uint32_t id, std::uint32_t rightChildId, const IAOrderedStorable* prototype) {
    std::unique_ptr<Page> page;
    if (rightChildId == 0)
        page = std::make_unique<Leaf>(id, prototype);
    else
        page = std::make_unique<Page>(id, prototype);
    page->SetRightChildId(rightChildId);
    return page;
}

}  // namespace

/// Makes pages out of bytes; the one class that knows both.
class PageLoader {
public:
    PageLoader(std::uint32_t pageId, const IAOrderedStorable* pagePrototype) : id(pageId), prototype(pagePrototype) {}

    /// Restores every object once, which finds where each one begins.
    std::unique_ptr<Page> FromBlock(const BlockBytes& block) const;
    /// Restores none.
    std::unique_ptr<Page> FromImage(std::shared_ptr<const PageImage> image) const;

private:
    const std::uint32_t id;
    const IAOrderedStorable* const prototype;
};

std::unique_ptr<Page> PageLoader::FromBlock(const BlockBytes& block) const {
    MemoryStream memory(std::span<const std::uint8_t>(block.bytes), block.size);
    IAInputBlock input(&memory);
    std::unique_ptr<Page> page = NewPage(id, input.ReadUInt32(), prototype);
    page->ReadEntries(&input, prototype);

    const auto image = std::make_shared<PageImage>();
    image->bytes.assign(block.bytes.begin(), block.bytes.begin() + input.GetPosition());
    image->objectType = &typeid(*prototype);
    image->objectOffsets.reserve(page->entries.size());
    std::uint32_t at = BTPageOverhead;
    for (PageEntry& entry : page->entries) {
        const std::uint32_t size = page->EntryStoreSize(entry);
        const std::uint32_t objectStart = at + size - entry.objectStoreSize;
        image->objectOffsets.push_back(objectStart);
        image->largestObject = std::max(image->largestObject, entry.objectStoreSize);
        entry.stored = image->bytes.data() + objectStart;
        at += size;
    }
    page->image = image;
    return page;
}

std::unique_ptr<Page> PageLoader::FromImage(std::shared_ptr<const PageImage> image) const {
    const std::uint8_t* const bytes = image->bytes.data();
    const auto word = [bytes](std::size_t at) {
        return std::uint32_t{bytes[at]} << 24 | std::uint32_t{bytes[at + 1]} << 16 |
               std::uint32_t{bytes[at + 2]} << 8 | bytes[at + 3];
    };
    std::unique_ptr<Page> page = NewPage(id, word(0), prototype);
    const std::vector<std::uint32_t>& offsets = image->objectOffsets;
    const std::uint32_t overhead = page->IsLeaf() ? 0 : BTEntryOverhead;
    page->entries.reserve(offsets.size() + 1);
    for (std::size_t i = 0; i < offsets.size(); ++i) {
        const std::size_t end = i + 1 < offsets.size() ? offsets[i + 1] - overhead : image->bytes.size();
        page->entries.emplace_back(overhead != 0 ? word(offsets[i] - BTEntryOverhead) : 0,
                                   static_cast<std::uint32_t>(end - offsets[i]), bytes + offsets[i]);
    }
    page->storeSize = image->bytes.size();
    page->dirty = false;
    page->image = std::move(image);
    return page;
}

std::unique_ptr<Page> ReadPage(std::uint32_t id, IAStorage* storage, IAStoreStream* stream,
                               const IAOrderedStorable* prototype, std::uint32_t pageSize) {
    const PageLoader loader(id, prototype);
    const auto fits = [pageSize](const PageImage& image) {
        return image.bytes.size() <= pageSize && ObjectFits(image.largestObject, pageSize);
    };
    PageImageStore* const images = storage->PageImages();
    if (images != nullptr) {
        std::shared_ptr<const PageImage> image = images->Find(id);
        if (image != nullptr && *image->objectType == typeid(*prototype) && fits(*image))
            return loader.FromImage(std::move(image));
    }
    const std::uint64_t changesBefore = images != nullptr ? images->Changes() : 0;
    std::unique_ptr<Page> page = loader.FromBlock(ReadBlock(storage, id, stream, pageSize));
    // No tree of this page size writes such a page, and rebalancing one might find no place to split it.
    IAAssertion(fits(*page->Image()), "btree page entry too big", StorageInvalid);
    if (images != nullptr) images->EnterRead(id, page->Image(), changesBefore);
    return page;
}

}  // namespace brindle
