#pragma once
#include <cstddef>
#include <string_view>

namespace lorvale {

/// What a property list from outside may hold.  The parser of the library behind it follows nesting by
/// recursion and unfolds values that are referred to many times, so a small file could take all of the stack
/// or all of the memory: files are looked over before it gets to see them.
struct PropertyListLimits {
    std::size_t bytes = 16 << 20;  // of the file, and of what it unfolds to, four times as many
    std::size_t values = 500'000;  // after unfolding
    std::size_t depth = 100;
};

bool isBinaryPropertyList(std::string_view bytes);

/// Whether the file keeps within the limits, as the parser will see it.  True does not mean that it is valid.
bool binaryPropertyListKeepsWithin(std::string_view bytes, const PropertyListLimits& limits);
bool xmlPropertyListKeepsWithin(std::string_view text, const PropertyListLimits& limits);

}  // namespace lorvale
