/// What a connection writes, and what it makes of what it reads, in both dialects.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "lorvale/platform/run_loop.h"
#include "tests/mail/imap/ImapConversation.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScriptedPeer.h"

namespace lorvale {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing::ImapConversation;
using ::testing::IsEmpty;
using ::testing::Optional;

constexpr auto kClassic = MailDialect::classic, kStandard = MailDialect::standard;

/// A server that finishes every command with OK and has a mailbox separator.
std::string agreeable(int commands) {
    std::string text = "* OK hello\r\n";
    for (int tag = 0; tag < commands; ++tag) text += std::to_string(tag) + " OK done\r\n";
    return text;
}

TEST(ImapConnection, WritesItsCommandsInBothDialects) {
    const std::string long600(600, 'x');
    const struct {
        std::function<void(IMAPConnection&)> command;
        std::string classic, standard;
    } rows[] = {
        {[](auto& c) { c.noop(); }, "0 NOOP \r\n", "0 NOOP\r\n"},
        {[](auto& c) { (void)c.capabilities(); }, "0 CAPABILITY \r\n", "0 CAPABILITY\r\n"},
        {[](auto& c) { (void)c.expunge(); }, "0 EXPUNGE \r\n", "0 EXPUNGE\r\n"},
        {[](auto& c) { c.close(); }, "0 CLOSE \r\n", "0 CLOSE\r\n"},
        {[](auto& c) { (void)c.logout(); }, "0 LOGOUT \r\n", "0 LOGOUT\r\n"},
        {[](auto& c) { c.login("anna", "se cret"); }, "0 LOGIN anna \"se cret\"\r\n",
         "0 LOGIN anna \"se cret\"\r\n"},
        {[](auto& c) { c.login("a b", "x\"y\\"); }, "0 LOGIN a b \"x\"y\\\"\r\n",
         "0 LOGIN \"a b\" \"x\\\"y\\\\\"\r\n"},
        {[](auto& c) { c.login("anna", "\"x\""); }, "0 LOGIN anna \"x\"\r\n", "0 LOGIN anna \"\\\"x\\\"\"\r\n"},
        {[](auto& c) { c.login("", "nil"); }, "0 LOGIN  \"nil\"\r\n", "0 LOGIN \"\" \"nil\"\r\n"},
        {[](auto& c) { c.selectMailbox("My Mail"); }, "0 SELECT \"My Mail\"\r\n", "0 SELECT \"My Mail\"\r\n"},
        {[](auto& c) { c.examineMailbox("a\"b"); }, "0 EXAMINE a\"b\r\n", "0 EXAMINE \"a\\\"b\"\r\n"},
        {[](auto& c) { c.createMailbox("Entwürfe"); }, "0 CREATE Entw\xFCrfe\r\n", "0 CREATE Entw&APw-rfe\r\n"},
        {[](auto& c) { c.deleteMailbox("x"); }, "0 DELETE x\r\n", "0 DELETE x\r\n"},
        {[](auto& c) { c.renameMailbox("x y", "z"); }, "0 RENAME \"x y\" z\r\n", "0 RENAME \"x y\" z\r\n"},
        {[](auto& c) { (void)c.list("\"\"", "%"); }, "0 LIST \"\" %\r\n", "0 LIST \"\" \"%\"\r\n"},
        {[](auto& c) { (void)c.search("UNSEEN", "UTF-8"); }, "0 SEARCH UNSEEN\r\n",
         "0 SEARCH CHARSET UTF-8 UNSEEN\r\n"},
        {[](auto& c) {
             c.storeFlag("\\Seen", true, {1, 2, 3});
         },
         "0 STORE 1:2,3 +FLAGS.SILENT (\\Seen)\r\n", "0 STORE 1:3 +FLAGS.SILENT (\\Seen)\r\n"},
        {[](auto& c) { c.storeFlag("\\Seen", false, {4}); }, "0 STORE 4 -FLAGS.SILENT (\\Seen)\r\n",
         "0 STORE 4 -FLAGS.SILENT (\\Seen)\r\n"},
        {[](auto& c) {
             c.copyMessageNumbers({1, 3}, "My Mail");
         },
         "0 COPY 1,3 \"My Mail\"\r\n", "0 COPY 1,3 \"My Mail\"\r\n"},
        {[](auto& c) {
             (void)c.fetchFlags({1, 2});
         },
         "0 FETCH 1,2 FLAGS\r\n", "0 FETCH 1:2 FLAGS\r\n"},
        {[](auto& c) { (void)c.fetchBodyStructures({1}); }, "0 FETCH 1 BODY\r\n",
         "0 FETCH 1 BODYSTRUCTURE\r\n"},
        {[](auto& c) { (void)c.fetchMessageCacheInfo({1}); },
         "0 FETCH 1 (RFC822.SIZE BODY.PEEK[HEADER.FIELDS (DATE SUBJECT FROM)])\r\n",
         "0 FETCH 1 (RFC822.SIZE BODY.PEEK[HEADER.FIELDS (DATE SUBJECT FROM)])\r\n"},
        {[](auto& c) { (void)c.fetchRawData({1}, false); },
         "0 FETCH 1 BODY.PEEK[HEADER]\r\n1 FETCH 1 BODY.PEEK[TEXT]\r\n", "0 FETCH 1 BODY.PEEK[]\r\n"},
        {[](auto& c) { (void)c.fetchRawData({1}, true); }, "0 FETCH 1 BODY[HEADER]\r\n1 FETCH 1 BODY[TEXT]\r\n",
         "0 FETCH 1 BODY[]\r\n"},
        // A server that finishes at once gets no literal.
        {[&](auto& c) { c.createMailbox(long600); }, "0 CREATE " + long600 + "\r\n",
         "0 CREATE " + long600 + "\r\n"},
        {[&](auto& c) { c.createMailbox(long600 + "("); }, "0 CREATE " + long600 + "(\r\n",
         "0 CREATE {601}\r\n"},
        {[](auto& c) { c.appendData("a\r\n", "My Mail", std::nullopt); }, "0 APPEND \"My Mail\" {3}\r\n",
         "0 APPEND \"My Mail\" {3}\r\n"},
    };
    for (const auto& row : rows) {
        for (const auto dialect : {kClassic, kStandard}) {
            ImapConversation conversation(dialect, agreeable(3));
            row.command(*conversation.connection);
            EXPECT_EQ(conversation.sent(), dialect == kClassic ? row.classic : row.standard);
        }
    }
}

TEST(ImapConnection, SendsLiteralsWhenTheServerAsksForThem) {
    const testing::LogCapture log;
    for (const auto dialect : {kClassic, kStandard}) {
        ImapConversation conversation(dialect,
                                      "* OK hi\r\n+ go\r\n0 OK done\r\n+ go\r\n+ again\r\n1 NO full\r\n");
        EXPECT_TRUE(conversation.connection->appendData("a\r\nb", "x", {{"\\Seen", "\\Draft"}}));
        EXPECT_EQ(conversation.sent(), "0 APPEND x (\\Seen \\Draft) {4}\r\na\r\nb\r\n");
        EXPECT_FALSE(conversation.connection->appendData("", "x"));
        EXPECT_EQ(conversation.sent(), "1 APPEND x {0}\r\n\r\n");
    }
    ImapConversation asked(kStandard,
                           "* OK hi\r\n+ user\r\n+ password\r\n0 OK [CAPABILITY LITERAL+] in\r\n1 OK\r\n");
    EXPECT_TRUE(asked.connection->login("ann\xC3\xA4", "p\r\nq"));
    EXPECT_EQ(asked.sent(), "0 LOGIN {5}\r\nann\xC3\xA4 {4}\r\np\r\nq\r\n");
    asked.connection->createMailbox("a\nb");
    EXPECT_EQ(asked.sent(), "1 CREATE a&AAo-b\r\n");
    asked.connection->createMailbox(std::string(600, '%'));
    EXPECT_EQ(asked.sent(), "2 CREATE {600+}\r\n" + std::string(600, '%') + "\r\n");

    ImapConversation plain(kStandard, "* OK hi\r\n+ \r\n0 OK in\r\n");
    EXPECT_TRUE(plain.connection->authenticatePlain("anna", "secret"));
    EXPECT_EQ(plain.sent(), "0 AUTHENTICATE PLAIN\r\nAGFubmEAc2VjcmV0\r\n");
}

TEST(ImapConnection, KeepsTheStateThatTheServerPutsItIn) {
    const testing::LogCapture log;
    using State = IMAPConnection::State;
    for (const auto dialect : {kClassic, kStandard}) {
        ImapConversation c(
            dialect,
            "* OK hi\r\n0 NO wrong\r\n1 OK in\r\n2 BAD no\r\n* FLAGS (\\Seen \\Draft)\r\n* 12 EXISTS\r\n"
            "* OK [UIDVALIDITY 1] a\r\n* OK [UIDVALIDITY 7] b\r\n* OK [PERMANENTFLAGS (\\Seen)] c\r\n"
            "3 OK [READ-WRITE] open\r\n4 NO [X] no (1.0 + 0 secs).\r\n5 OK in\r\n6 OK closed\r\n* BYE see "
            "you\r\n7 OK out\r\n");
        auto& connection = *c.connection;
        EXPECT_THAT(c.greeting, Optional(std::string("hi")));
        EXPECT_EQ(connection.connectionState(), State::connected);
        std::string error;
        EXPECT_FALSE(connection.login("a", "b", &error));
        EXPECT_EQ(error, "IMAP command LOGIN failed with status: wrong");
        EXPECT_EQ(connection.connectionState(), State::connected);
        EXPECT_TRUE(connection.login("a", "b"));
        EXPECT_EQ(connection.connectionState(), State::loggedIn);
        connection.close();
        EXPECT_EQ(connection.connectionState(), State::loggedIn);
        const auto data = connection.selectMailbox("x");
        ASSERT_TRUE(data.has_value());
        EXPECT_EQ(connection.connectionState(), State::mailboxSelected);
        EXPECT_THAT((*data)["FLAGS"].strings(), ElementsAre("\\Seen", "\\Draft"));
        EXPECT_EQ((*data)["UIDVALIDITY"].string(), "7");
        EXPECT_THAT((*data)["PERMANENTFLAGS"].strings(), ElementsAre("\\Seen"));
        EXPECT_EQ((*data)["READ-WRITE"].string(), "READ-WRITE");
        EXPECT_FALSE(connection.selectMailbox("y", &error).has_value());
        EXPECT_EQ(error, dialect == kClassic ? "IMAP command SELECT failed with status: [X] no (1.0 + 0 secs)."
                                             : "IMAP command SELECT failed with status: no");
        EXPECT_EQ(connection.refusal(), "no");
        EXPECT_EQ(connection.connectionState(), State::loggedIn);
        EXPECT_TRUE(connection.examineMailbox("x").has_value());
        connection.close();
        EXPECT_EQ(connection.selectedMailbox(), std::nullopt);
        EXPECT_THAT(connection.logout(), Optional(std::string("see you")));
        EXPECT_EQ(connection.connectionState(), State::notConnected);
        EXPECT_EQ(connection.nextCommandNumber(), 0u);
    }
    EXPECT_EQ(ImapConversation(kClassic, "* PREAUTH hi\r\n").connection->connectionState(), State::loggedIn);
    EXPECT_EQ(ImapConversation(kClassic, "* BYE go\r\n").connection->connectionState(), State::notConnected);
    EXPECT_EQ(ImapConversation(kClassic, "").greeting, std::nullopt);
    ImapConversation refused(kClassic, "* BYE go\r\n0 OK x\r\n");
    EXPECT_EQ(refused.connection->resultCodeForCommandNumber(refused.connection->sendCommand("NOOP")), 0);
}

struct Listener : IMAPConnectionDelegate {
    void logCommandBegin(std::string_view tag, std::string_view command) override {
        note("begin %@ %@", tag, command);
    }
    void logCommandEnd(std::string_view tag) override { note("end %@", tag); }
    void connectionWasDisconnected() override { events.emplace_back("gone"); }
    void newMessagesHaveArrived(std::string_view recent, std::string_view total) override {
        note("new %@ %@", recent, total);
    }
    void messagesWereDeleted(std::span<const std::string> numbers) override {
        for (const auto& number : numbers) note("deleted %@", number);
    }
    void receivedFlags(const IMAPValue& flags, std::string_view forMessage) override {
        note("flags %@ %@", forMessage, flags.description());
    }
    template <class... Arguments>
    void note(std::string_view text, const Arguments&... arguments) {
        events.push_back(formatText(text, arguments...));
    }
    std::vector<std::string> events;
};

TEST(ImapConnection, TellsItsDelegateWhatCameBesideTheAnswer) {
    const testing::LogCapture log;
    const auto events = [](MailDialect dialect, std::string_view server) {
        ImapConversation conversation(dialect, "* OK hi\r\n" + std::string(server));
        const auto listener = std::make_shared<Listener>();
        conversation.connection->setDelegate(listener);
        conversation.connection->noop();
        RunLoop::current()->runFor(std::chrono::milliseconds(0));
        EXPECT_THAT(conversation.connection->untaggedResponses(), IsEmpty());
        listener->events.erase(listener->events.begin());
        return listener->events;
    };
    constexpr auto kAll =
        "* 3 EXPUNGE\r\n* 3 EXPUNGE\r\n* 23 EXISTS\r\n* 2 RECENT\r\n* 5 FETCH (FLAGS (\\Seen))\r\n0 OK x\r\n";
    for (const auto dialect : {kClassic, kStandard})
        EXPECT_THAT(events(dialect, kAll),
                    ElementsAre("end 0", "new 2 23", "deleted 3", "deleted 3", "flags 5 (\\Seen)"));
    EXPECT_THAT(events(kClassic, "* 1 RECENT\r\n0 OK x\r\n"), ElementsAre("end 0"));
    EXPECT_THAT(events(kClassic, "* 4 EXISTS\r\n0 OK x\r\n"), ElementsAre("end 0"));
    EXPECT_THAT(events(kStandard, "* 4 exists\r\n0 ok x\r\n"), ElementsAre("end 0", "new 0 4"));
    EXPECT_THAT(events(kClassic, "* 4 FETCH (UID 4)\r\n"), ElementsAre("gone"));
}

TEST(ImapConnection, FetchesInTheOrderAskedFor) {
    const std::string flags =
        "* OK hi\r\n* 2 FETCH (FLAGS (\\Seen))\r\n* 9 FETCH (FLAGS ())\r\n* 1 FETCH (FLAGS (\\Deleted))\r\n0 "
        "OK x\r\n";
    const std::string classic = flags +
                                "* 1 FETCH (BODY[HEADER] {9}\r\nA: {3}\r\n\r)\r\n1 OK x\r\n"
                                "* 1 FETCH (BODY[TEXT] {6}\r\nx)\r\ny\n)\r\n2 OK x\r\n3 NO x\r\n";
    const std::string standard =
        flags + "* 1 FETCH (BODY[] {15}\r\nA: {3}\r\n\rx)\r\ny\n UID 7)\r\n1 OK x\r\n2 NO x\r\n";
    for (std::size_t piece = 1; piece < classic.size(); ++piece) {
        for (const auto dialect : {kClassic, kStandard}) {
            ImapConversation conversation(dialect, dialect == kClassic ? classic : standard, piece);
            const auto told = conversation.connection->fetchFlags({1, 2, 3});
            ASSERT_TRUE(told && told->size() == 2u) << piece;
            EXPECT_EQ((*told)[0].description() + (*told)[1].description(), "(\\Deleted)(\\Seen)");
            EXPECT_THAT(conversation.connection->fetchRawData({1}, false),
                        Optional(ElementsAre("A: {3}\n\rx)\ny\n")));
            EXPECT_FALSE(conversation.connection->fetchUIDs({1}).has_value());
            EXPECT_FALSE(conversation.connection->fetchUIDs({}).has_value());
        }
    }
}

TEST(ImapConnection, WaitsForAnAnswerAsTheDialectHasIt) {
    // Each: what comes for a NOOP, and how the next command's answer is found.
    const struct {
        const char* why;
        std::string_view server;
        int classic, standard;
    } rows[] = {
        {"an untagged BAD ends the classic wait", "* BAD odd\r\n0 OK x\r\n", 3, 1},
        {"an untagged NO does not", "* NO odd\r\n0 OK x\r\n", 1, 1},
        {"a bare answer is none in the classic dialect", "0 OK\r\n0 NO x\r\n", 2, 1},
        {"words are capitals in the classic dialect", "0 Ok x\r\n", 0, 1},
        {"a brace without digits takes the next line along", "* X {a}\r\n0 OK x\r\n0 NO x\r\n", 2, 1},
        {"a brace in a literal counts", "* X {3}\r\n{0 }\r\n\r\n0 OK x\r\n0 NO x\r\n", 1, 1},
        {"an empty line", "\r\n0 OK x\r\n", 1, 1},
        {"a continuation nobody expects", "+\r\n0 OK x\r\n", 6, 6},
        {"the end", "* BYE x\r\n", 3, 3},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        for (const auto dialect : {kClassic, kStandard}) {
            const testing::LogCapture log;
            ImapConversation conversation(dialect, "* OK hi\r\n" + std::string(row.server));
            const auto tag = conversation.connection->sendCommand("NOOP");
            EXPECT_EQ(conversation.connection->resultCodeForCommandNumber(tag),
                      dialect == kClassic ? row.classic : row.standard);
            EXPECT_EQ(conversation.connection->resultCodeForCommandNumber(99), 0);
        }
    }
}

TEST(ImapConnection, OutlivesAHostileServer) {
    const auto many = [](std::string_view line, int times) {
        std::string text;
        for (int i = 0; i < times; ++i) text += line;
        return text;
    };
    const std::pair<const char*, std::string> servers[] = {
        {"a literal of 4 GB", "* 1 FETCH (FLAGS {4294967295}\r\nabc"},
        {"a negative one", "* 1 FETCH (FLAGS {-5}\r\nabc\r\n"},
        {"one of 2^64", "* 1 FETCH (FLAGS {18446744073709551616}\r\nabc\r\n"},
        {"a line without an end", std::string(20 << 20, 'x')},
        {"braces without an end", many("}\r\n", 100'000) + many("{}\r\n", 100'000)},
        {"literals without an end", many("* 1 FETCH {1}\r\nx {1}\r\n", 100'000)},
        {"a million lines", many("* x\r\n* y z\r\n", 500'000)},
        {"a million requests", many("+ x\r\n", 200'000)},
        {"numbers beyond all",
         "* 2147483648 EXISTS\r\n* 99999999999999999999 RECENT\r\n* -1 EXPUNGE\r\n0 OK x\r\n"},
        {"bytes that are no text", std::string("* \0 \xFF\xFE\r\n\0\r\n0 OK \xD0\0\r\n", 20)},
        {"lists in lists", "* 1 FETCH " + std::string(100'000, '(') + std::string(100'000, ')') + "\r\n"},
        {"one message for ever", many("* 1 FETCH (FLAGS () UID 1 BODY[] \"\")\r\n", 50'000)},
        {"nothing", ""},
    };
    for (const auto& [why, server] : servers) {
        SCOPED_TRACE(why);
        for (const auto dialect : {kClassic, kStandard}) {
            const testing::LogCapture log;
            ImapConversation conversation(dialect, "* OK hi\r\n" + server);
            conversation.connection->setLimits(1 << 20, 2 << 20);
            conversation.connection->setDelegate(std::make_shared<Listener>());
            conversation.connection->noop();
            (void)conversation.connection->fetchFlags({1});
            EXPECT_FALSE(conversation.connection->fetchEach({1}, "BODY[]", [](const auto&) {}));
            EXPECT_FALSE(conversation.connection->appendData("x", "y"));
            EXPECT_EQ(conversation.connection->connectionState(), IMAPConnection::State::notConnected);
        }
    }
}

TEST(ImapConnection, WaitsNoLongerThanItMay) {
    for (const auto dialect : {kClassic, kStandard}) {
        for (const bool isInterrupted : {false, true}) {
            const testing::LogCapture log;
            testing::ScriptedPeer peer({"S: * OK hi", "C: 0 NOOP*", "s: * 1 FETCH (BODY[] {9}\r\nab", "W"});
            const auto connection = IMAPConnection::imapConnection(dialect);
            connection->setTimeout(isInterrupted ? std::chrono::seconds(60) : std::chrono::milliseconds(50));
            ASSERT_TRUE(connection->connectOverSocket(peer.connect(), "x").has_value());
            std::thread other([&] {
                if (!isInterrupted) return;
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
                connection->interrupt();
            });
            connection->noop();
            other.join();
            EXPECT_EQ(connection->connectionState(), IMAPConnection::State::notConnected);
        }
    }
}

TEST(ImapConnection, GoesNowhereWithoutAServer) {
    const testing::LogCapture log;
    const auto connection = IMAPConnection::imapConnection(kClassic);
    EXPECT_EQ(connection->connectToServer(""), std::nullopt);
    connection->setPort(0);
    EXPECT_EQ(connection->connectToServer("127.0.0.1"), std::nullopt);
    EXPECT_THAT(log.lines(), IsEmpty());
    connection->setPort(1);
    EXPECT_EQ(connection->connectToServer("127.0.0.1"), std::nullopt);
    EXPECT_THAT(log.lines(),
                ElementsAre(HasSubstr("Failed to connect to server 127.0.0.1 on port 1 because: ")));
    connection->setPort(70'000);
    EXPECT_EQ(connection->connectToServer("127.0.0.1"), std::nullopt);
    EXPECT_EQ(connection->connectOverSocket(nullptr, "x"), std::nullopt);
    EXPECT_EQ(connection->logout(), std::nullopt);
    EXPECT_EQ(connection->separatorChar(), "");
}

}  // namespace
}  // namespace lorvale
