#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "base/files/FileSystem.h"
#include "lorvale/values/property_list.h"

namespace lorvale {

/// What has been fetched before, as a file remembers it: a property list, a dictionary from the identifier of a
/// message to the number that it had on the server then.  Of a server without identifiers it is the message ID.
using SeenMessages = std::map<std::string, std::uint32_t, std::less<>>;

inline constexpr std::string_view kSeenMessagesName = ".pop_messages_seen";
/// In the same form, what a server was told to delete and has not said to have deleted.  It is seen as well.
inline constexpr std::string_view kDeletedMessagesName = ".pop_messages_deleted";

SeenMessages seenMessagesFrom(const PropertyList& list);
PropertyList propertyListOf(const SeenMessages& seen);

/// Empty for a missing file, and, after a log line, for one that cannot be read: mail that comes twice is no
/// loss.
SeenMessages readSeenMessages(const std::string& path);
FileStatus writeSeenMessages(const std::string& path, const SeenMessages& seen);

}  // namespace lorvale
