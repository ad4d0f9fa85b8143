#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/values/date.h"

namespace lorvale {

/// What an envelope line begins with, and with it each message of a flat mailbox.
inline constexpr std::string_view kEnvelopeMark = "From ";

/// The line that stands in front of a message in a mailbox: the mark, who sent it, a blank, when it was
/// delivered.  "From ann@mail.example Thu Aug 22 12:46:23 2002".  These are views of the text it was read from.
struct Envelope {
    std::string_view sender;
    std::string_view date;  ///< as written; empty when there is none

    /// Reads what stands behind the mark, without the line's end.  What cannot be told apart counts as sender.
    static Envelope parse(std::string_view text);
    /// What stands behind the mark for a message delivered then, in the local time zone as mailboxes have it.
    static std::string text(std::string_view sender, const Date& delivered);
};

}  // namespace lorvale
