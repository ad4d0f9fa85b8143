// Every entry of a list is part of it, and no entry that a comma in plain text would cut is left whole.  Taking
// the pure address grows nothing, and of a plain one it is the address itself.
#include "fuzz/FuzzTarget.h"
#include "lorvale/message/addresses.h"
#include "lorvale/message/mailboxes.h"
#include "mail/encoding/MimeHeaderEncoding.h"
#include "mail/encoding/WordWriter.h"

using namespace lorvale;

namespace {

/// Mailboxes with addresses of the usual form come back from a header.
void requireStandardTrip(std::string_view text) {
    static constexpr std::string_view kUsual = "abcdefghijklmnopqrstuvwxyz0123456789@.";
    auto mailboxes = mailboxesInList(harmlessText(decodeAddressHeader(text)));
    std::erase_if(mailboxes, [](const Mailbox& each) {
        return each.address.find_first_not_of(kUsual) != std::string::npos ||
               each.address.find('@') == std::string::npos;
    });
    for (auto& each : mailboxes) each.comment.clear();
    for (auto& each : mailboxes) each.group.clear();
    auto written = encodeAddressHeader(mailboxListText(mailboxes), 4);
    std::erase(written, '\n');
    fuzz::require(mailboxesInList(decodeAddressHeader(written)) == mailboxes);
}

}  // namespace

LORVALE_FUZZ_TARGET(text) {
    requireStandardTrip(text);
    const auto list = addressList(text);
    fuzz::require(list.has_value() == !text.empty());
    if (list) {
        auto rest = text;
        for (const auto& each : *list) {
            const auto place = rest.find(each);
            fuzz::require(!each.empty() && place != std::string_view::npos);
            rest.remove_prefix(place + each.size());
            // A list of one entry is that entry, unless its quotes are open.
            if (std::ranges::count(each, '"') % 2 == 0) fuzz::require(addressList(each) == std::vector{each});
        }
    }
    const auto address = uncommentedAddress(text);
    fuzz::require(address.size() <= text.size());
    if (address.find_first_of("\\\"()<> \t\r\n") == std::string::npos)
        fuzz::require(uncommentedAddress(address) == address && addressComment(address) == address);
    // "To: " takes the place of a character or more.
    fuzz::require(addressComment(text).size() <= text.size() + 4);
    fuzz::require(looselyMatches(text, text) && looselyMatches(text, address) == looselyMatches(address, text));
}
