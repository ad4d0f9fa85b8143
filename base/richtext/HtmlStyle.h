#pragma once
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/values/attributed_text.h"

namespace lorvale {

/// How the text inside of an element looks; an element begins with that of the one around it.
struct HtmlStyle {
    bool bold = false, italic = false, underline = false, fixedPitch = false;
    bool hidden = false;        // left out, with everything inside
    bool preformatted = false;  // white space counts
    double size = 0;            // points; 0: not said
    std::optional<Color> color;
    std::optional<ParagraphStyle::Alignment> alignment;
    std::shared_ptr<const std::string> family, link;  // null: not said
    int indent = 0;                                   // levels of lists and quotations around
    bool inItem = false;

    double sizeOrDefault() const { return size > 0 ? size : 12; }
};

/// Takes over what a style attribute says ("color: red; font-weight: bold").
void applyCss(std::string_view declarations, HtmlStyle& style);

// Attributes of old HTML.  A value that says nothing leaves the style alone.
void applyColor(std::string_view value, HtmlStyle& style);      // "#FF0000", "rgb(255, 0, 0)", "red"
void applyAlignment(std::string_view value, HtmlStyle& style);  // "left", "right", "center", "justify"
void applyFamily(std::string_view value, HtmlStyle& style);     // the first of "Arial, sans-serif"
void applyFontSize(std::string_view value, HtmlStyle& style);   // "1" to "7", "+1", "-2"

}  // namespace lorvale
