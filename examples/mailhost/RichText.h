#pragma once
#include <string>

#include "lorvale/values.h"

namespace mailhost {

/// A text with its attributes for people: paragraphs wrapped to the columns, indented and aligned; bold,
/// italic, underlined and coloured where the output is `styled`.  A link has a number behind it, and the
/// addresses stand at the end; an attachment shows its name and size.  What could command the terminal is
/// escaped.
std::string richText(const lorvale::AttributedText& text, int columns, bool styled);

}  // namespace mailhost
