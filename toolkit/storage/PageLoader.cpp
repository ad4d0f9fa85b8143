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

std::unique_ptr<Page> MakePage(std::uint32_t id, std::uint32_t rightChildId, const IAOrderedStorable* prototype,
                               std::shared_ptr<const PageImage> image) {
    if (rightChildId == 0) return std::make_unique<Leaf>(id, prototype, std::move(image));
    return std::make_unique<Page>(id, prototype, std::move(image));
}

/// Restores every object once, which finds where each one begins and that all is as it should be.
std::unique_ptr<Page> PageFromBlock(std::uint32_t id, const BlockBytes& block,
                                    const IAOrderedStorable* prototype) {
    MemoryStream memory(std::span<const std::uint8_t>(block.bytes), block.size);
    IAInputBlock input(&memory);
    std::unique_ptr<Page> page = MakePage(id, input.ReadUInt32(), prototype, nullptr);
    page->ReadEntries(&input, block.bytes);
    return page;
}

std::unique_ptr<Page> SharedPage(std::uint32_t id, std::shared_ptr<const PageImage> image,
                                 const IAOrderedStorable* prototype, PageImageStore* images) {
    const std::uint32_t rightChildId = image->WordAt(0);
    std::unique_ptr<Page> page = MakePage(id, rightChildId, prototype, std::move(image));
    page->ShareImage(images);
    return page;
}

}  // namespace

std::unique_ptr<Page> ReadPage(std::uint32_t id, IAStorage* storage, IAStoreStream* stream,
                               const IAOrderedStorable* prototype, std::uint32_t pageSize) {
    const auto fits = [pageSize](const PageImage& image) {
        return image.bytes.size() <= pageSize && ObjectFits(image.largestObject, pageSize);
    };
    PageImageStore* const images = storage->PageImages();
    if (images != nullptr) {
        std::shared_ptr<const PageImage> image = images->Find(id);
        if (image != nullptr && *image->objectType == typeid(*prototype) && fits(*image))
            return SharedPage(id, std::move(image), prototype, images);
    }
    const std::uint64_t changesBefore = images != nullptr ? images->Changes() : 0;
    std::unique_ptr<Page> page = PageFromBlock(id, ReadBlock(storage, id, stream, pageSize), prototype);
    // No tree of this page size writes such a page, and rebalancing one might find no place to split it.
    IAAssertion(fits(*page->Image()), "btree page entry too big", StorageInvalid);
    if (images != nullptr) {
        images->EnterRead(id, page->Image(), changesBefore);
        page->ShareImage(images);
    }
    return page;
}

}  // namespace brindle
