#include <algorithm>
#include <charconv>
#include <string>
#include <string_view>
#include <vector>

#include "base/text/Ascii.h"
#include "lorvale/values/format.h"
#include "lorvale/values/rich_text.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

/// Text for between tags and for attribute values.  A page has no control characters: they become blanks.
void appendEscaped(std::string& html, std::string_view text) {
    for (const char c : text) {
        switch (c) {
            case '&':
                html += "&amp;";
                break;
            case '<':
                html += "&lt;";
                break;
            case '>':
                html += "&gt;";
                break;
            case '"':
                html += "&quot;";
                break;
            default:
                html += isAsciiControl(c) && c != '\t' ? ' ' : c;
        }
    }
}

std::string escaped(std::string_view text) {
    std::string html;
    appendEscaped(html, text);
    return html;
}

std::string number(double value) {
    char digits[32];
    const auto end =
        std::to_chars(std::begin(digits), std::end(digits), value, std::chars_format::fixed, 2).ptr;
    std::string text(digits, end);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) text.pop_back();
    return text;
}

std::string points(double value) {
    return number(value) + "pt";
}

std::string hexadecimal(const Color& color) {
    const auto part = [](double value) { return static_cast<int>(std::clamp(value, 0.0, 1.0) * 255 + 0.5); };
    return formatText("#%02X%02X%02X", part(color.red), part(color.green), part(color.blue));
}

/// A list of declarations for a style attribute.
class Css {
public:
    void add(std::string_view property, std::string_view value) {
        if (!_text.empty()) _text += "; ";
        _text.append(property).append(": ").append(value);
    }
    /// The attribute with a blank before it; nothing without declarations.
    std::string attribute() const { return _text.empty() ? "" : " style=\"" + escaped(_text) + "\""; }
    bool empty() const { return _text.empty(); }

private:
    std::string _text;
};

/// A family as CSS quotes it; no character of it can end the quotes or the declaration.
std::string quotedFamily(std::string_view family) {
    std::string quoted = "'";
    for (const char c : family)
        quoted += std::string_view("'\"\\;\n\r").find(c) == std::string_view::npos ? c : ' ';
    return quoted + "'";
}

/// An address that runs something where it is followed is no link to send.  Programs that follow it pass over
/// blanks and control characters.
bool isHarmless(std::string_view link) {
    auto scheme = asciiLowered(link.substr(0, std::min(link.find(':'), link.size())));
    std::erase_if(scheme, [](char c) { return c == ' ' || isAsciiControl(c); });
    return scheme != "javascript" && scheme != "vbscript" && scheme != "data";
}

/// Whether white space in the line would go unless the page says that it counts.
bool needsItsWhiteSpace(std::string_view line) {
    const auto isWhite = [](char c) { return c == ' ' || isAsciiControl(c); };
    const auto areWhite = [&](char a, char b) { return isWhite(a) && isWhite(b); };
    if (line.empty()) return false;
    return isWhite(line.front()) || isWhite(line.back()) || line.find('\t') != std::string_view::npos ||
           std::ranges::adjacent_find(line, areWhite) != line.end();
}

class HtmlWriter {
public:
    explicit HtmlWriter(const AttachmentAddress& addressOf) : _addressOf(addressOf) {}

    Data page(const AttributedText& text) {
        _html = "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"></head><body>\n";
        for (const auto& run : text.runs()) addRun(run);
        if (!_line.empty()) endLine();
        endParagraphs();
        _html += "</body></html>\n";
        return Data::copyOf(_html);
    }

private:
    struct Piece {
        std::string_view text;
        const TextAttributes* attributes;
    };

    void addRun(const AttributedText::Run& run) {
        for (auto rest = run.text; !rest.empty();) {
            const auto end = rest.find('\n');
            const auto text = rest.substr(0, end);
            if (_line.empty()) _lineStyle = run.attributes.paragraphStyle.value_or(ParagraphStyle());
            _line.push_back({text, &run.attributes});
            if (end == std::string_view::npos) break;
            endLine();
            rest.remove_prefix(end + 1);
        }
    }

