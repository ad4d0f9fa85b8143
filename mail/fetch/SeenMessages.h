#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "base/files/FileSystem.h"
#include "lorvale/values/property_list.h"

namespace lorvale {

/// Messages as a file remembers them: a property list, a dictionary from the identifier of a message, which is
/// its message ID on a server without identifiers, to a number.
using SeenMessages = std::map<std::string, std::uint64_t, std::less<>>;

/// What has been fetched before, with the number that it had on the server then.
inline constexpr std::string_view kSeenMessagesName = ".pop_messages_seen";
/// What a server was told to delete and has not said to have deleted, with its size there.  It is seen as well.
inline constexpr std::string_view kDeletedMessagesName = ".pop_messages_deleted";

SeenMessages seenMessagesFrom(const PropertyList& list);
PropertyList propertyListOf(const SeenMessages& seen);

/// Empty for a missing file, and, after a log line, for one that cannot be read: mail that comes twice is no
/// loss.
SeenMessages readSeenMessages(const std::string& path);
FileStatus writeSeenMessages(const std::string& path, const SeenMessages& seen);

}  // namespace lorvale
