#pragma once
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "base/text/Cursor.h"

/// The value of "Content-Type:" and its kin: a word or two, and parameters.

namespace lorvale {

using MimeParameters = std::map<std::string, std::string, std::less<>>;  // by lower-case name

/// The next token of a classic value, up to one of the separators, which is taken too; nullopt at the end.
/// Throws RangeException where white space in front of the end was the separator.  See the definition for its
/// rules.
std::optional<std::string> scanMimeTokenUsingSeparators(Cursor& cursor, std::string_view separators);

/// RFC 2045, section 5.1; quotes and comments undone.
struct ContentType {
    std::optional<std::string> type, subtype;  ///< in lower case; nullopt when the value has none
    MimeParameters parameters;                 ///< RFC 2231 and encoded words undone

    static ContentType parseClassic(std::string_view value);
    /// A value without "/" says no type, but its parameters count.
    static ContentType parseStandard(std::string_view value);
};

/// "attachment; filename=x" (RFC 2183) in the standard dialect.
struct Disposition {
    std::string kind;  ///< in lower case; empty when the value has none
    MimeParameters parameters;

    static Disposition parse(std::string_view value);
};

/// A value that is one token, as that of "Content-Transfer-Encoding:", without comments and white space, in the
/// standard dialect.
std::string singleToken(std::string_view value);

}  // namespace lorvale
