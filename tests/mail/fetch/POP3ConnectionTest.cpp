#include <gmock/gmock.h>

#include "lorvale/fetch.h"
#include "lorvale/message.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/socket.h"
#include "lorvale/platform/user_defaults.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScriptedPeer.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
using Script = std::vector<std::string>;

struct TextSpool : POP3Spool {
    void write(std::string_view entry) override { text += entry; }
    std::string text;
};

/// A connection to a peer with a script, behind its greeting.
struct Conversation {
    explicit Conversation(Script script, MailDialect dialect = MailDialect::classic)
        : peer([&] {
              script.insert(script.begin(), "S: +OK ready");
              return std::move(script);
          }()),
          connection(peer.connect(), dialect) {
        EXPECT_EQ(connection.readGreeting(), POP3Connection::kOK);
    }
    ~Conversation() { EXPECT_EQ(peer.firstSurprise(), ""); }
    std::string retrieve(std::vector<std::uint32_t> numbers) {
        TextSpool spool;
        connection.stat();
        connection.fetchMessages(numbers, spool);
        return spool.text;
    }
    ScriptedPeer peer;
    POP3Connection connection;
};

constexpr std::string_view kFrom = "From a@b.example Thu Aug 22 12:46:23 2002\n";
constexpr auto kHeader =
    "S: +OK | S: From: A <a@b.example> | S: Received: x; Thu, 22 Aug 2002 12:46:23 +0000 | S: Subject: one | "
    "S: X: y | S:  | S: .";

/// The steps in which message 1 of these lines is listed, beside others, and retrieved.
Script retrieval(const Script& lines, std::string_view header = kHeader, const std::string& others = "") {
    Script script = {"C: STAT | S: +OK 1 30", "C: LIST | S: +OK | S: 1 30" + others + " | S: .",
                     "C: TOP 1 0 | " + std::string(header), "C: RETR 1 | S: +OK"};
    for (const auto& line : lines) script.push_back("S: " + line);
    return script;
}

class POP3 : public ::testing::Test {
protected:
    POP3() { ::setenv("TZ", "UTC", 1), ::tzset(); }
    ~POP3() override {
        UserDefaults::standard().removeArguments();
        ::unsetenv("TZ"), ::tzset();
    }
    LogCapture log;
};

