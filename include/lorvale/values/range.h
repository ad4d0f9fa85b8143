#pragma once
#include <cstddef>

namespace lorvale {

/// The location of a range that stands for "not found".
inline constexpr std::size_t kNotFound = 0x7FFFFFFF;

/// A stretch of a sequence.  The unit is the byte in data and the code point in text.
struct Range {
    std::size_t location = 0;
    std::size_t length = 0;

    static constexpr Range notFound() { return {kNotFound, 0}; }
    constexpr bool found() const { return location != kNotFound; }
    constexpr std::size_t end() const { return location + length; }
    friend constexpr bool operator==(const Range&, const Range&) = default;
};

}  // namespace lorvale
