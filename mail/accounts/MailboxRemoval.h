#pragma once
#include <string>

namespace lorvale {

/// Removes what is at the path: a mailbox of any kind, a folder with all in it, a link and not what it leads
/// to. A mailbox goes in one step, so that whatever happens it is there whole or not at all; what is then left
/// of it to delete has a name that ends in ".tmp".  False, after a log line, when it could not be removed, or
/// another process has the mailbox open.
bool removeMailboxFiles(const std::string& path);

}  // namespace lorvale
