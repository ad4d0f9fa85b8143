#pragma once
#include <string_view>

namespace lorvale {

/// Makes a directory that only this user can look into, in one that may be everybody's.  One that is there
/// already has to be the user's own, and no link, and is closed to others.  False after logging why.
bool makePrivateDirectory(std::string_view path);

}  // namespace lorvale
