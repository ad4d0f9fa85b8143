#include "mail/imap/ListParsing.h"

#include <algorithm>
#include <limits>
#include <string>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "mail/imap/Digits.h"

namespace lorvale {

namespace {

/// Of an atom as servers send them: also flags with their backslash and what stands in brackets is one.
constexpr auto kAtomByte = byteTable(
    [](std::uint8_t c) { return c > ' ' && c != 0x7F && c != '(' && c != ')' && c != '{' && c != '"'; });
constexpr bool isAtomByte(char c) {
    return kAtomByte[static_cast<std::uint8_t>(c)];
}

class ValueParser {
public:
    explicit ValueParser(const Data& text) : _text(text), _cursor(text.view()) {}

    IMAPValue::List values(int level) {
        IMAPValue::List found;
        while (_values < kMostValues) {
            auto value = next(level);
            if (!value) break;
            ++_values;
            found.push_back(*std::move(value));
        }
        return found;
    }

private:
    std::optional<IMAPValue> next(int level) {
        _cursor.takeWhile([](char c) { return c == ' '; });
        switch (_cursor.peek()) {
            case '(':
                return list(level);
            case '"':
                return quoted();
            case '{':
                return literal();
            case '~':
                if (_cursor.peek(1) != '{') return atom();
                _cursor.advance();
                return literal();
            default:
                return atom();
        }
    }

    std::optional<IMAPValue> list(int level) {
        if (level == kMostLevels) return std::nullopt;
        _cursor.advance();
        auto items = values(level + 1);
        _cursor.skip(')');
        return IMAPValue(std::move(items));
    }

    std::optional<IMAPValue> quoted() {
        const auto whole = _cursor.rest().substr(1);
        const auto end =
            std::ranges::find_if(whole, [](char c) { return c == '"' || c == '\\' || c == '\r' || c == '\n'; });
        if (end == whole.end()) return std::nullopt;
        if (*end == '"') {
            const auto text = whole.substr(0, static_cast<std::size_t>(end - whole.begin()));
            _cursor.advance(text.size() + 2);
            return IMAPValue(_text.subdata(text));
        }
        return quotedWithEscapes();
    }

    std::optional<IMAPValue> quotedWithEscapes() {
        auto ahead = _cursor;
        ahead.advance();
        std::string text;
        while (!ahead.atEnd()) {
            const char c = ahead.take(1).front();
            if (c == '\r' || c == '\n') break;
            if (c == '"') {
                _cursor = ahead;
                return IMAPValue(Data(std::move(text)));
            }
            text += c == '\\' && !ahead.atEnd() ? ahead.take(1).front() : c;
        }
        return std::nullopt;
    }

    std::optional<IMAPValue> literal() {
        auto ahead = _cursor;
        ahead.advance();
        const auto length = wholeNumber<std::size_t>(ahead.takeWhile(isAsciiDigit, 20));
        ahead.skip('+');  // no server sends it; one that does means the same
        if (!length || !ahead.skip("}\r\n") || ahead.rest().size() < *length) return std::nullopt;
        const auto text = ahead.take(*length);
        _cursor = ahead;
        return IMAPValue(_text.subdata(text));
    }

    /// "BODY[HEADER.FIELDS (DATE FROM)]<0>" is one word: between brackets everything belongs to it.
    std::optional<IMAPValue> atom() {
        const auto start = _cursor.position();
        while (!_cursor.takeWhile(isAtomByte).empty()) {
            const auto soFar = _cursor.takenSince(start);
            const auto opens = soFar.rfind('['), closes = soFar.rfind(']');
            const bool isOpen =
                opens != std::string_view::npos && (closes == std::string_view::npos || closes < opens);
            if (!isOpen) break;
            const auto inside = _cursor.takeUntil([](char c) { return c == ']' || c == '\r' || c == '\n'; });
            if (inside.empty() && _cursor.peek() != ']') break;
        }
        const auto word = _cursor.takenSince(start);
        if (word.empty()) return std::nullopt;
        if (equalIgnoringAsciiCase(word, "NIL")) return IMAPValue();
        return IMAPValue(_text.subdata(word));
    }

    const Data& _text;
    Cursor _cursor;
    int _values = 0;
};

BracketValue classicResponseValue(std::string_view response) {
    Cursor cursor(response);
    cursor.takeUntil('[');
    if (!cursor.skip('[')) return {};
    cursor.takeWhile(isAsciiWhite);
    BracketValue found;
    // The characters of a classic atom, less the one that closes the bracket.
    found.key = cursor.takeWhile([](char c) {
        return c > ' ' && c <= '}' && std::string_view("(){%*]").find(c) == std::string_view::npos;
    });
    cursor.takeWhile(isAsciiWhite);
    const auto value = cursor.takeUntil(']');
    if (!value.empty()) found.value = value;
    return found;
}

BracketValue standardResponseValue(std::string_view response) {
    Cursor cursor(response);
    if (!cursor.skip('[')) return {};
    BracketValue found;
    found.key = cursor.takeUntil([](char c) { return c == ' ' || c == ']'; });
    const bool hasValue = cursor.skip(' ');
    const auto value = cursor.takeUntil(']');
    if (cursor.atEnd()) return {};
    if (hasValue) found.value = value;
    return found;
}

}  // namespace

IMAPValue::List parseValues(const Data& text) {
    return ValueParser(text).values(0);
}

BracketValue responseValue(std::string_view response, MailDialect dialect) {
    return dialect == MailDialect::classic ? classicResponseValue(response) : standardResponseValue(response);
}

std::optional<std::uint32_t> IMAPValue::number() const {
    return wholeNumber(text());
}

std::vector<std::string_view> IMAPValue::texts() const {
    std::vector<std::string_view> found;
    for (const auto& item : list())
        if (item._kind == Kind::text) found.push_back(item.text());
    return found;
}

std::string IMAPValue::description() const {
    if (isNil()) return "NIL";
    if (!isList()) return std::string(text());
    std::string all;
    for (const auto& item : list()) all += (all.empty() ? '(' : ' ') + item.description();
    return all.empty() ? "()" : all += ')';
}

}  // namespace lorvale
