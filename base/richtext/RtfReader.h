#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/richtext/TextBuilder.h"
#include "base/text/Cursor.h"
#include "lorvale/values/rich_text.h"

namespace lorvale {

/// Reads one RTF document (Rich Text Format 1.9).  Borrows the bytes.  A document is groups in
/// braces, control words ("\b", "\fs24") and text; a group ends what was set in it.  Every group has a
/// destination: the text itself, a table, a picture, or nothing that is shown.
class RtfReader {
public:
    RtfReader(std::string_view rtf, const AttachmentSource& attachments);
    /// Once.
    AttributedText read();

    /// Whether the bytes begin as an RTF document does.
    static bool isRtf(std::string_view bytes);

    // What the table of control words (RtfWords.cpp) calls.  `value` is the word's own, from the table;
    // `parameter` is the number behind the word, if there is one.
    using Parameter = std::optional<int>;
    void setDestination(int value, Parameter);
    void setFlag(int value, Parameter parameter);
    void endUnderline(int value, Parameter);
    void setNumber(int value, Parameter parameter);
    void setParagraphLength(int value, Parameter parameter);
    void setAlignment(int value, Parameter);
    void setTabKind(int value, Parameter);
    void addTabStop(int value, Parameter parameter);
    void resetCharacters(int value, Parameter);
    void resetParagraph(int value, Parameter);
    void setCodePage(int value, Parameter parameter);
    void setFontCharset(int value, Parameter parameter);
    void setFontPitch(int value, Parameter parameter);
    void setColorPart(int value, Parameter parameter);
    void addCharacter(int value, Parameter);
    void addUnicode(int value, Parameter parameter);
    void endCell(int value, Parameter);
    void endRow(int value, Parameter);
    void setPictureKind(int value, Parameter);
    void skipBinary(int value, Parameter parameter);

    enum class Destination : std::uint8_t { body, nothing, fonts, colors, instruction, graphic, picture };
    enum class Flag : std::uint8_t { bold, italic, underline, hidden };
    enum class Number : std::uint8_t { font, size, color, bytesForUnicode, defaultFont };
    enum class Length : std::uint8_t { left, firstLine, right };
    enum class PictureKind : std::uint8_t { none, png, jpeg };

private:
    struct FontEntry {
        std::string family;
        int codePage = 0;  // 0: the document's
        bool fixedPitch = false;
    };

    /// What a group sets and its end takes back.
    struct State {
        Destination destination = Destination::body;
        bool bold = false, italic = false, underline = false, hidden = false;
        TabStop::Kind tabKind = TabStop::Kind::left;
        int bytesForUnicode = 1;  // that stand behind a \u for readers that do not know it
        std::optional<int> font;
        int halfPoints = 0;                               // 0: not said
        int color = 0;                                    // in the table; 0 is none
        std::int64_t left = 0, firstLine = 0;             // indents in twips, the second from the first
        std::shared_ptr<const ParagraphStyle> paragraph;  // null: nothing said
        std::shared_ptr<const std::string> link;
    };

    bool isNothing() const;
    void openGroup();
    void closeGroup();
    void leave(Destination destination);
    void readControl();
    void readControlWord();
    void readSymbol(char symbol);
    void act(std::string_view word, Parameter parameter);

    void addLiteral(std::string_view bytes);
    void addEscapedByte();
    void addBytes(std::string_view bytes);
    void addFontNames(std::string_view bytes);
    void addAttachmentName(std::string_view bytes);
    void addPictureDigits(std::string_view digits);
    void flush();
    void deliver(std::string_view utf8);
    void deliverToBody(std::string_view utf8);
    void beginBodyText();
    void deliverCharacter(char32_t character);

    void finishColors(std::size_t count);
    void finishInstruction();
    void finishGraphic();
    void finishPicture();
    void showAttachment(std::shared_ptr<const FileWrapper> attachment);

    int codePage() const;
    const FontEntry* fontEntry() const;
    std::optional<Font> font() const;
    void tellAttributes();
    void changeParagraph(const std::function<void(ParagraphStyle&)>& change);

    Cursor _in;
    const AttachmentSource& _attachments;
    TextBuilder _out;

    State _state;
    std::vector<State> _outer;       // of the groups around, the innermost last
    std::size_t _deeper = 0;         // groups open beyond the deepest that counts
    std::size_t _hiddenFrom = 0;     // of these, the first with a destination of its own, which is not shown
    bool _attributesChanged = true;  // since _out was told
    bool _starred = false;           // a "\*" stands in front of the next word

    std::string _bytes;  // of text, in the code page, not yet decoded
    int _toSkip = 0;     // bytes behind a \u
    char32_t _highSurrogate = 0;
    bool _dropMark = false;  // the character that stands for an attachment comes next
    int _cellsEnded = 0;     // whose tabs are not written yet

    int _documentCodePage = 1252;
    std::optional<int> _defaultFont;
    std::unordered_map<int, FontEntry> _fonts;
    FontEntry* _fontBeingRead = nullptr;  // in _fonts
    std::vector<std::optional<Color>> _colors;
    std::optional<Color> _colorBeingRead;

    std::string _instruction, _graphicName, _pictureBytes;
    std::string _blanksInName;  // literal ones, which count only if something follows
    PictureKind _pictureKind = PictureKind::none;
    int _highDigit = -1;  // of a picture's byte
    int _pictures = 0;
};

/// What a control word does.
struct RtfWord {
    std::string_view name;
    void (RtfReader::*act)(int value, RtfReader::Parameter parameter);
    int value = 0;
};

/// Null for a word that says nothing to us.
const RtfWord* rtfWordNamed(std::string_view name);

}  // namespace lorvale
