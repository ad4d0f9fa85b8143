// Any bytes read as the list of what was fetched; and what such a list says is read again after it was written.
#include "fuzz/FuzzTarget.h"
#include "mail/fetch/SeenMessages.h"

using namespace lorvale;

LORVALE_FUZZ_TARGET(text) {
    SeenMessages seen;
    if (const auto list = PropertyList::parse(Data::copyOf(text))) seen = seenMessagesFrom(*list);
    // And identifiers of any bytes, as a server may give them.
    for (std::size_t at = 0; at < text.size(); at += 7)
        seen[std::string(text.substr(at, 7))] = static_cast<std::uint32_t>(at);
    const auto again = PropertyList::parse(Data::copyOf(propertyListOf(seen).xml()));
    if (!again || seenMessagesFrom(*again) != seen) std::abort();
}
