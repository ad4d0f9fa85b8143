#include "fuzz/FuzzTarget.h"
#include "mail/accounts/AccountEntry.h"

/// A property list of any shape gives entries that hold all of it: what is written of them and read again is
/// the same, and in the older form alone two elements become one.
LORVALE_FUZZ_TARGET(input) {
    using namespace lorvale;
    const auto list = PropertyList::parse(Data::copyOf(input));
    if (!list) return;
    const auto entries = readAccountEntries(*list);
    const auto& elements = list->array();
    std::size_t place = 0;
    for (const auto& entry : entries) {
        const bool asItStands = place < elements.size() && entry.element == elements[place];
        if (!asItStands && !entry.isAccount()) std::abort();
        place += asItStands ? 1 : 2;
    }
    if (place != elements.size()) std::abort();

    PropertyList accounts = PropertyList::Array();
    for (const auto& entry : entries)
        if (entry.isAccount()) accounts.append(entry.element);
    const auto again = readAccountEntries(PropertyList::parse(Data::copyOf(accounts.xml())).value_or(accounts));
    if (toPropertyList(again) != accounts) std::abort();
    for (const auto& entry : again) {
        if (!entry.isAccount() || !entry.isOf(entry.type, entry.path)) std::abort();
        if (accountEntry(entry.type, entry.path, entry.info()).path != entry.path) std::abort();
    }
}
