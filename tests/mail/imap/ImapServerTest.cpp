/// Against a real server, in both dialects.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "lorvale/imap.h"
#include "tests/support/LogCapture.h"
#include "tests/support/MailServer.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Optional;

constexpr auto kClassic = MailDialect::classic, kStandard = MailDialect::standard;

std::string letter(int number) {
    return formatText(
        "From: Anna %d <a%d@x.example>\nDate: Fri, 23 Aug 2002 11:04:%02d +0200\nSubject: Letter %d\n\n"
        "Text of %d\n}\n{3}\n",
        number, number, number % 60, number, number);
}

std::string withCRLF(std::string_view text) {
    std::string lines;
    for (const char c : text) lines += c == '\n' ? std::string("\r\n") : std::string(1, c);
    return lines;
}

std::vector<std::string> namesIn(const PropertyList& tree) {
    std::vector<std::string> names;
    for (const auto& [name, mailbox] : tree.dictionary()) names.push_back(name);
    return names;
}

/// One server, on which each dialect has a user of its own.
class ImapServer : public ::testing::Test {
protected:
    void SetUp() override {
        if (!_server.runs()) GTEST_SKIP() << _server.whyNot();
        for (const auto* user : {"anna", "bert"})
            for (int i = 1; i <= 5; ++i) _server.deliver(user, letter(i));
    }
    std::shared_ptr<IMAPConnection> connected(MailDialect dialect) {
        auto connection = IMAPConnection::imapConnection(dialect);
        connection->setPort(_server.port("imap"));
        connection->setTimeout(std::chrono::seconds(10));
        if (!connection->connectToServer("127.0.0.1")) ADD_FAILURE() << "no greeting";
        return connection;
    }
    std::shared_ptr<IMAPConnection> loggedIn(MailDialect dialect) {
        auto connection = connected(dialect);
        EXPECT_TRUE(connection->login(userOf(dialect), "secret"));
        return connection;
    }
    static std::string userOf(MailDialect dialect) { return dialect == kClassic ? "anna" : "bert"; }

    // It makes those wait who came with a wrong password, and whoever comes next from there.
    testing::MailServer _server{{"auth_failure_delay = 0", "service anvil {",
                                 "unix_listener anvil-auth-penalty {", "mode = 0", "}", "}"}};
};

TEST_F(ImapServer, FetchesWhatWasDelivered) {
    for (const auto dialect : {kClassic, kStandard}) {
        const auto connection = loggedIn(dialect);
        EXPECT_TRUE(connection->hasCapability("imap4rev1"));
        const std::string_view items[] = {"MESSAGES", "UNSEEN", "UIDNEXT", "UIDVALIDITY"};
        const auto status = connection->status("INBOX", items);
        ASSERT_TRUE(status.has_value());
        EXPECT_EQ((*status)["MESSAGES"].string(), "5");
        EXPECT_EQ((*status)["UIDNEXT"].string(), "6");
        const auto opened = connection->selectMailbox("INBOX");
        ASSERT_TRUE(opened.has_value());
        EXPECT_EQ((*opened)["READ-WRITE"].string(), "READ-WRITE");
        EXPECT_EQ((*opened)["UIDVALIDITY"].string(), (*status)["UIDVALIDITY"].string());

        const IMAPConnection::Numbers all{1, 2, 3, 4, 5};
        EXPECT_THAT(connection->fetchUIDs(all), Optional(ElementsAre("1", "2", "3", "4", "5")));
        const auto sizes = connection->fetchSizes({1, 2});
        EXPECT_THAT(sizes, Optional(ElementsAre(std::to_string(withCRLF(letter(1)).size()),
                                                std::to_string(withCRLF(letter(2)).size()))));
        const auto envelopes = connection->fetchEnvelopes({3});
        ASSERT_TRUE(envelopes && envelopes->size() == 1u);
        EXPECT_EQ(envelopes->front().textForKey("subject"), "Letter 3");
        EXPECT_EQ(envelopes->front().textForKey("from"), "\"Anna 3\" <a3@x.example>");
        const auto infos = connection->fetchMessageCacheInfo(all);
        ASSERT_TRUE(infos && infos->size() == 5u);
        EXPECT_EQ((*infos)[4].envelope.textForKey("subject"), "Letter 5");
        EXPECT_EQ((*infos)[4].size, withCRLF(letter(5)).size());
        EXPECT_EQ(infos->front().envelope.find("date"), connection->fetchEnvelopes({1})->front().find("date"));
        EXPECT_THAT(connection->fetchRawData({2, 1}, false), Optional(ElementsAre(letter(2), letter(1))));
        EXPECT_TRUE(connection->fetchBodyStructures({1})->front().isList());
        // What makes a message read tells its flags first, and the classic dialect looks at the first item
        // alone.
        const testing::LogCapture log;
        EXPECT_EQ(connection->fetchRawData({4}, true).has_value(), dialect == kStandard);
        EXPECT_THAT(connection->fetchRawData({4}, true), Optional(ElementsAre(letter(4))));
    }
}

