#pragma once
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/text/TextScanner.h"
#include "lorvale/values/attributed_text.h"
#include "mail/mime/AttributeOverlay.h"

namespace lorvale {

/// text/enriched (RFC 1896) and the older text/richtext (RFC 1341) as attributed text.  Throw NamedException
/// for the commands "subscript" and "superscript" alone; the caller then shows the text as it stands.  In
/// linear time.
AttributedText attributedStringFromMimeEnrichedString(std::string_view text);
AttributedText attributedStringFromMimeRichTextString(std::string_view text);

/// Reads one text.  A tokenizer feeds a table of commands ("<bold>", "</bold>"), whose handlers open and close
/// attributes on an overlay.  What nobody knows and what does not fit is logged and passed over; the first
/// lines of a text are logged, further ones are not, since a letter can hold millions.
class MimeEnrichedReader {
public:
    MimeEnrichedReader();

    /// Append to a text whose parsing has begun.  The text is borrowed for the call.
    void convertEnrichedString(std::string_view text, AttributeOverlay& intoAttributedString);
    void convertRichTextString(std::string_view text, AttributeOverlay& intoAttributedString);

    static const CharacterSet& punctuationSet();  ///< blank, "<", ">", newline
    static const CharacterSet& parenSet();        ///< "<" and ">"

    // What the table of commands calls, with true for a start and false for an end.
    void enrBold(bool start);
    void enrItalic(bool start);
    void enrFixed(bool start);
    void enrSmaller(bool start);
    void enrBigger(bool start);
    void enrUnderline(bool start);
    void enrCenter(bool start);
    void enrColor(bool start);
    void enrFlushLeft(bool start);
    void enrFlushRight(bool start);
    void enrFontFamily(bool start);
    void enrIndent(bool start);
    void enrOutdent(bool start);
    void enrExcerpt(bool start);
    void enrParagraph(bool start);
    void enrComment(bool start);
    void enrLt(bool start);
    void enrNl(bool start);
    void enrNp(bool start);
    void enrNoFill(bool start);
    void enrParam(bool start);
    void enrXFontSize(bool start);
    void enrXTabStops(bool start);
    void refuseSubscript(bool start);
    void refuseSuperscript(bool start);

private:
    enum class TokenKind { end, text, newline, commandStart, commandEnd };
    using ParameterHandler = void (MimeEnrichedReader::*)(std::string_view parameter);

    void resetState(std::string_view string, AttributeOverlay& attributedString);
    TokenKind readTokenInto(std::string& token);
    TokenKind readNewlines(std::string& token);
    TokenKind readCommand(std::string& token);
    void processCommand(std::string_view name, bool argument);
    void enrFlushBuf();
    void enrAppendString(std::string_view text);
    void mismatchError(std::string_view name);
    void logWarning(const std::string& text);

    Font fontOrSystemFont() const;
    void enrSetFont(bool start, void (*convert)(Font& font));
    void beginFont(Font font);
    void enrSetAlignment(std::string_view alignment, bool start);
    void beginStyle(ParagraphStyle style);
    void changeHeadIndent(double steps, bool start);
    void waitForParameter(ParameterHandler handler);
    void enrFontFamilyStart(std::string_view family);
    void enrXFontSizeStart(std::string_view size);
    void enrColorStart(std::string_view color);
    void enrXTabStopsStart(std::string_view stops);

    bool _insideComment = false;
    std::vector<ParameterHandler> _paramStack;  // waiting for a <param>
    double _indentStep = 3.0;                   // in units of the font's size
    int _excerptLevel = 0;
    bool _noFill = false;
    bool _eachNewlineIsAToken = false;  // as text/richtext has it
    TextScanner _scanner;
    AttributeOverlay* _attrib = nullptr;  // not owned
    std::string _string;                  // text since the last command
    int _warnings = 0;
};

}  // namespace lorvale
