#pragma once
#include <optional>
#include <string_view>
#include <vector>

#include "lorvale/values/date.h"

namespace lorvale {

/// The moment that the text of a `Date:` or envelope line names.  Twenty exact formats are tried first; the one
/// that fits moves to the front of a process-wide table, since mail of one kind comes in runs.  What they all
/// refuse goes to dateInTolerantForm().  A failure is logged; nullopt for it and for an empty text.  Any
/// thread.
std::optional<Date> dateInCommonFormatsWithString(std::string_view text);

/// The exact formats in the order in which the next date tries them.
std::vector<std::string_view> commonDateFormats();

/// Reads dates as real mail has them, by what each word can mean rather than where it stands (after RFC 5322,
/// section 4.3, asctime, ISO 8601).  Without a zone the local one
/// holds, with the name of an unknown one UTC.  Nullopt unless there is a day, a month and a
/// year.
std::optional<Date> dateInTolerantForm(std::string_view text);

}  // namespace lorvale
