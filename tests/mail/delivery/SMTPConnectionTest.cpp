#include "lorvale/delivery/smtp_connection.h"

#include <gmock/gmock.h>

#include <random>

#include "mail/delivery/SMTPReplies.h"
#include "mail/delivery/ServerPlace.h"
#include "mail/delivery/TransparentText.h"
#include "tests/support/MemoryTransport.h"
#include "tests/support/ScriptedPeer.h"
#include "tests/support/TestSupport.h"

namespace lorvale::testing {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
using namespace std::chrono_literals;

constexpr auto kClassic = MailDialect::classic, kStandard = MailDialect::standard;
using Steps = std::vector<std::string>;

std::string whatOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const NamedException& exception) {
        return exception.what();
    }
    return "";
}

std::string hostOf(const ScriptedPeer& peer) {
    return "127.0.0.1:" + std::to_string(peer.port());
}

TEST(SMTPConnection, ClassicTakesTheFirstLineForTheReply) {
    const std::string said = "220-one\r\n220 two\n250 x\r\n550-no\r\n-skipped\r\n354\r\n0\r\n";
    for (std::size_t size = 1; size <= said.size(); ++size) {
        SCOPED_TRACE(size);
        MemoryTransport::Log log;
        SMTPConnection peer(
            std::make_unique<KTSocket>(std::make_unique<MemoryTransport>(inPieces(said, size), log)), {},
            kClassic);
        peer.beginConversation("x");
        EXPECT_EQ(peer.mailFrom("a@x"), 2);
        EXPECT_EQ(whatOf([&] { peer.rcptTo("b@x"); }), "SMTPPermanentException: 550-no\r\n");
        EXPECT_EQ(peer.startData(), 3);
        EXPECT_EQ(peer.sendData("a\n") + peer.sendLine(".b"), 4);
        EXPECT_EQ(peer.endData(), 0);
        EXPECT_EQ(whatOf([&] { peer.quit(); }), "SMTPTransientException: 4");
        EXPECT_THAT(log.written, StartsWith("HELO "));
        EXPECT_EQ(log.written.substr(log.written.find('\n') + 1),
                  "MAIL FROM:<a@x>\r\nRCPT TO:<b@x>\r\nDATA\r\na\r\n..b\r\n.\r\nQUIT\r\n");
    }
}

TEST(SMTPReplies, AreReadByTheirFirstCharacters) {
    const struct {
        std::string_view line;
        int classic, code;
        bool isLast;
    } rows[] = {
        {"250 ok\r\n", 2, 250, true},
        {"250-more\n", 2, 250, false},
        {"599", 5, 599, true},
        {"600 x", 6, 0, true},
        {"199 x", 1, 0, true},
        {"25", 2, 0, true},
        {"2500", 2, 0, true},
        {"2x0 a", 2, 0, true},
        {"", 6, 0, true},
        {" 250 a", 6, 0, true},
        {"4", 4, 0, true},
        {"0", 0, 0, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(classicReplyClass(ExactCopy(row.line)), row.classic);
        const auto parsed = smtpReplyLine(row.line);
        EXPECT_EQ(parsed.code, row.code);
        EXPECT_EQ(parsed.isLast, row.isLast);
    }
}

/// The rule as it is told, a byte at a time.
std::string transparent(std::string_view text, MailDialect dialect) {
    std::string out;
    bool endsLine = true;  // by a newline that counts
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool hasReturn = i > 0 && text[i - 1] == '\r';
        if (text[i] == '.' && (i == 0 || text[i - 1] == '\n')) out += '.';
        endsLine = text[i] == '\n' && (!hasReturn || dialect == kStandard);
        if (text[i] == '\n' && !hasReturn) out += '\r';
        out += text[i];
    }
    return endsLine ? out : out + "\r\n";
}

TEST(TransparentText, IsWhatTheRuleSaysInStretchesOfAnySize) {
    EXPECT_EQ(transparent("a\n.b\n", kClassic), "a\r\n..b\r\n");
    EXPECT_EQ(transparent("a\r\n", kClassic), "a\r\n\r\n");
    std::mt19937 random(20);
    for (int i = 0; i < 20'000; ++i) {
        std::string text;
        for (auto size = random() % 12; size > 0; --size) text += ".\r\na"[random() % 4];
        for (const auto dialect : {kClassic, kStandard}) {
            const ExactCopy exact(text);
            TransparentText stretches(exact, dialect);
            std::string out;
            while (stretches.appendTo(out, 1 + random() % 4)) {
            }
            ASSERT_EQ(out, transparent(text, dialect)) << ::testing::PrintToString(text);
        }
    }
}

