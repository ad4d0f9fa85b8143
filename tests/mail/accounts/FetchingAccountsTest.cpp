/// Mail that comes by an account: from a server, and from the system's spool.
#include <gmock/gmock.h>

#include "lorvale/defaults.h"
#include "lorvale/mime.h"
#include "tests/mail/fetch/FetchSupport.h"
#include "tests/support/AccountSupport.h"
#include "tests/support/MailServer.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
namespace fs = std::filesystem;

class FetchingAccounts : public AccountTest {
protected:
    FetchingAccounts() {
        UserDefaults::standard().setArgument("MailDir", (folder / "Mail").string());
        setMailDialect(MailDialect::standard);
    }
    ~FetchingAccounts() override {
        setMailDialect(MailDialect::classic);
        UserDefaults::standard().removeArguments();
    }
    /// The subjects in the mailbox for new mail, each with a "*" where it is unread.
    std::vector<std::string> arrived() const {
        const auto active = LocalAccount::localAccount()->primaryMessageStore();
        std::vector<std::string> all;
        for (const auto& message : active->allMessages())
            all.push_back((message->currentFlags()->isRead() ? "" : "*") + message->headers()->subject());
        active->close();
        return all;
    }

    AnsweringAgent agent;
};

TEST_F(FetchingAccounts, BringWhatAServerHas) {
    MailServer server;
    if (!server.runs()) GTEST_SKIP() << server.whyNot();
    server.deliver("anna", "From: a@b.example\nSubject: zymurgy\n\nhello\n");
    {
        const auto account = POPAccount::accountWithPath((folder / "pop").string());
        account->setHostname("127.0.0.1");
        account->setUsername("anna");
        account->setPassword("secret");
        account->setPort(server.port("pop3s"));
        account->setConnectionSecurity(ConnectionSecurity::fromStart);
        account->setCertificateAuthorities(server.certificate().string());
        account->setDeleteMessagesOnServer(true);
        account->setShouldAutoFetch(false);
        ASSERT_TRUE(MailAccount::addAccount(account));
    }
    restart();
    ASSERT_EQ(MailAccount::mailAccounts().size(), 1u);
    const auto account = std::dynamic_pointer_cast<POPAccount>(MailAccount::mailAccounts()[0]);
    ASSERT_TRUE(account);
    EXPECT_FALSE(account->doFetchNow(/*automatically=*/true));
    EXPECT_TRUE(account->doFetchNow(/*automatically=*/false));
    runMainLoopUntil([&] { return !account->fetcher()->isFetching(); }, 60);
    EXPECT_EQ(account->fetcher()->failures(), std::vector<std::string>());
    EXPECT_THAT(arrived(), ElementsAre("*zymurgy"));
    EXPECT_EQ(server.messagesOf("anna").size(), 0u);
    EXPECT_THAT(agent.said, ElementsAre());
    // It goes in the middle of a fetch, and nobody asks it any more.
    server.deliver("anna", "From: a@b.example\nSubject: second\n\nhello\n");
    const auto fetcher = account->fetcher();
    account->setShouldAutoFetch(true);
    EXPECT_TRUE(account->doFetchNow(true));
    account->setPath((folder / "other").string());
    EXPECT_TRUE(fetcher->isClosed());
    EXPECT_EQ(fetcher->account(), nullptr);
    EXPECT_NE(account->fetcher(), fetcher);
}

TEST_F(FetchingAccounts, TellWhoTheyAre) {
    const auto account = POPAccount::accountWithPath((folder / "pop").string());
    EXPECT_EQ(account->displayName(), "POP Account");
    EXPECT_FALSE(account->doFetchNow(false)) << "no host";
    account->setHostname("h");
    EXPECT_EQ(account->displayName(), "POP: h");
    EXPECT_FALSE(account->doFetchNow(false)) << "no user";
    EXPECT_THAT(agent.said, ElementsAre()) << "nobody is asked for a password of whom?";
    account->setUsername("u");
    EXPECT_FALSE(account->doFetchNow(false)) << "no password";
    EXPECT_TRUE(account->showProgressPanel() && account->onlyFetchUnseenMessages());
    EXPECT_FALSE(account->deleteMessagesOnServer());
    account->setShowProgressPanel(false);
    account->setOnlyFetchUnseenMessages(false);
    account->setConnectionSecurity(ConnectionSecurity::upgraded);
    EXPECT_EQ(account->accountInfo(),
              PropertyList(PropertyList::Dictionary{{"Hostname", "h"},
                                                    {"Username", "u"},
                                                    {"HideProgressPanel", true},
                                                    {"AlwaysFetchAllMessages", true},
                                                    {"ConnectionSecurity", "STARTTLS"}}));
    EXPECT_EQ(account->fetchSecurity(), POP3Security::startTLS);
    EXPECT_EQ(account->fetchPort(), 0);
    account->setDisplayName("Work");
    EXPECT_EQ(account->displayName(), "Work");
}

TEST_F(FetchingAccounts, TakeWhatTheSystemDelivers) {
    const auto account = LocalAccount::localAccount();
    EXPECT_FALSE(account->doFetchNow(false)) << "no spool";
    fs::create_directories(folder / "spool");
    account->setIncomingSpoolDirectory((folder / "spool").string());
    EXPECT_FALSE(account->doFetchNow(false)) << "no mail";
    const auto file = folder / "spool" / loginName();
    writeFile(file, mboxMessage("a") + mboxMessage("b"));
    EXPECT_TRUE(account->doFetchNow(false));
    runMainLoopUntil([&] { return !fs::exists(file); });
    EXPECT_THAT(arrived(), ElementsAre("*about a", "*about b"));
    account->setShouldAutoFetch(false);
    EXPECT_FALSE(account->doFetchNow(true));
}

}  // namespace
}  // namespace lorvale
