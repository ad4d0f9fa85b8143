#include "toolkit/storage/BuddyFreeLists.h"

#include <algorithm>

namespace brindle {

std::uint32_t BuddyFreeLists::NewAddress(std::uint32_t logSize) {
    std::uint32_t found = logSize;
    while (found < MaxLogSize && lists[found].Count() == 0) ++found;
    IAAssertion(found < MaxLogSize, "storage full", StorageFull);
    const std::uint32_t place = lists[found].Next(0);
    lists[found].Remove(place);
    const std::uint32_t address = place << found;
    while (found > logSize) {
        --found;
        lists[found].Put(BuddyAddress(address, found) >> found);  // the upper half stays free
    }
    return address;
}

bool BuddyFreeLists::HasRoom(std::uint32_t logSize) const {
    while (logSize < MaxLogSize && lists[logSize].Count() == 0) ++logSize;
    return logSize < MaxLogSize;
}

void BuddyFreeLists::AddAddress(std::uint32_t address, std::uint32_t logSize) {
    while (logSize + 1 < MaxLogSize && lists[logSize].Remove(BuddyAddress(address, logSize) >> logSize)) {
        address &= ~(1u << logSize);
        ++logSize;
    }
    lists[logSize].Put(address >> logSize);
}

std::uint32_t BuddyFreeLists::LogSizeJoined(std::uint32_t address, std::uint32_t logSize) const {
    while (logSize + 1 < MaxLogSize && lists[logSize].Member(BuddyAddress(address, logSize) >> logSize)) {
        address &= ~(1u << logSize);
        ++logSize;
    }
    return logSize;
}

void BuddyFreeLists::AddAll(const BuddyFreeLists& other) {
    for (std::uint32_t logSize = 0; logSize < MaxLogSize; ++logSize)
        other.ForEach(logSize, [&](std::uint32_t address) { AddAddress(address, logSize); });
}

void BuddyFreeLists::Clear() {
    for (BuddyPlaces& list : lists) list.Clear();
}

std::uint64_t BuddyFreeLists::StoreSize() const {
    std::uint64_t size = 0;
    for (const BuddyPlaces& list : lists) size += 4 + 4 * std::uint64_t{list.Count()};
    return size;
}

std::uint64_t BuddyFreeLists::EstimatedStoreSize() const {
    std::uint64_t size = 0;
    for (const BuddyPlaces& list : lists)
        size += 4 + 4 * std::max(std::uint64_t{list.Count()}, std::uint64_t{1});
    return size;
}

std::uint64_t BuddyFreeLists::SpaceBelow(std::uint32_t end) const {
    std::uint64_t space = 0;
    for (std::uint32_t logSize = 0; logSize < MaxLogSize; ++logSize)
        ForEach(logSize, [&](std::uint32_t address) {
            if (address < end) space += std::min<std::uint64_t>(std::uint64_t{1} << logSize, end - address);
        });
    return space;
}

std::uint64_t BuddyFreeLists::HighestEnd() const {
    std::uint64_t end = 0;
    for (std::uint32_t logSize = 0; logSize < MaxLogSize; ++logSize)
        if (lists[logSize].Count() > 0)
            end = std::max(end, (std::uint64_t{lists[logSize].Last()} + 1) << logSize);
    return end;
}

}  // namespace brindle
