#pragma once
#include <cstdint>

#include "lorvale/toolkit/storage/exception.h"

/// The numbers of the storage file that more than one place knows.  docs/formats.md tells the whole file.
namespace brindle {

inline constexpr std::uint32_t BuddyStorageType = IATag("Bud1");  // also the first four bytes of the file
inline constexpr std::uint32_t MinLogSize = 5;                    // the smallest block is of 32 bytes
inline constexpr std::uint32_t MinBlockSize = 1u << MinLogSize;
inline constexpr std::uint32_t MaxLogSize = 32;  // a log size is below this
inline constexpr std::uint32_t MaxBlockSize = 0xFFFFFFFF;
inline constexpr std::uint32_t LogSizeBits = 5;
inline constexpr std::uint32_t InfoLogSizeMask = 31;
inline constexpr std::uint32_t InfoChunkBits = 8;
inline constexpr std::uint32_t InfoChunkSize = 256;
inline constexpr std::uint32_t InfoChunkMask = 255;
inline constexpr std::uint32_t SysBlockID = 0;

inline constexpr std::uint32_t kHeaderBlockSize = 32;    // at address 0; 16 bytes of it are in use
inline constexpr std::uint32_t kSpaceSize = 0x80000000;  // the whole space is one block of log size 31
inline constexpr std::uint32_t kLongestName = 254;       // one byte holds a name's length; 255 is not used
inline constexpr std::uint32_t kMaxIDs = 1u << (32 - LogSizeBits);  // a free ID has to fit in the address bits

/// The log size of the smallest block that holds `size` bytes: 5 for 0 to 32, 32 for what no block can hold.
constexpr std::uint32_t SizeLogSize(std::uint32_t size) {
    std::uint32_t logSize = MinLogSize;
    while (logSize < MaxLogSize && std::uint64_t{1} << logSize < size) ++logSize;
    return logSize;
}

static_assert(SizeLogSize(0) == 5 && SizeLogSize(32) == 5 && SizeLogSize(33) == 6);
static_assert(SizeLogSize(0x80000000) == 31 && SizeLogSize(0x80000001) == 32);

constexpr std::uint32_t BuddyAddress(std::uint32_t address, std::uint32_t logSize) {
    return address ^ 1u << logSize;
}

/// Whether a block may lie there: aligned to its size, inside the space, clear of the file header.
constexpr bool IsBlockPlace(std::uint32_t address, std::uint32_t logSize) {
    return logSize >= MinLogSize && logSize < MaxLogSize && address != 0 && address < kSpaceSize &&
           (address & ((1u << logSize) - 1)) == 0;
}

}  // namespace brindle
