#pragma once
#include <string>
#include <string_view>
#include <vector>

namespace lorvale {

/// Whether it is the path of a mailbox; any other one is that of a folder.
inline bool isMailboxPath(std::string_view path) {
    return path.ends_with(".mbox");
}

/// The names in a directory that a tree of mailboxes shows, in its order: the mailboxes, whatever they are, and
/// the directories.  Empty for one that is missing and, after a log line, for one that cannot be read.
std::vector<std::string> mailboxNamesIn(const std::string& directory);

/// Whether a directory is one of those on the way down to it from `root`: a link led back up, and whoever went
/// on would walk in circles.
bool leadsBackUp(const std::string& directory, const std::string& root);

}  // namespace lorvale
