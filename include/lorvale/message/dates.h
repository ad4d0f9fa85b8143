#pragma once
#include <optional>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/values/date.h"

namespace lorvale {

/// The moment that the text of a `Date:` or envelope line names.  Twenty exact formats are tried first; the one
/// that fits moves to the front of a process-wide table, since mail of one kind comes in runs.  What they all
/// refuse is read word by word, as tolerantly as real mail needs it.  A failure is logged; nullopt for it and
/// for an empty text.  Any thread.
LORVALE_EXPORT std::optional<Date> dateInCommonFormatsWithString(std::string_view text);

}  // namespace lorvale
