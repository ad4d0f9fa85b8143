#pragma once
#include <optional>

#include "lorvale/values/attributed_text.h"

/// A message inside a message, as text.

namespace lorvale {

class Message;
class MessageHeaders;

/// A line for each header that a reader wants to see: the usual ones first, then all others but those of
/// Defaults::filterHeaders(), and an empty line.  Nullopt when there is none.
std::optional<AttributedText> attributedStringForHeaders(MessageHeaders& headers);

/// The same for the usual ones alone, from a header block in the standard dialect.
std::optional<AttributedText> attributedStringForUsualHeaders(std::string_view block);

/// The headers, and the text of the body.
AttributedText attributedStringForMessage(Message& message);

}  // namespace lorvale
