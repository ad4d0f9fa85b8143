#pragma once
#include <cstdint>

namespace brindle {

struct StemmedWord {
    std::uint32_t length;
    bool complete;  // false if it stopped at a byte that is neither letter nor digit
};

/// Stem() for a word that need not be terminated.  Of one with a zero byte only what stands before it is kept.
StemmedWord StemInPlace(char* word, std::uint32_t length);

}  // namespace brindle
