#include <algorithm>
#include <charconv>
#include <vector>

#include "base/text/Ascii.h"
#include "base/text/NamedCharset.h"
#include "lorvale/mime.h"
#include "lorvale/values/text.h"
#include "mail/mime/ContentType.h"

namespace lorvale {

namespace {

constexpr bool isTokenByte(char c) {
    return c > ' ' && c != 0x7F && std::string_view("()<>@,;:\\\"/[]?=").find(c) == std::string_view::npos;
}

/// Comments may hold comments; one that is not closed is all that is left.
void skipComment(Cursor& cursor) {
    std::size_t depth = 0;
    do {
        cursor.takeUntil([](char c) { return c == '(' || c == ')' || c == '\\'; });
        if (cursor.skip('(')) {
            ++depth;
        } else if (cursor.skip(')')) {
            --depth;
        } else {
            cursor.advance(2);
        }
    } while (depth > 0 && !cursor.atEnd());
}

void skipCommentsAndWhite(Cursor& cursor) {
    for (;;) {
        cursor.takeWhile(isAsciiWhite);
        if (cursor.peek() != '(') return;
        skipComment(cursor);
    }
}

/// Behind the opening quote.  Only quotes and backslashes are taken for quoted: paths of other systems come
/// with bare backslashes.
std::string takeQuoted(Cursor& cursor) {
    std::string text;
    for (;;) {
        text += cursor.takeUntil([](char c) { return c == '"' || c == '\\'; });
        if (cursor.atEnd() || cursor.skip('"')) return text;
        if (cursor.peek(1) == '"' || cursor.peek(1) == '\\') cursor.advance();
        text += cursor.take(1);
    }
}

/// A value without quotes runs up to the semicolon: many programs do not quote names with blanks in them.  A
/// comment counts as one only at its end, since such names hold parentheses, too.
std::string_view takeBare(Cursor& cursor) {
    auto text = trimmed(cursor.takeUntil(';'));
    while (text.ends_with(')')) {
        const auto open = text.rfind('(');
        if (open == std::string_view::npos) break;
        text = trimmed(text.substr(0, open));
    }
    return text;
}

/// "name*1*" (RFC 2231, sections 3 and 4).
struct Piece {
    std::string name;
    unsigned index = 0;
    bool isEncoded = false;
    std::string value;
};

/// Nullopt for a name that is plain.
std::optional<Piece> pieceNamed(std::string_view name) {
    const auto star = name.find('*');
    if (star == 0 || star == std::string_view::npos) return std::nullopt;
    Piece piece;
    piece.name = name.substr(0, star);
    auto rest = name.substr(star + 1);
    if (rest.ends_with('*')) {
        piece.isEncoded = true;
        rest.remove_suffix(1);
    }
    if (rest.empty()) {
        piece.isEncoded = true;  // "name*"
        return piece;
    }
    constexpr std::size_t kMostDigits = 6;
    const auto* const end = rest.data() + rest.size();
    const auto [stop, error] = std::from_chars(rest.data(), end, piece.index);
    if (error != std::errc() || stop != end || rest.size() > kMostDigits) return std::nullopt;
    return piece;
}

std::string withoutPercents(std::string_view text) {
    std::string bytes;
    Cursor cursor(text);
    while (!cursor.atEnd()) {
        bytes += cursor.takeUntil('%');
        const int high = hexDigitValue(cursor.peek(1)), low = hexDigitValue(cursor.peek(2));
        if (high < 0 || low < 0) {
            bytes += cursor.take(1);
        } else {
            bytes += static_cast<char>(high * 16 + low);
            cursor.advance(3);
        }
    }
    return bytes;
}

/// Takes "charset'language'" off the first piece; nullopt for one that does not begin so.
std::optional<std::string> takeCharset(std::string& text) {
    const auto first = text.find('\'');
    const auto second = first == std::string::npos ? first : text.find('\'', first + 1);
    if (second == std::string::npos) return std::nullopt;
    auto charset = text.substr(0, first);
    text.erase(0, second + 1);
    return charset;
}

std::string decoded(std::string_view bytes, const std::optional<std::string>& charset) {
    auto text = charset ? decodeNamedCharset(bytes, *charset) : std::nullopt;
    return text ? *std::move(text) : decodeUnlabelled(bytes, preferedMIMEStringEncoding());
}

/// Puts the pieces together, which come in any order, up to the first that is missing.
void addPieces(std::vector<Piece>& pieces, MimeParameters& parameters) {
    std::ranges::stable_sort(pieces, [](const Piece& a, const Piece& b) {
        return a.name != b.name ? a.name < b.name : a.index < b.index;
    });
    for (std::size_t i = 0; i < pieces.size();) {
        const auto& name = pieces[i].name;
        auto charset = pieces[i].isEncoded ? takeCharset(pieces[i].value) : std::nullopt;
        std::string bytes;
        unsigned expected = pieces[i].index;  // some programs count from 1
        for (; i < pieces.size() && pieces[i].name == name; ++i) {
            if (pieces[i].index != expected) continue;
            bytes += pieces[i].isEncoded ? withoutPercents(pieces[i].value) : pieces[i].value;
            ++expected;
        }
        parameters.insert_or_assign(name, decoded(bytes, charset));
    }
}

constexpr bool isName(std::string_view key) {
    return key == "name" || key == "filename";
}

/// RFC 2047, section 5, allows no encoded words here; much mail has them in names.  A boundary is compared with
/// bytes of the message, and stays as it is.
std::string plainValue(std::string_view key, std::string value) {
    if (isName(key)) return decodeMimeHeaderValue(value, MailDialect::standard);
    if (key == "boundary") {
        value.erase(value.find_last_not_of(kAsciiWhite) + 1);
        return value;
    }
    return isAscii(value) ? value : decodeUnlabelled(value, preferedMIMEStringEncoding());
}

/// Of several with one name the first counts; one in RFC 2231's form comes before a plain one.
MimeParameters takeParameters(Cursor& cursor) {
    MimeParameters parameters;
    std::vector<Piece> pieces;
    while (!cursor.atEnd()) {
        skipCommentsAndWhite(cursor);
        if (cursor.skip(';')) continue;
        const auto nameStart = cursor.position();
        cursor.takeUntil([](char c) { return c == '=' || c == ';' || c == '('; });
        auto name = asciiLowered(trimmed(cursor.takenSince(nameStart)));
        skipCommentsAndWhite(cursor);
        if (!cursor.skip('=')) continue;
        skipCommentsAndWhite(cursor);
        std::string value;
        if (cursor.skip('"')) {
            value = takeQuoted(cursor);
            cursor.takeUntil(';');
        } else {
            value = takeBare(cursor);
        }
        if (auto piece = pieceNamed(name)) {
            piece->value = std::move(value);
            pieces.push_back(*std::move(piece));
        } else if (!name.empty()) {
            auto text = plainValue(name, std::move(value));
            parameters.try_emplace(std::move(name), std::move(text));
        }
    }
    addPieces(pieces, parameters);
    return parameters;
}

}  // namespace

ContentType ContentType::parseStandard(std::string_view value) {
    Cursor cursor(value);
    skipCommentsAndWhite(cursor);
    const auto type = cursor.takeWhile(isTokenByte);
    skipCommentsAndWhite(cursor);
    ContentType result;
    if (!type.empty() && cursor.skip('/')) {
        skipCommentsAndWhite(cursor);
        const auto subtype = cursor.takeWhile(isTokenByte);
        if (!subtype.empty()) {
            result.type = asciiLowered(type);
            result.subtype = asciiLowered(subtype);
        }
    }
    cursor.takeWhile([](char c) { return c != ';' && !isAsciiWhite(c); });
    result.parameters = takeParameters(cursor);
    return result;
}

Disposition Disposition::parse(std::string_view value) {
    Cursor cursor(value);
    Disposition result;
    skipCommentsAndWhite(cursor);
    result.kind = asciiLowered(cursor.takeWhile(isTokenByte));
    // A parameter where the kind should be.
    if (cursor.peek() == '=') {
        result.kind.clear();
        cursor.moveTo(0);
    }
    result.parameters = takeParameters(cursor);
    return result;
}

std::string singleToken(std::string_view value) {
    Cursor cursor(value);
    skipCommentsAndWhite(cursor);
    cursor.skip('"');
    return std::string(cursor.takeWhile(isTokenByte));
}

}  // namespace lorvale
