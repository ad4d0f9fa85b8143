#include "base/richtext/HtmlStyle.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

constexpr double kSmallest = 4, kLargest = 96;  // points that a page may ask for
constexpr std::size_t kLongestFamily = 128;

/// Text sizes by the numbers and words of HTML and CSS.
constexpr std::array kSizes{8.0, 10.0, 12.0, 14.0, 18.0, 24.0, 36.0};

struct NamedSize {
    std::string_view name;
    std::size_t index;  // in kSizes
};
constexpr auto kNamedSizes = std::to_array<NamedSize>({
    {"xx-small", 0},
    {"x-small", 0},
    {"small", 1},
    {"medium", 2},
    {"large", 3},
    {"x-large", 4},
    {"xx-large", 5},
});

struct NamedColor {
    std::string_view name;
    std::uint32_t rgb;
};

/// The colours of HTML 4 and some that letters like; Color::named() knows its own.
constexpr auto kColors = std::to_array<NamedColor>({
    {"aqua", 0x00FFFF},      {"black", 0x000000},    {"blue", 0x0000FF},      {"crimson", 0xDC143C},
    {"darkblue", 0x00008B},  {"darkgray", 0xA9A9A9}, {"darkgreen", 0x006400}, {"darkgrey", 0xA9A9A9},
    {"darkred", 0x8B0000},   {"dimgray", 0x696969},  {"fuchsia", 0xFF00FF},   {"gold", 0xFFD700},
    {"gray", 0x808080},      {"green", 0x008000},    {"grey", 0x808080},      {"lightgray", 0xD3D3D3},
    {"lightgrey", 0xD3D3D3}, {"lime", 0x00FF00},     {"maroon", 0x800000},    {"navy", 0x000080},
    {"olive", 0x808000},     {"orange", 0xFFA500},   {"purple", 0x800080},    {"red", 0xFF0000},
    {"royalblue", 0x4169E1}, {"silver", 0xC0C0C0},   {"teal", 0x008080},      {"white", 0xFFFFFF},
    {"yellow", 0xFFFF00},
});
static_assert(std::ranges::is_sorted(kColors, {}, &NamedColor::name), "found by binary search");

Color fromRgb(std::uint32_t rgb) {
    const auto part = [rgb](int shift) { return static_cast<double>(rgb >> shift & 0xFF) / 255; };
    return {part(16), part(8), part(0), 1};
}

std::optional<Color> fromHex(std::string_view digits) {
    std::uint32_t rgb = 0;
    const auto* const end = digits.data() + digits.size();
    if (std::from_chars(digits.data(), end, rgb, 16).ptr != end) return std::nullopt;
    if (digits.size() == 6) return fromRgb(rgb);
    if (digits.size() != 3) return std::nullopt;
    return fromRgb(((rgb >> 8 & 0xF) << 16 | (rgb >> 4 & 0xF) << 8 | (rgb & 0xF)) * 0x11);
}

std::optional<double> takeNumber(Cursor& in) {
    in.takeWhile(isAsciiWhite);
    const bool negative = in.skip('-');
    if (!negative) in.skip('+');
    const auto digits = in.takeWhile([](char c) { return isAsciiDigit(c) || c == '.'; });
    double number = 0;
    const auto result =
        std::from_chars(digits.data(), digits.data() + digits.size(), number, std::chars_format::fixed);
    if (result.ec != std::errc()) return std::nullopt;
    return negative ? -number : number;
}

/// The arguments of "rgb(255, 0, 0)" or "rgba(100% 0% 0% / 50%)"; the alpha does not count.
std::optional<Color> fromFunction(std::string_view value) {
    Cursor in(value.substr(std::min(value.find('('), value.size())));
    in.skip('(');
    Color color;
    for (auto* const part : {&color.red, &color.green, &color.blue}) {
        const auto number = takeNumber(in);
        if (!number) return std::nullopt;
        *part = std::clamp(in.skip('%') ? *number / 100 : *number / 255, 0.0, 1.0);
        in.takeWhile([](char c) { return isAsciiWhite(c) || c == ','; });
    }
    return color;
}

std::optional<Color> colorIn(std::string_view value) {
    if (value.starts_with('#')) return fromHex(value.substr(1));
    const auto name = asciiLowered(value.substr(0, 32));
    if (name.starts_with("rgb")) return fromFunction(value);
    const auto* const found = std::ranges::lower_bound(kColors, name, {}, &NamedColor::name);
    if (found != kColors.end() && found->name == name) return fromRgb(found->rgb);
    return Color::named(name);
}

void setSize(double points, HtmlStyle& style) {
    if (points > 0) style.size = std::clamp(points, kSmallest, kLargest);
}

