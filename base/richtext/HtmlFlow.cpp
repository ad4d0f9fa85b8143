#include "base/richtext/HtmlFlow.h"

#include <algorithm>
#include <utility>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"

namespace lorvale {

void HtmlFlow::setAttributes(TextAttributes attributes) {
    _attributes = std::move(attributes);
    _attributesChanged = true;
}

void HtmlFlow::addText(std::string_view utf8) {
    Cursor in(utf8);
    while (!in.atEnd()) {
        if (!in.takeWhile(isAsciiWhite).empty()) _blank = true;
        const auto word = in.takeUntil(isAsciiWhite);
        if (word.empty()) continue;
        beginPiece();
        _out.append(word);
    }
}

void HtmlFlow::addPreformatted(std::string_view utf8) {
    Cursor in(utf8);
    while (!in.atEnd()) {
        if (in.skip('\n')) {
            breakLine();
            continue;
        }
        const auto line = in.takeUntil('\n');
        beginPiece();
        _out.append(line);
    }
}

void HtmlFlow::addAttachment(std::shared_ptr<const FileWrapper> attachment) {
    beginPiece();
    _out.appendAttachment(std::move(attachment));
}

void HtmlFlow::beginBlock(std::size_t lines) {
    // A line that is empty already is one to begin on.
    if (!_lineIsEmpty || _breaks > 0 || lines > 1) _breaks = std::max(_breaks, lines);
}

void HtmlFlow::beginCell() {
    if (!_lineIsEmpty && _breaks == 0) _tab = true;
}

/// Writes what has to stand before the next piece of text.
void HtmlFlow::beginPiece() {
    if (_breaks > 0) endLines();
    const bool beginsLine = std::exchange(_lineIsEmpty, false);
    if (beginsLine) {
        _isEmpty = false;
        if (_paragraph != _attributes.paragraphStyle) _attributesChanged = true;
        _paragraph = _attributes.paragraphStyle;
    }
    const bool blank = std::exchange(_blank, false) && !beginsLine;
    const bool tab = std::exchange(_tab, false) && !beginsLine;
    if (blank && !tab) addBlank();
    tellAttributes();
    if (tab) _out.append('\t');
    if (!_mark.empty()) _out.append(std::exchange(_mark, {}));
}

/// Between two words; of neither of two links.
void HtmlFlow::addBlank() {
    const auto& before = _out.attributes();
    if (before.underline && before.link != _attributes.link) {
        TextAttributes plain;
        plain.paragraphStyle = _paragraph;
        _out.setAttributes(plain);
        _attributesChanged = true;
    }
    _out.append(' ');
}

void HtmlFlow::endLines() {
    const auto count = std::exchange(_breaks, 0);
    _lineIsEmpty = true;
    _blank = _tab = false;
    if (_isEmpty) return;  // a page begins with its first word
    TextAttributes plain;
    plain.paragraphStyle = _paragraph;
    _out.setAttributes(plain);
    _out.append('\n');
    _attributesChanged = true;
    if (count == 1) return;
    plain.paragraphStyle.reset();
    _out.setAttributes(plain);
    for (std::size_t i = 1; i < count; ++i) _out.append('\n');
}

void HtmlFlow::tellAttributes() {
    if (!std::exchange(_attributesChanged, false) || _out.isFull()) return;
    auto attributes = _attributes;
    attributes.paragraphStyle = _paragraph;
    _out.setAttributes(attributes);
}

}  // namespace lorvale
