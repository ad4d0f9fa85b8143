#pragma once
#include <cstdint>

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

/// The most that one posting takes.
inline constexpr std::uint32_t kMaxPostingSize = 10;

}  // namespace brindle
