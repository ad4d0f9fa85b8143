#pragma once
#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "lorvale/values/attributed_text.h"
#include "lorvale/values/data.h"

namespace lorvale {

/// Writes one text as an RTF document, in ASCII.  Each run begins with "\plain", so that every place can be
/// understood by itself; the style of a paragraph stands in front of its first run.  What has no font is
/// written without one, and so the document names no default font.
class RtfWriter {
public:
    /// The name by which the document calls an attachment; an empty one leaves it out.  Without a function all
    /// are left out.
    using NameOfAttachment = std::function<std::string(const std::shared_ptr<const FileWrapper>&)>;

    RtfWriter(const AttributedText& text, const NameOfAttachment& nameOf);
    /// Once.
    Data write();

private:
    using FontKey = std::pair<std::string, bool>;  // the family, and whether it is of fixed pitch
    using ColorKey = std::array<long, 3>;

    static FontKey fontKey(const Font& font);
    static ColorKey colorKey(const Color& color);
    void collect(const TextAttributes& attributes);
    void writeFonts();
    void writeColors();
    void writeRun(const AttributedText::Run& run);
    void writeParagraphStyle(const std::optional<ParagraphStyle>& style);
    void writeCharacterAttributes(const TextAttributes& attributes);
    void beginLink(std::string_view link);
    void writeFamily(std::string_view family);
    void writeAttachments(const AttributedText::Run& run);
    void writeAttachmentName(std::string_view name);
    void writeWord(std::string_view word, long parameter);
    void writeEscaped(std::string_view bytes);
    void writeText(std::string_view text);
    void writeCharacter(char32_t c);
    void writeUnit(char32_t unit);

    AttributedText _text;
    const NameOfAttachment& _nameOf;
    ByteBuffer _out;
    std::map<FontKey, std::size_t> _fonts;  // with their numbers
    std::map<ColorKey, std::size_t> _colors;
    std::optional<ParagraphStyle> _style;  // as last written
    bool _isStyleWritten = false;
    bool _beginsParagraph = true;
};

}  // namespace lorvale
