#include "mail/mime/MessageHeaderText.h"

#include <algorithm>
#include <array>

#include "lorvale/defaults.h"
#include "lorvale/message.h"
#include "lorvale/values/text.h"
#include "mail/model/HeaderDecoding.h"

namespace lorvale {

namespace {

constexpr auto kUsualHeaders =
    std::to_array<std::string_view>({"from", "date", "to", "subject", "cc", "reply-to", "in-reply-to"});

/// About how wide a text is in points; the library has no measures of fonts.
double widthOf(std::string_view text, const Font& font) {
    return static_cast<double>(characterCount(text)) * font.size * 0.6;
}

TextAttributes inFont(const Font& font) {
    TextAttributes attributes;
    attributes.font = font;
    return attributes;
}

TextAttributes inStyle(const ParagraphStyle& style) {
    TextAttributes attributes;
    attributes.paragraphStyle = style;
    return attributes;
}

void appendLine(AttributedText& text, std::string_view name, std::string_view value) {
    auto bold = Font::user();
    bold.bold = true;
    const auto label = std::string(name) + ": ";
    const auto start = text.length();
    text.append(label, inFont(bold));
    text.append(std::string(value) + "\n", inFont(Font::user()));
    ParagraphStyle style;
    style.headIndent = widthOf(label, bold);
    text.addAttributes(Range{start, 1}, inStyle(style));
}

void appendLines(AttributedText& text, std::string_view name, const std::vector<std::string>& values) {
    if (values.empty()) appendLine(text, name, "");
    for (const auto& value : values) appendLine(text, name, value);
}

std::optional<AttributedText> closed(AttributedText text) {
    if (text.empty()) return std::nullopt;
    text.append("\n", inStyle(ParagraphStyle()));
    return text;
}

}  // namespace

std::optional<AttributedText> attributedStringForHeaders(MessageHeaders& headers) {
    const auto all = headers.allHeaders();
    const auto& hidden = Defaults::sharedInstance().filterHeaders();
    AttributedText text;
    HeaderDictionary shown;
    const auto show = [&](std::string_view key) {
        const auto found = all->find(key);
        if (found == all->end() || hidden.contains(key) || !shown.try_emplace(std::string(key)).second) return;
        appendLines(text, headers.originalKeyForKey(key).value_or(std::string(key)), found->second);
    };
    for (const auto key : kUsualHeaders) show(key);
    for (const auto& key : headers.allHeadersOrder()) show(key);
    return closed(std::move(text));
}

std::optional<AttributedText> attributedStringForUsualHeaders(std::string_view block) {
    HeaderDictionary headers;
    HeaderOrder order;
    OriginalKeys originalKeys;
    decodeHeaderBlock(block, headers, order, originalKeys, MailDialect::standard);
    AttributedText text;
    for (const auto key : kUsualHeaders)
        if (const auto found = headers.find(key); found != headers.end())
            appendLines(text, originalKeys.find(key)->second, found->second);
    return closed(std::move(text));
}

AttributedText attributedStringForMessage(Message& message) {
    auto text = attributedStringForHeaders(*message.headers()).value_or(AttributedText());
    const auto body = message.messageBody();
    const auto decoded = body ? body->decodedBody() : nullptr;
    if (decoded) text.append(*decoded);
    return text;
}

}  // namespace lorvale
