#include "base/text/Utf16.h"

#include <cstdint>

#include "lorvale/values/text.h"

namespace lorvale {

namespace {

constexpr bool isHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool isLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

}  // namespace

std::optional<std::string> decodeUtf16(std::string_view bytes, bool lossy) {
    const bool littleEndian = bytes.starts_with("\xFF\xFE");
    if (littleEndian || bytes.starts_with("\xFE\xFF")) bytes.remove_prefix(2);
    const auto unitAt = [&](std::size_t i) -> char32_t {
        const auto first = static_cast<std::uint8_t>(bytes[i]),
                   second = static_cast<std::uint8_t>(bytes[i + 1]);
        return static_cast<char32_t>(littleEndian ? first | second << 8 : first << 8 | second);
    };
    std::string text;
    text.reserve(bytes.size());
    std::size_t i = 0;
    while (bytes.size() - i >= 2) {
        auto c = unitAt(i);
        i += 2;
        if (isHighSurrogate(c) && bytes.size() - i >= 2 && isLowSurrogate(unitAt(i))) {
            c = 0x10000 + ((c - 0xD800) << 10) + (unitAt(i) - 0xDC00);
            i += 2;
        } else if (isHighSurrogate(c) || isLowSurrogate(c)) {
            if (!lossy) return std::nullopt;
            c = 0xFFFD;
        }
        appendUtf8(text, c);
    }
    if (i < bytes.size()) {
        if (!lossy) return std::nullopt;
        appendUtf8(text, 0xFFFD);
    }
    return text;
}

std::string encodeUtf16(std::string_view utf8) {
    std::string bytes;
    if (utf8.empty()) return bytes;
    bytes.reserve(2 * utf8.size() + 2);
    const auto append = [&](char32_t unit) {
        bytes += static_cast<char>(unit >> 8);
        bytes += static_cast<char>(unit & 0xFF);
    };
    append(0xFEFF);
    while (!utf8.empty()) {
        const auto c = nextCodePoint(utf8);
        if (c < 0x10000) {
            append(c);
        } else {
            append(0xD800 + ((c - 0x10000) >> 10));
            append(0xDC00 + ((c - 0x10000) & 0x3FF));
        }
    }
    return bytes;
}

}  // namespace lorvale
