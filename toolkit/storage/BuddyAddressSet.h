#pragma once
#include <cstddef>
#include <cstdint>

#include "lorvale/toolkit/storage/memory.h"
#include "toolkit/storage/BuddyFormat.h"

namespace brindle {

/// A set of block addresses: one bit for each place of a smallest block, in chunks that are made when something
/// is put into them.  Every block that is written asks here, so it answers with two loads.  No locking.
class BuddyAddressSet {
public:
    void Put(std::uint32_t address) {
        const std::size_t chunk = address / kChunkSpace;
        if (chunk >= chunks.size()) chunks.resize(chunk + 1);
        if (chunks[chunk].empty()) chunks[chunk].resize(kChunkWords);
        chunks[chunk][WordOf(address)] |= BitOf(address);
    }
    bool Member(std::uint32_t address) const {
        const std::size_t chunk = address / kChunkSpace;
        return chunk < chunks.size() && !chunks[chunk].empty() &&
               (chunks[chunk][WordOf(address)] & BitOf(address)) != 0;
    }
    /// True if it was there.
    bool Remove(std::uint32_t address) {
        if (!Member(address)) return false;
        chunks[address / kChunkSpace][WordOf(address)] &= ~BitOf(address);
        return true;
    }
    void Clear() { chunks.clear(); }

private:
    static constexpr std::uint32_t kChunkSpace = 1u << 20;  // bytes of the store
    static constexpr std::size_t kChunkWords = kChunkSpace / MinBlockSize / 64;

    static std::size_t WordOf(std::uint32_t address) { return address % kChunkSpace / MinBlockSize / 64; }
    static std::uint64_t BitOf(std::uint32_t address) {
        return std::uint64_t{1} << (address / MinBlockSize % 64);
    }

    IAVector<IAVector<std::uint64_t>> chunks;  // empty where nothing was put yet
};

}  // namespace brindle
