#pragma once
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/values/file_wrapper.h"
#include "lorvale/values/range.h"

namespace lorvale {

struct LORVALE_EXPORT Font {
    std::string family;
    double size = 12;  ///< points
    bool bold = false, italic = false, fixedPitch = false;

    /// The fonts for text and for fixed-pitch text that the host chose; any thread.
    static Font user();
    static Font userFixedPitch();
    static void setUser(Font font);
    static void setUserFixedPitch(Font font);

    /// Whether a family is one of typewriters, by what such families are called: no list of the fonts of this
    /// machine is asked.
    [[nodiscard]] static bool isFixedPitchFamily(std::string_view family);

    friend bool operator==(const Font&, const Font&) = default;
};

struct LORVALE_EXPORT Color {
    double red = 0, green = 0, blue = 0, alpha = 1;  ///< 0 to 1

    /// "red", "lightGray" and the other basic colours, in any case of letters.
    static std::optional<Color> named(std::string_view name);
    friend bool operator==(const Color&, const Color&) = default;
};

struct TabStop {
    enum class Kind { left = 0, right = 1, center = 2, decimal = 3 };
    double location = 0;  ///< points
    Kind kind = Kind::left;
    friend bool operator==(const TabStop&, const TabStop&) = default;
};

struct ParagraphStyle {
    enum class Alignment { left = 0, right = 1, center = 2, justified = 3 };
    Alignment alignment = Alignment::left;
    double firstLineHeadIndent = 0, headIndent = 0;  ///< points from the left margin
    double tailIndent = 0;  ///< points from the left margin or, 0 and below, from the right one
    std::vector<TabStop> tabStops;
    friend bool operator==(const ParagraphStyle&, const ParagraphStyle&) = default;
};

enum class TextAttribute { font, foregroundColor, underline, paragraphStyle, link, attachment };

/// What holds for a run of characters.  Attachments are the same when they are one object.
struct LORVALE_EXPORT TextAttributes {
    std::optional<Font> font;
    std::optional<Color> foregroundColor;
    std::optional<int> underline;  ///< 0 is none, 1 a single line
    std::optional<ParagraphStyle> paragraphStyle;
    std::optional<std::string>
        link;  ///< the address that the text leads to, as a document or letter brought it
    std::shared_ptr<const FileWrapper> attachment;

    bool has(TextAttribute attribute) const;
    void remove(TextAttribute attribute);
    /// Takes over those that are set in `others`.
    void add(const TextAttributes& others);
    bool empty() const { return *this == TextAttributes(); }
    friend bool operator==(const TextAttributes&, const TextAttributes&) = default;
};

/// The character that stands in the text for an attachment, U+FFFC.
inline constexpr std::string_view kAttachmentCharacter = "\xEF\xBF\xBC";

/// Text in UTF-8 and runs of attributes.  The runs cover the whole text, and no two neighbours are alike.
/// Ranges and lengths count characters; a range is cut off at the end of the text.  Bytes that are not UTF-8
/// are taken as Latin 1, so that the text is always valid.  A value: copies share nothing but attachments, and
/// a moved-from one is empty.  Laying attributes costs the same anywhere in the text.
class LORVALE_EXPORT AttributedText {
public:
    /// Borrowed from the text until its next change.
    struct Run {
        Range range;
        std::string_view text;
        const TextAttributes& attributes;
    };

    AttributedText() = default;
    AttributedText(const AttributedText&) = default;
    AttributedText& operator=(const AttributedText&) = default;
    AttributedText(AttributedText&& other) noexcept { swap(other); }
    AttributedText& operator=(AttributedText&& other) noexcept;
    ~AttributedText() = default;
    explicit AttributedText(std::string_view text, const TextAttributes& attributes = {});
    /// One attachment character.
    explicit AttributedText(std::shared_ptr<const FileWrapper> attachment);

    const std::string& string() const { return _text; }
    std::size_t length() const { return _length; }
    [[nodiscard]] bool empty() const { return _text.empty(); }

    std::vector<Run> runs() const;
    /// The run that holds a character; throws RangeException at or past the end.
    Run runAtIndex(std::size_t index) const;
    const TextAttributes& attributesAtIndex(std::size_t index) const { return runAtIndex(index).attributes; }
    /// The first run that has the attribute, at or after the location, cut off in front of it; nullopt without
    /// one.
    [[nodiscard]] std::optional<Run> nextAttribute(TextAttribute attribute, std::size_t fromLocation) const;
    [[nodiscard]] AttributedText attributedSubstring(Range range) const;

    void append(std::string_view text, const TextAttributes& attributes = {});
    void append(const AttributedText& text);
    void replaceCharacters(Range range, const AttributedText& text);
    void deleteCharacters(Range range) { replaceCharacters(range, AttributedText()); }

    void setAttributes(Range range, const TextAttributes& attributes);
    void addAttributes(Range range, const TextAttributes& attributes);
    void removeAttribute(Range range, TextAttribute attribute);
    /// Calls `change` with the attributes of each run in the range, cut to it.
    void changeAttributes(Range range, const std::function<void(TextAttributes&)>& change);

    /// Gives each paragraph, up to and with its newline, the style of its first character, and takes
    /// attachments off characters other than kAttachmentCharacter.  Readers of documents end with this.
    void fixAttributes();

    /// In the order of the text.
    std::vector<std::shared_ptr<const FileWrapper>> attachments() const;
    bool containsAttachments() const;
    /// Takes out the attachments and their characters.
    void removeAllAttachments();

    void swap(AttributedText& other) noexcept;
    friend bool operator==(const AttributedText& a, const AttributedText& b) {
        return a._text == b._text && a._runs == b._runs;
    }

private:
    struct RunStart {
        std::size_t byte;
        TextAttributes attributes;
        friend bool operator==(const RunStart&, const RunStart&) = default;
    };
    using Runs = std::map<std::size_t, RunStart>;  // by first character

    Runs::const_iterator runHolding(std::size_t index) const;
    Run runAt(Runs::const_iterator run) const;
    Runs::iterator splitAt(std::size_t index);
    Range clipped(Range range) const;
    void fixParagraphStyles();
    void fixAttachments();
    std::size_t byteAt(std::size_t index) const;
    std::string_view textIn(Range range) const;
    void appendText(std::string_view text);

    std::string _text;
    std::size_t _length = 0;
    // The byte at which every so many characters one begins, from the first: finding a character in a long text
    // walks over a few others only.
    std::vector<std::size_t> _landmarks;
    Runs _runs;  // one at 0 unless the text is empty
};

}  // namespace lorvale
