#pragma once
#include <optional>
#include <string_view>
#include <vector>

#include "lorvale/message/dates.h"

namespace lorvale {

/// The exact formats in the order in which the next date tries them.
std::vector<std::string_view> commonDateFormats();

/// Reads dates as real mail has them, by what each word can mean rather than where it stands (after RFC 5322,
/// section 4.3, asctime, ISO 8601).  Without a zone the local one holds, with the name of an unknown one UTC.
/// Nullopt unless there is a day, a month and a year.
std::optional<Date> dateInTolerantForm(std::string_view text);

}  // namespace lorvale
