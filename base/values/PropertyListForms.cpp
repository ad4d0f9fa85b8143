#include "base/values/PropertyListForms.h"

#include "base/text/Ascii.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

constexpr char32_t kByteCharacters = 0x10F700;  // at the end of the last private plane; 256 of them

constexpr bool isByteCharacter(char32_t c) {
    return c >= kByteCharacters && c <= kByteCharacters + 0xFF;
}

constexpr bool hasXmlForm(char32_t c) {
    if (c < ' ') return c == '\t' || c == '\n' || c == '\r';
    return !isBadByte(c) && c != 0xFFFE && c != 0xFFFF && !isByteCharacter(c);
}

constexpr auto kPlain = byteTable([](std::uint8_t c) { return c < 0x80 && hasXmlForm(c); });

}  // namespace

std::string withBytesForXml(std::string_view text) {
    std::string xml;
    xml.reserve(text.size());
    for (auto left = text; !left.empty();) {
        std::size_t plain = 0;
        while (plain < left.size() && kPlain[static_cast<std::uint8_t>(left[plain])]) ++plain;
        xml += left.substr(0, plain);
        left.remove_prefix(plain);
        if (left.empty()) break;
        const auto before = left;
        const bool isPlain = hasXmlForm(nextCodePoint(left));
        const auto bytes = before.substr(0, before.size() - left.size());
        if (isPlain) xml += bytes;
        for (const char byte : isPlain ? std::string_view() : bytes)
            appendUtf8(xml, kByteCharacters + static_cast<std::uint8_t>(byte));
    }
    return xml;
}

std::string withBytesFromXml(std::string text) {
    constexpr std::string_view kLead = "\xF4\x8F";  // of all byte characters, and of few others
    auto at = text.find(kLead);
    if (at == std::string::npos) return text;
    std::string bytes = text.substr(0, at);
    for (auto left = std::string_view(text).substr(at); !left.empty();) {
        const auto c = nextCodePoint(left);
        if (isByteCharacter(c))
            bytes += static_cast<char>(c - kByteCharacters);
        else
            appendUtf8(bytes, c);
    }
    return bytes;
}

std::optional<PropertyList> PropertyList::parse(const Data& data) {
    const auto bytes = data.view();
    if (bytes.empty() || bytes.size() > kMostBytes) return std::nullopt;
    if (isBinaryPropertyList(bytes)) return propertyListFromBinary(bytes);
    if (auto list = propertyListFromXml(bytes)) return list;
    // Some writers put any byte into a text as it is, which is no XML.
    const auto mended = withBytesForXml(bytes);
    return mended == bytes ? std::nullopt : propertyListFromXml(mended);
}

std::string PropertyList::xml() const {
    auto text = xmlFromPropertyList(*this);
    if (!text) log("A value of more than %d levels or %d bytes has no form as a file", kMostLevels, kMostBytes);
    return text.value_or("");
}

}  // namespace lorvale
