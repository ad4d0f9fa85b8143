#include "lorvale/imap/fetched.h"

#include "lorvale/imap/words.h"
#include "mail/imap/Digits.h"
#include "mail/imap/FetchParsing.h"

namespace lorvale {

const IMAPValue* IMAPFetched::item(std::string_view name) const {
    return findItem(_items.list(), name);
}

std::optional<std::uint32_t> IMAPFetched::uid() const {
    const auto* const found = item(IMAPDataUID);
    return found == nullptr ? std::nullopt : found->number();
}

std::optional<std::uint32_t> IMAPFetched::size() const {
    const auto* const found = item(IMAPDataRFC822Size);
    return found == nullptr ? std::nullopt : found->number();
}

std::optional<std::uint64_t> IMAPFetched::modSequence() const {
    const auto* const found = item("MODSEQ");
    if (found == nullptr || found->list().size() != 1) return std::nullopt;
    return wholeNumber<std::uint64_t>(found->list().front().text());
}

std::optional<std::vector<std::string_view>> IMAPFetched::flags() const {
    const auto* const found = item(IMAPDataFlags);
    return found == nullptr ? std::nullopt : std::optional(found->texts());
}

std::optional<Data> IMAPFetched::section() const {
    const auto* const found = findItemBeginningWith(_items.list(), "BODY[");
    return found == nullptr ? std::nullopt : std::optional(found->data());
}

CachedHeaders IMAPFetched::envelope() const {
    const auto* const found = item(IMAPDataEnvelope);
    return found == nullptr ? CachedHeaders() : headersOfEnvelope(*found, MailDialect::standard);
}

}  // namespace lorvale
