#pragma once
#include "lorvale/values/attributed_text.h"

/// Whether a text needs more than characters to be sent.

namespace lorvale {

/// As the classic dialect asks: ASCII, all of it in one of the user's two fonts, black, in the default style,
/// and without any other attribute is plain.
bool containsRichText(const AttributedText& text);

/// The same for what the standard dialect asks: what characters there are does not matter, attachments are no
/// attribute of the text, and a link that reads as its own address is plain.
bool hasVisibleAttributes(const AttributedText& text);

}  // namespace lorvale
