#pragma once
#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

namespace lorvale {

/// A number of a message or a UID, which is never 0; nullopt for anything else, and beyond 32 bits.
inline std::optional<std::uint32_t> numberIn(std::string_view digits) {
    std::uint32_t number = 0;
    const auto* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    return error == std::errc() && stop == end && number != 0 ? std::optional(number) : std::nullopt;
}

}  // namespace lorvale