TEST(ServerPlace, TakesWhatPeopleWrite) {
    const Steps rows[] = {{"a.x", "a.x", ""},
                          {"a.x:25", "a.x", "25"},
                          {"a.x:smtp", "a.x", "smtp"},
                          {"::1", "::1", ""},
                          {"[::1]:25", "::1", "25"},
                          {"[::1]", "::1", ""},
                          {"[::1]x", "::1", ""},
                          {"", "", ""},
                          {"a:", "a", ""}};
    for (const auto& row : rows) {
        const auto place = ServerPlace::of(row[0]);
        EXPECT_EQ(place.host, row[1]) << row[0];
        EXPECT_EQ(place.port, row[2]) << row[0];
    }
}

TEST(SMTPConnection, SendsAMailInAsFewStepsAsTheServerAllows) {
    const SMTPEnvelope envelope{"a@x", {"b@x", "c\nd@x", "e@x", "f@x"}, 9, true};
    const std::string mail = "C: MAIL* | S: 250", rcpt = " | C: RCPT* | S: 250",
                      pipelining =
                          "S: 250-x\r\n250 PIPELINING | C: MAIL* | C: RCPT* | C: RCPT* | C: RCPT* | C: DATA | ";
    const struct {
        const char* why;
        std::string steps;  ///< behind EHLO
        std::size_t refused;
        std::string what;
    } rows[] = {
        {"one at a time",
         "S: 250-x\r\n250-size\r\n250 8bitMime | C: MAIL FROM:<a@x> SIZE=9 BODY=8BITMIME | S: 250 | "
         "C: RCPT TO:<b@x> | S: 250 | C: RCPT TO:<e@x> | S: 550 5.1.1 who? | C: RCPT TO:<f@x> | S: 251 | "
         "C: DATA | S: 354 | . | S: 250",
         2, ""},
        {"all at once",
         "S: 250-x\r\n250 PIPELINING | C: MAIL FROM:<a@x> | C: RCPT TO:<b@x> | C: RCPT TO:<e@x> | "
         "C: RCPT TO:<f@x> | C: DATA | S: 250\r\n450\r\n250-y\r\n250\r\n450\r\n354 | . | S: 250",
         3, ""},
        {"nobody is left", pipelining + "S: 250\r\n550\r\n550\r\n550\r\n354 | C: . | S: 554", 4, ""},
        {"nobody is left, one at a time",
         "S: 250 | C: MAIL* | S: 250 | C: RCPT* | S: 550 | C: RCPT* | S: 550 | C: RCPT* | S: 550", 4, ""},
        {"not from him", "S: 250 | C: MAIL* | S: 553 no", 0, "SMTPPermanentException: 553 no"},
        {"not from him, all at once", pipelining + "S: 450-a\r\n450 b\r\n503\r\n503\r\n503\r\n503", 0,
         "SMTPTransientException: 450-a\n450 b"},
        {"no text", "S: 250 | " + mail + rcpt + rcpt + rcpt + " | C: DATA | S: 250 what?", 0,
         "SMTPPermanentException: 250 what?"},
        {"too large", "S: 250-x\r\n250 SIZE 8", 0,
         "SMTPPermanentException: The mail has 9 bytes, and the server takes 8 at most."},
        {"it ends all", "S: 250 | C: MAIL* | S: 421 bye", 0, "SMTPTransientException: 421 bye"},
        {"older than EHLO", "S: 502 | C: HELO * | S: 250 | C: MAIL FROM:<a@x> | S: 421", 0,
         "SMTPTransientException: 421"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        ScriptedPeer peer({"S: 220-a\r\n220 b | C: EHLO *", row.steps}, ScriptedPeer::Pace::byteByByte);
        SMTPConnection connection(KTSocket::socket(), {}, kStandard);
        connection.connectToHost(hostOf(peer));
        std::vector<SMTPRefusal> refused;
        EXPECT_EQ(whatOf([&] { refused = connection.startMail(envelope); }), row.what);
        EXPECT_EQ(refused.size(), row.refused);
        if (row.steps.ends_with(". | S: 250")) {
            connection.sendData("x\n.\n");
            EXPECT_EQ(connection.endData(), 2);
            EXPECT_EQ(peer.texts().front(), "x\r\n..\r\n.\r\n");
        }
        EXPECT_EQ(peer.firstSurprise(), "");
    }
}

TEST(SMTPConnection, BeginsAnewBehindAMailWithoutText) {
    ScriptedPeer peer({"S: 220 | C: EHLO * | S: 250-x\r\n250 SIZE 9", "C: MAIL* | S: 250 | C: RCPT* | S: 550",
                       "C: RSET | S: 250", "C: MAIL FROM:<> SIZE=9 | S: 250 | C: RCPT* | S: 250",
                       "C: DATA | S: 354"});
    SMTPConnection connection(KTSocket::socket(), {}, kStandard);
    connection.connectToHost(hostOf(peer));
    EXPECT_EQ(connection.startMail({"a@x", {"b@x"}, 1, true}).size(), 1U);
    EXPECT_EQ(connection.startMail({"", {"b@x"}, 9, true}).size(), 0U);
    EXPECT_EQ(peer.firstSurprise(), "");
}

TEST(SMTPConnection, HangsUpOnAServerThatContradictsItself) {
    ScriptedPeer peer({"S: 220 | C: EHLO * | S: 250-x\r\n250 PIPELINING",
                       "C: MAIL* | C: RCPT* | C: DATA | S: 550 no\r\n250\r\n354"});
    SMTPConnection connection(KTSocket::socket(), {}, kStandard);
    connection.connectToHost(hostOf(peer));
    EXPECT_EQ(whatOf([&] {
                  connection.startMail({"a@x", {"b@x"}, 1, true});
              }),
              "SMTPPermanentException: 550 no");
    EXPECT_NE(whatOf([&] { connection.quit(); }), "");
    EXPECT_EQ(peer.firstSurprise(), "") << "nothing that it could take for a text";
}

TEST(SMTPConnection, EndsInANamedExceptionWhateverThePeerDoes) {
    const std::string large(1'000'000, '2');
    const struct {
        std::string script, classic, standard;
    } rows[] = {
        {"S: 450 later", "SMTPTransientException: 450 later\r\n", "SMTPTransientException: 450 later"},
        {"X", "SMTPTransientException: 4", "SocketClosedException: "},
        {"s: 220 half a li | X", "SMTPTransientException: 4", "SocketClosedException: "},
        {"W", "SMTPTransientException: 4", "SocketTimeoutException: "},
        {"S: " + large + " | W", "SocketLimitException: ", "SocketLimitException: "},
        {"S: SSH-2.0 | W", "SMTPPermanentException: SSH", "SMTPPermanentException: This is no reply: SSH-2.0"},
        {"S: 220 a\r\n220 b | C: * | S: 250 | W", "",
         "SMTPPermanentException: The server has said, unasked: 220 b"},
    };
    for (const auto& row : rows) {
        for (const auto dialect : {kClassic, kStandard}) {
            SCOPED_TRACE(row.script.substr(0, 20));
            ScriptedPeer peer({row.script});
            SMTPConnection connection(KTSocket::socket(), {.timeout = 100ms}, dialect);
            const auto what = whatOf([&] {
                connection.connectToHost(hostOf(peer));
                connection.mailFrom("");
            });
            EXPECT_THAT(what, StartsWith(dialect == kClassic ? row.classic : row.standard));
        }
    }
    constexpr auto kLimit = SMTPConnection::kReplyLimit;
    const std::string unasked = "SMTPPermanentException: The server has said, unasked: 250 x";
    for (const auto dialect : {kClassic, kStandard}) {
        for (const std::size_t size : {kLimit, kLimit + 1}) {
            MemoryTransport::Log log;
            const auto line = "220 " + std::string(size - 5, 'x') + "\n";
            SMTPConnection connection(std::make_unique<KTSocket>(std::make_unique<MemoryTransport>(
                                          inPieces(line + "250 x\r\n250 y\r\n", 4000), log)),
                                      {}, dialect);
            const auto what = whatOf([&] {
                connection.beginConversation("x");
                connection.mailFrom("");
            });
            if (size > kLimit) {
                EXPECT_THAT(what, StartsWith("SocketLimitException: "));
            } else {
                EXPECT_EQ(what, dialect == kClassic ? "" : unasked);
            }
        }
    }
    std::string endless, hyphens;
    for (int i = 0; i < 20'000; ++i) endless += "220-x\r\n", hyphens += "-220\r\n";
    for (const auto& text : {endless, hyphens}) {
        MemoryTransport::Log log;
        SMTPConnection connection(
            std::make_unique<KTSocket>(std::make_unique<MemoryTransport>(inPieces(text, 4096), log)), {},
            text == endless ? kStandard : kClassic);
        EXPECT_THROW(connection.beginConversation("x"), SocketLimitException);
    }
}

TEST(SMTPConnection, TakesNoAddressThatEndsALine) {
    for (const auto dialect : {kClassic, kStandard}) {
        ScriptedPeer peer({"S: 220 | C: * | S: 250"});
        SMTPConnection connection(KTSocket::socket(), {}, dialect);
        connection.connectToHost(hostOf(peer));
        for (const auto address : {"a@x>\r\nRCPT TO:<b@x", "a\n@x", "a\r@x"}) {
            EXPECT_THROW(connection.mailFrom(address), InvalidArgumentException);
            EXPECT_THROW(connection.rcptTo(address), InvalidArgumentException);
        }
        if (dialect == kStandard) {
            EXPECT_THROW(connection.rcptTo("é@x"), SMTPPermanentException);
        }
        EXPECT_EQ(peer.firstSurprise(), "");
    }
}

TEST(SMTPConnection, SecuresAndLogsInWhereTheHostAsks) {
    const TemporaryFolder folder;
    const TestAuthority authority;
    authority.writeTo(folder / "authority.pem");
    using enum SMTPSettings::Security;
    const SMTPSettings plain{.userName = "anna", .password = "secret"};
    auto later = plain, atOnce = plain;
    later.security = startTLS;
    atOnce.security = fromStart;
    const std::string hello = "S: 220 | C: EHLO * | ";
    const struct {
        const char* why;
        SMTPSettings settings;
        std::string script, what;
    } rows[] = {
        {"plain", plain, hello + "S: 250-x\r\n250 AUTH LOGIN PLAIN | C: AUTH PLAIN AGFubmEAc2VjcmV0 | S: 235",
         ""},
        {"login, as of old", plain,
         hello + "S: 250-x\r\n250 AUTH=LOGIN | C: AUTH LOGIN | S: 334 VXNlcm5hbWU6 | C: YW5uYQ== | S: 334 | "
                 "C: c2VjcmV0 | S: 535 no",
         "SMTPPermanentException: 535 no"},
        {"no way", plain, hello + "S: 250-x\r\n250 AUTH CRAM-MD5",
         "SMTPPermanentException: The server offers no"},
        {"from the start", atOnce, "T | " + hello + "S: 250-x\r\n250 AUTH PLAIN | C: AUTH PLAIN * | S: 235",
         ""},
        {"by its word", later,
         hello + "S: 250-x\r\n250-AUTH PLAIN\r\n250 STARTTLS | C: STARTTLS | S: 220 | T | C: EHLO * | "
                 "S: 250-x\r\n250 AUTH LOGIN | C: AUTH LOGIN | S: 334 | C: * | S: 334 | C: * | S: 235",
         ""},
        {"somebody took the word away", later, hello + "S: 250-x\r\n250 AUTH PLAIN", "TLSException: "},
        {"somebody put words in", later,
         hello + "S: 250-x\r\n250 STARTTLS | C: STARTTLS | s: 220 y\r\n250 injected\r\n",
         "TLSException: 127.0.0.1 has sent text before"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        auto settings = row.settings;
        settings.tls.authorities = folder / "authority.pem";
        ScriptedPeer peer({row.script}, ScriptedPeer::Pace::whole, authority.issue("IP:127.0.0.1"));
        SMTPConnection connection(KTSocket::socket(), settings, kStandard);
        const auto what = whatOf([&] { connection.connectToHost(hostOf(peer)); });
        EXPECT_THAT(what, StartsWith(row.what));
        EXPECT_EQ(what.empty(), row.what.empty()) << what;
        EXPECT_EQ(peer.firstSurprise(), "");
        SMTPConnection old(KTSocket::socket(), settings, kClassic);
        if (settings.security != fromStart) {
            EXPECT_THROW(old.beginConversation("x"), InvalidArgumentException);
        }
    }
}

}  // namespace
}  // namespace lorvale::testing
