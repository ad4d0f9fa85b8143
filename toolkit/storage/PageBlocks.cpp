#include "toolkit/storage/PageBlocks.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "lorvale/toolkit/storage/block.h"
#include "lorvale/toolkit/storage/exception.h"
#include "lorvale/toolkit/storage/storage.h"
#include "toolkit/storage/PageMemory.h"

namespace brindle {

namespace {

/// The first bytes of a block, as many as there are.
class BlockBytes {
public:
    BlockBytes(IAStorage& storage, std::uint32_t id, IAStoreStream& stream, std::uint32_t most) {
        std::uint32_t address = 0;
        std::uint32_t size = 0;
        {
            const IALock lock(storage.GetMutex());
            address = storage.GetReadAddress(id);
            size = storage.GetBlockSize(id);
        }
        const IALock lock(stream.GetMutex());
        stream.SetPosition(address, size);  // what somebody's failed write left in the buffer comes first
        const std::uint32_t wanted = std::min(size, most);
        if (wanted <= usual.size())
            bytes = std::span(usual).first(std::min(stream.Read(address, usual.data(), wanted), wanted));
        else
            ReadMany(stream, address, wanted);
    }
    std::span<const std::uint8_t> Bytes() const { return bytes; }

private:
    /// The space of a block is a claim until its bytes have been read: the memory follows what the store really
    /// has, step by step.
    void ReadMany(IAStoreStream& stream, std::uint32_t address, std::uint32_t wanted) {
        std::uint32_t have = 0;
        for (bool more = true; more && have < wanted;) {
            const std::uint32_t want = std::min(wanted - have, std::max(16 * IADiskBlockSize, have));
            many.resize(have + want);
            const std::uint32_t got = stream.Read(address + have, many.data() + have, want);
            have += std::min(got, want);
            more = got == want;
        }
        bytes = std::span(many).first(have);
    }

    std::array<std::uint8_t, IADiskBlockSize> usual;  // as large as pages are
    IAVector<std::uint8_t> many;
    std::span<const std::uint8_t> bytes;
};

}  // namespace

PageBlocks::PageBlocks(IAStorage& pageStorage, IAStoreStream* pageStream,
                       const IAOrderedStorable& pagePrototype, std::uint32_t treePageSize)
    : storage(&pageStorage),
      stream(pageStream != nullptr ? pageStream : pageStorage.GetStoreStream()),
      prototype(&pagePrototype),
      pageSize(treePageSize),
      memory(PageMemory::Of(pageStorage)) {}

bool PageBlocks::Fits(const PageImage& image) const {
    return image.StoreSize() <= pageSize && ObjectFits(image.LargestObject(), pageSize);
}

Page PageBlocks::Read(std::uint32_t id) const {
    if (memory != nullptr) {
        SharedPageImage image = memory->Find(id);
        if (image && image->ObjectType() == typeid(*prototype) && Fits(*image))
            return {id, prototype, std::move(image), memory};
    }
    const std::uint64_t changesBefore = memory != nullptr ? memory->Changes() : 0;
    SharedPageImage image = ReadImage(id);
    // No tree of this page size writes such a page, and rebalancing one might find no place to split it.
    IAAssertion(Fits(*image), "btree page entry too big", StorageInvalid);
    if (memory != nullptr) memory->EnterRead(id, image, changesBefore);
    return {id, prototype, std::move(image), memory};
}

SharedPageImage PageBlocks::ReadImage(std::uint32_t id) const {
    const BlockBytes block(*storage, id, *stream, pageSize);
    return SharedPageImage(PageImage::Restore(block.Bytes(), *prototype));
}

void PageBlocks::Write(Page& page) const {
    const auto size = static_cast<std::uint32_t>(page.StoreSize());
    if (memory == nullptr) {
        IAOutputBlock(storage, page.Id(), size, stream).WriteBuffer(page.Image().Bytes().data(), size);
        return page.SetWritten(nullptr);
    }
    const IALock lock(storage->GetMutex());
    const std::uint32_t address = storage->GetWriteAddress(page.Id(), size);
    const bool isTime = memory->EnterUnwritten(page.Id(), page.ShareImage(), address);
    page.SetWritten(memory);
    if (!isTime) return;
    IAStoreStream* const device = storage->GetStoreStream();
    const IALock streamLock(device->GetMutex());
    memory->WriteBack(*device);
}

}  // namespace brindle
