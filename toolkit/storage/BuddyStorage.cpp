#include "toolkit/storage/BuddyStorage.h"

#include <algorithm>
#include <array>

namespace brindle {

BuddyStorage::BuddyStorage(std::unique_ptr<IAStoreStream> stream)
    : IAStorage(std::move(stream), BuddyStorageType), freeAddresses(std::make_unique<BuddyFreeLists>()) {
    if (const std::size_t limit = IAPageMemory; limit > 0) pages = std::make_unique<PageMemory>(limit);
}

BuddyStorage::~BuddyStorage() = default;

void BuddyStorage::ForgetPage(std::uint32_t id) {
    if (pages != nullptr) pages->Forget(id);
}

void BuddyStorage::WritePages() {
    if (pages == nullptr) return;
    IALock streamLock(SSMutex(Stream()));
    pages->WriteBack(*Stream());
}

/// The length of the store, with the pages that are still to be written.
std::uint32_t BuddyStorage::StoreEnd() const {
    const std::uint64_t unwritten = pages != nullptr ? pages->UnwrittenEnd() : 0;
    return std::max(GetEOF(Stream()), static_cast<std::uint32_t>(unwritten));
}

/// After an Open() that failed half-way the stream is open but the tables are not those of the file.
void BuddyStorage::CheckOpen() {
    IAAssertion(IsOpen() && ready, "storage not open", StorageNotOpen);
}

// ---- Space -------------------------------------------------------------------------------------------------

std::uint32_t BuddyStorage::AllocAddress(std::uint32_t logSize) {
    const std::uint32_t address = freeAddresses->NewAddress(logSize);
    newAddresses.Put(address);
    return address;
}

void BuddyStorage::FreeAddress(std::uint32_t address, std::uint32_t logSize) {
    if (address == 0) {  // a block that was never written
        IAAssertion(logSize == 0, "size not 0 for null address", IAAssertionFailure);
        return;
    }
    IAAssertion(logSize >= MinLogSize && logSize < MaxLogSize, "address out of range", IAAssertionFailure);
    if (newAddresses.Remove(address))
        freeAddresses->AddAddress(address, logSize);
    else
        newFreeAddresses.AddAddress(address, logSize);
}

/// Gives a block a place of another size, or out of the committed state.
void BuddyStorage::MoveBlock(std::uint32_t id, std::uint32_t logSize) {
    const std::uint32_t address = blocks.Address(id);
    // With no room for the new place the old one is kept, unless giving it up makes the room.
    const bool joins =
        newAddresses.Member(address) && freeAddresses->LogSizeJoined(address, blocks.LogSize(id)) >= logSize;
    IAAssertion(logSize < MaxLogSize && (joins || freeAddresses->HasRoom(logSize)), "storage full",
                StorageFull);
    FreeAddress(address, blocks.LogSize(id));
    blocks.SetInfo(id, BuddyBlockTable::MakeInfo(AllocAddress(logSize), logSize));
}

std::uint32_t BuddyStorage::GetWriteAddressInternal(std::uint32_t id, std::uint32_t size) {
    IAAssertion(id < blocks.MaxID(), "out-of-range id", StorageBlockIDInvalid);
    const std::uint32_t address = blocks.Address(id);
    const std::uint32_t logSize = blocks.LogSize(id);
    IAAssertion(!blocks.IsFree(id) && (address == 0 || logSize != 0), "unallocated block id",
                StorageBlockIDInvalid);
    const std::uint32_t needed = SizeLogSize(size);
    if (address == 0 || logSize != needed || !newAddresses.Member(address)) MoveBlock(id, needed);
    return blocks.Address(id);
}

std::uint32_t BuddyStorage::GetWriteAddress(std::uint32_t id, std::uint32_t size) {
    CheckOpen();
    IAAssertion(IsWritable(), "storage not writable", StorageNotWritable);
    IAAssertion(id != SysBlockID, "null id", StorageBlockIDInvalid);
    const std::uint32_t address = GetWriteAddressInternal(id, size);
    ForgetPage(id);
    return address;
}

std::uint32_t BuddyStorage::GetReadAddress(std::uint32_t id) {
    CheckOpen();
    IAAssertion(id != SysBlockID && id < blocks.MaxID(), "id out of range", StorageBlockIDInvalid);
    IAAssertion(blocks.LogSize(id) != 0, "unallocated or unwritten block", StorageBlockIDInvalid);
    if (pages != nullptr && pages->IsUnwritten(id)) {
        IALock streamLock(SSMutex(Stream()));
        pages->WriteBack(*Stream(), id);
    }
    return blocks.Address(id);
}

std::uint32_t BuddyStorage::GetBlockSize(std::uint32_t id) {
    IAAssertion(id < blocks.MaxID(), "id out of range", StorageBlockIDInvalid);
    return 1u << blocks.LogSize(id);
}

std::uint32_t BuddyStorage::TotalSpace() {
    IALock lock(GetMutex());
    return StoreEnd();
}

std::uint32_t BuddyStorage::FreeSpace() {
    IALock lock(GetMutex());
    CheckOpen();
    const std::uint32_t end = StoreEnd();
    // The whole space is 2 GB, so the sum fits.
    return static_cast<std::uint32_t>(freeAddresses->SpaceBelow(end) + newFreeAddresses.SpaceBelow(end));
}

// ---- IDs and names -----------------------------------------------------------------------------------------

std::uint32_t BuddyStorage::Allocate() {
    IALock lock(GetMutex());
    CheckOpen();
    return blocks.Allocate();
}

void BuddyStorage::Deallocate(std::uint32_t id) {
    IALock lock(GetMutex());
    CheckOpen();
    IAAssertion(id != SysBlockID, "invalid storage blockID", StorageBlockIDInvalid);
    IAAssertion(id < blocks.MaxID(), "out-of-range id", StorageBlockIDInvalid);
    IAAssertion(!blocks.IsFree(id), "unallocated block id", StorageBlockIDInvalid);
    ForgetPage(id);
    FreeAddress(blocks.Address(id), blocks.LogSize(id));
    blocks.Deallocate(id);
}

void BuddyStorage::TOC_Set(const char* name, std::uint32_t id) {
    IALock lock(GetMutex());
    CheckOpen();
    toc.Put(name, id);
}

std::uint32_t BuddyStorage::TOC_Get(const char* name) {
    IALock lock(GetMutex());
    CheckOpen();
    return toc.Get(name);
}

bool BuddyStorage::TOC_Remove(const char* name) {
    IALock lock(GetMutex());
    CheckOpen();
    return toc.Remove(name);
}

// ---- Opening and committing --------------------------------------------------------------------------------

void BuddyStorage::Initialize() {
    IALock lock(GetMutex());
    IAAssertion(!IsOpen() && !ready, "storage already open", StorageAlreadyOpen);
    InitializeSS(Stream());
    OpenSS(Stream(), true);
    ready = true;
    freeAddresses->AddAddress(0, MaxLogSize - 1);
    const std::uint32_t header = AllocAddress(MinLogSize);
    IAAssertion(header == 0, "not able to allocate address zero", IAAssertionFailure);
    const std::uint32_t id = Allocate();
    IAAssertion(id == SysBlockID, "not able to allocate sysblock id", IAAssertionFailure);
    Commit();
}

void BuddyStorage::Open(bool writable) {
    IALock lock(GetMutex());
    IALock streamLock(SSMutex(Stream()));
    OpenSS(Stream(), writable);
    std::uint32_t address = 0;
    std::uint32_t size = 0;
    ReadHeader(address, size);
    ReadSystemBlock(address, size, writable);
    ready = true;
}

BuddyStorage::FreeListsPtr BuddyStorage::MergedFreeLists() const {
    auto merged = std::make_unique<BuddyFreeLists>(*freeAddresses);
    merged->AddAll(newFreeAddresses);
    return merged;
}

void BuddyStorage::Commit() {
    IALock lock(GetMutex());
    IALock streamLock(SSMutex(Stream()));
    IAAssertion(IsWritable(), "storage not writable", StorageNotWritable);
    CheckOpen();

    // Only into free space: the old state still stands whole.
    WritePages();
    FreeListsPtr nextFreeAddresses = PlaceSystemBlock();
    // From here on this state may be the committed one: nothing of it is overwritten any more.  What the old
    // state uses becomes free only at the very end.  Should anything between fail, and be tried again or not,
    // both states stay whole, whichever of them the header shows.
    newAddresses.Clear();
    WriteSystemBlock(*nextFreeAddresses);
    FlushSS(Stream());
    if (IASyncOnCommit) SyncSS(Stream());  // the header may not name what is not on the device
    WriteHeader();                         // the switch: 16 bytes, which no device tears
    FlushSS(Stream());
    if (IASyncOnCommit) SyncSS(Stream());
    freeAddresses = std::move(nextFreeAddresses);
    newFreeAddresses.Clear();
}

// ---- Compaction --------------------------------------------------------------------------------------------

namespace {

struct AddressId {
    std::uint32_t address;
    std::uint32_t id;
};
/// From the highest address to the lowest.
struct AddressIdOrder {
    static bool LessThan(const AddressId& a, const AddressId& b) { return a.address > b.address; }
    static bool Equal(const AddressId& a, const AddressId& b) { return a.address == b.address; }
};
using AddressIdMap = SkipList<AddressId, AddressIdOrder>;

}  // namespace

void BuddyStorage::Compact() {
    IALock lock(GetMutex());
    CheckOpen();
    IAAssertion(IsWritable(), "storage not writable", StorageNotWritable);
    WritePages();  // blocks are moved by their bytes
    const std::uint32_t end = GetEOF(Stream());
    const std::uint64_t limit = end - freeAddresses->SpaceBelow(end);
    while (CompactInternal(limit)) {
    }
}

/// One round: moves blocks from above the limit down, commits, and shortens the store.  False when nothing
/// moved.
bool BuddyStorage::CompactInternal(std::uint64_t limit) {
    AddressIdMap high;
    for (std::uint32_t id = 0; id < blocks.MaxID(); ++id)
        if (blocks.LogSize(id) != 0 && blocks.Address(id) >= limit) high.Put({blocks.Address(id), id});
    bool moved = false;
    for (AddressId next; high.Pop(&next) && MoveDown(next.id);) moved = true;
    if (moved) Commit();
    const std::uint64_t end = HighestEnd();
    if (end < GetEOF(Stream())) SetEOF(Stream(), static_cast<std::uint32_t>(end));
    return moved;
}

/// Moves a block to a lower address; false if there is none.
bool BuddyStorage::MoveDown(std::uint32_t id) {
    const std::uint32_t address = blocks.Address(id);
    const std::uint32_t logSize = blocks.LogSize(id);
    if (!freeAddresses->HasRoom(logSize)) return false;
    const std::uint32_t lower = AllocAddress(logSize);
    if (lower >= address) {
        FreeAddress(lower, logSize);
        return false;
    }
    try {
        CopyBytes(address, lower, 1u << logSize);
    } catch (...) {
        FreeAddress(lower, logSize);  // or no list would know of it any more
        throw;
    }
    FreeAddress(address, logSize);
    blocks.SetInfo(id, BuddyBlockTable::MakeInfo(lower, logSize));
    return true;
}

void BuddyStorage::CopyBytes(std::uint32_t from, std::uint32_t to, std::uint32_t count) {
    IALock streamLock(SSMutex(Stream()));
    std::array<std::uint8_t, IADiskBlockSize> buffer;
    while (count > 0) {
        const std::uint32_t done = Read(Stream(), from, buffer.data(), std::min(count, IADiskBlockSize));
        if (done == 0) break;
        Write(Stream(), to, buffer.data(), done);
        from += done;
        to += done;
        count -= done;
    }
    // A block's end may lie behind the end of the store, where nothing was ever written.  That is the only
    // reason to stop early; otherwise the block could not be read, and must not be given up.
    IAAssertion(count == 0 || from >= GetEOF(Stream()), "unable to copy the block", StoreError);
}

/// The end of what the store must keep.  Blocks freed since the last commit count: the committed state, which
/// is what a crash would show, still has them.
std::uint64_t BuddyStorage::HighestEnd() const {
    std::uint64_t end = newFreeAddresses.HighestEnd();
    for (std::uint32_t id = 0; id < blocks.MaxID(); ++id)
        if (blocks.LogSize(id) != 0)
            end = std::max(end, blocks.Address(id) + (std::uint64_t{1} << blocks.LogSize(id)));
    return end;
}

}  // namespace brindle
