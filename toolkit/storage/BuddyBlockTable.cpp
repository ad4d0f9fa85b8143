#include "toolkit/storage/BuddyBlockTable.h"

#include <algorithm>

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

BuddyBlockTable::Chunk BuddyBlockTable::AppendChunk() {
    words.resize(words.size() + InfoChunkSize);
    return std::span(words).last<InfoChunkSize>();
}

std::uint32_t BuddyBlockTable::NewInfo() {
    IAAssertion(maxID < kMaxIDs, "storage full", StorageFull);
    if ((maxID & InfoChunkMask) == 0) AppendChunk();
    isFree.push_back(false);
    SetInfo(maxID, 0);
    return maxID++;
}

void BuddyBlockTable::Adopt(std::uint32_t storedMaxID, std::uint32_t storedFreeIDHead) {
    maxID = storedMaxID;
    freeIDHead = storedFreeIDHead;
    isFree.assign(maxID, false);
    for (std::uint32_t id = 0; id < maxID; ++id)
        IAAssertion(LogSize(id) == 0 || IsBlockPlace(Address(id), LogSize(id)), "invalid storage block address",
                    StorageInvalid);
    // A word behind the last ID would become the place of the next one.
    IAAssertion(std::ranges::all_of(Words().subspan(maxID), [](std::uint32_t info) { return info == 0; }),
                "invalid storage block address", StorageInvalid);
    for (std::uint32_t id = freeIDHead; id != 0; id = Info(id) >> LogSizeBits) {
        IAAssertion(id < maxID && LogSize(id) == 0 && !isFree[id], "invalid storage free id chain",
                    StorageInvalid);
        isFree[id] = true;
    }
}

}  // namespace brindle
