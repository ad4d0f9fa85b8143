#include "lorvale/platform/tls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/FailureText.h"
#include "tests/support/ScriptedPeer.h"
#include "tests/support/TestSupport.h"

namespace lorvale::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::AnyOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class Tls : public ::testing::Test {
protected:
    Tls() { _authority.writeTo(_folder / "authority.pem"); }

    TLSSettings settings() const { return {.authorities = _folder / "authority.pem"}; }
    /// What the handshake with a server of that identity ends in.
    std::string refusal(TestIdentity identity, const std::string& host, const TLSSettings& settings) {
        ScriptedPeer peer({"T"}, ScriptedPeer::Pace::whole, std::move(identity));
        const auto socket = peer.connect();
        return reasonOf([&] { startTLS(*socket, host, settings); });
    }

    const TemporaryFolder _folder;
    const TestAuthority _authority;
};

TEST_F(Tls, SecuresAConnectionBetweenTwoLines) {
    for (const auto pace : {ScriptedPeer::Pace::whole, ScriptedPeer::Pace::byteByByte}) {
        const std::string large(pace == ScriptedPeer::Pace::whole ? 3'000'000 : 3'000, 'x');
        ScriptedPeer peer(
            {"C: STARTTLS", "S: 220 go ahead", "T", "C: hello", "S: 250 hi", ".", "S: " + large, "X"}, pace,
            _authority.issue("DNS:mail.example"));
        const auto socket = peer.connect();
        socket->setTimeout(10s);
        socket->writeData("STARTTLS\r\n");
        std::string line;
        EXPECT_TRUE(socket->readLine(line));
        startTLS(*socket, "mail.example", settings());
        const std::string_view pieces[] = {"he", "", "llo\r\n"};
        socket->writeData(pieces);
        EXPECT_TRUE(socket->readLine(line));
        EXPECT_EQ(line, "220 go ahead\r\n250 hi\r\n");
        std::vector<std::string_view> many(10'000, "many short pieces\r\n");
        many.push_back(large);
        many.push_back("\r\n.\r\n");
        socket->writeData(many);
        line.clear();
        EXPECT_TRUE(socket->readLine(line));
        EXPECT_EQ(line.size(), large.size() + 2);
        EXPECT_EQ(socket->readAvailableData(), std::nullopt);
        EXPECT_EQ(peer.firstSurprise(), "");
        ASSERT_EQ(peer.texts().size(), 1U);
        EXPECT_EQ(peer.texts()[0].size(), 190'000 + large.size() + 5);
    }
}

TEST_F(Tls, RefusesACertificateItCannotTrust) {
    const auto good = _authority.issue("DNS:mail.example,DNS:*.example.org,IP:127.0.0.1");
    TestAuthority other;
    other.writeTo(_folder / "other.pem");
    const struct {
        const char *why, *host, *says;
        TestIdentity identity;
        TLSSettings trusting;
    } rows[] = {
        {"its name", "mail.example", "", good, settings()},
        {"its address", "127.0.0.1", "", good, settings()},
        {"a name of its domain", "pop.example.org", "", good, settings()},
        {"another name", "mail.example.net", "ostname mismatch", good, settings()},
        {"a deeper name", "a.pop.example.org", "ostname mismatch", good, settings()},
        {"another address", "127.0.0.2", "IP address mismatch", good, settings()},
        {"too late", "mail.example", "expired", _authority.issue("DNS:mail.example", -1), settings()},
        {"another authority",
         "mail.example",
         "signature failure",
         good,
         {.authorities = _folder / "other.pem"}},
        {"the system's authorities", "mail.example", "local issuer", good, {}},
        {"no such file", "mail.example", "could not be read", good, {.authorities = _folder / "none.pem"}},
        {"no name", "", "No certificate can be for", good, settings()},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const auto reason = refusal(row.identity, row.host, row.trusting);
        EXPECT_THAT(reason, HasSubstr(row.says));
        EXPECT_EQ(reason.empty(), *row.says == '\0');
    }
}

TEST_F(Tls, EndsWithAServerThatDoesNotPlayAlong) {
    const struct {
        std::vector<std::string> script;
        ::testing::Matcher<std::string> says;
    } rows[] = {
        {{"s: 500 what?\r\n and more text", "W"},
         StartsWith("TLSException: mail.example has sent text before")},
        // Who hangs up on bytes that it has not read resets the connection, now and then before they are sent.
        {{"s: 22", "s: 0 y\r\n", "X"},
         AnyOf(StartsWith("TLSException: The secured connection to mail.example "),
               EndsWith(": Connection reset by peer"))},
        {{"s: 220 y\r\n", "W"}, StartsWith("SocketTimeoutException: ")},
    };
    for (const auto& row : rows) {
        ScriptedPeer peer(row.script);
        const auto socket = peer.connect();
        socket->setTimeout(100ms);
        std::string line;
        EXPECT_TRUE(socket->readLine(line));
        EXPECT_THAT(reasonOf([&] { startTLS(*socket, "mail.example", settings()); }), row.says);
    }
    ScriptedPeer plain({"s: garbage in place of a handshake\r\n", "W"});
    const auto socket = plain.connect();
    EXPECT_THROW(startTLS(*socket, "mail.example", settings()), TLSException);
}

}  // namespace
}  // namespace lorvale::testing
