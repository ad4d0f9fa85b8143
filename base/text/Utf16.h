#pragma once
#include <optional>
#include <string>
#include <string_view>

namespace lorvale {

/// UTF-16 to UTF-8 (RFC 2781): in the order that a byte order mark at the start tells, which is taken off, and
/// big-endian without one.  A surrogate without its partner and an odd last byte give nullopt or, if `lossy`,
/// U+FFFD.
std::optional<std::string> decodeUtf16(std::string_view bytes, bool lossy);

/// Valid UTF-8 to big-endian UTF-16 behind a byte order mark; an empty text has none.
std::string encodeUtf16(std::string_view utf8);

}  // namespace lorvale
