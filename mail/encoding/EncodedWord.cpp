#include "mail/encoding/EncodedWord.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "base/text/Ascii.h"
#include "base/text/NamedCharset.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/text.h"
#include "mail/encoding/Base64Kernels.h"

namespace lorvale {

namespace {

/// What a charset or a language tag is made of (RFC 2047, section 2), but for the star between the two.
constexpr auto kTokenBytes = byteTable([](std::uint8_t c) {
    return c > ' ' && c < 0x7F &&
           std::string_view("()<>@,;:\"/[]?.=*").find(static_cast<char>(c)) == std::string_view::npos;
});

constexpr bool isTokenByte(char c) {
    return kTokenBytes[static_cast<std::uint8_t>(c)] || c == '.' || c == ':';  // "ISO_8859-1:1987" is a charset
}

constexpr std::int8_t kNoSymbol = -1;

constexpr auto base64Values = [] {
    std::array<std::int8_t, 256> values{};
    values.fill(kNoSymbol);
    for (std::size_t i = 0; i < kBase64Alphabet.size(); ++i)
        values[static_cast<std::uint8_t>(kBase64Alphabet[i])] = static_cast<std::int8_t>(i);
    return values;
}();

/// What stands outside the alphabet is passed over.  Symbols at the end that fill no group give the bytes that
/// they hold whole: pads get lost on the way.
void appendBase64(std::string& out, std::string_view text) {
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : text) {
        const auto value = base64Values[static_cast<std::uint8_t>(c)];
        if (value == kNoSymbol) continue;
        bits = bits << 6 | static_cast<std::uint32_t>(value);
        if (++count % 4 == 1) continue;
        const auto unused = 6 - 2 * ((count - 1) % 4);  // 4, 2, 0 bits wait for the next symbol
        out += static_cast<char>(bits >> unused & 0xFF);
    }
}

/// A "=" without two digits stands for itself.
void appendQ(std::string& out, std::string_view text) {
    Cursor cursor(text);
    while (!cursor.atEnd()) {
        out += cursor.takeWhile([](char c) { return c != '=' && c != '_'; });
        if (cursor.skip('_')) {
            out += ' ';
        } else if (const int high = hexDigitValue(cursor.peek(1)), low = hexDigitValue(cursor.peek(2));
                   cursor.peek() == '=' && high >= 0 && low >= 0) {
            out += static_cast<char>(high * 16 + low);
            cursor.advance(3);
        } else {
            out += cursor.take(1);
        }
    }
}

}  // namespace

std::optional<EncodedWord> takeWord(Cursor& cursor, std::string_view barred) {
    auto ahead = cursor;
    EncodedWord word;
    if (!ahead.skip(kWordOpener)) return std::nullopt;
    word.charset = ahead.takeWhile(isTokenByte);
    if (ahead.skip('*')) ahead.takeWhile(isTokenByte);
    const char letter = asciiLower(ahead.peek(1));
    if (word.charset.empty() || (letter != 'q' && letter != 'b') || ahead.peek() != '?' || ahead.peek(2) != '?')
        return std::nullopt;
    ahead.advance(3);
    word.isBase64 = letter == 'b';
    word.text = ahead.takeUntil('?');
    if (!ahead.skip("?=") || word.text.find_first_of(barred) != std::string_view::npos) return std::nullopt;
    cursor = ahead;
    return word;
}

void WordRun::add(const EncodedWord& word) {
    if (!equalIgnoringAsciiCase(word.charset, _charset)) convert();
    _charset = word.charset;
    word.isBase64 ? appendBase64(_bytes, word.text) : appendQ(_bytes, word.text);
}

void WordRun::convert() {
    if (_bytes.empty()) return;
    auto text = decodeNamedCharset(_bytes, _charset);
    if (!text) log("Unknown charset \"%@\" in a header", _charset.substr(0, 80));
    _text += text ? *text : decodeUnlabelled(_bytes, _preferred);
    _bytes.clear();
}

std::string WordRun::take() {
    convert();
    std::ranges::replace_if(
        _text, [](char c) { return c == '\n' || c == '\r' || c == '\0'; }, ' ');
    return std::exchange(_text, {});
}

std::optional<std::string> takeWords(Cursor& cursor, StringEncoding preferred, std::string_view barred) {
    auto word = takeWord(cursor, barred);
    if (!word) return std::nullopt;
    WordRun run(preferred);
    while (word) {
        run.add(*word);
        auto ahead = cursor;
        ahead.takeWhile(isFoldingWhite);
        word = takeWord(ahead, barred);
        if (word) cursor = ahead;
    }
    return run.take();
}

}  // namespace lorvale
