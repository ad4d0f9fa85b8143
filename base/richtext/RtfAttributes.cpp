/// What the words of an RTF document say of characters and paragraphs.
#include <algorithm>
#include <utility>

#include "base/richtext/RtfCodePages.h"
#include "base/richtext/RtfReader.h"

namespace lorvale {

namespace {

constexpr std::size_t kMostFonts = 4096, kMostTabStops = 64;
constexpr int kLargestSize = 4000;  // half points
constexpr double kTwipsInPoint = 20;

}  // namespace

void RtfReader::setFlag(int value, Parameter parameter) {
    const bool on = parameter.value_or(1) != 0;
    switch (static_cast<Flag>(value)) {
        case Flag::bold:
            _state.bold = on;
            break;
        case Flag::italic:
            _state.italic = on;
            break;
        case Flag::underline:
            _state.underline = on;
            break;
        case Flag::hidden:
            _state.hidden = on;
            break;
    }
    _attributesChanged = true;
}

void RtfReader::endUnderline(int, Parameter) {
    _state.underline = false;
    _attributesChanged = true;
}

void RtfReader::setNumber(int value, Parameter parameter) {
    const int n = parameter.value_or(0);
    switch (static_cast<Number>(value)) {
        case Number::font:
            if (_state.destination == Destination::fonts) {
                const bool isRoom = _fonts.size() < kMostFonts || _fonts.contains(n);
                _fontBeingRead = isRoom ? &(_fonts[n] = {}) : nullptr;
            } else {
                _state.font = n;
            }
            break;
        case Number::size:
            if (n >= 0) _state.halfPoints = std::min(n, kLargestSize);
            break;
        case Number::color:
            _state.color = n;
            break;
        case Number::bytesForUnicode:
            _state.bytesForUnicode = std::clamp(n, 0, 16);
            break;
        case Number::defaultFont:
            _defaultFont = n;
            break;
    }
    _attributesChanged = true;
}

void RtfReader::resetCharacters(int, Parameter) {
    State fresh;
    fresh.destination = _state.destination;
    fresh.bytesForUnicode = _state.bytesForUnicode;
    fresh.tabKind = _state.tabKind;
    fresh.left = _state.left;
    fresh.firstLine = _state.firstLine;
    fresh.paragraph = std::move(_state.paragraph);
    fresh.link = std::move(_state.link);
    _state = std::move(fresh);
    _attributesChanged = true;
}

void RtfReader::changeParagraph(const std::function<void(ParagraphStyle&)>& change) {
    // Groups share it, so that a group costs little.
    auto style = std::make_shared<ParagraphStyle>(_state.paragraph ? *_state.paragraph : ParagraphStyle());
    change(*style);
    _state.paragraph = std::move(style);
    _attributesChanged = true;
}

void RtfReader::resetParagraph(int, Parameter) {
    _state.paragraph.reset();
    _state.left = _state.firstLine = 0;
    _state.tabKind = TabStop::Kind::left;
    _attributesChanged = true;
}

void RtfReader::setAlignment(int value, Parameter) {
    changeParagraph([&](auto& style) { style.alignment = static_cast<ParagraphStyle::Alignment>(value); });
}

void RtfReader::setParagraphLength(int value, Parameter parameter) {
    const int twips = parameter.value_or(0);
    changeParagraph([&](auto& style) {
        switch (static_cast<Length>(value)) {
            case Length::left:
                _state.left = twips;
                break;
            case Length::firstLine:
                _state.firstLine = twips;
                break;
            case Length::right:
                style.tailIndent = twips == 0 ? 0 : -twips / kTwipsInPoint;  // no negative zero
                break;
        }
        style.headIndent = static_cast<double>(_state.left) / kTwipsInPoint;
        style.firstLineHeadIndent = static_cast<double>(_state.left + _state.firstLine) / kTwipsInPoint;
    });
}

void RtfReader::setTabKind(int value, Parameter) {
    _state.tabKind = static_cast<TabStop::Kind>(value);
}

void RtfReader::addTabStop(int, Parameter parameter) {
    const TabStop stop{parameter.value_or(0) / kTwipsInPoint,
                       std::exchange(_state.tabKind, TabStop::Kind::left)};
    if (_state.paragraph && _state.paragraph->tabStops.size() >= kMostTabStops) return;
    changeParagraph([&](auto& style) { style.tabStops.push_back(stop); });
}

const RtfReader::FontEntry* RtfReader::fontEntry() const {
    const auto number = _state.font ? _state.font : _defaultFont;
    const auto found = number ? _fonts.find(*number) : _fonts.end();
    return found == _fonts.end() ? nullptr : &found->second;
}

int RtfReader::codePage() const {
    const auto* const entry = _state.destination == Destination::fonts ? _fontBeingRead : fontEntry();
    return entry == nullptr || entry->codePage == 0 ? _documentCodePage : entry->codePage;
}

std::optional<Font> RtfReader::font() const {
    const auto* const entry = fontEntry();
    if (entry == nullptr && !_state.bold && !_state.italic && _state.halfPoints == 0) return std::nullopt;
    Font font;
    font.family = entry == nullptr ? Font::user().family : entry->family;
    font.fixedPitch = entry != nullptr && entry->fixedPitch;
    if (_state.halfPoints > 0) font.size = _state.halfPoints / 2.0;
    font.bold = _state.bold;
    font.italic = _state.italic;
    return font;
}

void RtfReader::tellAttributes() {
    if (!std::exchange(_attributesChanged, false) || _out.isFull()) return;
    TextAttributes attributes;
    attributes.font = font();
    if (_state.color > 0 && static_cast<std::size_t>(_state.color) < _colors.size())
        attributes.foregroundColor = _colors[static_cast<std::size_t>(_state.color)];
    if (_state.underline) attributes.underline = 1;
    if (_state.paragraph) attributes.paragraphStyle = *_state.paragraph;
    if (_state.link) attributes.link = *_state.link;
    _out.setAttributes(attributes);
}

// Destinations
// -------------------------------------------------------------------------------------------------

}  // namespace lorvale
