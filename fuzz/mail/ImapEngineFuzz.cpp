// A connection to a server that sends anything at all, in both dialects.  Whatever the pieces in which the
// bytes come, every command has the same outcome, and at the end, when the server has nothing more to say, the
// connection knows that it is gone.
#include <string>

#include "fuzz/FuzzTarget.h"
#include "lorvale/platform/log.h"
#include "tests/mail/imap/ImapConversation.h"

using namespace lorvale;

namespace {

void add(std::string& outcome, const std::optional<PropertyList>& tree) {
    outcome += tree ? tree->xml() : "-";
}

template <class Value, class Text>
void add(std::string& outcome, const std::optional<std::vector<Value>>& values, Text text) {
    outcome += values ? '(' : '-';
    if (values)
        for (const auto& value : *values) outcome += std::string(text(value)) + ',';
}

std::string headersText(const CachedHeaders& headers) {
    return headers.textForKey("from") + '|' + headers.textForKey("subject");
}

/// What only the standard dialect does.
void addExtensions(std::string& outcome, IMAPConnection& c) {
    const auto note = [&](const IMAPFetched& message) {
        outcome += std::to_string(message.number()) + message.items().description();
        outcome += headersText(message.envelope());
        if (const auto section = message.section()) outcome += section->view();
    };
    c.setNumbersAreUIDs(true);
    outcome += c.fetchEach(IMAPMessageSet::from(1), "(FLAGS ENVELOPE BODY[])", note, 3) ? '+' : '-';
    add(outcome, c.fetchParts({1, 2}),
        [](const auto& part) { return part.section + part.type + part.fileName(); });
    IMAPPlaces places;
    outcome += c.moveMessageNumbers({1, 2}, "x\xC3\xA4", &places) ? '+' : '-';
    outcome += c.appendData("y\xC3\xA4", "x", std::nullopt, &places) ? '+' : '-';
    IMAPConnection::Numbers refused;
    const std::string_view flags[] = {"\\Seen"};
    outcome += c.changeFlags(IMAPConnection::FlagChange::add, flags, {1, 5}, 7, &refused) ? '+' : '-';
    const auto found = c.searchNumbers(IMAPSearchKeys().add("TEXT", "\xC3\xA4"));
    const IMAPConnection::Numbers* const lists[] = {&places.from, &places.to, &refused,
                                                    found ? &*found : nullptr};
    for (const auto* const numbers : lists)
        for (std::size_t i = 0; numbers != nullptr && i < std::min<std::size_t>(numbers->size(), 100); ++i)
            outcome += std::to_string((*numbers)[i]) + ' ';
    outcome += std::to_string(static_cast<int>(c.idle(std::chrono::milliseconds(0))));
}

std::string outcomeOf(MailDialect dialect, std::string_view server, std::size_t piece) {
    lorvale::testing::ImapConversation conversation(dialect, server, piece);
    auto& c = *conversation.connection;
    c.setLimits(1 << 20, 4 << 20);
    std::string outcome = conversation.greeting.value_or("-"), error;
    const auto same = [](const auto& text) { return std::string_view(text); };
    outcome += c.login("anna", "sec\r\nret", &error) ? '+' : '-';
    add(outcome, c.selectMailbox("INBOX", &error));
    add(outcome, c.fetchUIDs({1, 2, 3}), same);
    add(outcome, c.fetchFlags({1, 2}), [](const auto& flags) { return flags.description(); });
    add(outcome, c.fetchEnvelopes({1, 2}), headersText);
    add(outcome, c.fetchMessageCacheInfo({1, 2}), [](const auto& info) { return headersText(info.envelope); });
    add(outcome, c.fetchRawData({1, 2}, true), same);
    add(outcome, c.search("UNSEEN"), same);
    add(outcome, c.list("\"\"", "*"));
    const std::string_view items[] = {"MESSAGES"};
    add(outcome, c.status("INBOX", items));
    outcome += c.appendData("x\r\n", "INBOX") ? '+' : '-';
    outcome += c.expunge().value_or("-");
    addExtensions(outcome, c);
    for (int i = 0; i < 1'000'000 && c.connectionState() != IMAPConnection::State::notConnected; ++i) c.noop();
    fuzz::require(c.connectionState() == IMAPConnection::State::notConnected);
    return outcome + error + conversation.sent();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    [[maybe_unused]] static const auto before = setLogSink([](std::string_view) {});
    const auto server = fuzz::viewOf(bytes, size);
    for (const auto dialect : {MailDialect::classic, MailDialect::standard}) {
        const auto whole = outcomeOf(dialect, server, server.size() + 1);
        fuzz::require(outcomeOf(dialect, server, 1 + size % 7) == whole);
    }
    return 0;
}
