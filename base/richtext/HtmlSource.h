#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/values/data.h"

namespace lorvale {

/// The text of a page in valid UTF-8: read in the charset of its byte order mark, else in the given one, else
/// in the one it names itself in its first bytes, else as UTF-8 or Windows 1252.  Zero bytes, which would end
/// it for the parser, are U+FFFD.  Tags with more attributes than any person writes lose the ones behind,
/// because the parser compares each attribute of a tag with all others.
std::string textOfHtml(const Data& html, std::optional<std::string_view> charset);

/// The charset that the page names in a meta element; an empty text when it names none.
std::string_view charsetInMeta(std::string_view html);

}  // namespace lorvale