TEST_F(ImapServer, ListsAndChangesMailboxes) {
    for (const auto dialect : {kClassic, kStandard}) {
        const auto connection = loggedIn(dialect);
        const auto separator = connection->separatorChar();
        ASSERT_FALSE(separator.empty());
        EXPECT_TRUE(connection->createMailbox("Box" + separator + "Inner box"));
        EXPECT_TRUE(connection->renameMailbox("Box", "New box"));
        auto tree = connection->list("\"\"", "*");
        ASSERT_TRUE(tree.has_value());
        EXPECT_THAT(namesIn(*tree), ElementsAre("INBOX", "New box"));
        EXPECT_THAT(namesIn((*tree)["New box"][IMAPMailboxChildren]), ElementsAre("Inner box"));
        EXPECT_TRUE(connection->deleteMailbox("New box" + separator + "Inner box"));
        EXPECT_FALSE(connection->deleteMailbox("Never was"));
        if (dialect == kClassic) continue;
        for (const auto* name : {"Entwürfe & so", "a\"b", "台北"}) {
            EXPECT_TRUE(connection->createMailbox(name));
            EXPECT_TRUE(connection->selectMailbox(name).has_value());
            tree = connection->list("", "%");
            EXPECT_THAT(namesIn(*tree), Contains(name));
            const std::string_view items[] = {"MESSAGES"};
            EXPECT_EQ((*connection->status(name, items))["MESSAGES"].string(), "0");
        }
    }
}

TEST_F(ImapServer, RefusesWhatIsWrong) {
    for (const auto dialect : {kClassic, kStandard}) {
        const auto connection = loggedIn(dialect);
        const auto other = connected(dialect);
        std::string error;
        EXPECT_FALSE(other->login(userOf(dialect), "wrong", &error));
        EXPECT_THAT(error, ::testing::StartsWith("IMAP command LOGIN failed with status: "));
        EXPECT_FALSE(connection->selectMailbox("Nowhere", &error).has_value());
        EXPECT_THAT(error, ::testing::StartsWith("IMAP command SELECT failed with status: "));
        EXPECT_EQ(connection->connectionState(), IMAPConnection::State::loggedIn);
        EXPECT_FALSE(connection->fetchUIDs({1}).has_value());
        EXPECT_FALSE(connection->appendData("x", "Nowhere"));
        // Read only: the server says so, or lets nothing happen.
        ASSERT_TRUE(connection->examineMailbox("INBOX").has_value());
        connection->storeFlag("\\Seen", true, {3});
        EXPECT_THAT(connection->search("UNSEEN"), Optional(::testing::SizeIs(5)));
        const testing::LogCapture log;
        EXPECT_FALSE(connection->copyMessageNumbers({1}, "Nowhere"));
        EXPECT_EQ(log.lines().size(), 1u);
        if (dialect == kClassic) continue;
        EXPECT_TRUE(other->authenticatePlain(userOf(dialect), "secret"));
    }
}

TEST_F(ImapServer, IsSpokenToInSecretWhereTheHostWishes) {
    using Security = IMAPConnection::Security;
    const TLSSettings trusted{_server.certificate().string()};
    for (const auto& [security, port] :
         {std::pair(Security::startTLS, "imap"), std::pair(Security::tls, "imaps")}) {
        for (const auto dialect : {kClassic, kStandard}) {
            testing::LogCapture log;
            const auto connection = IMAPConnection::imapConnection(dialect);
            connection->setTimeout(std::chrono::seconds(10));
            connection->setPort(_server.port(port));
            connection->setSecurity(security);
            EXPECT_EQ(connection->connectToServer("127.0.0.1"), std::nullopt);
            EXPECT_EQ(connection->connectionState(), IMAPConnection::State::notConnected);
            EXPECT_EQ(log.take().size(), 1u);
            connection->setSecurity(security, trusted);
            EXPECT_TRUE(connection->connectToServer("127.0.0.1").has_value());
            EXPECT_TRUE(connection->login(userOf(dialect), "secret"));
            EXPECT_TRUE(connection->selectMailbox("INBOX").has_value());
        }
    }
}

}  // namespace
}  // namespace lorvale