void applyLength(std::string_view value, HtmlStyle& style) {
    Cursor in(value);
    const auto number = takeNumber(in);
    if (!number) {
        const auto* const named = std::ranges::find(kNamedSizes, value, &NamedSize::name);
        if (named != kNamedSizes.end()) setSize(kSizes[named->index], style);
        if (value == "smaller") setSize(style.sizeOrDefault() / 1.2, style);
        if (value == "larger") setSize(style.sizeOrDefault() * 1.2, style);
        return;
    }
    const auto unit = in.rest();
    if (unit == "pt") setSize(*number, style);
    if (unit == "px") setSize(*number * 0.75, style);
    if (unit == "em") setSize(*number * style.sizeOrDefault(), style);
    if (unit == "rem") setSize(*number * 12, style);
    if (unit == "%") setSize(*number / 100 * style.sizeOrDefault(), style);
}

void applyWeight(std::string_view value, HtmlStyle& style) {
    Cursor in(value);
    const auto number = takeNumber(in);
    style.bold = number ? *number >= 600 : value.starts_with("bold");
}

void applyDecoration(std::string_view value, HtmlStyle& style) {
    if (value.find("underline") != std::string_view::npos) style.underline = true;
    if (value == "none") style.underline = false;
}

struct Property {
    std::string_view name;
    void (*apply)(std::string_view value, HtmlStyle& style);  // in lower case, but for families
};

constexpr auto kProperties = std::to_array<Property>({
    {"color", applyColor},
    {"display", [](std::string_view value, HtmlStyle& style) { style.hidden |= value == "none"; }},
    {"font-family", applyFamily},
    {"font-size", applyLength},
    {"font-style",
     [](std::string_view value, HtmlStyle& style) { style.italic = value == "italic" || value == "oblique"; }},
    {"font-weight", applyWeight},
    {"mso-hide", [](std::string_view value, HtmlStyle& style) { style.hidden |= value == "all"; }},
    {"text-align", applyAlignment},
    {"text-decoration", applyDecoration},
    {"text-decoration-line", applyDecoration},
    {"visibility", [](std::string_view value, HtmlStyle& style) { style.hidden |= value == "hidden"; }},
    {"white-space",
     [](std::string_view value, HtmlStyle& style) { style.preformatted = value.starts_with("pre"); }},
});
static_assert(std::ranges::is_sorted(kProperties, {}, &Property::name), "found by binary search");

void applyDeclaration(std::string_view name, std::string_view value, HtmlStyle& style) {
    const auto property = asciiLowered(trimmed(name));
    const auto* const known = std::ranges::lower_bound(kProperties, property, {}, &Property::name);
    if (known == kProperties.end() || known->name != property) return;
    value = trimmed(value.substr(0, value.find('!')));  // "!important" changes nothing here
    known->apply(known->apply == applyFamily ? std::string(value) : asciiLowered(value), style);
}

}  // namespace

void applyCss(std::string_view declarations, HtmlStyle& style) {
    Cursor in(declarations);
    while (!in.atEnd()) {
        const auto declaration = in.takeUntil(';');
        in.skip(';');
        const auto colon = declaration.find(':');
        if (colon != std::string_view::npos)
            applyDeclaration(declaration.substr(0, colon), declaration.substr(colon + 1), style);
    }
}

void applyColor(std::string_view value, HtmlStyle& style) {
    if (const auto color = colorIn(trimmed(value))) style.color = color;
}

void applyAlignment(std::string_view value, HtmlStyle& style) {
    using enum ParagraphStyle::Alignment;
    const auto word = asciiLowered(trimmed(value));
    if (word == "left" || word == "start") style.alignment = left;
    if (word == "right" || word == "end") style.alignment = right;
    if (word == "center" || word == "middle") style.alignment = center;
    if (word == "justify") style.alignment = justified;
}

void applyFamily(std::string_view value, HtmlStyle& style) {
    const auto first = trimmed(value.substr(0, value.find(',')), " \t\n\r\f\v\"'");
    if (first.empty() || first.size() > kLongestFamily || first == "inherit") return;
    style.fixedPitch = Font::isFixedPitchFamily(first);
    style.family = std::make_shared<const std::string>(first);
}

void applyFontSize(std::string_view value, HtmlStyle& style) {
    value = trimmed(value);
    Cursor in(value);
    const auto number = takeNumber(in);
    if (!number) return;
    const bool isRelative = value.starts_with('+') || value.starts_with('-');
    const auto index = std::clamp(*number + (isRelative ? 3 : 0), 1.0, 7.0);
    style.size = kSizes[static_cast<std::size_t>(index) - 1];
}

}  // namespace lorvale
