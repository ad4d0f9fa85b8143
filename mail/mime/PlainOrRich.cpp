#include "mail/mime/PlainOrRich.h"

#include <algorithm>
#include <optional>

#include "lorvale/values/text.h"

namespace lorvale {

namespace {

/// A text in one of the two fonts that the user reads plain text in looks plain; one that changes between them
/// does not.
class OneUsualFont {
public:
    /// False for the first font that is another one.
    bool allows(const Font& font) {
        if (!_font) {
            if (font != Font::user() && font != Font::userFixedPitch()) return false;
            _font = font;
        }
        return font == *_font;
    }

private:
    std::optional<Font> _font;
};

bool isPlain(const TextAttributes& attributes, OneUsualFont& usual) {
    if (attributes.font && !usual.allows(*attributes.font)) return false;
    if (attributes.foregroundColor && *attributes.foregroundColor != Color()) return false;
    return !attributes.paragraphStyle || *attributes.paragraphStyle == ParagraphStyle();
}

bool hasNoOtherAttribute(const TextAttributes& attributes) {
    return !attributes.underline && !attributes.link && attributes.attachment == nullptr;
}

bool looksPlain(const AttributedText::Run& run) {
    const auto& [font, color, underline, style, link, attachment] = run.attributes;
    if (underline.value_or(0) > 0 && attachment == nullptr) return false;
    return !link || *link == run.text || *link == "mailto:" + std::string(run.text);
}

}  // namespace

bool containsRichText(const AttributedText& text) {
    if (!isAscii(text.string())) return true;
    OneUsualFont usual;
    return !std::ranges::all_of(text.runs(), [&](const AttributedText::Run& run) {
        return isPlain(run.attributes, usual) && hasNoOtherAttribute(run.attributes);
    });
}

bool hasVisibleAttributes(const AttributedText& text) {
    OneUsualFont usual;
    return !std::ranges::all_of(text.runs(), [&](const AttributedText::Run& run) {
        const bool isAttachment = run.attributes.attachment != nullptr;  // whose font is nobody's
        return isAttachment || (isPlain(run.attributes, usual) && looksPlain(run));
    });
}

}  // namespace lorvale
