#include "base/richtext/HtmlReader.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "base/richtext/HtmlElements.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

constexpr double kIndent = 24, kMarkWidth = 12;  // points
constexpr int kMostIndents = 12;                 // levels that are still told apart

std::string_view view(const unsigned char* text) {
    return text == nullptr ? std::string_view() : reinterpret_cast<const char*>(text);
}

/// In points, from the first heading to the sixth.
constexpr double kHeadingSizes[] = {24, 18, 14, 12, 10, 8};

Font fontFor(const HtmlStyle& style) {
    auto font = style.fixedPitch ? Font::userFixedPitch() : Font::user();
    if (style.family) font.family = *style.family;
    font.fixedPitch = style.fixedPitch;
    if (style.size > 0) font.size = style.size;
    font.bold = style.bold;
    font.italic = style.italic;
    return font;
}

std::optional<ParagraphStyle> paragraphFor(const HtmlStyle& style) {
    if (!style.alignment && style.indent == 0) return std::nullopt;
    ParagraphStyle paragraph;
    if (style.alignment) paragraph.alignment = *style.alignment;
    paragraph.headIndent = style.indent * kIndent;
    paragraph.firstLineHeadIndent = paragraph.headIndent - (style.inItem ? kMarkWidth : 0);
    return paragraph;
}

TextAttributes attributesFor(const HtmlStyle& style) {
    TextAttributes attributes;
    if (style.bold || style.italic || style.fixedPitch || style.family || style.size > 0)
        attributes.font = fontFor(style);
    if (style.link) attributes.link = *style.link;
    if (style.color) attributes.foregroundColor = style.color;
    if (style.underline) attributes.underline = 1;
    attributes.paragraphStyle = paragraphFor(style);
    return attributes;
}

/// Character references by number from 0x80 to 0x9F mean Windows 1252 to everybody but the parser.
std::string withWindowsCharacters(std::string_view utf8) {
    std::string text;
    while (!utf8.empty()) {
        const auto c = nextCodePoint(utf8);
        const char byte = static_cast<char>(c);
        if (c >= 0x80 && c < 0xA0) {
            text += decodeLossy({&byte, 1}, StringEncoding::windowsCP1252);
        } else {
            appendUtf8(text, c);
        }
    }
    return text;
}

bool holdsControls(std::string_view utf8) {
    constexpr char kLead = '\xC2';  // of U+0080 to U+00BF, and always followed by a byte
    for (auto at = utf8.find(kLead); at != std::string_view::npos; at = utf8.find(kLead, at + 1))
        if (static_cast<std::uint8_t>(utf8[at + 1]) < 0xA0) return true;
    return false;
}

}  // namespace

const unsigned char* const* HtmlAttributes::find(std::string_view name) const {
    if (_pairs == nullptr) return nullptr;
    for (const auto* pair = _pairs; *pair != nullptr; pair += 2)
        if (view(*pair) == name) return pair;
    return nullptr;
}

std::string_view HtmlAttributes::value(std::string_view name) const {
    const auto* const pair = find(name);
    return pair == nullptr ? std::string_view() : view(pair[1]);
}

bool HtmlAttributes::has(std::string_view name) const {
    return find(name) != nullptr;
}

void HtmlReader::open(std::string_view name, const HtmlAttributes& attributes) {
    const auto& element = htmlElementNamed(name);
    _open.push_back({&element, _style});
    applyElement(element.effect, attributes);
    applyAttributes(element, attributes);
    if (_style.hidden) return;
    if (element.lines > 0) _flow.beginBlock(element.lines);
    tellStyle();
    show(element.effect, attributes);
}

void HtmlReader::close() {
    if (_open.empty()) return;
    const auto& element = *_open.back().element;
    const bool wasHidden = _style.hidden;
    if (!wasHidden && element.effect == HtmlEffect::quoted) _flow.addText("\u201D");
    if (!wasHidden && element.effect == HtmlEffect::item) _flow.dropMark();
    _style = std::move(_open.back().outside);
    _open.pop_back();
    _dropNewline = false;
    if (wasHidden) return;
    if (element.lines > 0) _flow.beginBlock(element.lines);
    tellStyle();
}

void HtmlReader::addText(std::string_view utf8) {
    if (_style.hidden || utf8.empty()) return;
    std::string converted;
    if (holdsControls(utf8)) utf8 = converted = withWindowsCharacters(utf8);
    if (std::exchange(_dropNewline, false) && utf8.starts_with('\n')) utf8.remove_prefix(1);
    if (_style.preformatted) {
        _flow.addPreformatted(utf8);
    } else {
        _flow.addText(utf8);
    }
}

