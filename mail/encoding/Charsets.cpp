#include "mail/encoding/Charsets.h"

#include <algorithm>
#include <array>

#include "lorvale/mime.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

struct Charset {
    std::string_view name;
    StringEncoding encoding;
    bool isPrivate = false;  // read in the type of a body, never written and not known in a header
};

constexpr auto kCharsets = std::to_array<Charset>({
    {"us-ascii", StringEncoding::ascii},
    {"iso-8859-1", StringEncoding::isoLatin1},
    {"iso-8859-2", StringEncoding::isoLatin2},
    {"windows-1250", StringEncoding::windowsCP1250},
    {"windows-1252", StringEncoding::windowsCP1252},
    {"x-tarn", StringEncoding::tarn, true},
    {"utf-8", StringEncoding::utf8},
    {"unicode-1-1", StringEncoding::unicode},
    {"iso-2022-jp", StringEncoding::iso2022JP},
});

std::string_view withoutX(std::string_view key) {
    const bool hasX = key.size() >= 2 && asciiLower(key[0]) == 'x' && key[1] == '-';
    return hasX ? key.substr(2) : key;
}

}  // namespace

bool isKeyEqual(std::string_view a, std::string_view b) {
    return equalIgnoringAsciiCase(withoutX(a), withoutX(b));
}

std::optional<StringEncoding> encodingOfEncodedWord(std::string_view charset) {
    for (const auto& known : kCharsets)
        if (!known.isPrivate && equalIgnoringAsciiCase(known.name, charset)) return known.encoding;
    return std::nullopt;
}

StringEncoding bestStringEncoding(std::string_view text, StringEncoding preferred) {
    if (isAscii(text)) return StringEncoding::ascii;
    using enum StringEncoding;
    for (const auto encoding :
         {preferred, isoLatin1, windowsCP1252, isoLatin2, windowsCP1250, iso2022JP, utf8, unicode})
        if (encoding != unknown && canConvert(text, encoding)) return encoding;
    return isoLatin1;
}

StringEncoding bestMIMEStringEncoding(std::string_view text) {
    return bestStringEncoding(text, preferedMIMEStringEncoding());
}

std::optional<std::string> _charsetForStringEncoding(StringEncoding encoding) {
    for (const auto& known : kCharsets)
        if (!known.isPrivate && known.encoding == encoding) return std::string(known.name);
    return std::nullopt;
}

std::string _charsetForEncoding(StringEncoding encoding) {
    if (auto charset = _charsetForStringEncoding(encoding)) return *std::move(charset);
    if (encoding != StringEncoding::tarn)
        log("Using charset %@ for %@ encoded body", kDefaultCharset, localizedNameOfStringEncoding(encoding));
    return std::string(kDefaultCharset);
}

StringEncoding _encodingForCharset(std::optional<std::string_view> charset) {
    if (!charset) return StringEncoding::unknown;
    for (const auto& known : kCharsets)
        if (isKeyEqual(known.name, *charset)) return known.encoding;
    if (const auto preferred = preferedMIMEStringEncoding(); preferred != StringEncoding::unknown)
        return preferred;
    log("Unknown specified charset \"%@\"--treating as %@", *charset, kDefaultCharset);
    return StringEncoding::isoLatin1;
}

}  // namespace lorvale
