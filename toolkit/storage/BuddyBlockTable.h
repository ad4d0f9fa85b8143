#pragma once
#include <cstdint>
#include <span>

#include "lorvale/toolkit/storage/memory.h"
#include "toolkit/storage/BuddyFormat.h"

namespace brindle {

/// Where the blocks of a storage are: one block info word for each ID ever handed out, in chunks of 256.
///
///   address | log size    the block's place
///   0                     handed out, not yet written
///   next free ID << 5     given back; the next one of the chain, which ends with 0
///
/// The last ID of the chain therefore looks like an unwritten block, so who is free is kept beside the words.
/// Callers pass only IDs below MaxID().  No locking.
class BuddyBlockTable {
public:
    using Chunk = std::span<std::uint32_t, InfoChunkSize>;

    static constexpr std::uint32_t MakeInfo(std::uint32_t address, std::uint32_t logSize) {
        return address | logSize;
    }
    static constexpr std::uint32_t InfoAddress(std::uint32_t info) { return info & ~InfoLogSizeMask; }
    static constexpr std::uint32_t InfoLogSize(std::uint32_t info) { return info & InfoLogSizeMask; }

    std::uint32_t MaxID() const { return maxID; }
    std::uint32_t FreeIDHead() const { return freeIDHead; }
    /// The number of chunks that hold words below `ids`.
    static constexpr std::uint32_t ChunksFor(std::uint32_t ids) {
        return ids == 0 ? 0 : ((ids - 1) >> InfoChunkBits) + 1;
    }
    std::uint32_t MaxChunkIndex() const { return ChunksFor(maxID); }
    /// All words of all chunks.
    std::span<const std::uint32_t> Words() const { return words; }

    std::uint32_t Info(std::uint32_t id) const { return words[id]; }
    std::uint32_t Address(std::uint32_t id) const { return InfoAddress(Info(id)); }
    std::uint32_t LogSize(std::uint32_t id) const { return InfoLogSize(Info(id)); }
    void SetInfo(std::uint32_t id, std::uint32_t info) { words[id] = info; }
    bool IsFree(std::uint32_t id) const { return isFree[id]; }

    /// A given-back ID if there is one, else a new one.  Its word is 0.
    std::uint32_t Allocate();
    /// Puts the ID at the head of the chain.
    void Deallocate(std::uint32_t id);

    // To fill a new table from a file: all chunks, then the numbers, which raise StorageInvalid if a word
    // cannot be true or the chain is broken.
    Chunk AppendChunk();
    void Adopt(std::uint32_t storedMaxID, std::uint32_t storedFreeIDHead);

private:
    std::uint32_t NewInfo();

    IAVector<std::uint32_t> words;  // by ID, whole chunks; 0 from maxID on
    IAVector<bool> isFree;          // by ID
    std::uint32_t maxID = 0;
    std::uint32_t freeIDHead = 0;
};

}  // namespace brindle
