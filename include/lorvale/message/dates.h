#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/values/date.h"

namespace lorvale {

/// The moment that the text of a `Date:` or envelope line names.  Twenty exact formats are tried first; the one
/// that fits moves to the front of a process-wide table, since mail of one kind comes in runs.  What they all
/// refuse is read word by word, as tolerantly as real mail needs it.  A failure is logged; nullopt for it and
/// for an empty text.  Any thread.
LORVALE_EXPORT std::optional<Date> dateInCommonFormatsWithString(std::string_view text);

/// A moment as `Date:` has it (RFC 5322, section 3.3), in its own zone: "Fri, 23 Aug 2002 11:04:35 +0200".  A
/// zone with seconds, which no header can tell, counts as the minute below.  Date::now() has the local zone.
LORVALE_EXPORT std::string dateHeaderText(const Date& date);

/// A new identifier for `Message-ID:` (RFC 5322, section 3.6.4), angle brackets included.  Its left side is
/// random and cannot be guessed, so that nobody answers a letter that he never saw.  A domain that no
/// identifier may hold gives way to the name of this computer, and an odd one of these to "localhost".  Any
/// thread.
LORVALE_EXPORT std::string makeMessageID(std::string_view domain = {});

}  // namespace lorvale
