#pragma once
#include <cstddef>
#include <string>
#include <string_view>

#include "lorvale/values/encoding.h"

/// Header values and their encoded words, a room for each direction and dialect.  Callers go through
/// MimeHeaderEncoding.h.  `preferred` may be unknown.

namespace lorvale {

/// A value with its words read.
std::string readClassicWords(std::string_view text, StringEncoding preferred);

/// A value in ASCII, with words where it needs them.
std::string writeClassicWords(std::string_view text, StringEncoding preferred);

/// Text that ISO-2022-JP holds, in plain runs and words, folded.
std::string foldJapaneseText(std::string_view text);

// The standard dialect reads bytes, which it takes for UTF-8 where they are that.  What it writes has its line
// ends as "\n" in front of white space; `column` is how much of the first line is taken.

/// A value that is text.
std::string readStandardWords(std::string_view text, StringEncoding preferred);
std::string writeStandardWords(std::string_view text, std::size_t column, StringEncoding preferred);

/// A list of addresses.  A name that was in words comes in quotes where it needs them, so that the list can
/// still be taken apart.
std::string readStandardAddresses(std::string_view text, StringEncoding preferred);
std::string writeStandardAddresses(std::string_view text, std::size_t column, StringEncoding preferred);

/// A value of another syntax, which is folded and never encoded.
std::string writeStandardStructure(std::string_view text, std::size_t column);

}  // namespace lorvale
