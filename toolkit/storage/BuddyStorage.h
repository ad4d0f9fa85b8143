#pragma once
#include <cstdint>
#include <memory>

#include "lorvale/toolkit/storage/skip_list.h"
#include "lorvale/toolkit/storage/storage.h"
#include "toolkit/storage/BuddyBlockTable.h"
#include "toolkit/storage/BuddyFreeLists.h"

namespace brindle {

/// The one storage there is: blocks of power-of-two size from a buddy allocator, with shadow writing.
///
/// A block that is part of the committed state is never overwritten: writing it moves it to fresh space, and
/// space freed since the last commit is not used again before the next.  A commit writes a new system block
/// elsewhere and then switches the file header to it.  Opening needs no recovery: until the switch the header
/// describes the complete old state.
///
/// All members are guarded by the storage's mutex.
class BuddyStorage : public IAStorage {
public:
    explicit BuddyStorage(std::unique_ptr<IAStoreStream> stream);
    ~BuddyStorage() override;

    void Initialize() override;
    void Open(bool writable) override;
    void Commit() override;
    std::uint32_t Allocate() override;
    void Deallocate(std::uint32_t id) override;
    void TOC_Set(const char* name, std::uint32_t id) override;
    std::uint32_t TOC_Get(const char* name) override;
    bool TOC_Remove(const char* name) override;
    std::uint32_t TotalSpace() override;
    std::uint32_t FreeSpace() override;
    void Compact() override;
    std::uint32_t GetReadAddress(std::uint32_t id) override;
    std::uint32_t GetWriteAddress(std::uint32_t id, std::uint32_t size) override;
    std::uint32_t GetBlockSize(std::uint32_t id) override;

    /// The same for the system block too, and without the questions whether the storage is open and writable.
    std::uint32_t GetWriteAddressInternal(std::uint32_t id, std::uint32_t size);

private:
    using FreeListsPtr = std::unique_ptr<BuddyFreeLists>;

    void CheckOpen();
    std::uint32_t AllocAddress(std::uint32_t logSize);
    void FreeAddress(std::uint32_t address, std::uint32_t logSize);
    void MoveBlock(std::uint32_t id, std::uint32_t logSize);
    FreeListsPtr MergedFreeLists() const;

    // Compaction.
    bool CompactInternal(std::uint64_t limit);
    bool MoveDown(std::uint32_t id);
    void CopyBytes(std::uint32_t from, std::uint32_t to, std::uint32_t count);
    std::uint64_t HighestEnd() const;

    // The system block and the header (BuddySystemBlock.cpp).
    FreeListsPtr PlaceSystemBlock();
    std::uint32_t SystemBlockSize(std::uint64_t freeAddressesSize) const;
    std::uint64_t BlockInfoSize() const;
    std::uint64_t TOCSize() const;
    void WriteSystemBlock(const BuddyFreeLists& lists);
    void WriteBlockInfo();
    void WriteTOC();
    void WriteFreeAddresses(const BuddyFreeLists& lists);
    void WriteHeader();
    void ReadHeader(std::uint32_t& address, std::uint32_t& size);
    void ReadSystemBlock(std::uint32_t address, std::uint32_t size, bool writable);
    void ReadBlockInfo();
    void ReadTOC();
    void ReadFreeAddresses();
    void ReadFreeList(std::uint32_t logSize);

    IAStoreStream* Stream() const { return GetStoreStream(); }

    StringUInt32Map toc;
    BuddyBlockTable blocks;
    FreeListsPtr freeAddresses;       // free in the committed state, and not taken since
    BuddyFreeLists newFreeAddresses;  // freed since the last commit: in use by the committed state
    UInt32Set newAddresses;           // allocated since the last commit: safe to write in
    bool ready = false;               // Initialize() or Open() has gone through
};

}  // namespace brindle
