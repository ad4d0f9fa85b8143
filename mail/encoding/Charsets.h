#pragma once
#include <optional>
#include <string_view>

#include "lorvale/values/encoding.h"

namespace lorvale {

/// What is written and assumed where a charset is not known.
inline constexpr std::string_view kDefaultCharset = "iso-8859-1";

/// The encoding for a charset in an encoded word: by its exact name, without regard to case.
std::optional<StringEncoding> encodingOfEncodedWord(std::string_view charset);

/// bestMIMEStringEncoding() with a given preferred encoding, which may be unknown.
StringEncoding bestStringEncoding(std::string_view text, StringEncoding preferred);

}  // namespace lorvale
