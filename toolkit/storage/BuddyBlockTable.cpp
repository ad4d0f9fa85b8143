#include "toolkit/storage/BuddyBlockTable.h"

#include <new>

namespace brindle {

std::uint32_t BuddyBlockTable::Allocate() {
    if (freeIDHead == 0) return NewInfo();
    const std::uint32_t id = freeIDHead;
    freeIDHead = Info(id) >> LogSizeBits;
    SetInfo(id, 0);
    isFree[id] = false;
    return id;
}

void BuddyBlockTable::Deallocate(std::uint32_t id) {
    SetInfo(id, freeIDHead << LogSizeBits);
    freeIDHead = id;
    isFree[id] = true;
}

BuddyBlockTable::Chunk& BuddyBlockTable::AppendChunk() {
    std::unique_ptr<Chunk> chunk(new (std::nothrow) Chunk{});
    IAAssertion(chunk != nullptr, "IAMallocArray returned nil", IAAssertionFailure);
    chunks.push_back(std::move(chunk));
    return *chunks.back();
}

std::uint32_t BuddyBlockTable::NewInfo() {
    IAAssertion(maxID < kMaxIDs, "storage full", StorageFull);
    if ((maxID & InfoChunkMask) == 0) AppendChunk();
    isFree.push_back(false);
    return maxID++;
}

void BuddyBlockTable::Adopt(std::uint32_t storedMaxID, std::uint32_t storedFreeIDHead) {
    maxID = storedMaxID;
    freeIDHead = storedFreeIDHead;
    isFree.assign(maxID, false);
    for (std::uint32_t id = 0; id < maxID; ++id)
        IAAssertion(LogSize(id) == 0 || IsBlockPlace(Address(id), LogSize(id)), "invalid storage block address",
                    StorageInvalid);
    for (std::uint32_t id = freeIDHead; id != 0; id = Info(id) >> LogSizeBits) {
        IAAssertion(id < maxID && LogSize(id) == 0 && !isFree[id], "invalid storage free id chain",
                    StorageInvalid);
        isFree[id] = true;
    }
}

}  // namespace brindle
