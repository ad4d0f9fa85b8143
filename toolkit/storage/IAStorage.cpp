#include "lorvale/toolkit/storage/storage.h"

#include <exception>

#include "lorvale/toolkit/storage/block.h"
#include "lorvale/toolkit/storage/exception.h"
#include "toolkit/storage/BuddyStorage.h"

namespace brindle {

std::atomic<bool> IASyncOnCommit{true};
std::atomic<std::size_t> IAPageMemory{std::size_t{32} << 20};

IAStorage::IAStorage(std::unique_ptr<IAStoreStream> stream, std::uint32_t type)
    : storeStream(std::move(stream)), storageType(type), mutex(IANewMutex()) {}

IAStorage::~IAStorage() = default;

void IAStorage::PrintFreeList() {}

std::uint32_t IAStorage::AllocateNamedBlock(const char* name) {
    IALock lock(GetMutex());
    IAAssertion(TOC_Get(name) == 0, "named blocked storage allocated", StorageBlockNameAllocated);
    const std::uint32_t id = Allocate();
    TOC_Set(name, id);
    return id;
}

std::uint32_t IAStorage::GetNamedBlock(const char* name) {
    IALock lock(GetMutex());
    const std::uint32_t id = TOC_Get(name);
    return id != 0 ? id : AllocateNamedBlock(name);
}

bool IAStorage::RemoveNamedBlock(const char* name) {
    IALock lock(GetMutex());
    const std::uint32_t id = TOC_Get(name);
    if (id == 0) return false;
    Deallocate(id);
    return TOC_Remove(name);
}

std::unique_ptr<IAStorage> IAMakeStorage(std::unique_ptr<IAStoreStream> stream) {
    return std::make_unique<BuddyStorage>(std::move(stream));
}

std::unique_ptr<IAStorage> MakeFileStorage(const char* path) {
    return IAMakeStorage(std::make_unique<UFSStoreStream>(path));
}

namespace {

IAStoreStream* StreamInUse(IAStorage* storage, IAStoreStream* useStream) {
    return useStream != nullptr ? useStream : storage->GetStoreStream();
}

IAMutex* NoMutex() {
    static IADefaultMutex none;
    return &none;
}

}  // namespace

// The storage's mutex is let go before the stream's is taken, so that whoever waits for the stream does not
// keep readers of other streams from their addresses.
IAInputBlock::IAInputBlock(IAStorage* storage, std::uint32_t id, IAStoreStream* useStream)
    : IAInputBlock(StreamInUse(storage, useStream), [&] {
          IALock storageLock(storage->GetMutex());
          const std::uint32_t address = storage->GetReadAddress(id);
          return Extent{address, storage->GetBlockSize(id)};
      }()) {}

IAInputBlock::IAInputBlock(IAStoreStream* inUse, Extent extent) : stream(inUse), mutex(inUse->GetMutex()) {
    mutex->Lock();
    try {
        stream->SetPosition(extent.address, extent.size);
    } catch (...) {
        mutex->Unlock();
        throw;
    }
}

void IAInputBlock::Unlock() {
    mutex->Unlock();
}

IAOutputBlock::IAOutputBlock(IAStorage* storage, std::uint32_t id, std::uint32_t size, IAStoreStream* useStream)
    : IAOutputBlock(StreamInUse(storage, useStream), [&] {
          IALock storageLock(storage->GetMutex());
          const std::uint32_t address = storage->GetWriteAddress(id, size);
          return Extent{address, storage->GetBlockSize(id)};
      }()) {}

IAOutputBlock::IAOutputBlock(IAStoreStream* positioned)
    : stream(positioned), exceptionsAtStart(std::uncaught_exceptions()), lock(NoMutex()) {}

IAOutputBlock::IAOutputBlock(IAStoreStream* inUse, Extent extent)
    : stream(inUse), exceptionsAtStart(std::uncaught_exceptions()), lock(inUse->GetMutex()) {
    stream->SetPosition(extent.address, extent.size);
}

IAOutputBlock::~IAOutputBlock() noexcept(false) {
    try {
        stream->MaybeFlushBuffer();
    } catch (...) {
        // With an exception on its way already this one would end the program.  It is not lost: the stream
        // stays dirty, so its next use fails in the same way.
        if (std::uncaught_exceptions() <= exceptionsAtStart) throw;
    }
}

}  // namespace brindle
