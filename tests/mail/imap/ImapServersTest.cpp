/// What the standard dialect adds, on two real servers: one that can do it all, and one that can do little.
/// What came of it is what another client sees.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <random>
#include <thread>

#include "lorvale/imap.h"
#include "lorvale/values/text.h"
#include "tests/support/LogCapture.h"
#include "tests/support/MailServer.h"
#include "tests/support/ServerScript.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::Optional;
using ::testing::SizeIs;
using Numbers = IMAPConnection::Numbers;
using Strings = std::vector<std::string>;

std::string letter(int number) {
    std::string text = formatText("From: Anna <a@x.example>\r\nSubject: Letter %d\r\n\r\n", number);
    for (int i = 0; i < number; ++i) text += formatText("Line %d of %d, {3}\r\n)\r\n", i, number);
    return text;
}

std::string hex(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        text += "0123456789abcdef"[static_cast<std::uint8_t>(c) >> 4];
        text += "0123456789abcdef"[c & 15];
    }
    return text;
}

/// Without what a server that keeps mail in a flat file notes in the header.
std::string withoutNotes(std::string_view message) {
    std::string text;
    for (const auto line : split(message, '\n')) {
        const auto begins = [&](std::string_view name) { return line.starts_with(name); };
        if (begins("X-IMAPbase: ") || begins("X-UID: ") || begins("Status: ")) continue;
        text += (text.empty() ? "" : "\n") + std::string(line);
    }
    return text;
}

class ImapServers : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        if (isDovecot())
            _dovecot = std::make_unique<testing::MailServer>();
        else
            _imap4d = std::make_unique<testing::ServerScript>("imap4d", Strings{"serve"});
        const auto& whyNot = isDovecot() ? _dovecot->whyNot() : _imap4d->whyNot();
        if (!whyNot.empty()) GTEST_SKIP() << whyNot;
        connection = connected();
        for (int i = 1; i <= 6; ++i) ASSERT_TRUE(connection->appendData(letter(i), "INBOX"));
        ASSERT_TRUE(connection->selectMailbox("INBOX").has_value());
        connection->setNumbersAreUIDs(true);
        uids = connection->searchNumbers(IMAPSearchKeys().add("ALL")).value_or(Numbers());
        ASSERT_THAT(uids, SizeIs(6));
    }

    static bool isDovecot() { return GetParam() == std::string("dovecot"); }
    int port() const { return isDovecot() ? _dovecot->port("imap") : _imap4d->port("imap"); }
    std::shared_ptr<IMAPConnection> connected() const {
        auto made = IMAPConnection::imapConnection(MailDialect::standard);
        made->setPort(port());
        made->setTimeout(std::chrono::seconds(20));
        EXPECT_TRUE(made->connectToServer("127.0.0.1").has_value());
        const bool isKnown = made->connectionState() == IMAPConnection::State::loggedIn;
        EXPECT_TRUE(isKnown || made->login("anna", "secret"));
        return made;
    }
    /// A line for each message, as imap_view prints them.
    static Strings seenBy(IMAPConnection& client) {
        Strings lines;
        const auto note = [&](const IMAPFetched& message) {
            auto flags = message.flags().value_or(std::vector<std::string_view>());
            std::erase(flags, "\\Recent");
            std::ranges::sort(flags);
            std::string joined;
            for (const auto flag : flags) joined += (joined.empty() ? "" : ",") + std::string(flag);
            lines.push_back(formatText("%d %@ %@", message.uid().value_or(0), joined,
                                       hex(withoutNotes(message.section().value_or(Data()).view()))));
        };
        EXPECT_TRUE(client.fetchEach(IMAPMessageSet::from(1), "(FLAGS BODY.PEEK[])", note));
        return lines;
    }
    Strings seenByAnother(const std::string& mailbox) const {
        const auto command =
            formatText("'%@' %d anna secret '%@'",
                       (testing::sourceFolder() / "tests/support/imap_view").string(), port(), mailbox);
        const std::unique_ptr<FILE, int (*)(FILE*)> output(::popen(command.c_str(), "r"), ::pclose);
        std::string all;
        for (int c = 0; (c = std::fgetc(output.get())) != EOF;) all += static_cast<char>(c);
        Strings lines;
        for (const auto line : split(all, '\n'))
            if (!line.empty()) lines.emplace_back(line);
        return lines;
    }
    std::unique_ptr<testing::MailServer> _dovecot;
    std::unique_ptr<testing::ServerScript> _imap4d;

public:
    std::shared_ptr<IMAPConnection> connection;
    Numbers uids;
};

