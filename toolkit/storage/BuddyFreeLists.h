#pragma once
#include <array>
#include <cstdint>

#include "toolkit/storage/BuddyFormat.h"
#include "toolkit/storage/BuddyPlaces.h"

namespace brindle {

/// Free space of a buddy allocator: for each log size the free blocks of that size, no two of them
/// buddies.  All addresses given to it are aligned and free.  No locking.
class BuddyFreeLists {
public:
    /// The number of free blocks of that size.
    std::uint32_t Count(std::uint32_t logSize) const { return lists[logSize].Count(); }
    /// Gives the addresses of the free blocks of that size, ascending.
    template <class Visit>
    void ForEach(std::uint32_t logSize, Visit visit) const {
        const BuddyPlaces& list = lists[logSize];
        for (std::uint32_t place = list.Next(0); place != BuddyPlaces::kNone; place = list.Next(place + 1))
            visit(place << logSize);
    }

    /// The lowest free block of the smallest size that will do, cut down by halves.  Raises "storage full".
    std::uint32_t NewAddress(std::uint32_t logSize);
    /// Whether NewAddress() would succeed.
    bool HasRoom(std::uint32_t logSize) const;
    /// Joins the block with its buddy as long as that is free too.
    void AddAddress(std::uint32_t address, std::uint32_t logSize);
    /// The size of the block that AddAddress() would leave.
    std::uint32_t LogSizeJoined(std::uint32_t address, std::uint32_t logSize) const;
    /// Adds what the other lists hold.
    void AddAll(const BuddyFreeLists& other);
    /// Adds a block as it is, whether or not its buddy is free.
    void Append(std::uint32_t address, std::uint32_t logSize) { lists[logSize].Put(address >> logSize); }
    void Clear();

    /// The bytes that the lists take in a system block.
    std::uint64_t StoreSize() const;
    /// The same with an empty list counted as one of one address.
    std::uint64_t EstimatedStoreSize() const;
    /// Free bytes below an address.
    std::uint64_t SpaceBelow(std::uint32_t end) const;
    /// The end of the highest free block, 0 if there is none.
    std::uint64_t HighestEnd() const;

private:
    std::array<BuddyPlaces, MaxLogSize> lists;  // of places: multiples of the size
};

}  // namespace brindle
