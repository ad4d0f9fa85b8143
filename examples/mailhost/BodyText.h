#pragma once
#include <string>

#include "lorvale/message.h"
#include "lorvale/values/attributed_text.h"

namespace mailhost {

/// The body of a message as text with its attachments.  Throws Failure when it cannot be had.
lorvale::AttributedText decodedText(lorvale::Message& message);

/// The text with "[name, 12,345 bytes]" in the place of each attachment.
std::string readableText(const lorvale::AttributedText& text);

}  // namespace mailhost
