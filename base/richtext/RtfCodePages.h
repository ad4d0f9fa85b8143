#pragma once
#include <string>
#include <string_view>

namespace lorvale {

/// The code page that a font's character set (\fcharset) stands for; 0 for those of the document's own.
int codePageOfRtfCharset(int charset);

/// Bytes of a document in a code page, as text; U+FFFD for each byte that is not valid.  A page that nobody
/// knows is read as 1252.
std::string textInCodePage(std::string_view bytes, int codePage);

}  // namespace lorvale
