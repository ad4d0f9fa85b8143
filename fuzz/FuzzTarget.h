#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/platform/log.h"

namespace lorvale::fuzz {

inline std::string_view viewOf(const std::uint8_t* bytes, std::size_t size) {
    return {reinterpret_cast<const char*>(bytes), size};
}

inline std::span<const std::uint8_t> bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// A truth of the target.
inline void require(bool truth) {
    if (!truth) std::abort();
}

}  // namespace lorvale::fuzz

/// Defines a fuzz target, whose body gets each input as a view.  What it logs is lost.
///
///     LORVALE_FUZZ_TARGET(text) { fuzz::require(format(parse(text)) == text); }
#define LORVALE_FUZZ_TARGET(input)                                                                \
    static void useInput(std::string_view input);                                                 \
    extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {          \
        [[maybe_unused]] static const auto before = lorvale::setLogSink([](std::string_view) {}); \
        useInput(lorvale::fuzz::viewOf(bytes, size));                                             \
        return 0;                                                                                 \
    }                                                                                             \
    static void useInput(std::string_view input)