TEST_F(POP3, CommandsAnswerByTheFirstWordOfTheReply) {
    Conversation talk({"C: USER anna | S: +OK", "C: PASS two words | S: -ERR locked",
                       "C: APOP anna c0ffee | S: +OKAY", "C: STAT | S: +OK 2 5000000000",
                       "C: LIST 2 | S: +OK 2 7", "C: LIST 0 | S: -ERR", "C: DELE 2 | S: OK",
                       "C: QUIT | S: +OK"});
    setDebugLogging(true);
    auto& pop = talk.connection;
    const int answers[] = {pop.user("anna"),
                           pop.pass("two words"),
                           pop.apop("anna c0ffee"),
                           pop.stat(),
                           pop.list(2),
                           pop.list(0),
                           pop.dele(2),
                           pop.quit()};
    setDebugLogging(false);
    EXPECT_THAT(answers, ElementsAre(0, 7, 0, 0, 0, 7, 7, 0));
    EXPECT_EQ(pop.messagesAvailable(), 2u);
    EXPECT_EQ(pop.sizeOfMessagesAvailable(), 0xFFFF'FFFFu) << "as much as fits";
    const auto lines = log.lines();
    EXPECT_THAT(lines, Contains("POP3 Send: 'USER anna\r\n'"));
    EXPECT_THAT(lines, Each(Not(HasSubstr("two words")))) << "a password is in no log";
}

TEST_F(POP3, WhatIsSentIsOneLine) {
    Conversation talk({});
    for (const auto* const text : {"a\r\nDELE 1", "a\n", "\r"}) {
        EXPECT_THROW(talk.connection.user(text), POP3Exception);
        EXPECT_THROW(talk.connection.pass(text), POP3Exception);
    }
}

TEST_F(POP3, ListsWhatMakesSenseOfALyingServer) {
    Conversation talk(
        {"C: LIST | S: +OK 3 messages | S: 3 4294967296 | S: 1\t10 | S: 0 5 | S: x 5 | S: -4 5",
         "S: 2147483648 1 | S: 2147483647 1 | S: 2 | S: 5 99999999999999999999 | S: 3 4294967296 x",
         "S:  | S: .", "C: UIDL | S: +OK | S: 1 abc | S: 2 | S: zwei x | S: 3 \xFF\x01 more | S: 1 abd | S: .",
         "C: UIDL | S: -ERR"});
    EXPECT_THAT(talk.connection.list(), ElementsAre(1, 2, 3, 5, 2147483647));
    EXPECT_EQ(talk.connection.sizeOfMessageNumber(3), std::uint64_t{1} << 32);
    EXPECT_EQ(talk.connection.sizeOfMessageNumber(2), 0u);
    EXPECT_EQ(talk.connection.sizeOfMessageNumber(4), 0u);
    EXPECT_THAT(*talk.connection.availableMessagesUsingUIDL(),
                ElementsAre(Pair(1, "abd"), Pair(3, "\xFF\x01")));
    EXPECT_EQ(talk.connection.availableMessagesUsingUIDL(), std::nullopt);
}

TEST_F(POP3, MakesAnEntryOfWhatIsRetrieved) {
    const struct {
        const char* why;
        Script lines;
        std::string classic, standard;
    } rows[] = {
        {"a line that would begin another entry",
         {"S: x", "", "From you", ">From you", "from you", "."},
         "S: x\n\n>From you\n>From you\nfrom you\n",
         ""},
        {"the first line, too", {"From here", "."}, ">From here\n", ""},
        {"doubled dots", {"..", "...", "..a", ".b", "."}, "..\n...\n..a\n.b\n", ".\n..\n.a\nb\n"},
        {"nothing at all", {"."}, "\n", ""},
        {"bytes of any kind",
         {"\xFF\x01 caf\xC3\xA9\r", "a\nFrom b", "."},
         "\xFF\x01 caf\xC3\xA9\r\na\n>From b\n",
         ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        for (const auto dialect : {MailDialect::classic, MailDialect::standard}) {
            Conversation talk(retrieval(row.lines), dialect);
            const bool other = dialect == MailDialect::standard && !row.standard.empty();
            EXPECT_EQ(talk.retrieve({1}), std::string(kFrom) + (other ? row.standard : row.classic));
        }
    }
}

TEST_F(POP3, TheEnvelopeComesFromTheHeader) {
    const struct {
        const char* why;
        std::string header, line;
    } rows[] = {
        {"a date without a weekday, with a year of two digits",
         "S: From: x@y | S: Received: a; 2 Aug 02 01:02:03 +0100", "From x@y Fri Aug 02 00:02:03 2002\n"},
        {"the first header of several, up to a second semicolon",
         "S: From: x@y | S: Received: a; 2 Aug 02 01:02:03 GMT; b | S: Received: c; 3 Aug 02 01:02:03 +0000",
         "From x@y Fri Aug 02 01:02:03 2002\n"},
        {"no sender", "S: Received: a; 2 Aug 02 01:02:03 +0000", "From @ Fri Aug 02 01:02:03 2002\n"},
        {"a sender that would begin another entry",
         "S: From: =?utf-8?q?x=0AFrom_evil?= | S: Received: a; 2 Aug 02 01:02:03 +0000",
         "From x From evil Fri Aug 02 01:02:03 2002\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        Conversation talk(retrieval({"b", "."}, "S: +OK | " + row.header + " | S: ."));
        EXPECT_EQ(talk.retrieve({1}), row.line + "b\n");
    }
}

TEST_F(POP3, PassesOverWhatTheServerRefusesAndWhatHasNoSize) {
    UserDefaults::standard().setArgument("POP3MaximumNumberToFetch", "3");
    Conversation talk({"C: STAT | S: +OK 4 3", "C: LIST | S: +OK | S: 1 0 | S: 2 1 | S: 4 1 | S: .",
                       "C: TOP 2 0 | S: -ERR", "C: RETR 2 | S: -ERR gone", "C: TOP 4 0 | S: -ERR",
                       "C: RETR 4 | S: +OK | S: a | S: ."});
    const auto text = talk.retrieve({1, 2, 4, 5});
    EXPECT_THAT(text, MatchesRegex("From @ [^\n]+\na\n")) << "the fourth is one too many";
}

TEST_F(POP3, AsksAheadWhereTheServerSaysThatItMay) {
    const Script script = {"C: CAPA | S: +OK | S: TOP | S: sasl login plain | S: PIPELINING | S: .",
                           "C: AUTH PLAIN AGEAYg== | S: +OK",
                           "C: STAT | S: +OK 2 2",
                           "C: LIST | S: +OK | S: 1 1 | S: 2 1 | S: .",
                           "C: TOP 1 0 | C: RETR 1 | C: TOP 2 0 | C: RETR 2",
                           "S: +OK | S: . | S: +OK | S: one | S: . | S: -ERR | S: +OK | S: two | S: .",
                           "C: DELE 2 | C: DELE 1 | S: +OK | S: -ERR"};
    Conversation talk(script, MailDialect::standard);
    talk.connection.negotiate();
    EXPECT_TRUE(talk.connection.offers("SASL PLAIN"));
    EXPECT_FALSE(talk.connection.offers("STLS"));
    EXPECT_EQ(talk.connection.authPlain("a", "b"), POP3Connection::kOK);
    EXPECT_THAT(talk.retrieve({1, 2}), MatchesRegex("From a@ [^\n]+\none\nFrom a@ [^\n]+\ntwo\n"));
    talk.connection.deleteMessages(std::vector<std::uint32_t>{2, 1});
}

TEST_F(POP3, AHeaderThatIsKnownServesOnce) {
    Conversation talk({"C: CAPA | S: +OK | S: PIPELINING | S: .", "C: STAT | S: +OK 1 1",
                       "C: LIST | S: +OK | S: 1 1 | S: .", "C: TOP 1 0 | S: +OK | S: From: x | S: .",
                       "C: RETR 1 | C: TOP 1 0 | C: RETR 1",
                       "S: +OK | S: one | S: . | S: +OK | S: From: y | S: . | S: +OK | S: two | S: ."});
    talk.connection.negotiate();
    talk.connection.stat();
    talk.connection.list();
    talk.connection.top(1);
    TextSpool spool;
    talk.connection.fetchMessages(std::vector<std::uint32_t>{1, 1}, spool);
    EXPECT_THAT(spool.text, MatchesRegex("From x [^\n]+\none\nFrom y [^\n]+\ntwo\n"));
}

TEST_F(POP3, HeadersAreRememberedUpToALimit) {
    const std::string large = " | S: +OK | s: X: " + std::string(3'000'000, 'x') + "\r\n.\r\n";
    Conversation talk(
        {"C: TOP 1 0" + large, "C: TOP 2 0" + large, "C: TOP 3 0" + large, "C: TOP 1 0 | S: -ERR"});
    auto& pop = talk.connection;
    const std::vector<int> answers = {pop.top(1), pop.top(2), pop.top(1), pop.top(2), pop.top(3), pop.top(1)};
    EXPECT_THAT(answers, ElementsAre(0, 0, 0, 0, 0, 7));
}

TEST_F(POP3, ALongNameAndPasswordGoBehindThePrompt) {
    const std::string password(200, 'x');
    Conversation talk({"C: AUTH PLAIN | S: + ", "C: AGEA* | S: +OK"}, MailDialect::standard);
    EXPECT_EQ(talk.connection.authPlain("a", password), POP3Connection::kOK);
}

TEST_F(POP3, AServerWithoutTheSecurityThatIsWantedIsTrustedWithNothing) {
    Conversation talk({"C: CAPA | S: +OK | S: USER | S: ."});
    EXPECT_THROW(talk.connection.negotiate(POP3Security::startTLS), POP3Exception);
}

TEST_F(POP3, ABrokenConversationEndsTheFetchWithWhatItHas) {
    const struct {
        const char* why;
        Script end;
    } rows[] = {
        {"it hangs up in the middle of a message", {"S: half", "X"}},
        {"in the middle of a line", {"s: half", "X"}},
        {"a message without an end", {"s: " + std::string(20'000, 'x')}},
        {"lines without an end", Script(2'000, "S: 0123456789")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        auto script = retrieval({"one", "."}, kHeader, " | S: 2 40");
        script.insert(script.end(), {"C: TOP 2 0 | S: -ERR", "C: RETR 2 | S: +OK"});
        script.insert(script.end(), row.end.begin(), row.end.end());
        ScriptedPeer peer(script);
        POP3Connection connection(peer.connect(), MailDialect::classic);
        connection.setLargestMessage(10'000);
        connection.stat();
        TextSpool spool;
        log.take();
        EXPECT_EQ(connection.fetchMessages(std::vector<std::uint32_t>{1, 2}, spool), 2u);
        EXPECT_THAT(log.take(), ElementsAre("POP3Connection fetchMessages:toFileHandle: failed!"));
        EXPECT_NE(connection.fetchFailure(), nullptr);
        EXPECT_EQ(spool.text, std::string(kFrom) + "one\n");
    }
}

TEST_F(POP3, AMessageOfTheLargestSizeIsTaken) {
    for (const std::size_t limit : {10u, 9u}) {
        Conversation talk(retrieval({"12345678", "."}));
        talk.connection.setLargestMessage(limit);
        EXPECT_EQ(talk.retrieve({1}), limit == 10 ? std::string(kFrom) + "12345678\n" : "");
        EXPECT_EQ(talk.connection.fetchFailure() == nullptr, limit == 10);
    }
}

TEST_F(POP3, TheDelegateHearsOfEveryByteAndMayEndIt) {
    struct Delegate : POP3ConnectionDelegate {
        void connectionReceivedNumberOfBytes(POP3Connection&, std::size_t bytes) override {
            if (!isOn) return;
            received.push_back(bytes);
            if (received.size() == 3) throw GenericException("enough");
        }
        void connectionWillRetrieveMessageNumber(POP3Connection&, std::uint32_t number,
                                                 const POP3Header* header, std::uint64_t size) override {
            told = std::to_string(number) + header->firstTextForKey("subject") + std::to_string(size);
            EXPECT_THAT(header->firstTextForKey("received"), StartsWith("x; Thu, 22"));
            EXPECT_EQ(header->firstTextForKey("x") + header->firstTextForKey("none"), "y");
            const auto all = header->headers();
            EXPECT_EQ(all->subject() + all->sender(), "oneA <a@b.example>");
            EXPECT_THAT(all->firstTextForKey(kFromSpaceKey), StartsWith("a@b.example "));
            isOn = true;
        }
        void connectionDidRetrieveMessageNumber(POP3Connection&, std::uint32_t) override { told += " done"; }
        bool isOn = false;
        std::vector<std::size_t> received;
        std::string told;
    };
    for (const int pieces : {2, 3}) {
        Script lines(static_cast<std::size_t>(pieces), std::string(4094, 'x'));
        lines.emplace_back(".");
        Conversation talk(retrieval(lines));
        Delegate delegate;
        talk.connection.setDelegate(&delegate);
        const auto text = talk.retrieve({1});
        EXPECT_EQ(delegate.received, std::vector<std::size_t>(static_cast<std::size_t>(pieces), 4096));
        EXPECT_EQ(delegate.told, pieces == 2 ? "1one30 done" : "1one30");
        EXPECT_EQ(text.empty(), pieces == 3);
        talk.connection.shutdown();
    }
}

}  // namespace
}  // namespace lorvale
