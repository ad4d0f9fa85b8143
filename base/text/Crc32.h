#pragma once
#include <array>
#include <cstdint>
#include <string_view>

namespace lorvale {

namespace detail {

inline constexpr auto kCrcTable = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
        auto rest = byte;
        for (int bit = 0; bit < 8; ++bit) rest = (rest & 1) != 0 ? 0xEDB88320U ^ (rest >> 1) : rest >> 1;
        table[byte] = rest;
    }
    return table;
}();

}  // namespace detail

/// CRC-32, as ZIP archives and PNG files have it: a changed byte always shows, other damage all but surely.
constexpr std::uint32_t crc32(std::string_view bytes) {
    std::uint32_t crc = 0xFFFFFFFFU;
    for (const char c : bytes)
        crc = detail::kCrcTable[(crc ^ static_cast<std::uint8_t>(c)) & 0xFF] ^ (crc >> 8);
    return crc ^ 0xFFFFFFFFU;
}

static_assert(crc32("123456789") == 0xCBF43926U);

}  // namespace lorvale
