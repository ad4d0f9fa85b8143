/// What the standard dialect adds to the commands: answers one by one, UIDs, places, changes, searches, idling.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/mail/imap/ImapConversation.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScriptedPeer.h"

namespace lorvale {
namespace {

using ::testing::ElementsAre;
using testing::ImapConversation;
using ::testing::IsEmpty;
using ::testing::Optional;

constexpr auto kStandard = MailDialect::standard;
using Numbers = IMAPConnection::Numbers;

/// A server that has told what it can do.
std::string ableTo(std::string_view capabilities) {
    return formatText("* OK [CAPABILITY IMAP4rev1 %@] hi\r\n", capabilities);
}

TEST(ImapFetching, HandsOverEachAnswerAsItComes) {
    ImapConversation c(kStandard,
                       "* OK hi\r\n* 2 FETCH (UID 9 BODY[] {4}\r\na\r\nb)\r\n* 3 FETCH (FLAGS (\\Seen))\r\n"
                       "* 4 FETCH (UID 12 BODY[] \"c\")\r\n* 5 FETCH (UID 13 BODY[] NIL)\r\n0 OK x\r\n");
    c.connection->setNumbersAreUIDs(true);
    std::vector<std::string> taken;
    Data kept;
    EXPECT_TRUE(c.connection->fetchEach({12, 9}, "BODY.PEEK[]", [&](const IMAPFetched& message) {
        taken.push_back(formatText("%d:%d:%@", message.number(), *message.uid(), message.section()->view()));
        if (taken.size() == 1) kept = *message.section();
    }));
    EXPECT_THAT(taken, ElementsAre("2:9:a\r\nb", "4:12:c"));
    EXPECT_EQ(kept.view(), "a\r\nb");
    EXPECT_EQ(c.sent(), "0 UID FETCH 9,12 BODY.PEEK[]\r\n");
    EXPECT_FALSE(c.connection->fetchEach(Numbers(), "FLAGS", [](const auto&) { FAIL(); }));
}

/// Greets, and then says the same for ever.
class EndlessTransport final : public SocketTransport {
public:
    explicit EndlessTransport(std::string line) : _line(std::move(line)) {}
    std::size_t readSome(std::span<std::uint8_t> into) override {
        const auto& text = std::exchange(_hasGreeted, true) ? _line : _greeting;
        return static_cast<std::size_t>(std::ranges::copy(text.substr(0, into.size()), into.begin()).out -
                                        into.begin());
    }
    std::size_t writeSome(std::span<const std::string_view> pieces) override {
        std::size_t size = 0;
        for (const auto piece : pieces) size += piece.size();
        return size;
    }
    std::size_t pending() const override { return 1; }
    void close() noexcept override {}

private:
    const std::string _line, _greeting = "* OK hi\r\n";
    bool _hasGreeted = false;
};

TEST(ImapFetching, LeavesAServerThatAnswersForEver) {
    constexpr std::size_t kLimit = 100'000;
    const IMAPMessageSet two = Numbers{1, 2}, all = IMAPMessageSet::from(1);
    const struct {
        const char* line;
        const IMAPMessageSet& messages;
    } rows[] = {{"* 1 FETCH (BODY[] \"x\")\r\n", two},
                {"* 9 FETCH (BODY[] \"x\")\r\n", two},
                {"* 1 FETCH (BODY[] \"x\")\r\n", all},  // of a mailbox without a message
                {"* 1 EXISTS\r\n", two},
                {"\r\n", two}};
    for (const auto& [line, messages] : rows) {
        SCOPED_TRACE(line);
        const testing::LogCapture log;
        const auto connection = IMAPConnection::imapConnection(kStandard);
        connection->setLimits(kLimit, kLimit);
        ASSERT_TRUE(connection->connectOverSocket(
            std::make_unique<KTSocket>(std::make_unique<EndlessTransport>(line)), "here"));
        std::size_t taken = 0;
        EXPECT_FALSE(connection->fetchEach(messages, "BODY.PEEK[]", [&](const auto&) { ++taken; }));
        EXPECT_LT(taken, kLimit / 100);
        EXPECT_EQ(connection->connectionState(), IMAPConnection::State::notConnected);
    }
}

TEST(ImapFetching, TakesAsManyAnswersAsTheMailboxHasMessages) {
    std::string answers;
    for (int i = 1; i <= 3; ++i)
        answers += formatText("* %d FETCH (BODY[] \"%@\")\r\n", i, std::string(500, 'x'));
    ImapConversation c(kStandard, "* OK hi\r\n* 3 EXISTS\r\n0 OK x\r\n" + answers + "1 OK x\r\n2 OK x\r\n" +
                                      answers + "3 OK x\r\n");
    c.connection->setLimits(1000, 1000);
    const testing::LogCapture log;
    for (const bool isFull : {true, false}) {
        ASSERT_TRUE(c.connection->selectMailbox(isFull ? "full" : "empty").has_value());
        EXPECT_EQ(c.connection->fetchEach(IMAPMessageSet::from(1), "BODY[]", [](const auto&) {}), isFull);
    }
}

TEST(ImapFetching, AsksForWhatHasChanged) {
    ImapConversation c(
        kStandard,
        "* OK hi\r\n* 7 FETCH (UID 5 MODSEQ (18446744073709551615) FLAGS ())\r\n* 2 FETCH (UID 4 "
        "MODSEQ (99999999999999999999) FLAGS ())\r\n0 OK x\r\n");
    c.connection->setNumbersAreUIDs(true);
    std::vector<std::uint64_t> sequences;
    EXPECT_TRUE(c.connection->fetchEach(
        IMAPMessageSet::from(5), "(FLAGS)",
        [&](const IMAPFetched& message) {
            EXPECT_THAT(message.flags(), Optional(IsEmpty()));
            sequences.push_back(message.modSequence().value_or(0));
        },
        17));
    EXPECT_THAT(sequences, ElementsAre(18446744073709551615U));
    EXPECT_EQ(c.sent(), "0 UID FETCH 5:* (FLAGS) (CHANGEDSINCE 17)\r\n");
}

TEST(ImapFetching, LetsOutWhatTheTakerThrows) {
    const testing::LogCapture log;
    ImapConversation c(kStandard, "* OK hi\r\n* 1 FETCH (FLAGS ())\r\n0 OK x\r\n1 OK x\r\n");
    const auto fail = [](const IMAPFetched&) { throw std::runtime_error("full"); };
    EXPECT_THROW(c.connection->fetchEach({1}, "FLAGS", fail), std::runtime_error);
    EXPECT_EQ(c.connection->connectionState(), IMAPConnection::State::notConnected);
}

TEST(ImapChanges, TellWhereMessagesLieNow) {
    IMAPPlaces places;
    ImapConversation c(kStandard, ableTo("MOVE UIDPLUS LITERAL+") +
                                      "0 OK [COPYUID 38505 304,319:320 3956:3958] x\r\n"
                                      "* OK [COPYUID 5 7 1] y\r\n* 1 EXPUNGE\r\n1 OK x\r\n"
                                      "2 OK [APPENDUID 38506 3955] x\r\n3 OK [COPYUID 1 1:2 3] x\r\n");
    c.connection->setNumbersAreUIDs(true);
    EXPECT_TRUE(c.connection->copyMessageNumbers({304, 319, 320}, "x", &places));
    EXPECT_EQ(places.uidValidity, 38505u);
    EXPECT_THAT(places.from, ElementsAre(304, 319, 320));
    EXPECT_THAT(places.to, ElementsAre(3956, 3957, 3958));
    EXPECT_TRUE(c.connection->moveMessageNumbers({7}, "x", &(places = {})));
    EXPECT_THAT(places.to, ElementsAre(1));
    EXPECT_TRUE(c.connection->appendData("a\r\n", "x", std::nullopt, &(places = {})));
    EXPECT_EQ(places.uidValidity, 38506u);
    EXPECT_THAT(places.to, ElementsAre(3955));
    EXPECT_TRUE(c.connection->copyMessageNumbers({1, 2}, "x", &(places = {})));
    EXPECT_THAT(places.to, IsEmpty());
    EXPECT_EQ(c.sent(),
              "0 UID COPY 304,319:320 x\r\n1 UID MOVE 7 x\r\n2 APPEND x {3+}\r\na\r\n\r\n3 UID COPY 1:2 x\r\n");
}

TEST(ImapChanges, MoveByHandWhereTheServerCannot) {
    ImapConversation uidplus(kStandard, ableTo("UIDPLUS") + "0 OK x\r\n1 OK x\r\n2 OK x\r\n");
    uidplus.connection->setNumbersAreUIDs(true);
    EXPECT_TRUE(uidplus.connection->moveMessageNumbers({7, 8}, "x"));
    EXPECT_EQ(uidplus.sent(),
              "0 UID COPY 7:8 x\r\n1 UID STORE 7:8 +FLAGS.SILENT (\\Deleted)\r\n2 UID EXPUNGE 7:8\r\n");
    ImapConversation plain(kStandard, ableTo("") + "0 OK x\r\n1 OK x\r\n");
    EXPECT_TRUE(plain.connection->moveMessageNumbers({7, 8}, "x"));
    EXPECT_FALSE(plain.connection->expungeUIDs({7}));
    EXPECT_EQ(plain.sent(), "0 COPY 7:8 x\r\n1 STORE 7:8 +FLAGS.SILENT (\\Deleted)\r\n");
    const testing::LogCapture log;
    ImapConversation full(kStandard, ableTo("MOVE") + "0 NO full\r\n");
    EXPECT_FALSE(full.connection->moveMessageNumbers({1}, "x"));
}

TEST(ImapChanges, LeaveAloneWhatSomebodyElseHasChanged) {
    ImapConversation c(kStandard, ableTo("CONDSTORE") + "0 OK [MODIFIED 7,9] x\r\n1 OK x\r\n");
    Numbers refused;
    const std::string_view flags[] = {"\\Seen", "$x"};
    using Change = IMAPConnection::FlagChange;
    EXPECT_TRUE(c.connection->changeFlags(Change::remove, flags, {7, 8, 9}, 12, &refused));
    EXPECT_THAT(refused, ElementsAre(7, 9));
    EXPECT_TRUE(c.connection->changeFlags(Change::replace, flags, {7}));
    EXPECT_EQ(
        c.sent(),
        "0 STORE 7:9 (UNCHANGEDSINCE 12) -FLAGS.SILENT (\\Seen $x)\r\n1 STORE 7 FLAGS.SILENT (\\Seen $x)\r\n");
}

TEST(ImapSearching, WritesKeysAndReadsBothAnswers) {
    ImapConversation c(kStandard, ableTo("ESEARCH LITERAL-") +
                                      "* ESEARCH (TAG \"0\") UID ALL 9,4:6\r\n0 OK x\r\n"
                                      "* ESEARCH (TAG \"1\")\r\n1 OK x\r\n2 NO [BADCHARSET] x\r\n");
    c.connection->setNumbersAreUIDs(true);
    EXPECT_THAT(c.connection->searchNumbers(IMAPSearchKeys().add("UNSEEN").add("SUBJECT", "Grüße")),
                Optional(ElementsAre(4, 5, 6, 9)));
    EXPECT_EQ(c.sent(),
              "0 UID SEARCH RETURN (ALL) CHARSET UTF-8 UNSEEN SUBJECT {7+}\r\nGr\xC3\xBC\xC3\x9F"
              "e\r\n");
    EXPECT_THAT(c.connection->searchNumbers(IMAPSearchKeys().add("FROM", "a\"b")), Optional(IsEmpty()));
    EXPECT_EQ(c.sent(), "1 UID SEARCH RETURN (ALL) FROM \"a\\\"b\"\r\n");
    EXPECT_EQ(c.connection->searchNumbers(IMAPSearchKeys().add("ALL")), std::nullopt);
    ImapConversation plain(kStandard, ableTo("") + "* SEARCH 5 2\r\n* SEARCH 2 3 (MODSEQ 9)\r\n0 OK x\r\n");
    EXPECT_THAT(plain.connection->searchNumbers(IMAPSearchKeys().add("ALL")), Optional(ElementsAre(2, 3, 5)));
    EXPECT_EQ(plain.connection->searchNumbers({}), std::nullopt);
}

TEST(ImapManner, FollowsWhatTheServerCanDo) {
    ImapConversation utf8(
        kStandard,
        "* OK hi\r\n0 OK [CAPABILITY ENABLE UTF8=ACCEPT LITERAL-] in\r\n* ENABLED utf8=accept\r\n1 "
        "OK x\r\n2 OK x\r\n* LIST () \"/\" \"a&b/Entwürfe\"\r\n3 OK x\r\n+ go\r\n4 OK x\r\n5 OK x\r\n");
    EXPECT_TRUE(utf8.connection->login("a", "b"));
    EXPECT_EQ(utf8.sent(), "0 LOGIN a b\r\n1 ENABLE UTF8=ACCEPT\r\n");
    EXPECT_TRUE(utf8.connection->createMailbox("Entwürfe"));
    EXPECT_EQ(utf8.sent(), "2 CREATE \"Entwürfe\"\r\n");
    const auto tree = utf8.connection->list("", "*");
    ASSERT_TRUE(tree.has_value());
    EXPECT_TRUE((*tree)["a&b"][IMAPMailboxChildren]["Entwürfe"].get<PropertyList::Dictionary>());
    (void)utf8.sent();
    EXPECT_TRUE(utf8.connection->appendData("Subject: ü\r\n\r\n" + std::string(4096, 'x'), "x"));
    EXPECT_THAT(utf8.sent(), ::testing::AllOf(::testing::StartsWith("4 APPEND x UTF8 (~{4111}\r\n"),
                                              ::testing::EndsWith("x)\r\n")));
    EXPECT_TRUE(utf8.connection->appendData("Subject: u\r\n\r\nü", "x"));
    EXPECT_EQ(utf8.sent(), "5 APPEND x {16+}\r\nSubject: u\r\n\r\nü\r\n");

    ImapConversation condstore(
        kStandard, ableTo("CONDSTORE") + "* 3 EXISTS\r\n* OK [highestmodseq 12] x\r\n0 OK [read-write] x\r\n");
    const auto data = condstore.connection->selectMailbox("x");
    ASSERT_TRUE(data.has_value());
    EXPECT_EQ((*data)["HIGHESTMODSEQ"].string() + (*data)["EXISTS"].string() + (*data)["READ-WRITE"].string(),
              "123READ-WRITE");
    EXPECT_EQ(condstore.sent(), "0 SELECT x (CONDSTORE)\r\n");

    ImapConversation secret(kStandard, ableTo("LOGINDISABLED"));
    std::string error;
    EXPECT_FALSE(secret.connection->login("a", "b", &error));
    EXPECT_EQ(error, "IMAP command LOGIN failed with status: not in the clear");
    EXPECT_EQ(secret.sent(), "");
}

std::vector<std::string> outline(const IMAPBodyPart& part) {
    std::vector<std::string> lines{formatText("%@ %@/%@ %d %d %@", part.section, part.type, part.subtype,
                                              part.size, part.lines, part.fileName())};
    for (const auto& each : part.parts)
        for (auto& line : outline(each)) lines.push_back(std::move(line));
    return lines;
}

TEST(ImapStructures, BecomeParts) {
    const auto parts = [](std::string_view structure) {
        ImapConversation c(kStandard,
                           formatText("* OK hi\r\n* 1 FETCH (BODYSTRUCTURE %@)\r\n0 OK x\r\n", structure));
        const auto found = c.connection->fetchParts({1});
        return found && !found->empty() ? outline(found->front()) : std::vector<std::string>{"none"};
    };
    EXPECT_THAT(parts(R"(("TEXT" "PLAIN" ("CHARSET" "us-ascii") NIL NIL "7BIT" 5 2 NIL NIL NIL))"),
                ElementsAre("1 text/plain 5 2 "));
    constexpr auto kLetter = R"("Fri, 23 Aug 2002 11:04:35 +0200" "s" NIL NIL NIL NIL NIL NIL NIL NIL)";
    EXPECT_THAT(
        parts(formatText(
            R"((("text" "plain" NIL NIL NIL "7bit" 5 2)("application" "pdf" ("name" "b.pdf") NIL NIL "base64" 9 )"
            R"(NIL ("attachment" ("filename*0*" "utf-8''%%C3%%A4" "filename*1" "\"x.pdf"))))"
            R"(("message" "rfc822" NIL NIL NIL "7bit" 90 (%@) (("text" "html" NIL NIL NIL "8bit" 3 1) "alternative") 7))"
            R"(("message" "rfc822" NIL NIL NIL "7bit" 80 (%@) ("image" "png" NIL NIL NIL "base64" 4) 6) "mixed"))",
            kLetter, kLetter)),
        ElementsAre("TEXT multipart/mixed 0 0 ", "1 text/plain 5 2 ", "2 application/pdf 9 0 ä\"x.pdf",
                    "3 message/rfc822 90 7 ", "3.TEXT multipart/alternative 0 0 ", "3.1 text/html 3 1 ",
                    "4 message/rfc822 80 6 ", "4.1 image/png 4 0 "));
    EXPECT_THAT(parts("NIL"), ElementsAre("none"));
    EXPECT_LT(parts(std::string(100'000, '(')).size(), 100u);
}

TEST(ImapIdling, EndsByNewsByTimeAndByAnotherThread) {
    using End = IMAPConnection::IdleEnd;
    testing::ScriptedPeer peer({"S: * OK [CAPABILITY IDLE] hi",
                                "C: 0 IDLE",
                                "S: + waiting",
                                "S: * OK still here",
                                "s: * 4 EXI",
                                "s: STS\r\n",
                                "C: DONE",
                                "S: 0 OK x",
                                "C: 1 IDLE",
                                "S: + waiting",
                                "C: DONE",
                                "S: 1 OK x",
                                "C: 2 IDLE",
                                "S: + waiting",
                                "C: DONE",
                                "S: 2 OK x",
                                "C: 3 IDLE",
                                "S: + waiting",
                                "C: DONE",
                                "S: 3 OK x",
                                "C: 4 IDLE",
                                "S: + waiting",
                                "S: * BYE",
                                "X"});
    const auto connection = IMAPConnection::imapConnection(kStandard);
    ASSERT_TRUE(connection->connectOverSocket(peer.connect(), "x").has_value());
    EXPECT_EQ(connection->idle(), End::news);
    EXPECT_EQ(connection->idle(std::chrono::milliseconds(1)), End::timeout);
    std::thread other([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        connection->stopIdling();
    });
    EXPECT_EQ(connection->idle(), End::stopped);
    other.join();
    connection->stopIdling();
    EXPECT_EQ(connection->idle(), End::stopped);
    const testing::LogCapture log;
    EXPECT_EQ(connection->idle(), End::refused);
    EXPECT_EQ(connection->connectionState(), IMAPConnection::State::notConnected);
    EXPECT_EQ(connection->idle(), End::refused);
    EXPECT_EQ(peer.firstSurprise(), "");
}

TEST(ImapConnection, SendsNothingNewInTheClassicDialect) {
    ImapConversation c(MailDialect::classic, ableTo("MOVE UIDPLUS IDLE ESEARCH CONDSTORE LITERAL+"));
    auto& connection = *c.connection;
    connection.setNumbersAreUIDs(true);
    EXPECT_FALSE(connection.fetchEach({1}, "FLAGS", [](const auto&) {}));
    EXPECT_FALSE(connection.fetchParts({1}).has_value());
    EXPECT_FALSE(connection.changeFlags(IMAPConnection::FlagChange::add, {}, {1}));
    EXPECT_FALSE(connection.moveMessageNumbers({1}, "x"));
    EXPECT_FALSE(connection.expungeUIDs({1}));
    EXPECT_FALSE(connection.searchNumbers(IMAPSearchKeys().add("ALL")).has_value());
    EXPECT_EQ(connection.idle(), IMAPConnection::IdleEnd::refused);
    EXPECT_EQ(c.sent(), "");
}

}  // namespace
}  // namespace lorvale
