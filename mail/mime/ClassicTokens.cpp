#include <string>

#include "base/text/Ascii.h"
#include "base/text/ByteSet.h"
#include "lorvale/platform/exception.h"
#include "lorvale/values/text.h"
#include "mail/mime/ContentType.h"

namespace lorvale {

namespace {

/// A classic token in the making.
///
/// Its oddities are relied on by those who compare parameters with what older versions stored, and stand here
/// and nowhere else:
///   - a comment in which a separator stands never ends: the scanner stood still there, and with it the
///     program.  Here such a token, and all that follows, counts as missing
///   - of the white space at the end of a token only that of its last piece goes
///   - behind white space that separates, one more separator, quote or parenthesis is taken
///   - white space at the very end that separates has nothing behind it to look at, which is a RangeException
class ClassicToken {
public:
    ClassicToken(Cursor& cursor, std::string_view separators)
        : _cursor(cursor), _stops(std::string(separators) + "\"\\()") {}

    std::optional<std::string> scan() {
        skipWhite();
        if (_cursor.atEnd()) return std::nullopt;
        while (!_cursor.atEnd()) {
            takeChunk();
            if (_cursor.atEnd()) break;
            if (takeMark()) continue;
            if (_inComment) {
                _cursor.takeRest();
                return std::nullopt;
            }
            takeSeparator();
            break;
        }
        return _token;
    }

private:
    void skipWhite() { _cursor.takeWhile(isAsciiWhite); }

    void takeChunk() {
        const auto chunk = _cursor.take(_stops.findMember(_cursor.rest()));
        _chunkStart = _token.size();
        if (!_inComment) _token += chunk;
    }

    /// Takes what is no separator here; false at one.
    bool takeMark() {
        if (_cursor.skip('\\')) {
            const auto next = _cursor.take(1);
            if (!_inComment) _token += next;
        } else if (_cursor.skip('"')) {
            _inQuote = !_inQuote;
        } else if (_inQuote) {
            _token += _cursor.take(1);
        } else if (_cursor.skip('(')) {
            _inComment = true;
        } else if (_cursor.skip(')')) {
            _inComment = false;
            skipWhite();
        } else {
            return false;
        }
        return true;
    }

    void takeSeparator() {
        while (_token.size() > _chunkStart && isAsciiWhite(_token.back())) _token.pop_back();
        if (!isAsciiWhite(_cursor.take(1).front())) return;
        skipWhite();
        if (_cursor.atEnd()) throw RangeException("scanMimeTokenUsingSeparators: Out of bounds");
        _cursor.skipIf([&](char c) { return _stops.byteIsMember(static_cast<std::uint8_t>(c)); });
    }

    Cursor& _cursor;
    const ByteSet _stops;
    std::string _token;
    std::size_t _chunkStart = 0;
    bool _inQuote = false, _inComment = false;
};

}  // namespace

std::optional<std::string> scanMimeTokenUsingSeparators(Cursor& cursor, std::string_view separators) {
    return ClassicToken(cursor, separators).scan();
}

ContentType ContentType::parseClassic(std::string_view value) {
    constexpr std::string_view kValueEnd = ";, ";
    const auto lower = [](std::optional<std::string> token) {
        return token ? std::optional(lowercased(*token)) : std::nullopt;
    };
    Cursor cursor(value);
    ContentType result;
    result.type = lower(scanMimeTokenUsingSeparators(cursor, "/"));
    result.subtype = lower(scanMimeTokenUsingSeparators(cursor, kValueEnd));
    while (auto key = scanMimeTokenUsingSeparators(cursor, "=")) {
        if (auto token = scanMimeTokenUsingSeparators(cursor, kValueEnd))
            result.parameters.insert_or_assign(lowercased(*key), *std::move(token));
    }
    return result;
}

}  // namespace lorvale
