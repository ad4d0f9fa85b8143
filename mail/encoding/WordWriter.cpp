#include "mail/encoding/WordWriter.h"

#include <algorithm>
#include <array>
#include <optional>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "base/text/NamedCharset.h"
#include "lorvale/mime.h"
#include "lorvale/values/text.h"
#include "mail/encoding/Base64Kernels.h"
#include "mail/encoding/EncodedWord.h"

namespace lorvale {

namespace {

/// What stands for itself in the Q encoding wherever a word may stand (RFC 2047, section 5, rule 3).
constexpr auto kPlainInQ = byteTable([](std::uint8_t c) {
    return isAsciiAlphanumeric(c) ||
           std::string_view("!*+-/").find(static_cast<char>(c)) != std::string_view::npos;
});

constexpr std::size_t qLength(char c) {
    return c == ' ' || kPlainInQ[static_cast<std::uint8_t>(c)] ? 1 : 3;
}

std::size_t qLength(std::string_view bytes) {
    std::size_t length = 0;
    for (const char c : bytes) length += qLength(c);
    return length;
}

constexpr std::size_t base64Length(std::size_t bytes) {
    return (bytes + 2) / 3 * 4;
}

std::string inQ(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string out;
    for (const char c : bytes) {
        const auto byte = static_cast<std::uint8_t>(c);
        if (qLength(c) == 1) {
            out += c == ' ' ? '_' : c;
        } else {
            out += {'=', kDigits[byte >> 4], kDigits[byte & 15]};
        }
    }
    return out;
}

std::string inBase64(std::string_view bytes) {
    const auto lines = encodeBase64(Data::ofStatic(bytes));  // borrowed for this call
    std::string out(lines.view());
    std::erase(out, '\n');
    return out;
}

/// The words of one text.
class OneText {
public:
    OneText(std::string_view text, StringEncoding preferred) : _rest(text), _encoding(StringEncoding::utf8) {
        if (isAscii(text)) {
            _charset = "us-ascii";
        } else if (preferred != StringEncoding::unicode && reads(text, preferred)) {
            _charset = *_charsetForStringEncoding(preferred);
            _encoding = preferred;
        }
        const auto bytes = converted(text);
        _isBase64 = base64Length(bytes.size()) < qLength(bytes);
    }

    bool atEnd() const { return _rest.empty(); }

    /// A word of at most `room` characters, but of one character of the text at least.
    std::string next(std::size_t room) {
        const auto marks = kMarks + _charset.size();
        const auto payload = room > marks ? room - marks : 0;
        auto piece = _isBase64 ? pieceInBase64(payload) : std::nullopt;
        const bool isBase64 = piece.has_value();
        if (!piece) piece = longestPiece(payload, [](std::string_view bytes) { return qLength(bytes); });
        _rest.remove_prefix(piece->textLength);
        return "=?" + _charset + (isBase64 ? "?B?" + inBase64(piece->bytes) : "?Q?" + inQ(piece->bytes)) + "?=";
    }

    /// What a word of the next character takes.
    std::size_t leastRoom() const { return kMarks + _charset.size() + 12; }

private:
    static constexpr std::size_t kMarks = 7;  // "=?", "?Q?", "?="

    /// The beginning of what is left, and its bytes in the charset.
    struct Piece {
        std::size_t textLength = 0;
        std::string bytes;
    };

    /// Pads in front of another word are avoided: some readers put the base64 of words together and stop at the
    /// first pad.  Nullopt where every cut would need them.
    std::optional<Piece> pieceInBase64(std::size_t payload) const {
        std::optional<Piece> unpadded;
        const auto longest = longestPiece(
            payload, [&](std::string_view bytes) { return base64Length(bytes.size()); },
            [&](const Piece& piece) {
                if (piece.bytes.size() % 3 == 0) unpadded = piece;
            });
        return longest.textLength == _rest.size() ? longest : unpadded;
    }

    /// `seen` is told of each piece that fits, from the shortest on.
    template <class Length, class Seen = void (*)(const Piece&)>
    Piece longestPiece(
        std::size_t payload, Length length, Seen seen = [](const Piece&) {}) const {
        Piece longest;
        while (longest.textLength < _rest.size()) {
            auto after = _rest.substr(longest.textLength);
            nextCodePoint(after);
            Piece longer{_rest.size() - after.size(), {}};
            longer.bytes = converted(_rest.substr(0, longer.textLength));
            if (length(longer.bytes) > payload && longest.textLength > 0) break;
            longest = std::move(longer);
            seen(longest);
        }
        return longest;
    }

    /// Whether the text comes back from its bytes, also by those who read Latin 1 as code page 1252.
    static bool reads(std::string_view text, StringEncoding encoding) {
        const auto name = _charsetForStringEncoding(encoding);
        const auto bytes = name ? encode(text, encoding) : std::nullopt;
        return bytes && decodeNamedCharset(bytes->view(), *name) == text;
    }

    std::string converted(std::string_view text) const {
        if (_encoding == StringEncoding::utf8) return std::string(text);
        const auto bytes = encode(text, _encoding);
        return std::string(bytes ? bytes->view() : text);
    }

    std::string_view _rest;
    StringEncoding _encoding;
    std::string _charset = "utf-8";
    bool _isBase64 = false;
};

}  // namespace

void WordWriter::write(std::string_view white, std::string_view text) {
    constexpr std::size_t kLongest = 75;
    OneText words(text, _preferred);
    if (!white.empty() && !_lines.empty() && _lines.room() < white.size() + words.leastRoom())
        _lines.startLine();
    for (bool isFirst = true; !words.atEnd(); isFirst = false) {
        if (!isFirst) _lines.startLine();
        const auto before = isFirst ? white : std::string_view(" ");
        const auto room = _lines.room() - std::min(_lines.room(), before.size());
        _lines.add(before, words.next(std::min(room, kLongest)));
    }
}

std::string harmlessText(std::string_view text) {
    std::string harmless;
    const auto valid = isValidUtf8(text) ? std::string(text) : decodeUnlabelled(text, StringEncoding::unknown);
    Cursor cursor(valid);
    while (!cursor.atEnd()) {
        harmless += cursor.takeUntil([](char c) { return isAsciiControl(c) && c != '\t'; });
        if (cursor.atEnd()) break;
        const bool isLineEnd = cursor.peek() == '\r' || cursor.peek() == '\n';
        cursor.advance();
        if (isLineEnd) cursor.takeWhile(isFoldingWhite);
        harmless += ' ';
    }
    return harmless;
}

bool needsWords(std::string_view text) {
    // RFC 5322, section 2.1.1, allows 998; a long name and a word beside it have to fit in, too.
    constexpr std::size_t kLongestPlain = 800;
    return !isAscii(text) || text.size() > kLongestPlain || text.find(kWordOpener) != std::string_view::npos;
}

}  // namespace lorvale
