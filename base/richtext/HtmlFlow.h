#pragma once
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/richtext/TextBuilder.h"

namespace lorvale {

/// Lays the words of a page out as lines of text: white space becomes one blank, blocks begin a line of their
/// own, and what nothing follows (a break at the end, the mark of an empty item) is not written.
class HtmlFlow {
public:
    /// For the text that follows.  Its paragraph style counts from the next paragraph on.
    void setAttributes(TextAttributes attributes);

    void addText(std::string_view utf8);
    /// With its white space and line ends as they are.
    void addPreformatted(std::string_view utf8);
    void addAttachment(std::shared_ptr<const FileWrapper> attachment);

    /// Ends the line, as often as called.
    void breakLine() { ++_breaks; }
    /// What follows begins a line, if `lines` is 2 after an empty one.
    void beginBlock(std::size_t lines);
    /// What follows on the same line stands behind a tab.
    void beginCell();
    /// Stands in front of the next text, with the style of its paragraph.
    void setMark(std::string mark) { _mark = std::move(mark); }
    void dropMark() { _mark.clear(); }

    AttributedText take() { return _out.take(); }

private:
    void beginPiece();
    void addBlank();
    void endLines();
    void tellAttributes();

    TextBuilder _out;
    TextAttributes _attributes;
    std::optional<ParagraphStyle> _paragraph;  // of the line that is being written
    std::string _mark;
    std::size_t _breaks = 0;   // line ends that the next text needs before it
    bool _isEmpty = true;      // nothing has been written at all
    bool _lineIsEmpty = true;  // nothing stands on this line
    bool _blank = false, _tab = false;
    bool _attributesChanged = true;
};

}  // namespace lorvale