    /// Lines of one style share a block, with breaks between them.
    void endLine() {
        if (_isInBlock && _lineStyle != _blockStyle) endParagraphs();
        if (_isInBlock) {
            _html += "<br>\n";
        } else {
            beginBlock();
        }
        const auto start = _html.size();
        std::string whole;
        for (const auto& piece : _line) whole += piece.text;
        const bool keepsWhite = needsItsWhiteSpace(whole);
        if (keepsWhite) _html += "<span style=\"white-space: pre-wrap\">";
        for (const auto& piece : _line) writePiece(piece);
        if (keepsWhite) _html += "</span>";
        _lastLineIsEmpty = _html.size() == start;
        _line.clear();
    }

    void beginBlock() {
        constexpr std::string_view kAlignments[] = {"left", "right", "center", "justify"};
        Css css;
        if (_lineStyle.alignment != ParagraphStyle::Alignment::left)
            css.add("text-align", kAlignments[static_cast<int>(_lineStyle.alignment)]);
        if (_lineStyle.headIndent > 0) css.add("margin-left", points(_lineStyle.headIndent));
        if (_lineStyle.firstLineHeadIndent != _lineStyle.headIndent)
            css.add("text-indent", points(_lineStyle.firstLineHeadIndent - _lineStyle.headIndent));
        _html += "<div" + css.attribute() + ">";
        _blockStyle = _lineStyle;
        _isInBlock = true;
    }

    void endParagraphs() {
        if (!_isInBlock) return;
        _html += _lastLineIsEmpty ? "<br></div>\n" : "</div>\n";  // an empty line is one by its break
        _isInBlock = false;
    }

    void writePiece(const Piece& piece) {
        if (piece.text.empty()) return;
        if (piece.attributes->attachment != nullptr) return writePicture(piece);
        std::vector<std::string_view> ends;
        const auto open = [&](const std::string& start, std::string_view end) {
            _html += start;
            ends.push_back(end);
        };
        const auto css = styleOf(*piece.attributes);
        const auto& link = piece.attributes->link;
        if (link && isHarmless(*link)) {
            open("<a href=\"" + escaped(*link) + "\"" + css.attribute() + ">", "</a>");
        } else if (!css.empty()) {
            open("<span" + css.attribute() + ">", "</span>");
        }
        const auto font = piece.attributes->font.value_or(Font::user());
        if (font.fixedPitch) open("<code>", "</code>");
        if (font.bold) open("<b>", "</b>");
        if (font.italic) open("<i>", "</i>");
        if (piece.attributes->underline.value_or(0) > 0 && !link) open("<u>", "</u>");
        appendEscaped(_html, piece.text);
        for (auto end = ends.rbegin(); end != ends.rend(); ++end) _html += *end;
    }

    static Css styleOf(const TextAttributes& attributes) {
        Css css;
        const auto font = attributes.font.value_or(Font::user());
        const auto usual = font.fixedPitch ? Font::userFixedPitch() : Font::user();
        if (font.family != usual.family && !font.family.empty())
            css.add("font-family", quotedFamily(font.family) + (font.fixedPitch ? ", monospace" : ""));
        if (font.size != usual.size && font.size > 0) css.add("font-size", points(font.size));
        const auto& color = attributes.foregroundColor;
        if (color && *color != (attributes.link ? Color::named("blue") : Color()))
            css.add("color", hexadecimal(*color));
        if (attributes.link && attributes.underline && *attributes.underline == 0)
            css.add("text-decoration", "none");
        return css;
    }

    void writePicture(const Piece& piece) {
        const auto& attachment = piece.attributes->attachment;
        const auto address = _addressOf ? _addressOf(attachment) : std::nullopt;
        if (!address) return;
        const auto picture =
            "<img src=\"" + escaped(*address) + "\" alt=\"" + escaped(attachment->preferredFilename()) + "\">";
        for (auto count = characterCount(piece.text); count > 0; --count) _html += picture;
    }

    const AttachmentAddress& _addressOf;
    std::string _html;
    std::vector<Piece> _line;  // that has not been written yet
    ParagraphStyle _lineStyle, _blockStyle;
    bool _isInBlock = false, _lastLineIsEmpty = false;
};

}  // namespace

Data htmlFromAttributedText(const AttributedText& text, const AttachmentAddress& addressOf) {
    return HtmlWriter(addressOf).page(text);
}

}  // namespace lorvale
