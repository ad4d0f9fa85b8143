#pragma once
#include <string>
#include <string_view>

namespace lorvale {

/// What a user types as a boolean query, in the language of the toolkit's parser: in lower case, and with the
/// words "and", "or" and "not" as "&", "|" and "!", but for one in the last place, which is an ordinary word,
/// and one that touches a parenthesis.  Parentheses that are not as many as they should be become blanks.
std::string processBooleanSearchString(std::string_view typed);

}  // namespace lorvale
