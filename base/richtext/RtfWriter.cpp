#include "base/richtext/RtfWriter.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "base/text/Ascii.h"
#include "lorvale/values/rich_text.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

long halfPoints(double points) {
    return std::lround(std::clamp(points, 0.5, 2000.0) * 2);
}
long twips(double points) {
    return std::lround(std::clamp(points, -1e6, 1e6) * 20);
}
long colorPart(double part) {
    return std::lround(std::clamp(part, 0.0, 1.0) * 255);
}

constexpr auto kPlain =
    byteTable([](std::uint8_t c) { return c >= ' ' && c < 0x7F && c != '\\' && c != '{' && c != '}'; });

constexpr bool isPlain(char c) {
    return kPlain[static_cast<std::uint8_t>(c)];
}

/// Where the value is in the list, which gets it if it lacks it.
template <class Key>
std::size_t place(std::map<Key, std::size_t>& places, const Key& key) {
    return places.try_emplace(key, places.size()).first->second;
}

}  // namespace

RtfWriter::RtfWriter(const AttributedText& text, const NameOfAttachment& nameOf)
    : _text(text), _nameOf(nameOf) {
    _text.fixAttributes();  // so that the style of a paragraph changes only where one begins
    if (!_nameOf) _text.removeAllAttachments();
}

Data RtfWriter::write() {
    const auto runs = _text.runs();
    for (const auto& run : runs) collect(run.attributes);
    _out.append("{\\rtf1\\ansi\\ansicpg1252\\uc1\n");
    writeFonts();
    writeColors();
    for (const auto& run : runs) writeRun(run);
    _out.append("}\n");
    return _out.data();
}

void RtfWriter::collect(const TextAttributes& attributes) {
    if (attributes.font) place(_fonts, fontKey(*attributes.font));
    if (attributes.foregroundColor) place(_colors, colorKey(*attributes.foregroundColor));
}

RtfWriter::FontKey RtfWriter::fontKey(const Font& font) {
    return {font.family, font.fixedPitch};
}
RtfWriter::ColorKey RtfWriter::colorKey(const Color& color) {
    return {colorPart(color.red), colorPart(color.green), colorPart(color.blue)};
}

void RtfWriter::writeWord(std::string_view word, long parameter) {
    char digits[24];
    const auto end = std::to_chars(std::begin(digits), std::end(digits), parameter).ptr;
    _out.append(word);
    _out.append(std::string_view(digits, static_cast<std::size_t>(end - digits)));
}

void RtfWriter::writeFonts() {
    if (_fonts.empty()) return;
    _out.append("{\\fonttbl");
    for (const auto& [font, number] : _fonts) {
        writeWord("{\\f", static_cast<long>(number));
        _out.append(font.second ? "\\fmodern\\fprq1 " : "\\fnil\\fprq2 ");
        writeFamily(font.first);
        _out.append(";}");
    }
    _out.append("}\n");
}

void RtfWriter::writeColors() {
    if (_colors.empty()) return;
    std::vector<ColorKey> inOrder(_colors.size());
    for (const auto& [color, number] : _colors) inOrder[number] = color;
    _out.append("{\\colortbl;");  // the first one is that of no colour
    for (const auto& color : inOrder) {
        writeWord("\\red", color[0]);
        writeWord("\\green", color[1]);
        writeWord("\\blue", color[2]);
        _out.append(';');
    }
    _out.append("}\n");
}

void RtfWriter::writeRun(const AttributedText::Run& run) {
    // A paragraph has the style of its first character, so only a run that begins one can bring another.
    const auto& style = run.attributes.paragraphStyle;
    if (_beginsParagraph && (!_isStyleWritten || _style != style)) {
        writeParagraphStyle(style);
        _style = style;
        _isStyleWritten = true;
    }
    const auto& link = run.attributes.link;
    if (link && !link->empty()) beginLink(*link);
    writeCharacterAttributes(run.attributes);
    if (run.attributes.attachment == nullptr) {
        writeText(run.text);
    } else {
        writeAttachments(run);
    }
    if (link && !link->empty()) _out.append("}}");
    _beginsParagraph = run.text.ends_with('\n');
}

