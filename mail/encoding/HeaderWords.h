#pragma once
#include <string>
#include <string_view>

#include "lorvale/values/encoding.h"

/// The encoded words of header values, a room for each direction.  Callers go through MimeHeaderEncoding.h.

namespace lorvale {

inline constexpr std::string_view kWordOpener = "=?";

/// A value with its words read.  `preferred` may be unknown.
std::string readClassicWords(std::string_view text, StringEncoding preferred);

/// A value in ASCII, with words where it needs them.
std::string writeClassicWords(std::string_view text, StringEncoding preferred);

/// Text that ISO-2022-JP holds, in plain runs and words, folded.
std::string foldJapaneseText(std::string_view text);

}  // namespace lorvale
