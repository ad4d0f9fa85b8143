#include "mail/mime/EnrichedReader.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

using Reader = MimeEnrichedReader;

struct Command {
    std::string_view name;
    void (Reader::*handle)(bool start) = nullptr;  // null: known and passed over
};

// "<gt>" is no command here; a ">" stands for itself.
constexpr auto kCommands = std::to_array<Command>({
    {"bold", &Reader::enrBold},
    {"italic", &Reader::enrItalic},
    {"fixed", &Reader::enrFixed},
    {"smaller", &Reader::enrSmaller},
    {"bigger", &Reader::enrBigger},
    {"underline", &Reader::enrUnderline},
    {"center", &Reader::enrCenter},
    {"color", &Reader::enrColor},
    {"flushleft", &Reader::enrFlushLeft},
    {"flushright", &Reader::enrFlushRight},
    {"fontfamily", &Reader::enrFontFamily},
    {"indent", &Reader::enrIndent},
    {"indentright"},
    {"outdent", &Reader::enrOutdent},
    {"outdentright"},
    {"samepage"},
    {"subscript", &Reader::refuseSubscript},
    {"superscript", &Reader::refuseSuperscript},
    {"heading"},
    {"footing"},
    {"iso-8859-x"},
    {"us-ascii"},
    {"excerpt", &Reader::enrExcerpt},
    {"paragraph", &Reader::enrParagraph},
    {"signature"},
    {"comment", &Reader::enrComment},
    {"no-op"},
    {"lt", &Reader::enrLt},
    {"nl", &Reader::enrNl},
    {"np", &Reader::enrNp},
    {"nofill", &Reader::enrNoFill},
    {"param", &Reader::enrParam},
    {"rtf"},
    {"x-fontsize", &Reader::enrXFontSize},
    {"x-tabstops", &Reader::enrXTabStops},
});

constexpr std::size_t kLongestFamily = 128, kMostTabStops = 256;
constexpr std::size_t kMostWaiting = 1000;  // for a <param>
constexpr int kMostWarnings = 100;          // of one text

/// The number that a text begins with; 0 without one.
double floatValue(std::string_view text) {
    double value = 0;
    TextScanner(text).scanFloat(&value);
    return value;
}

std::optional<double> takeColorPart(Cursor& in) {
    in.takeWhile(isAsciiWhite);
    in.skipIgnoringCase("0x");
    const auto digits = in.takeWhile(isAsciiHexDigit);
    std::uint32_t value = 0;
    if (std::from_chars(digits.data(), digits.data() + digits.size(), value, 16).ec != std::errc())
        return std::nullopt;
    return value / 65536.0;
}

/// "FFFF,0,8000"
std::optional<Color> colorFromParts(std::string_view text) {
    Cursor in(text);
    const auto red = takeColorPart(in);
    if (!red || !in.skip(',')) return std::nullopt;
    const auto green = takeColorPart(in);
    if (!green || !in.skip(',')) return std::nullopt;
    const auto blue = takeColorPart(in);
    return blue ? std::optional(Color{*red, *green, *blue}) : std::nullopt;
}

TabStop tabStopIn(std::string_view text) {
    using enum TabStop::Kind;
    const char suffix = text.empty() ? '\0' : text.back();
    return {floatValue(text), suffix == 'R' ? right : suffix == 'C' ? center : suffix == 'D' ? decimal : left};
}

}  // namespace

MimeEnrichedReader::MimeEnrichedReader() : _scanner({}) {}

const CharacterSet& MimeEnrichedReader::punctuationSet() {
    static constexpr CharacterSet set(" <>\n");
    return set;
}

const CharacterSet& MimeEnrichedReader::parenSet() {
    static constexpr CharacterSet set("<>");
    return set;
}

void MimeEnrichedReader::resetState(std::string_view string, AttributeOverlay& attributedString) {
    *this = MimeEnrichedReader();
    _scanner = TextScanner(string);
    _scanner.setCharactersToBeSkipped(CharacterSet());
    _scanner.setCaseSensitive(true);
    _attrib = &attributedString;
}

