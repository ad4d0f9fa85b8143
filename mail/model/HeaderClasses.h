#pragma once
#include <string_view>

namespace lorvale {

/// What a header's value is made of, for the standard dialect.
enum class HeaderSyntax {
    text,        ///< any text, encoded words where it needs them
    addresses,   ///< a list of mailboxes and groups
    structured,  ///< tokens of another kind, which are never encoded words
};

/// How lines of one header are treated.  With neither flag the first line counts and the others are dropped, as
/// for every header that is not in the table.
struct HeaderClass {
    std::string_view key;      ///< in lower case
    bool accumulates = false;  ///< each line adds a value
    bool replaces = false;     ///< each line throws the values before it away
    HeaderSyntax syntax = HeaderSyntax::text;
};

const HeaderClass& headerClass(std::string_view key);

}  // namespace lorvale
