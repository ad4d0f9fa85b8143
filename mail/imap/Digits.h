#pragma once
#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"

namespace lorvale {

/// A decimal number without a sign; nullopt for anything else, and for one that is too large.
template <class Number = std::uint32_t>
std::optional<Number> wholeNumber(std::string_view digits) {
    Number number = 0;
    const auto* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

/// A number of a message or a UID, which is never 0.
inline std::optional<std::uint32_t> numberIn(std::string_view digits) {
    const auto number = wholeNumber(digits);
    return number && *number != 0 ? number : std::nullopt;
}

/// The digits that stand here, whatever follows.  They are gone then, also where they are too many.
template <class Number = std::uint32_t>
std::optional<Number> takeWholeNumber(Cursor& cursor) {
    return wholeNumber<Number>(cursor.takeWhile(isAsciiDigit));
}

}  // namespace lorvale
