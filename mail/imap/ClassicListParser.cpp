/// Lists in parentheses as the classic dialect reads them: blanks are passed over before each word, a quoted
/// text knows no escapes, and an empty one stands for the item before it.
#include <cstdint>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "base/text/TextScanner.h"
#include "mail/imap/ListParsing.h"

namespace lorvale {

namespace {

/// What an atom is made of: the printable characters up to "}", but for those that open something else.
constexpr auto kAtomByte = byteTable([](std::uint8_t c) {
    return c > ' ' && c <= '}' && c != '(' && c != ')' && c != '{' && c != '%' && c != '*';
});
constexpr bool isAtomByte(char c) {
    return kAtomByte[static_cast<std::uint8_t>(c)];
}

class ClassicListParser {
public:
    ClassicListParser(const Data& text, Spaces spaces) : _text(text), _cursor(text.view()), _spaces(spaces) {}

    /// Nullopt when no list is left.
    std::optional<IMAPValue> list(int level) {
        _cursor.takeUntil('(');
        if (!_cursor.skip('(')) return std::nullopt;
        IMAPValue::List items;
        std::optional<IMAPValue> item;  // stays from one item to the next; see quoted()
        while (skipWhite(), !_cursor.atEnd() && !_cursor.skip(')')) {
            if (!readItem(item, level)) break;
            if (item) items.push_back(*item);
            if (++_values >= kMostValues) _cursor.takeRest();
        }
        return IMAPValue(std::move(items));
    }

private:
    bool readItem(std::optional<IMAPValue>& item, int level) {
        if (_cursor.skip('"')) {
            quoted(item);
            return true;
        }
        if (_cursor.peek() == '(') {
            if (level == kMostLevels)
                _cursor.takeRest();
            else
                item = list(level + 1);
            return true;
        }
        if (_cursor.peek() == '{') return literal(item);
        if (_cursor.skipIgnoringCase("NIL")) {
            item = IMAPValue(Data());
            return true;
        }
        return atom(item);
    }

    /// An empty text changes nothing, so that the item before it comes again.  What reads subjects and senders
    /// of such servers has always seen it that way.
    void quoted(std::optional<IMAPValue>& item) {
        skipWhite();
        const auto text = _cursor.takeUntil('"');
        if (!text.empty()) item = value(text);
        _cursor.skip('"');
    }

    /// False where no literal follows; the brace then belongs to nothing and ends the list.
    bool literal(std::optional<IMAPValue>& item) {
        auto ahead = _cursor;
        ahead.skip('{');
        TextScanner number(ahead.rest().substr(0, 64));
        int length = 0;
        if (!number.scanInt(&length) || length < 0) return false;
        ahead.advance(number.scanLocation());
        ahead.takeWhile(isAsciiWhite);
        if (!ahead.skip("}\r\n") || ahead.rest().size() < static_cast<std::size_t>(length)) return false;
        item = value(ahead.take(static_cast<std::size_t>(length)));
        _cursor = ahead;
        return true;
    }

    bool atom(std::optional<IMAPValue>& item) {
        const auto start = _cursor.position();
        if (_cursor.takeWhile(isAtomByte).empty()) return false;
        while (_spaces == Spaces::joinWords && _cursor.peek() == ' ' && isAtomByte(_cursor.peek(1))) {
            _cursor.advance();
            _cursor.takeWhile(isAtomByte);
        }
        item = value(_cursor.takenSince(start));
        return true;
    }

    void skipWhite() { _cursor.takeWhile(isAsciiWhite); }
    IMAPValue value(std::string_view part) const { return IMAPValue(_text.subdata(part)); }

    const Data& _text;
    Cursor _cursor;
    const Spaces _spaces;
    int _values = 0;
};

}  // namespace

std::optional<IMAPValue> parseClassicList(const Data& text, Spaces spaces) {
    return ClassicListParser(text, spaces).list(1);
}

}  // namespace lorvale
