#include "mail/fetch/SeenMessages.h"

#include <algorithm>
#include <cerrno>
#include <limits>

#include "base/files/PropertyListFile.h"
#include "lorvale/platform/log.h"

namespace lorvale {

SeenMessages seenMessagesFrom(const PropertyList& list) {
    SeenMessages seen;
    for (const auto& [identifier, number] : list.dictionary()) {
        seen[identifier] = static_cast<std::uint64_t>(std::max<std::int64_t>(number.integer(), 0));
    }
    return seen;
}

PropertyList propertyListOf(const SeenMessages& seen) {
    PropertyList::Dictionary dictionary;
    constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max();
    for (const auto& [identifier, number] : seen)
        dictionary[identifier] = static_cast<std::int64_t>(std::min(number, kLargest));
    return dictionary;
}

SeenMessages readSeenMessages(const std::string& path) {
    FileStatus status;
    const auto list = readPropertyListFile(path, &status);
    if (!list && status.code() != ENOENT)
        log("What was fetched before is not known, so that mail may come twice: %@", status.text());
    return list ? seenMessagesFrom(*list) : SeenMessages();
}

FileStatus writeSeenMessages(const std::string& path, const SeenMessages& seen) {
    return writePropertyListFile(path, propertyListOf(seen), 0600);
}

}  // namespace lorvale
