// The part of BuddyStorage that knows the bytes of the file header and of the system block.
//
// File header, in the block of 32 bytes at address 0.  All integers are big-endian 32-bit.
//   offset  size
//        0     4  type         "Bud1"
//        4     4  address      of the system block
//        8     4  size         of the system block, a power of two
//       12     4  address      again: a header of which only a part was written is refused
//       16    16  not used     written as 0, never read
//
// System block, without gaps:
//   maxID                      IDs ever handed out, the system block's own 0 included
//   freeIDHead                 first of the chain of free IDs, 0 if there is none
//   block info                 chunks of 256 words, ((maxID - 1) >> 8) + 1 of them; see BuddyBlockTable.h
//   table of contents          count, then by strcmp order: 1 byte length, the name's bytes, the ID
//   free addresses             for each log size from 0 to 31: count, then the addresses, ascending
//
// What the tables say when they are read is checked as far as memory and the allocator depend on it;
// VerifyStorage() tells the rest.
#include <algorithm>
#include <cstring>

#include "toolkit/storage/BuddyStorage.h"

namespace brindle {

namespace {

constexpr std::uint32_t kChunkStoreSize = 4 * InfoChunkSize;

/// Whether two of some blocks share a byte.
class Overlap {
public:
    void Add(std::uint32_t address, std::uint32_t logSize) {
        extents.push_back(std::uint64_t{address} << 8 | logSize);
    }
    bool Any() {
        std::ranges::sort(extents);
        std::uint64_t end = kHeaderBlockSize;
        for (const std::uint64_t extent : extents) {
            if (extent >> 8 < end) return true;
            end = (extent >> 8) + (std::uint64_t{1} << (extent & 0xFF));
        }
        return false;
    }

private:
    IAVector<std::uint64_t> extents;
};

}  // namespace

// ---- Writing -----------------------------------------------------------------------------------------------

std::uint64_t BuddyStorage::BlockInfoSize() const {
    return std::uint64_t{blocks.MaxChunkIndex()} * kChunkStoreSize;
}

std::uint64_t BuddyStorage::TOCSize() const {
    std::uint64_t size = 4;
    for (const auto* node = toc.First(); node != nullptr; node = toc.Next(node)) {
        const std::size_t length = std::strlen(StringUInt32Map::NodeKey(node));
        IAAssertion(length <= kLongestName, "key too big", IAAssertionFailure);
        size += 5 + length;
    }
    return size;
}

std::uint32_t BuddyStorage::SystemBlockSize(std::uint64_t freeAddressesSize) const {
    const std::uint64_t size = 8 + BlockInfoSize() + TOCSize() + freeAddressesSize;
    IAAssertion(size <= kSpaceSize, "storage full", StorageFull);
    return static_cast<std::uint32_t>(size);
}

/// Finds a place for the next system block and returns the free lists that it shall hold.  Its own place is
/// taken from them, which changes them, so its size is an estimate at first.  The estimate falls short when the
/// place is cut from a large block and lists which the commit refills from newFreeAddresses get one more
/// address by the cutting.  Usually the block has the room nevertheless; else a larger place is taken.
BuddyStorage::FreeListsPtr BuddyStorage::PlaceSystemBlock() {
    std::uint32_t size = SystemBlockSize(MergedFreeLists()->EstimatedStoreSize());
    for (;;) {
        GetWriteAddressInternal(SysBlockID, size);
        FreeListsPtr merged = MergedFreeLists();
        size = SystemBlockSize(merged->StoreSize());
        if (size <= GetBlockSize(SysBlockID)) return merged;
    }
}

void BuddyStorage::WriteSystemBlock(const BuddyFreeLists& lists) {
    const std::uint32_t address = blocks.Address(SysBlockID);
    SetPosition(Stream(), address, GetBlockSize(SysBlockID));
    WriteUInt32(Stream(), blocks.MaxID());
    WriteUInt32(Stream(), blocks.FreeIDHead());
    WriteBlockInfo();
    WriteTOC();
    WriteFreeAddresses(lists);
    IAAssertion(GetPosition(Stream()) - address <= SystemBlockSize(lists.StoreSize()), "position out of range",
                IAAssertionFailure);
}

void BuddyStorage::WriteBlockInfo() {
    for (const std::uint32_t info : blocks.Words()) WriteUInt32(Stream(), info);
}

void BuddyStorage::WriteTOC() {
    WriteUInt32(Stream(), toc.Count());
    for (const auto* node = toc.First(); node != nullptr; node = toc.Next(node)) {
        const char* const name = StringUInt32Map::NodeKey(node);
        const std::size_t length = std::strlen(name);
        IAAssertion(length <= kLongestName, "key too big", IAAssertionFailure);
        WriteByte(Stream(), static_cast<std::uint8_t>(length));
        WriteBytes(Stream(), name, static_cast<std::uint32_t>(length));
        WriteUInt32(Stream(), StringUInt32Map::NodeValue(node));
    }
}

void BuddyStorage::WriteFreeAddresses(const BuddyFreeLists& lists) {
    for (std::uint32_t logSize = 0; logSize < MaxLogSize; ++logSize) {
        WriteUInt32(Stream(), lists.Count(logSize));
        lists.ForEach(logSize, [this](std::uint32_t address) { WriteUInt32(Stream(), address); });
    }
}

void BuddyStorage::WriteHeader() {
    SetPosition(Stream(), 0, kHeaderBlockSize);
    WriteUInt32(Stream(), BuddyStorageType);
    WriteUInt32(Stream(), blocks.Address(SysBlockID));
    WriteUInt32(Stream(), GetBlockSize(SysBlockID));
    WriteUInt32(Stream(), blocks.Address(SysBlockID));
}

// ---- Reading -----------------------------------------------------------------------------------------------

void BuddyStorage::ReadHeader(std::uint32_t& address, std::uint32_t& size) {
    SetPosition(Stream(), 0, kHeaderBlockSize);
    IAAssertion(ReadUInt32(Stream()) == BuddyStorageType, "invalid storage type", StorageInvalid);
    address = ReadUInt32(Stream());
    size = ReadUInt32(Stream());
    const std::uint32_t checkAddress = ReadUInt32(Stream());
    IAAssertion(address == checkAddress, "invalid storage type bad root address", StorageInvalid);
    const std::uint32_t logSize = SizeLogSize(size);
    IAAssertion(logSize < MaxLogSize && size == 1u << logSize && IsBlockPlace(address, logSize),
                "invalid storage root block", StorageInvalid);
}

void BuddyStorage::ReadSystemBlock(std::uint32_t address, std::uint32_t size, bool writable) {
    SetPosition(Stream(), address, size);
    ReadBlockInfo();
    // The next commit will give the place up by what the table says, so it has to be where this was read.
    IAAssertion(blocks.Address(SysBlockID) == address && GetBlockSize(SysBlockID) == size,
                "invalid storage root block", StorageInvalid);
    ReadTOC();
    if (writable) ReadFreeAddresses();  // who cannot write needs no space
}

void BuddyStorage::ReadBlockInfo() {
    IAAssertion(blocks.MaxID() == 0, "block table not empty", IAAssertionFailure);
    const std::uint32_t maxID = ReadUInt32(Stream());
    const std::uint32_t freeIDHead = ReadUInt32(Stream());
    const std::uint32_t chunks = BuddyBlockTable::ChunksFor(maxID);
    IAAssertion(maxID > SysBlockID && chunks <= Stream()->Remaining() / kChunkStoreSize,
                "invalid storage block count", StorageInvalid);
    for (std::uint32_t i = 0; i < chunks; ++i)
        for (std::uint32_t& info : blocks.AppendChunk()) info = ReadUInt32(Stream());
    blocks.Adopt(maxID, freeIDHead);
}

void BuddyStorage::ReadTOC() {
    IAAssertion(toc.Count() == 0, "TOC not initialized", IAAssertionFailure);
    const std::uint32_t count = ReadUInt32(Stream());
    IAAssertion(count <= Stream()->Remaining() / 5, "invalid storage table of contents", StorageInvalid);
    char name[kLongestName + 1] = "";
    char previous[kLongestName + 1] = "";
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t length = ReadByte(Stream());
        IAAssertion(length <= kLongestName, "invalid storage table of contents", StorageInvalid);
        ReadBytes(Stream(), name, length);
        name[length] = '\0';
        IAAssertion(std::strlen(name) == length && (i == 0 || std::strcmp(previous, name) < 0),
                    "invalid storage table of contents", StorageInvalid);
        toc.Put(name, ReadUInt32(Stream()));
        std::memcpy(previous, name, length + 1);
    }
}

