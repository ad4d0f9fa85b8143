#include "RichText.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <utility>
#include <vector>

#include "Terminal.h"

namespace mailhost {

namespace {

using lorvale::AttributedText;
using lorvale::Color;
using lorvale::ParagraphStyle;
using lorvale::TextAttributes;

constexpr double kPointsInColumn = 6;
constexpr int kTabWidth = 8;

/// The nearest of the 6 x 6 x 6 colours that terminals know by number.  Black, white and what is nearly grey
/// mean no more than the terminal's own colour, and on its own background they might not be seen.
std::string colorCode(const Color& color) {
    const auto [least, most] = std::minmax({color.red, color.green, color.blue});
    constexpr double kColourful = 0.25;
    if (!(most - least >= kColourful)) return {};
    const auto step = [](double part) { return static_cast<int>(std::lround(std::clamp(part, 0.0, 1.0) * 5)); };
    return ";38;5;" + std::to_string(16 + 36 * step(color.red) + 6 * step(color.green) + step(color.blue));
}

/// What switches the terminal to the attributes; empty for plain text.
std::string codeFor(const TextAttributes& attributes) {
    std::string code;
    if (attributes.font && attributes.font->bold) code += ";1";
    if (attributes.font && attributes.font->italic) code += ";3";
    if (attributes.underline.value_or(0) > 0) code += ";4";
    if (attributes.foregroundColor) code += colorCode(*attributes.foregroundColor);
    return code.empty() ? code : "\033[" + code.substr(1) + "m";
}

std::string nameAndSize(const lorvale::FileWrapper& file) {
    const auto& name = file.preferredFilename().empty() ? file.filename() : file.preferredFilename();
    const auto shown = name.empty() ? std::string("attachment") : printableLine(name);
    if (file.kind() == lorvale::FileWrapper::Kind::symbolicLink)
        return "[" + shown + ", at " + printableLine(file.symbolicLinkDestination()) + "]";
    if (file.kind() == lorvale::FileWrapper::Kind::directory) return "[" + shown + ", a folder]";
    return "[" + shown + ", " + groupedNumber(file.regularFileContents().size()) + " bytes]";
}

class Layout {
public:
    Layout(int columns, bool styled) : _columns(columns), _styled(styled) {}

    void add(const AttributedText::Run& run) {
        const auto& attributes = run.attributes;
        if (attributes.link != _link) endLink();
        _link = attributes.link;
        const auto code = _styled ? codeFor(attributes) : std::string();
        const auto style = attributes.paragraphStyle.value_or(ParagraphStyle());
        if (attributes.attachment != nullptr) {
            addText(nameAndSize(*attributes.attachment), code, style);
        } else {
            addText(printableText(run.text), code, style);
        }
        if (_link) _linkText += run.text;
    }

    std::string finish() {
        endLink();
        endWord();
        if (_lineIsBegun) endLine();
        if (!_links.empty()) _output += "\n";
        for (std::size_t i = 0; i < _links.size(); ++i)
            _output += "[" + std::to_string(i + 1) + "] " + printableLine(_links[i]) + "\n";
        return std::move(_output);
    }

private:
    struct Piece {
        std::string code, text;
    };

    void addText(std::string_view text, const std::string& code, const ParagraphStyle& style) {
        while (!text.empty()) {
            if (!_lineIsBegun) beginParagraph(style);
            const auto length = std::min(text.find_first_of(" \t\n"), text.size());
            if (length > 0) {
                _word.push_back({code, std::string(text.substr(0, length))});
                text.remove_prefix(length);
                continue;
            }
            endWord();
            if (text.front() == '\n') {
                endLine();
                _lineIsBegun = false;
            } else {
                addBlank(text.front(), code);
            }
            text.remove_prefix(1);
        }
    }

    void beginParagraph(const ParagraphStyle& style) {
        const auto indent = [this](double points) {
            const int most = _columns / 2;  // some room is left for the text
            return static_cast<int>(
                std::clamp(std::round(points / kPointsInColumn), 0.0, static_cast<double>(most)));
        };
        _alignment = style.alignment;
        _indent = indent(style.headIndent);
        _lineIsBegun = true;
        beginLine(indent(style.firstLineHeadIndent));
    }

    void beginLine(int indent) {
        _lineIndent = indent;
        _width = 0;
    }

    /// White space counts, since some of it lays a text out; at the end of a line nobody sees it.
    void addBlank(char blank, const std::string& code) {
        const int width = blank == '\t' ? kTabWidth - (_lineIndent + _width + _blanks) % kTabWidth : 1;
        _blanks += width;
        _blankCode = code;
    }

    void endWord() {
        if (_word.empty()) return;
        int width = 0;
        for (const auto& piece : _word) width += displayWidth(piece.text);
        if (_width > 0 && _lineIndent + _width + _blanks + width > _columns) {
            endLine();
            beginLine(_indent);
        }
        if (_blanks > 0) put({_blankCode, std::string(static_cast<std::size_t>(_blanks), ' ')});
        _width += _blanks + width;
        _blanks = 0;
        for (auto& piece : _word) put(piece);
        _word.clear();
    }

    void put(const Piece& piece) {
        if (piece.code != _code) {
            if (!_code.empty()) _line += "\033[0m";
            _line += _code = piece.code;
        }
        _line += piece.text;
    }

    void endLine() {
        if (!std::exchange(_code, {}).empty()) _line += "\033[0m";
        if (!_line.empty()) {
            const int room = std::max(_columns - _lineIndent - _width, 0);
            const bool right = _alignment == ParagraphStyle::Alignment::right;
            const bool centred = _alignment == ParagraphStyle::Alignment::center;
            _output.append(static_cast<std::size_t>(_lineIndent + (right     ? room
                                                                   : centred ? room / 2
                                                                             : 0)),
                           ' ');
        }
        _output += _line;
        _output += '\n';
        _line.clear();
        _blanks = 0;
    }

    /// A number behind the link, unless its text says where it leads.
    void endLink() {
        const auto text = std::exchange(_linkText, {});
        const auto link = std::exchange(_link, std::nullopt);
        if (!link || *link == text || *link == "mailto:" + text ||
            text.find_first_not_of(" \t\n") == std::string::npos)
            return;
        const auto [place, isNew] = _numbers.try_emplace(*link, _links.size() + 1);
        if (isNew) _links.push_back(*link);
        if (_lineIsBegun) _word.push_back({"", "[" + std::to_string(place->second) + "]"});
    }

    const int _columns;
    const bool _styled;
    std::string _output;
    ParagraphStyle::Alignment _alignment = ParagraphStyle::Alignment::left;
    int _indent = 0;  // of the lines behind the first of the paragraph
    bool _lineIsBegun = false;
    std::string _line, _code;  // what stands on the line, and what the terminal is switched to there
    int _lineIndent = 0, _width = 0;
    int _blanks = 0;  // not yet on the line
    std::string _blankCode;
    std::vector<Piece> _word;  // not yet on the line
    std::optional<std::string> _link;
    std::string _linkText;
    std::vector<std::string> _links;
    std::map<std::string, std::size_t> _numbers;
};

}  // namespace

std::string richText(const AttributedText& text, int columns, bool styled) {
    Layout layout(std::max(columns, 1), styled);
    for (const auto& run : text.runs()) layout.add(run);
    return layout.finish();
}

}  // namespace mailhost
