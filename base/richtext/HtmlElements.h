#pragma once
#include <cstdint>
#include <string_view>

namespace lorvale {

/// What an element of HTML does to the text in it.
enum class HtmlEffect : std::uint8_t {
    none,
    anchor,
    bold,
    breakLine,
    bulletList,
    cell,
    center,
    definition,
    fixedPitch,
    font,
    heading1,
    heading2,
    heading3,
    heading4,
    heading5,
    heading6,
    hidden,
    italic,
    item,
    larger,
    numberedList,
    picture,
    preformatted,
    quotation,
    quoted,
    rule,
    smaller,
    tableHeading,
    underline,
};

struct HtmlElement {
    std::string_view name;
    HtmlEffect effect = HtmlEffect::none;
    std::uint8_t lines = 0;  // 1: stands on lines of its own, 2: with empty ones around, 0: in the line
};

/// By its name in lower case; one that nobody knows does nothing.
const HtmlElement& htmlElementNamed(std::string_view name);

}  // namespace lorvale