void BuddyStorage::ReadFreeAddresses() {
    for (std::uint32_t logSize = 0; logSize < MaxLogSize; ++logSize) ReadFreeList(logSize);
    CheckSpace();
}

/// Space that has two owners would be handed out while the committed state still uses it.
void BuddyStorage::CheckSpace() const {
    Overlap overlap;
    for (std::uint32_t id = 0; id < blocks.MaxID(); ++id)
        if (blocks.LogSize(id) != 0) overlap.Add(blocks.Address(id), blocks.LogSize(id));
    for (std::uint32_t logSize = 0; logSize < MaxLogSize; ++logSize)
        freeAddresses->ForEach(logSize, [&](std::uint32_t address) { overlap.Add(address, logSize); });
    IAAssertion(!overlap.Any(), "invalid storage blocks overlap", StorageInvalid);
}

void BuddyStorage::ReadFreeList(std::uint32_t logSize) {
    const std::uint32_t count = ReadUInt32(Stream());
    IAAssertion(count == 0 || count <= Stream()->Remaining() / 4, "invalid storage free list", StorageInvalid);
    std::uint32_t previous = 0;  // no block is at 0, so the first is above it
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t address = ReadUInt32(Stream());
        IAAssertion(address > previous && IsBlockPlace(address, logSize), "invalid storage free list",
                    StorageInvalid);
        freeAddresses->Append(address, logSize);
        previous = address;
    }
}

}  // namespace brindle