void MimeEnrichedReader::convertEnrichedString(std::string_view text, AttributeOverlay& intoAttributedString) {
    resetState(text, intoAttributedString);
    std::string token;
    bool atStart = true;
    for (auto kind = readTokenInto(token); kind != TokenKind::end; kind = readTokenInto(token)) {
        if (kind == TokenKind::commandStart || kind == TokenKind::commandEnd) {
            enrFlushBuf();
            processCommand(token, kind == TokenKind::commandStart);
        } else if (!_insideComment) {
            const bool isBlankOfNewline = kind == TokenKind::newline && token == " ";
            if (!(std::exchange(atStart, false) && isBlankOfNewline)) enrAppendString(token);
        }
    }
    enrFlushBuf();
}

void MimeEnrichedReader::convertRichTextString(std::string_view text, AttributeOverlay& intoAttributedString) {
    resetState(text, intoAttributedString);
    _eachNewlineIsAToken = true;
    std::string token, before;  // the last text
    bool newlineWaits = false;  // to become a blank between two words
    for (auto kind = readTokenInto(token); kind != TokenKind::end; kind = readTokenInto(token)) {
        if (kind == TokenKind::commandStart || kind == TokenKind::commandEnd) {
            enrFlushBuf();
            processCommand(token, kind == TokenKind::commandStart);
            continue;
        }
        if (_insideComment) continue;
        if (kind == TokenKind::newline) {
            if (before != " ") newlineWaits = true;
        } else {
            if (std::exchange(newlineWaits, false) && token != " " && before != " ") enrAppendString(" ");
            enrAppendString(token);
        }
        before.swap(token);
    }
    enrFlushBuf();
}

// Tokens
// -------------------------------------------------------------------------------------------------------

MimeEnrichedReader::TokenKind MimeEnrichedReader::readTokenInto(std::string& token) {
    const auto next = _scanner.nextTokenWithPunctuation(punctuationSet());
    if (!next) return TokenKind::end;
    token = *next;
    if (token == "\n") return readNewlines(token);
    return token == "<" ? readCommand(token) : TokenKind::text;
}

/// One line end is a blank between words; of several, one goes and the others stay.
MimeEnrichedReader::TokenKind MimeEnrichedReader::readNewlines(std::string& token) {
    if (_noFill || _eachNewlineIsAToken) return TokenKind::newline;
    static constexpr CharacterSet newline("\n");
    std::string_view further;
    token = _scanner.scanCharactersFromSet(newline, &further) ? further : " ";
    return TokenKind::newline;
}

MimeEnrichedReader::TokenKind MimeEnrichedReader::readCommand(std::string& token) {
    token = _scanner.nextTokenWithPunctuation(punctuationSet()).value_or(std::string_view());
    if (token == "<") return TokenKind::text;
    _scanner.scanUpToString(">");
    _scanner.scanString(">");
    if (!token.starts_with('/')) return TokenKind::commandStart;
    token.erase(0, 1);
    return TokenKind::commandEnd;
}

void MimeEnrichedReader::processCommand(std::string_view name, bool argument) {
    const auto* const command = std::ranges::find_if(
        kCommands, [&](const auto& known) { return equalIgnoringAsciiCase(known.name, name); });
    if (command == kCommands.end())
        return logWarning(formatText("Skipping unrecognized command: <%@%@>", argument ? "" : "/", name));
    if (command->handle != nullptr) (this->*command->handle)(argument);
}

void MimeEnrichedReader::enrFlushBuf() {
    _attrib->appendString(_string);
    _string.clear();
}

void MimeEnrichedReader::enrAppendString(std::string_view text) {
    _string += text;
}

void MimeEnrichedReader::mismatchError(std::string_view name) {
    logWarning(formatText("Ignoring unmatched </%@> command", name));
}

void MimeEnrichedReader::logWarning(const std::string& text) {
    constexpr std::size_t kLongest = 500;
    if (++_warnings <= kMostWarnings) logLine(std::string_view(text).substr(0, kLongest));
}

// Fonts
// --------------------------------------------------------------------------------------------------------

Font MimeEnrichedReader::fontOrSystemFont() const {
    const auto* const current = _attrib->currentValueForAttribute(TextAttribute::font);
    return current != nullptr && current->font ? *current->font : Font::user();
}

void MimeEnrichedReader::beginFont(Font font) {
    TextAttributes value;
    value.font = std::move(font);
    _attrib->beginAttribute(TextAttribute::font, value);
}

