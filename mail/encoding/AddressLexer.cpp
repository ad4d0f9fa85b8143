#include "mail/encoding/AddressLexer.h"

#include <algorithm>

#include "base/text/Ascii.h"

namespace lorvale {

namespace {

constexpr bool isSpecial(char c) {
    return std::string_view("<>@,;:").find(c) != std::string_view::npos;
}

constexpr bool endsAtom(char c) {
    return isFoldingWhite(c) || isSpecial(c) || c == '"' || c == '(' || c == '[';
}

}  // namespace

std::string AddressToken::content() const {
    const bool hasMarks = kind == Kind::quoted || kind == Kind::comment;
    const auto inside = hasMarks ? text.substr(1, text.size() - 2) : text;
    std::string content;
    for (std::size_t i = 0; i < inside.size(); ++i) {
        if (inside[i] == '\\' && i + 1 < inside.size()) ++i;
        content += inside[i];
    }
    return content;
}

std::optional<AddressToken> AddressLexer::next() {
    using enum AddressToken::Kind;
    if (_cursor.atEnd()) return std::nullopt;
    const auto start = _cursor.position();
    const auto taken = [&](AddressToken::Kind kind) { return AddressToken{kind, _cursor.takenSince(start)}; };
    if (!_cursor.takeWhile(isFoldingWhite).empty()) return taken(white);
    if (_cursor.skipIf(isSpecial)) return taken(special);
    if (skipDelimited('"', '"', false, _quoteIsOpen)) return taken(quoted);
    if (skipDelimited('(', ')', true, _commentIsOpen)) return taken(comment);
    if (skipDelimited('[', ']', false, _literalIsOpen)) return taken(literal);
    _cursor.advance();  // also a quote that is never closed
    _cursor.takeUntil(endsAtom);
    return taken(atom);
}

bool AddressLexer::skipDelimited(char open, char close, bool nests, bool& isNeverClosed) {
    if (_cursor.peek() != open || isNeverClosed) return false;
    auto ahead = _cursor;
    ahead.advance();
    for (std::size_t depth = 1; depth > 0;) {
        if (ahead.atEnd()) {
            isNeverClosed = true;
            return false;
        }
        const char c = ahead.peek();
        ahead.advance(c == '\\' ? 2 : 1);
        if (c == close) {
            --depth;
        } else if (nests && c == open) {
            ++depth;
        }
    }
    _cursor = ahead;
    return true;
}

void appendEscaped(std::string& out, std::string_view text, std::string_view escaped) {
    for (const char c : text) {
        if (escaped.find(c) != std::string_view::npos) out += '\\';
        out += c;
    }
}

std::string phraseText(std::string_view name) {
    // A blank at an end or two in a row would be lost.
    const bool hasOddBlanks = name.starts_with(' ') || name.ends_with(' ') ||
                              name.find("  ") != std::string_view::npos ||
                              name.find('\t') != std::string_view::npos;
    if (!hasOddBlanks && !name.empty() && std::ranges::none_of(name, needsQuotes)) return std::string(name);
    std::string quoted = "\"";
    appendEscaped(quoted, name, "\\\"");
    return quoted + '"';
}

}  // namespace lorvale
