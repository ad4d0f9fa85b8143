#pragma once
#include <string>
#include <string_view>

namespace lorvale {

/// A mailbox name as RFC 3501, section 5.1.3, writes it: UTF-7 with "&" for "+" and "," for "/".  `name` is
/// UTF-8; a byte that is not counts as the Latin 1 character of the same number.
std::string modifiedUtf7(std::string_view name);

/// The name in UTF-8.  What is no proper run of that encoding, such as a name in plain UTF-8 from a server that
/// sends these, comes out as it stands: modifiedUtf7() of the result need not be the same name then.
std::string fromModifiedUtf7(std::string_view name);

}  // namespace lorvale