void MimeEnrichedReader::enrSetFont(bool start, void (*convert)(Font& font)) {
    if (!start) return _attrib->endAttribute(TextAttribute::font);
    auto font = fontOrSystemFont();
    convert(font);
    beginFont(std::move(font));
}

void MimeEnrichedReader::enrBold(bool start) {
    enrSetFont(start, [](Font& font) { font.bold = true; });
}
void MimeEnrichedReader::enrItalic(bool start) {
    enrSetFont(start, [](Font& font) { font.italic = true; });
}
void MimeEnrichedReader::enrFixed(bool start) {
    enrSetFont(start, [](Font& font) {
        const auto size = font.size;
        font = Font::userFixedPitch();
        font.size = size;
    });
}
void MimeEnrichedReader::enrSmaller(bool start) {
    enrSetFont(start, [](Font& font) { font.size = std::max(font.size - 2, 1.0); });
}
void MimeEnrichedReader::enrBigger(bool start) {
    enrSetFont(start, [](Font& font) { font.size += 2; });
}

void MimeEnrichedReader::enrUnderline(bool start) {
    if (!start) return _attrib->endAttribute(TextAttribute::underline);
    TextAttributes value;
    value.underline = 1;
    _attrib->beginAttribute(TextAttribute::underline, value);
}

// Paragraphs
// ---------------------------------------------------------------------------------------------------

void MimeEnrichedReader::beginStyle(ParagraphStyle style) {
    TextAttributes value;
    value.paragraphStyle = std::move(style);
    _attrib->beginAttribute(TextAttribute::paragraphStyle, value);
}

void MimeEnrichedReader::enrSetAlignment(std::string_view alignment, bool start) {
    if (!start) return _attrib->endAttribute(TextAttribute::paragraphStyle);
    constexpr auto kAlignments =
        std::to_array<std::string_view>({"flushleft", "flushright", "center", "justified"});
    const auto found = std::ranges::find(kAlignments, alignment);
    if (found == kAlignments.end())
        return logWarning(formatText("Ignoring unknown alignment \"%@\" in enrSetAlignment", alignment));
    const auto* const current = _attrib->currentValueForAttribute(TextAttribute::paragraphStyle);
    auto style = current != nullptr ? *current->paragraphStyle : ParagraphStyle();
    style.alignment = static_cast<ParagraphStyle::Alignment>(found - kAlignments.begin());
    beginStyle(std::move(style));
}

void MimeEnrichedReader::enrCenter(bool start) {
    enrSetAlignment("center", start);
}
void MimeEnrichedReader::enrFlushLeft(bool start) {
    enrSetAlignment("flushleft", start);
}
void MimeEnrichedReader::enrFlushRight(bool start) {
    enrSetAlignment("flushright", start);
}

void MimeEnrichedReader::changeHeadIndent(double steps, bool start) {
    if (!start) return _attrib->endAttribute(TextAttribute::paragraphStyle);
    const auto* const current = _attrib->currentValueForAttribute(TextAttribute::paragraphStyle);
    auto style = current != nullptr ? *current->paragraphStyle : ParagraphStyle();
    style.headIndent += steps * fontOrSystemFont().size * _indentStep;
    beginStyle(std::move(style));
}

void MimeEnrichedReader::enrIndent(bool start) {
    changeHeadIndent(1, start);
}
void MimeEnrichedReader::enrOutdent(bool start) {
    changeHeadIndent(-1, start);
}

/// The level only rises: of an end too many it is known whether there was a start at all, and so programs
/// that close a quotation twice end whatever font is open.
void MimeEnrichedReader::enrExcerpt(bool start) {
    if (start) ++_excerptLevel;
    if (!start && _excerptLevel <= 0) return mismatchError("excerpt");
    enrItalic(start);
}

// Text
// ---------------------------------------------------------------------------------------------------------

void MimeEnrichedReader::enrParagraph(bool) {
    enrAppendString("\n\n");
}
void MimeEnrichedReader::enrLt(bool) {
    enrAppendString("<");
}
void MimeEnrichedReader::enrNl(bool) {
    enrAppendString("\n");
}
void MimeEnrichedReader::enrNp(bool) {
    enrAppendString("\f");
}
void MimeEnrichedReader::enrComment(bool start) {
    _insideComment = start;
}
void MimeEnrichedReader::enrNoFill(bool start) {
    _noFill = start;
}

