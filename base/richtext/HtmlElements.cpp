#include "base/richtext/HtmlElements.h"

#include <algorithm>
#include <array>

namespace lorvale {

namespace {

using enum HtmlEffect;

constexpr auto kElements = std::to_array<HtmlElement>({
    {"a", anchor},
    {"address", italic, 1},
    {"applet", hidden},
    {"article", none, 1},
    {"aside", none, 1},
    {"audio", hidden},
    {"b", bold},
    {"big", larger},
    {"blockquote", quotation, 2},
    {"body", none, 1},
    {"br", breakLine},
    {"caption", none, 1},
    {"center", center, 1},
    {"cite", italic},
    {"code", fixedPitch},
    {"dd", definition, 1},
    {"details", none, 1},
    {"dfn", italic},
    {"dir", bulletList, 1},
    {"div", none, 1},
    {"dl", none, 2},
    {"dt", none, 1},
    {"em", italic},
    {"fieldset", none, 1},
    {"figcaption", none, 1},
    {"figure", none, 1},
    {"font", font},
    {"footer", none, 1},
    {"form", none, 1},
    {"frameset", hidden},
    {"h1", heading1, 2},
    {"h2", heading2, 2},
    {"h3", heading3, 2},
    {"h4", heading4, 2},
    {"h5", heading5, 2},
    {"h6", heading6, 2},
    {"head", hidden},
    {"header", none, 1},
    {"hr", rule, 1},
    {"i", italic},
    {"iframe", hidden},
    {"img", picture},
    {"ins", underline},
    {"kbd", fixedPitch},
    {"legend", none, 1},
    {"li", item, 1},
    {"listing", preformatted, 2},
    {"main", none, 1},
    {"math", hidden},
    {"menu", bulletList, 1},
    {"nav", none, 1},
    {"ol", numberedList, 1},
    {"p", none, 2},
    {"plaintext", preformatted, 2},
    {"pre", preformatted, 2},
    {"q", quoted},
    {"samp", fixedPitch},
    {"script", hidden},
    {"section", none, 1},
    {"select", hidden},
    {"small", smaller},
    {"strong", bold},
    {"style", hidden},
    {"summary", none, 1},
    {"svg", hidden},
    {"table", none, 1},
    {"tbody", none, 1},
    {"td", cell},
    {"template", hidden},
    {"textarea", preformatted, 1},
    {"tfoot", none, 1},
    {"th", tableHeading},
    {"thead", none, 1},
    {"title", hidden},
    {"tr", none, 1},
    {"tt", fixedPitch},
    {"u", underline},
    {"ul", bulletList, 1},
    {"var", italic},
    {"video", hidden},
    {"xmp", preformatted, 2},
});
static_assert(std::ranges::is_sorted(kElements, {}, &HtmlElement::name), "found by binary search");

}  // namespace

const HtmlElement& htmlElementNamed(std::string_view name) {
    static constexpr HtmlElement unknown{};
    const auto* const found = std::ranges::lower_bound(kElements, name, {}, &HtmlElement::name);
    return found != kElements.end() && found->name == name ? *found : unknown;
}

}  // namespace lorvale
