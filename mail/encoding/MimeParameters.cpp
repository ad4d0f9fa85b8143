#include <algorithm>
#include <string>
#include <vector>

#include "base/text/Ascii.h"
#include "lorvale/mime.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"
#include "mail/encoding/WordWriter.h"

namespace lorvale {

namespace {

/// RFC 2045, section 5.1.
bool isToken(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, [](char c) {
        return c > ' ' && c < 0x7F && std::string_view("()<>@,;:\\\"/[]?=").find(c) == std::string_view::npos;
    });
}

std::string quoted(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + '"';
}

std::string plainForm(std::string_view text) {
    std::string plain;
    while (!text.empty()) {
        const auto c = nextCodePoint(text);
        plain += c < 0x80 ? static_cast<char>(c) : '_';
    }
    return plain;
}

/// attribute-char of RFC 2231, section 7, and a little less.
constexpr bool needsNoPercent(char c) {
    return isAsciiAlphanumeric(c) || c == '.' || c == '-' || c == '_';
}

/// The value as RFC 2231, section 4, has it, cut by section 3 into pieces of at most so many bytes.
std::string extendedForm(std::string_view name, std::string_view value) {
    constexpr std::size_t kMost = 50;
    std::vector<std::string> pieces(1);
    while (!value.empty()) {
        auto rest = value;
        nextCodePoint(rest);
        std::string character;
        for (const char c : value.substr(0, value.size() - rest.size())) {
            if (needsNoPercent(c)) {
                character += c;
            } else {
                character += formatText("%%%02X", static_cast<std::uint8_t>(c));
            }
        }
        if (pieces.back().size() + character.size() > kMost) pieces.emplace_back();
        pieces.back() += character;
        value = rest;
    }
    std::string form;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        const auto part = pieces.size() == 1 ? std::string() : "*" + std::to_string(i);
        form += "; " + std::string(name) + part + "*=" + (i == 0 ? "utf-8''" : "") + pieces[i];
    }
    return form;
}

}  // namespace

std::string quotedMimeString(std::string_view text) {
    constexpr std::string_view kSpecial = "()<>@,;:\\\"/[]?=";
    return text.find_first_of(kSpecial) == std::string_view::npos ? std::string(text) : quoted(text);
}

std::string mimeParameter(std::string_view name, std::string_view value, MailDialect dialect) {
    const auto start = std::string(name) + "=";
    if (dialect == MailDialect::classic) return start + quotedMimeString(value);
    constexpr std::size_t kLongestPlain = 500;  // a line must be able to hold it
    const auto text = harmlessText(value);
    if (isToken(text) && text.size() <= kLongestPlain) return start + text;
    if (isAscii(text) && text.size() <= kLongestPlain) return start + quoted(text);
    // Readers that know both forms but not which one counts take the first.
    return extendedForm(name, text).substr(2) + "; " + start +
           quoted(plainForm(text.substr(0, byteOffset(text, kLongestPlain))));
}

}  // namespace lorvale
