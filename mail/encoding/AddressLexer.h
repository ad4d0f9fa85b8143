#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "base/text/Cursor.h"

/// The lexical side of address lists (RFC 5322, sections 3.2 and 3.4), on which reading, writing and taking
/// apart rest.

namespace lorvale {

/// A slice of an address list.
struct AddressToken {
    enum class Kind {
        white,
        atom,     ///< a run of anything else; dots and bytes above 0x7F are part of it
        quoted,   ///< with its quotes
        comment,  ///< with its parentheses, which may nest
        literal,  ///< with its brackets
        special,  ///< one of < > @ , ; :
    };
    Kind kind = Kind::white;
    std::string_view text;

    bool is(char special) const { return kind == Kind::special && text.front() == special; }
    /// Without the marks around it and the backslashes before its characters.
    std::string content() const;
};

/// Hands out the tokens, which together are the whole text.  A quote, parenthesis or bracket that is never
/// closed is part of an atom.  Linear in the text.
class AddressLexer {
public:
    explicit AddressLexer(std::string_view text) : _cursor(text) {}

    std::optional<AddressToken> next();
    /// What is left, for a caller that takes some of it itself.
    Cursor& cursor() { return _cursor; }

private:
    bool skipDelimited(char open, char close, bool nests, bool& isNeverClosed);

    Cursor _cursor;
    bool _quoteIsOpen = false, _commentIsOpen = false, _literalIsOpen = false;  // to the end of the text
};

/// Whether a phrase needs quotes for this character (RFC 5322, section 3.2.3).  A dot needs none: every reader
/// takes it, as section 4.1 asks.
constexpr bool needsQuotes(char c) {
    return std::string_view("()<>[]:;@\\,\"").find(c) != std::string_view::npos;
}

/// Appends the text with a backslash before each of these characters.
void appendEscaped(std::string& out, std::string_view text, std::string_view escaped);

/// A display name as it stands in a list: in quotes where it needs them.
std::string phraseText(std::string_view name);

}  // namespace lorvale
