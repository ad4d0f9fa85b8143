#pragma once
#include <string>
#include <string_view>

namespace lorvale {

/// The user's name: from the password database, else the login name.  Computed once.
const std::string& fullUserName();
/// What the comment field of an entry of the password database makes of a name: the first "&" stands for the
/// login name, and the text ends before the first comma.
std::string nameFromGecos(std::string_view gecos, std::string_view loginName);

}  // namespace lorvale
