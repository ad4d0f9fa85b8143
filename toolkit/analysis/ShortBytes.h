#pragma once
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace brindle {

// Up to eight bytes as a number, the first one lowest.  Compilers make one load of the two below.

inline std::uint64_t Bytes4(const char* at) {
    std::uint64_t number = 0;
    for (int i = 0; i < 4; ++i) number |= std::uint64_t{static_cast<unsigned char>(at[i])} << (8 * i);
    return number;
}

inline std::uint64_t Bytes8(const char* at) {
    return Bytes4(at) | Bytes4(at + 4) << 32;
}

/// All of a text of at most 8 bytes, zeros above.
inline std::uint64_t BytesUpTo8(std::string_view text) {
    const char* const at = text.data();
    const std::size_t n = text.size();
    if (n >= 4) return Bytes4(at) | Bytes4(at + n - 4) << (8 * (n - 4));
    if (n == 0) return 0;
    // The first, the middle and the last one, which may be the same: faster than to go round by the length.
    const auto byte = [at](std::size_t i) {
        return std::uint64_t{static_cast<unsigned char>(at[i])} << (8 * i);
    };
    return byte(0) | byte(n / 2) | byte(n - 1);
}

}  // namespace brindle
