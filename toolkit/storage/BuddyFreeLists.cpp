#include "toolkit/storage/BuddyFreeLists.h"

#include <algorithm>

namespace brindle {

std::uint32_t BuddyFreeLists::NewAddress(std::uint32_t logSize) {
    std::uint32_t found = logSize;
    while (found < MaxLogSize && lists[found].Count() == 0) ++found;
    IAAssertion(found < MaxLogSize, "storage full", StorageFull);
    std::uint32_t address = 0;
    lists[found].Pop(&address);
    while (found > logSize) {
        --found;
        lists[found].Put(BuddyAddress(address, found));  // the upper half stays free
    }
    return address;
}

bool BuddyFreeLists::HasRoom(std::uint32_t logSize) const {
    while (logSize < MaxLogSize && lists[logSize].Count() == 0) ++logSize;
    return logSize < MaxLogSize;
}

void BuddyFreeLists::AddAddress(std::uint32_t address, std::uint32_t logSize) {
    while (logSize + 1 < MaxLogSize && lists[logSize].Remove(BuddyAddress(address, logSize))) {
        address &= ~(1u << logSize);
        ++logSize;
    }
    lists[logSize].Put(address);
}

std::uint32_t BuddyFreeLists::LogSizeJoined(std::uint32_t address, std::uint32_t logSize) const {
    while (logSize + 1 < MaxLogSize && lists[logSize].Member(BuddyAddress(address, logSize))) {
        address &= ~(1u << logSize);
        ++logSize;
    }
    return logSize;
}

void BuddyFreeLists::AddAll(const BuddyFreeLists& other) {
    for (std::uint32_t logSize = 0; logSize < MaxLogSize; ++logSize) {
        const UInt32Set& list = other.lists[logSize];
        for (const auto* node = list.First(); node != nullptr; node = list.Next(node))
            AddAddress(UInt32Set::NodeKey(node), logSize);
    }
}

void BuddyFreeLists::Append(std::uint32_t address, std::uint32_t logSize) {
    UInt32Set::Finger finger;
    lists[logSize].FingerEnd(finger);
    lists[logSize].Insert(address, finger);
}

void BuddyFreeLists::CopyFrom(const BuddyFreeLists& other) {
    for (std::uint32_t logSize = 0; logSize < MaxLogSize; ++logSize) {
        lists[logSize].Clear();
        UInt32Set::Finger finger;
        lists[logSize].FingerStart(finger);
        const UInt32Set& list = other.lists[logSize];
        for (const auto* node = list.First(); node != nullptr; node = list.Next(node))
            lists[logSize].Insert(UInt32Set::NodeKey(node), finger);
    }
}

void BuddyFreeLists::Clear() {
    for (UInt32Set& list : lists) list.Clear();
}

std::uint64_t BuddyFreeLists::StoreSize() const {
    std::uint64_t size = 0;
    for (const UInt32Set& list : lists) size += 4 + 4 * std::uint64_t{list.Count()};
    return size;
}

std::uint64_t BuddyFreeLists::EstimatedStoreSize() const {
    std::uint64_t size = 0;
    for (const UInt32Set& list : lists) size += 4 + 4 * std::max(std::uint64_t{list.Count()}, std::uint64_t{1});
    return size;
}

std::uint64_t BuddyFreeLists::SpaceBelow(std::uint32_t end) const {
    std::uint64_t space = 0;
    for (std::uint32_t logSize = 0; logSize < MaxLogSize; ++logSize)
        for (const auto* node = lists[logSize].First(); node != nullptr; node = lists[logSize].Next(node)) {
            const std::uint32_t address = UInt32Set::NodeKey(node);
            if (address >= end) break;  // the others are higher still
            space += std::min<std::uint64_t>(std::uint64_t{1} << logSize, end - address);
        }
    return space;
}

std::uint64_t BuddyFreeLists::HighestEnd() const {
    std::uint64_t end = 0;
    for (std::uint32_t logSize = 0; logSize < MaxLogSize; ++logSize) {
        std::uint32_t highest = 0;
        if (lists[logSize].Last(&highest)) end = std::max(end, highest + (std::uint64_t{1} << logSize));
    }
    return end;
}

}  // namespace brindle