/// What the element means for the look of the text in it.
void HtmlReader::applyElement(HtmlEffect effect, const HtmlAttributes& attributes) {
    switch (effect) {
        case HtmlEffect::anchor:
            return applyLink(attributes);
        case HtmlEffect::bold:
        case HtmlEffect::tableHeading:
            _style.bold = true;
            return;
        case HtmlEffect::center:
            _style.alignment = ParagraphStyle::Alignment::center;
            return;
        case HtmlEffect::bulletList:
        case HtmlEffect::numberedList:
        case HtmlEffect::definition:
        case HtmlEffect::quotation:
            _style.indent = std::min(_style.indent + 1, kMostIndents);
            _style.inItem = false;
            return;
        case HtmlEffect::fixedPitch:
            _style.fixedPitch = true;
            return;
        case HtmlEffect::font:
            applyColor(attributes.value("color"), _style);
            applyFamily(attributes.value("face"), _style);
            return applyFontSize(attributes.value("size"), _style);
        case HtmlEffect::heading1:
        case HtmlEffect::heading2:
        case HtmlEffect::heading3:
        case HtmlEffect::heading4:
        case HtmlEffect::heading5:
        case HtmlEffect::heading6:
            _style.size = kHeadingSizes[static_cast<int>(effect) - static_cast<int>(HtmlEffect::heading1)];
            _style.bold = true;
            return;
        case HtmlEffect::hidden:
            _style.hidden = true;
            return;
        case HtmlEffect::italic:
            _style.italic = true;
            return;
        case HtmlEffect::item:
            _style.inItem = _style.indent > 0;
            return;
        case HtmlEffect::larger:
            return applyFontSize("+1", _style);
        case HtmlEffect::smaller:
            return applyFontSize("-1", _style);
        case HtmlEffect::preformatted:
            _style.preformatted = _style.fixedPitch = true;
            return;
        case HtmlEffect::underline:
            _style.underline = true;
            return;
        case HtmlEffect::breakLine:
        case HtmlEffect::cell:
        case HtmlEffect::none:
        case HtmlEffect::picture:
        case HtmlEffect::quoted:
        case HtmlEffect::rule:
            return;
    }
}

/// What its attributes say, which have the last word.
void HtmlReader::applyAttributes(const HtmlElement& element, const HtmlAttributes& attributes) {
    if (element.lines > 0) applyAlignment(attributes.value("align"), _style);
    if (attributes.has("hidden")) _style.hidden = true;
    applyCss(attributes.value("style"), _style);
}

void HtmlReader::applyLink(const HtmlAttributes& attributes) {
    const auto address = trimmed(attributes.value("href"));
    if (address.empty() || address.starts_with('#') || address.size() > kLongestLink) return;
    _style.link = std::make_shared<const std::string>(address);
    _style.underline = true;
    _style.color = Color::named("blue");
}

/// What the element itself puts into the text.
void HtmlReader::show(HtmlEffect effect, const HtmlAttributes& attributes) {
    switch (effect) {
        case HtmlEffect::breakLine:
            return _flow.breakLine();
        case HtmlEffect::bulletList:
        case HtmlEffect::numberedList:
            _open.back().isNumbered = effect == HtmlEffect::numberedList;
            if (_style.indent == 1) _flow.beginBlock(2);
            return;
        case HtmlEffect::cell:
        case HtmlEffect::tableHeading:
            return _flow.beginCell();
        case HtmlEffect::item:
            return beginItem(attributes);
        case HtmlEffect::picture:
            return showPicture(attributes);
        case HtmlEffect::preformatted:
            _dropNewline = true;
            return;
        case HtmlEffect::quoted:
            return _flow.addText("\u201C");
        case HtmlEffect::rule:
            return _flow.addText("--------");
        default:
            return;
    }
}

void HtmlReader::beginItem(const HtmlAttributes& attributes) {
    const auto isList = [](const Open& open) {
        return open.element->effect == HtmlEffect::bulletList ||
               open.element->effect == HtmlEffect::numberedList;
    };
    const auto list = std::ranges::find_if(_open.rbegin(), _open.rend(), isList);
    if (list == _open.rend() || !list->isNumbered) return _flow.setMark("\u2022 ");
    const auto value = attributes.value("value");
    std::from_chars(value.data(), value.data() + value.size(), list->items);
    _flow.setMark(std::to_string(value.empty() ? ++list->items : list->items) + ". ");
}

void HtmlReader::showPicture(const HtmlAttributes& attributes) {
    const auto address = attributes.value("src");
    auto picture = _pictures && !address.empty() ? _pictures(address) : nullptr;
    if (picture != nullptr) return _flow.addAttachment(std::move(picture));
    _flow.addText(attributes.value("alt"));
}

void HtmlReader::tellStyle() {
    _flow.setAttributes(attributesFor(_style));
}

}  // namespace lorvale
