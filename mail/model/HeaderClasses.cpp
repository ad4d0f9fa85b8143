#include "mail/model/HeaderClasses.h"

#include <algorithm>
#include <array>

namespace lorvale {

namespace {

constexpr auto kAddresses = HeaderSyntax::addresses, kStructured = HeaderSyntax::structured;

/// RFC 5322, section 3.6; RFC 2045, 2183 and 2369 for what MIME and mailing lists add; then usage.
constexpr auto kHeaderClasses = std::to_array<HeaderClass>({
    {"to", true, false, kAddresses},
    {"subject", false, false},
    {"cc", true, false, kAddresses},
    {"reply-to", false, false, kAddresses},
    {"date", false, false, kStructured},
    {"from", false, true, kAddresses},
    {"tarn-reference", false, false},
    {"received", true, false, kStructured},
    {"bcc", false, false, kAddresses},
    {"sender", false, false, kAddresses},
    {"resent-from", false, false, kAddresses},
    {"resent-to", false, false, kAddresses},
    {"resent-cc", false, false, kAddresses},
    {"resent-bcc", false, false, kAddresses},
    {"resent-sender", false, false, kAddresses},
    {"resent-reply-to", false, false, kAddresses},
    {"mail-followup-to", false, false, kAddresses},
    {"mail-reply-to", false, false, kAddresses},
    {"disposition-notification-to", false, false, kAddresses},
    {"errors-to", false, false, kAddresses},
    {"return-path", false, false, kStructured},
    {"message-id", false, false, kStructured},
    {"in-reply-to", false, false, kStructured},
    {"references", false, false, kStructured},
    {"resent-date", false, false, kStructured},
    {"resent-message-id", false, false, kStructured},
    {"mime-version", false, false, kStructured},
    {"content-type", false, false, kStructured},
    {"content-transfer-encoding", false, false, kStructured},
    {"content-disposition", false, false, kStructured},
    {"content-id", false, false, kStructured},
    {"list-unsubscribe", false, false, kStructured},
    {"list-post", false, false, kStructured},
    {"dkim-signature", false, false, kStructured},
});

constexpr HeaderClass kOtherHeader;

}  // namespace

const HeaderClass& headerClass(std::string_view key) {
    const auto* const found = std::ranges::find(kHeaderClasses, key, &HeaderClass::key);
    return found == kHeaderClasses.end() ? kOtherHeader : *found;
}

}  // namespace lorvale