void RtfWriter::writeParagraphStyle(const std::optional<ParagraphStyle>& style) {
    _out.append("\\pard");
    if (!style) return;
    constexpr std::string_view kAlignments[] = {"\\ql", "\\qr", "\\qc", "\\qj"};
    _out.append(kAlignments[static_cast<int>(style->alignment)]);
    const auto left = twips(style->headIndent), first = twips(style->firstLineHeadIndent) - left;
    if (left != 0) writeWord("\\li", left);
    if (first != 0) writeWord("\\fi", first);
    if (style->tailIndent < 0) writeWord("\\ri", -twips(style->tailIndent));
    for (const auto& stop : style->tabStops) {
        constexpr std::string_view kKinds[] = {"", "\\tqr", "\\tqc", "\\tqdec"};
        _out.append(kKinds[static_cast<int>(stop.kind)]);
        writeWord("\\tx", twips(stop.location));
    }
}

void RtfWriter::writeCharacterAttributes(const TextAttributes& attributes) {
    _out.append("\\plain");
    if (attributes.font) {
        writeWord("\\f", static_cast<long>(_fonts.at(fontKey(*attributes.font))));
        writeWord("\\fs", halfPoints(attributes.font->size));
        if (attributes.font->bold) _out.append("\\b");
        if (attributes.font->italic) _out.append("\\i");
    }
    if (attributes.foregroundColor)
        writeWord("\\cf", static_cast<long>(_colors.at(colorKey(*attributes.foregroundColor))) + 1);
    if (attributes.underline.value_or(0) > 0) _out.append("\\ul");
    _out.append(' ');
}

void RtfWriter::beginLink(std::string_view link) {
    std::string escaped;  // for those who read the instruction
    for (const char c : link) {
        if (c == '"' || c == '\\') escaped += '\\';
        escaped += c;
    }
    _out.append("{\\field{\\*\\fldinst{HYPERLINK \"");
    writeText(escaped);
    _out.append("\"}}{\\fldrslt ");
}

/// The name of a font, which a semicolon would end.
void RtfWriter::writeFamily(std::string_view family) {
    for (const auto piece : split(family, ';')) {
        if (piece.data() != family.data()) _out.append("\\'3b");
        writeText(piece);
    }
}

void RtfWriter::writeAttachments(const AttributedText::Run& run) {
    const auto name = _nameOf(run.attributes.attachment);
    if (name.empty()) return;
    for (std::size_t i = 0; i < run.range.length; ++i) {
        _out.append("{{\\TarnGraphic ");
        writeAttachmentName(name);
        _out.append(" \\width0 \\height0\n}\\'ac}");
    }
}

void RtfWriter::writeAttachmentName(std::string_view name) {
    const auto inner = trimmed(name);
    const auto front = static_cast<std::size_t>(inner.data() - name.data());
    writeEscaped(name.substr(0, front));
    writeText(inner);
    writeEscaped(name.substr(front + inner.size()));
}

void RtfWriter::writeEscaped(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    for (const char c : bytes) {
        const auto byte = static_cast<std::uint8_t>(c);
        _out.append("\\'");
        _out.append(kDigits[byte >> 4]);
        _out.append(kDigits[byte & 0xF]);
    }
}

void RtfWriter::writeText(std::string_view text) {
    while (!text.empty()) {
        const auto plain = static_cast<std::size_t>(std::ranges::find_if_not(text, isPlain) - text.begin());
        _out.append(text.substr(0, plain));
        text.remove_prefix(plain);
        if (!text.empty()) writeCharacter(nextCodePoint(text));
    }
}

void RtfWriter::writeCharacter(char32_t c) {
    switch (c) {
        case '\\':
        case '{':
        case '}':
            _out.append('\\');
            return _out.append(static_cast<char>(c));
        case '\t':
            return _out.append("\\tab ");
        case '\n':
            return _out.append("\\par\n");
        case '\f':
            return _out.append("\\page ");
        default:
            break;
    }
    if (c > 0xFFFF) {
        writeUnit(0xD800 + ((c - 0x10000) >> 10));
        writeUnit(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
        writeUnit(isBadByte(c) ? 0xFFFD : c);
    }
}

/// One unit of UTF-16, as the signed number that it is here, and what others show for it.
void RtfWriter::writeUnit(char32_t unit) {
    writeWord("\\u", unit < 0x8000 ? static_cast<long>(unit) : static_cast<long>(unit) - 0x10000);
    _out.append('?');
}

Data rtfFromAttributedText(const AttributedText& text) {
    return RtfWriter(text, nullptr).write();
}

}  // namespace lorvale
