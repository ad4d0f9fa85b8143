#pragma once
#include <cstdint>
#include <memory>

#include "lorvale/toolkit/storage/skip_list.h"
#include "lorvale/toolkit/storage/storage.h"
#include "toolkit/storage/BuddyAddressSet.h"
#include "toolkit/storage/BuddyBlockTable.h"
#include "toolkit/storage/BuddyFreeLists.h"
#include "toolkit/storage/PageMemory.h"

namespace brindle {

/// The one storage there is: blocks of power-of-two size from a buddy allocator, with shadow writing.
///
/// A block that is part of the committed state is never overwritten: writing it moves it to fresh space, and
/// space freed since the last commit is not used again before the next.  A commit writes a new system block
/// elsewhere and then switches the file header to it.  Opening needs no recovery: until the switch the header
/// describes the complete old state.
class BuddyStorage final : public IAStorage {
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
    std::uint32_t GetReadAddress(std::uint32_t id) override LORVALE_REQUIRES(GetMutex());
    std::uint32_t GetWriteAddress(std::uint32_t id, std::uint32_t size) override LORVALE_REQUIRES(GetMutex());
    std::uint32_t GetBlockSize(std::uint32_t id) override LORVALE_REQUIRES(GetMutex());

    /// The same for the system block too, and without the questions whether the storage is open and writable.
    std::uint32_t GetWriteAddressInternal(std::uint32_t id, std::uint32_t size) LORVALE_REQUIRES(GetMutex());

    /// What the trees in this storage share; null if there is no memory for it.
    PageMemory* Pages() const { return pages.get(); }

private:
    using FreeListsPtr = std::unique_ptr<BuddyFreeLists>;

    void CheckOpen() LORVALE_REQUIRES(GetMutex());
    void ForgetPage(std::uint32_t id);
    void WritePages() LORVALE_REQUIRES(GetMutex());
    std::uint32_t StoreEnd() const LORVALE_REQUIRES(GetMutex());
    std::uint32_t AllocAddress(std::uint32_t logSize) LORVALE_REQUIRES(GetMutex());
    void FreeAddress(std::uint32_t address, std::uint32_t logSize) LORVALE_REQUIRES(GetMutex());
    void MoveBlock(std::uint32_t id, std::uint32_t logSize) LORVALE_REQUIRES(GetMutex());
    FreeListsPtr MergedFreeLists() const LORVALE_REQUIRES(GetMutex());

    // Compaction.
    bool CompactInternal(std::uint64_t limit) LORVALE_REQUIRES(GetMutex());
    bool MoveDown(std::uint32_t id) LORVALE_REQUIRES(GetMutex());
    void CopyBytes(std::uint32_t from, std::uint32_t to, std::uint32_t count);
    std::uint64_t HighestEnd() const LORVALE_REQUIRES(GetMutex());

    // The system block and the header (BuddySystemBlock.cpp).
    FreeListsPtr PlaceSystemBlock() LORVALE_REQUIRES(GetMutex());
    std::uint32_t SystemBlockSize(std::uint64_t freeAddressesSize) const LORVALE_REQUIRES(GetMutex());
    std::uint64_t BlockInfoSize() const LORVALE_REQUIRES(GetMutex());
    std::uint64_t TOCSize() const LORVALE_REQUIRES(GetMutex());
    void WriteSystemBlock(const BuddyFreeLists& lists) LORVALE_REQUIRES(GetMutex());
    void WriteBlockInfo() LORVALE_REQUIRES(GetMutex());
    void WriteTOC() LORVALE_REQUIRES(GetMutex());
    void WriteFreeAddresses(const BuddyFreeLists& lists) LORVALE_REQUIRES(GetMutex());
    void WriteHeader() LORVALE_REQUIRES(GetMutex());
    void ReadHeader(std::uint32_t& address, std::uint32_t& size);
    void ReadSystemBlock(std::uint32_t address, std::uint32_t size, bool writable) LORVALE_REQUIRES(GetMutex());
    void ReadBlockInfo() LORVALE_REQUIRES(GetMutex());
    void ReadTOC() LORVALE_REQUIRES(GetMutex());
    void ReadFreeAddresses() LORVALE_REQUIRES(GetMutex());
    void ReadFreeList(std::uint32_t logSize) LORVALE_REQUIRES(GetMutex());
    void CheckSpace() const LORVALE_REQUIRES(GetMutex());

    IAStoreStream* Stream() const { return GetStoreStream(); }

    std::unique_ptr<PageMemory> pages;  // locks by itself
    StringUInt32Map toc LORVALE_GUARDED_BY(GetMutex());
    BuddyBlockTable blocks LORVALE_GUARDED_BY(GetMutex());
    // Free in the committed state, and not taken since.
    FreeListsPtr freeAddresses LORVALE_GUARDED_BY(GetMutex());
    // Freed since the last commit: the committed state still uses it.
    BuddyFreeLists newFreeAddresses LORVALE_GUARDED_BY(GetMutex());
    // Allocated since the last commit: safe to write in.
    BuddyAddressSet newAddresses LORVALE_GUARDED_BY(GetMutex());
    // Initialize() or Open() has gone through.
    bool ready LORVALE_GUARDED_BY(GetMutex()) = false;
};

}  // namespace brindle