TEST_P(ImapServers, ShowWhatWeDidToAnotherClientToo) {
    using Change = IMAPConnection::FlagChange;
    const std::string_view seen[] = {"\\Seen"}, both[] = {"\\Answered", "\\Flagged"};
    ASSERT_TRUE(connection->createMailbox("Other box"));
    EXPECT_TRUE(connection->changeFlags(Change::add, seen, {uids[0], uids[2], uids[3]}));
    EXPECT_TRUE(connection->changeFlags(Change::replace, both, {uids[3]}));
    EXPECT_TRUE(connection->changeFlags(Change::remove, seen, {uids[2]}));
    EXPECT_TRUE(connection->moveMessageNumbers({uids[1], uids[5]}, "Other box"));
    IMAPPlaces places;
    EXPECT_TRUE(connection->copyMessageNumbers({uids[0]}, "Other box", &places));
    EXPECT_TRUE(connection->appendData(letter(9), "Other box", {{"\\Draft"}}, &places));
    if (!isDovecot()) connection->expunge();
    EXPECT_EQ(places.to, isDovecot() ? (Numbers{3, 4}) : Numbers());
    const auto ours = seenBy(*connection);
    EXPECT_THAT(ours, SizeIs(4));
    EXPECT_EQ(ours[2], formatText("%d \\Answered,\\Flagged %@", uids[3], hex(letter(4))));
    connection->close();
    EXPECT_THAT(seenByAnother("INBOX"), ElementsAreArray(ours));
    ASSERT_TRUE(connection->selectMailbox("Other box").has_value());
    const auto others = seenBy(*connection);
    connection->close();
    ASSERT_THAT(others, SizeIs(4));
    EXPECT_THAT(others[3], ::testing::EndsWith("\\Draft " + hex(letter(9))));
    EXPECT_THAT(seenByAnother("Other box"), ElementsAreArray(others));
}

TEST_P(ImapServers, AreSearchedAndTellOfParts) {
    EXPECT_THAT(connection->searchNumbers(IMAPSearchKeys().add("SUBJECT", "Letter 3")),
                Optional(ElementsAre(uids[2])));
    EXPECT_THAT(connection->searchNumbers(IMAPSearchKeys().add("NOT").add("BODY", "of 5")),
                Optional(SizeIs(5)));
    EXPECT_TRUE(connection->appendData("Subject: =?utf-8?Q?Gr=C3=BC=C3=9Fe?=\r\n\r\nGr\r\n", "INBOX"));
    connection->noop();
    EXPECT_THAT(connection->searchNumbers(IMAPSearchKeys().add("SUBJECT", "grüße")), Optional(SizeIs(1)));
    const auto parts = connection->fetchParts({uids[1]});
    ASSERT_TRUE(parts && parts->size() == 1u);
    EXPECT_EQ(parts->front().type + parts->front().section, "text1");
    EXPECT_EQ(parts->front().lines, 4u);
    const auto text = connection->fetchSection("1", {uids[1]}, false, [](auto texts) {
        return texts.front().view().find("Line 1 of 2") != std::string::npos ? std::optional(texts.front())
                                                                             : std::nullopt;
    });
    EXPECT_THAT(text, Optional(SizeIs(1)));
}

TEST_P(ImapServers, WakeWhoeverIdles) {
    EXPECT_EQ(connection->idle(std::chrono::milliseconds(10)), IMAPConnection::IdleEnd::timeout);
    std::thread other([&] {
        connected()->appendData(letter(7), "INBOX");
        if (!isDovecot()) connection->stopIdling();  // it looks for new mail once in a while only
    });
    EXPECT_NE(connection->idle(std::chrono::seconds(20)), IMAPConnection::IdleEnd::timeout);
    other.join();
    connection->noop();
    EXPECT_THAT(connection->searchNumbers(IMAPSearchKeys().add("ALL")), Optional(SizeIs(7)));
}

TEST_P(ImapServers, TellWhatHasChangedSince) {
    if (!isDovecot()) GTEST_SKIP() << "it counts no changes";
    const auto opened = connection->selectMailbox("INBOX");
    const auto before = std::stoull(std::string((*opened)["HIGHESTMODSEQ"].string()));
    const auto other = connected();
    ASSERT_TRUE(other->selectMailbox("INBOX").has_value());
    other->storeFlag("\\Flagged", true, {2, 5});
    std::vector<std::uint32_t> changed;
    EXPECT_TRUE(connection->fetchEach(
        IMAPMessageSet::from(1), "(FLAGS)",
        [&](const IMAPFetched& message) {
            EXPECT_GT(message.modSequence().value_or(0), before);
            changed.push_back(*message.uid());
        },
        before));
    EXPECT_THAT(changed, ElementsAre(uids[1], uids[4]));
    Numbers refused;
    const std::string_view seen[] = {"\\Seen"};
    (void)connection->changeFlags(IMAPConnection::FlagChange::add, seen, uids, before, &refused);
    EXPECT_THAT(refused, ElementsAre(uids[1], uids[4]));
    EXPECT_THAT(connection->searchNumbers(IMAPSearchKeys().add("SEEN")), Optional(SizeIs(4)));
}

TEST_P(ImapServers, TakeLongSetsInLinesTheyAccept) {
    constexpr std::uint32_t kMany = 9'001;
    Numbers odd;
    for (std::uint32_t uid = 1; uid < kMany; uid += 2) odd.push_back(uid);
    int found = 0;
    EXPECT_TRUE(connection->fetchEach(odd, "UID", [&](const IMAPFetched&) { ++found; }));
    EXPECT_EQ(found, 3);
}

INSTANTIATE_TEST_SUITE_P(All, ImapServers, ::testing::Values("dovecot", "imap4d"),
                         [](const auto& server) { return std::string(server.param); });

}  // namespace
}  // namespace lorvale
