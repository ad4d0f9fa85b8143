#pragma once
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/values/range.h"

namespace lorvale {

/// Where the words of a query stand in a text, in the form in which an index knows them: "running" finds
/// "runs". Ranges of bytes of the text (UTF-8), in order.  Operators of a boolean query are no words.  Takes
/// the analysis with which new indexes are made.
LORVALE_EXPORT std::vector<Range> queryMatches(std::string_view query, std::string_view text);

}  // namespace lorvale
