#pragma once
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/mime/dialect.h"
#include "lorvale/values/attributed_text.h"

namespace lorvale {

/// The text as text/enriched (RFC 1896).  An attachment stands in it as "<attachment>name</attachment>",
/// outside of all formatting, for those who make body parts of it.
std::string enrichedString(const AttributedText& text, MailDialect dialect = mailDialect());

/// Writes text/enriched: compares what each run of attributes wants with what was last written, and writes the
/// commands that differ.
class MimeEnrichedWriter {
public:
    explicit MimeEnrichedWriter(MailDialect dialect = mailDialect()) : _dialect(dialect) {}

    /// Whether a command with RTF for other readers surrounds the text; off at first.  For the process; set
    /// before the first text is written.
    static bool writeRtfEnriched();
    static void setWriteRtfEnriched(bool write);
    /// The size that needs no command, in points: that of the user's font until it is set, 12 when it is not
    /// positive.
    static double defaultFontSize();
    static void setDefaultFontSize(double points);

    void convertAttributedString(const AttributedText& text, std::string& toEnrichedString);

private:
    using Parameters = std::map<std::string, std::string, std::less<>>;

    struct State {
        bool bold = false, italic = false, underline = false, fixed = false;
        int justification = 0;  // 1 left, 2 centre, 3 right, 0 not said
        int fontSize = 0;       // half points above the base
        Parameters parameters;  // by command
    };
    struct Open {
        std::string name;
        bool hasParameter = false;
        std::optional<std::string> outer;  // the parameter of the command of that name around it
    };
    struct Style;

    static const Style kStyles[4];

    void writeRun(const AttributedText::Run& run);
    void wantFont(const std::optional<Font>& font);
    void wantColor(const std::optional<Color>& color);
    void wantParagraph(const std::optional<ParagraphStyle>& style);
    void wantTabStops(const std::optional<ParagraphStyle>& style);
    void wantFamily(std::string_view family);
    void wantParameter(std::string_view name, std::optional<std::string> parameter);

    void beginRtfParam();
    void endRtfParam();
    void writeRtf(std::string_view word);
    void writeCommand(std::string_view name, bool begin);
    void writeNewline();
    void writeText(std::string_view text, bool isRtf);
    void writeAttachment(const FileWrapper& attachment);

    void noteCommand(std::string_view name, bool open);
    void pushCommand(std::string_view name);
    void pushCommand(std::string_view name, const std::string& parameter);
    void popCommand(std::string_view name);
    void popTop();
    bool effectuateStyles();
    bool effectuateSize();
    bool effectuateJustification();
    bool effectuateParameters();
    void effectuateState();
    void effectuateStateAroundAttachment(bool begin);

    MailDialect _dialect;
    int _baseFontSize = 24;    // half points
    int _fontSizeChanges = 0;  // "bigger" less "smaller" that are open
    bool _isParam = false;     // inside of a parameter with RTF
    State _wanted, _written;
    std::vector<Open> _stack;
    bool _lastWasNewline = false;
    std::string* _output = nullptr;  // not owned
};

}  // namespace lorvale
