#pragma once
#include <cstdint>

#include "lorvale/toolkit/storage/block.h"

namespace brindle {

/// Writes a VInt32 and answers the end of it.
inline std::uint8_t* PutVInt32(std::uint32_t value, std::uint8_t* to) {
    for (; value >= 0x80; value >>= 7) *to++ = static_cast<std::uint8_t>(value | 0x80);
    *to++ = static_cast<std::uint8_t>(value);
    return to;
}

/// Reads a VInt32 that ends before `end`; answers its end, or null if there is none.
inline const std::uint8_t* TakeVInt32(const std::uint8_t* from, const std::uint8_t* end, std::uint32_t& value) {
    value = 0;
    for (unsigned shift = 0; from != end && shift < 35; shift += 7) {
        const std::uint32_t byte = *from++;
        value |= (byte & 0x7F) << shift;
        if (byte < 0x80) return from;
    }
    return nullptr;
}

/// The most that one posting, or one component of a vector, takes.
inline constexpr std::uint32_t kMaxPostingSize = 10;

/// The bytes of what is stored next behind the number `previous`: `id` and how often.
constexpr std::uint32_t PairSize(std::uint32_t id, std::uint32_t freq, std::uint32_t previous) {
    const std::uint32_t delta = (id - previous) * 2;
    return freq == 1 ? VInt32Size(delta + 1) : VInt32Size(delta) + VInt32Size(freq);
}

/// Writes it and answers the end.
inline std::uint8_t* PutPair(std::uint32_t id, std::uint32_t freq, std::uint32_t previous, std::uint8_t* to) {
    const std::uint32_t delta = (id - previous) * 2;
    if (freq == 1) return PutVInt32(delta + 1, to);
    return PutVInt32(freq, PutVInt32(delta, to));
}

/// Reads the next one; answers its end, or null if there is none before `end`.  `delta` is the difference.
inline const std::uint8_t* TakePair(const std::uint8_t* from, const std::uint8_t* end, std::uint32_t& delta,
                                    std::uint32_t& freq) {
    freq = 1;
    // Frequent words have gaps that fit one byte, and most stand once.
    if (from != end && *from < 0x80)
        delta = *from++;
    else if ((from = TakeVInt32(from, end, delta)) == nullptr)
        return nullptr;
    const bool isOnce = (delta & 1) != 0;
    delta >>= 1;
    if (isOnce) return from;
    from = TakeVInt32(from, end, freq);
    return freq != 0 ? from : nullptr;
}

}  // namespace brindle
