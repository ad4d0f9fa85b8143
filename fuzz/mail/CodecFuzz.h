#pragma once
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "lorvale/values/data.h"

/// What the fuzz targets of the codecs share.
namespace lorvale::fuzz {

inline std::string_view viewOf(const std::uint8_t* bytes, std::size_t size) {
    return {reinterpret_cast<const char*>(bytes), size};
}

/// A truth of the target.
inline void require(bool truth) {
    if (!truth) std::abort();
}

}  // namespace lorvale::fuzz
