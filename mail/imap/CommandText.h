#pragma once
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/mime/dialect.h"

namespace lorvale {

/// An argument of a command, in the terms of its caller.
struct CommandArgument {
    enum class Kind : std::uint8_t {
        wire,      ///< as it is
        text,      ///< a user name, a search key
        password,  ///< in the classic dialect always in quotes
        mailbox,   ///< a name
    };
    Kind kind = Kind::wire;
    std::string value;

    CommandArgument(std::string_view wire) : value(wire) {}
    CommandArgument(const std::string& wire) : value(wire) {}
    CommandArgument(const char* wire) : value(wire) {}
    CommandArgument(Kind kindOfValue, std::string_view text) : kind(kindOfValue), value(text) {}
};

/// What is known of the server that a command goes to.
struct CommandManner {
    MailDialect dialect = MailDialect::classic;
    std::size_t freeLiteral = 0;  ///< the largest literal it takes without being asked (RFC 7888); 0: none
    bool utf8 = false;            ///< takes UTF-8 in quoted texts and in names (RFC 6855)
};

/// A command as it is written: in one piece, or cut behind each literal's length, where the server must ask for
/// the next piece.
struct CommandText {
    std::vector<std::string> pieces;
    std::string whole() const;
};
/// The tag, a blank, the word, a blank in any case in the classic dialect, the arguments, CRLF.
CommandText commandText(std::string_view tag, std::string_view word, std::span<const CommandArgument> arguments,
                        const CommandManner& manner);

/// A name in double quotes when it holds a blank and does not begin with one of them; any other as it is.
std::string mailboxNameForName(std::string_view name);

/// With A to Z for a to z.
std::string asciiUppered(std::string_view text);

/// "{%d}".
std::string prefixForLiteralStringOfSize(std::size_t size);
/// The items in parentheses, with blanks between them.
std::string parenthesizedString(std::span<const std::string> items);

}  // namespace lorvale
