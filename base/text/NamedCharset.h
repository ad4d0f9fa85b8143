#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/values/encoding.h"

/// Text in charsets by the names that mail and HTML give them, read as generously as programs of today do.

namespace lorvale {

/// The bytes as text: by any name that the system's converter knows, by the aliases of mail, and by the name
/// behind an "x-".  A charset that mail programs take for a larger one is read as that: Latin 1 as code page
/// 1252, GB 2312 as GB 18030.  U+FFFD for each byte that is not valid.  Nullopt for a charset that is not
/// known.  Any thread.
std::optional<std::string> decodeNamedCharset(std::string_view bytes, std::string_view charset);

/// Bytes that no charset claims: UTF-8 where they are valid as such, else in the preferred encoding, which may
/// be unknown, else in code page 1252, which knows every byte.
std::string decodeUnlabelled(std::string_view bytes, StringEncoding preferred);

}  // namespace lorvale