// Letters with these have always been shown as their source: no program that writes them relies on more, and
// the caller's plain text loses nothing.
void MimeEnrichedReader::refuseSubscript(bool) {
    throw InvalidArgumentException("MimeEnrichedReader has no setSubscript:");
}
void MimeEnrichedReader::refuseSuperscript(bool) {
    throw InvalidArgumentException("MimeEnrichedReader has no setSuperscript:");
}

// Parameters
// ---------------------------------------------------------------------------------------------------

void MimeEnrichedReader::waitForParameter(ParameterHandler handler) {
    if (_paramStack.size() < kMostWaiting) _paramStack.push_back(handler);
}

/// The parameter is all up to the next "<" or ">"; "</param>" then comes as any command.  An empty one takes
/// the
/// "<" of that.
void MimeEnrichedReader::enrParam(bool start) {
    if (!start) return;
    const auto parameter = _scanner.nextTokenWithPunctuation(parenSet()).value_or(std::string_view());
    if (_paramStack.empty()) return;
    const auto handler = _paramStack.back();
    _paramStack.pop_back();
    (this->*handler)(parameter);
}

void MimeEnrichedReader::enrColor(bool start) {
    if (start) return waitForParameter(&MimeEnrichedReader::enrColorStart);
    _attrib->endAttribute(TextAttribute::foregroundColor);
}
void MimeEnrichedReader::enrFontFamily(bool start) {
    if (start) return waitForParameter(&MimeEnrichedReader::enrFontFamilyStart);
    _attrib->endAttribute(TextAttribute::font);
}
void MimeEnrichedReader::enrXFontSize(bool start) {
    if (start) return waitForParameter(&MimeEnrichedReader::enrXFontSizeStart);
    _attrib->endAttribute(TextAttribute::font);
}
void MimeEnrichedReader::enrXTabStops(bool start) {
    if (start) return waitForParameter(&MimeEnrichedReader::enrXTabStopsStart);
    _attrib->endAttribute(TextAttribute::paragraphStyle);
}

void MimeEnrichedReader::enrColorStart(std::string_view text) {
    const auto color = text.find(',') == std::string_view::npos ? Color::named(text) : colorFromParts(text);
    TextAttributes value;
    value.foregroundColor = color.value_or(Color());
    _attrib->beginAttribute(TextAttribute::foregroundColor, value);
}

void MimeEnrichedReader::enrFontFamilyStart(std::string_view family) {
    auto font = fontOrSystemFont();
    if (family.size() <= kLongestFamily) {
        font.family = family;
        font.fixedPitch = Font::isFixedPitchFamily(family);
    }
    // This family looks larger than others of its size; the writer counts the two points back.
    if (font.family == "Brunt") font.size -= 2;
    beginFont(std::move(font));
}

void MimeEnrichedReader::enrXFontSizeStart(std::string_view text) {
    auto font = fontOrSystemFont();
    font.size = std::max(floatValue(text), 0.0);
    beginFont(std::move(font));
}

void MimeEnrichedReader::enrXTabStopsStart(std::string_view stops) {
    const auto* const current = _attrib->currentValueForAttribute(TextAttribute::paragraphStyle);
    if (current == nullptr) return beginStyle(ParagraphStyle());
    auto style = *current->paragraphStyle;
    style.tabStops.clear();
    Cursor in(stops);
    do {
        style.tabStops.push_back(tabStopIn(in.takeUntil(';')));
    } while (in.skip(';') && style.tabStops.size() < kMostTabStops);
    beginStyle(std::move(style));
}

AttributedText attributedStringFromMimeEnrichedString(std::string_view text) {
    AttributeOverlay overlay;
    overlay.beginParsing();
    MimeEnrichedReader().convertEnrichedString(text, overlay);
    return overlay.endParsing();
}

AttributedText attributedStringFromMimeRichTextString(std::string_view text) {
    AttributeOverlay overlay;
    overlay.beginParsing();
    MimeEnrichedReader().convertRichTextString(text, overlay);
    return overlay.endParsing();
}

}  // namespace lorvale
