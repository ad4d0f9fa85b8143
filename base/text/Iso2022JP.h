#pragma once
#include <optional>
#include <string>
#include <string_view>

namespace lorvale {

/// ISO-2022-JP as mail programs write it and the standard does not know it, with half-width kana and the
/// characters that Windows added to JIS X 0208, in the form of EUC-JP, whose converter does know them.  Nullopt
/// for other escape sequences, and for bytes above 0x7F.
std::optional<std::string> eucFromIso2022JP(std::string_view bytes);

}  // namespace lorvale
