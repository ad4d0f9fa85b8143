#pragma once
#include <optional>
#include <string>

#include "Arguments.h"
#include "lorvale/message.h"

namespace mailhost {

// The options by which a command picks messages.
inline constexpr auto kFrom =
    textOption("--from", "TEXT", "only with this in the sender, in any case of letters");
inline constexpr auto kTo = textOption("--to", "TEXT", "only with this among the recipients (To and Cc)");
inline constexpr auto kSubject = textOption("--subject", "TEXT", "only with this in the subject");
inline constexpr auto kSince = periodOption(
    "--since", "DATE",
    "only delivered then or later: a year, month, day or minute such as 2004, 2004-01, 2004-01-31");
inline constexpr auto kUntil =
    periodOption("--until", "DATE", "only delivered then or earlier; the whole of that day or month counts");
inline constexpr auto kLarger =
    bytesOption("--larger", "SIZE", "only of more bytes than this: a number, or 100K, 2.5M, 1G");
inline constexpr auto kUnread = flag("--unread", "only unread messages");
inline constexpr auto kFilterOptions =
    std::to_array<Parameter>({kFrom, kTo, kSubject, kSince, kUntil, kLarger, kUnread});

/// Picks messages.  Asks what is cheap to know first, and reads headers only when an option is about them.  A
/// message that cannot be read is picked, since nobody can tell that it was not meant.
class MessageFilter {
public:
    explicit MessageFilter(const Arguments& arguments);
    bool accepts(lorvale::Message& message) const;

private:
    bool readsHeaders() const { return _from || _to || _subject || _since || _until; }
    bool acceptsHeaders(lorvale::MessageHeaders& headers) const;
    bool acceptsDate(lorvale::MessageHeaders& headers) const;

    std::optional<std::string> _from, _to, _subject;  // in folded case
    std::optional<Period> _since, _until;
    std::optional<std::uint64_t> _larger;
    bool _unreadOnly;
};

}  // namespace mailhost
