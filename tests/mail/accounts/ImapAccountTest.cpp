/// An account on a real server: its tree, its mailboxes, and what it does without the server.

#include <gmock/gmock.h>

#include "lorvale/imap.h"
#include "lorvale/message.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/store.h"
#include "tests/support/AccountSupport.h"
#include "tests/support/MailServer.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;

constexpr auto kClassic = MailDialect::classic, kStandard = MailDialect::standard;

class ImapAccountThreads : public testing::AccountTest {
protected:
    void SetUp() override {
        if (!_server.runs()) GTEST_SKIP() << _server.whyNot();
        _server.deliver("anna", "Subject: One\n\nText\n");
        _server.deliver("anna", "Subject: Two\n\nText\n");
    }
    void TearDown() override { setMailDialect(kClassic); }

    std::shared_ptr<IMAPAccount> open(MailDialect dialect, std::string_view password = "secret") {
        setMailDialect(dialect);
        auto account = IMAPAccount::accountWithPath((folder / "account").string());
        account->setHostname("127.0.0.1");
        account->setPort(_server.port("imap"));
        account->setUsername("anna");
        account->setPassword(password);
        return account;
    }
    static std::vector<std::string> below(IMAPAccount& account, const AccountItemShare& item = nullptr) {
        std::vector<std::string> names;
        for (const auto& each : account.mailboxesForItem(item)) names.push_back(each->path);
        return names;
    }
    static std::shared_ptr<IMAPStore> settled(const std::shared_ptr<MessageStore>& store) {
        auto opened = std::dynamic_pointer_cast<IMAPStore>(store);
        if (opened) opened->waitUntilSynchronized();
        return opened;
    }

    testing::MailServer _server{{"namespace inbox {", "inbox = yes", "separator = /", "}", "service anvil {",
                                 "unix_listener anvil-auth-penalty {", "mode = 0", "}", "}"}};
    testing::AnsweringAgent _agent;
};

TEST_F(ImapAccountThreads, ShowsAndChangesTheTreeOfTheServer) {
    for (const auto dialect : {kClassic, kStandard}) {
        SCOPED_TRACE(dialect == kClassic ? "classic" : "standard");
        const LogCapture log;
        const auto account = open(dialect);
        EXPECT_EQ(account->displayName(), "IMAP: 127.0.0.1");
        EXPECT_EQ(below(*account).back(), "INBOX");
        const auto made = account->createMailboxNamed("My Work", nullptr);
        ASSERT_TRUE(made);
        EXPECT_EQ(account->itemForStorePath("My Work"), made);
        const auto child = account->createMailboxNamed("Lists", made);
        ASSERT_TRUE(child);
        EXPECT_EQ(account->displayNameForItem(child), "Lists");
        EXPECT_THAT(below(*account, made), ElementsAre(child->path));
        EXPECT_TRUE(account->isItemExpandable(made));
        EXPECT_FALSE(account->isItemExpandable(child));
        EXPECT_EQ(account->createMailboxNamed("My Work", nullptr), nullptr);
        EXPECT_THAT(_agent.said.back(), HasSubstr("Could not create mailbox named My Work."));

        const auto inbox = account->itemForStorePath("INBOX");
        EXPECT_EQ((*account->userInfoForItem(inbox))[MessageStoreTotalCount].string(), "2");
        const auto store = settled(account->primaryMessageStore());
        ASSERT_TRUE(store);
        EXPECT_EQ(account->primaryMessageStore(), store);
        EXPECT_EQ(account->itemForStore(*store), inbox);
        EXPECT_EQ(store->totalCount(), 2u);
        const auto target = settled(account->storeForItem(child));
        EXPECT_TRUE(account->transferMessages(store->allMessages(), child));
        settled(target);
        EXPECT_TRUE(account->transferMessages(
            MessageList{Message::messageWithData(Data::ofStatic("Subject: Three\n\nText\n"))}, child));
        EXPECT_EQ(settled(target)->totalCount(), 3u);
        EXPECT_FALSE(account->transferMessages({}, child));

        // In the classic dialect a mailbox goes alone, in the standard one with those below it.
        _agent.agrees = false;
        account->removeMailbox(made);
        EXPECT_EQ(_agent.closed, 0);
        _agent.agrees = true;
        account->removeMailbox(dialect == kClassic ? child : made);
        EXPECT_EQ(std::exchange(_agent.closed, 0), 1);
        EXPECT_TRUE(target->isClosed());
        if (dialect == kClassic) account->removeMailbox(made);
        EXPECT_THAT(below(*account), Not(Contains("My Work")));
        EXPECT_FALSE(std::filesystem::exists(folder / "account/My Work"));
        store->close();
    }
}

TEST_F(ImapAccountThreads, ServesWhatItKnowsWithoutTheServer) {
    const LogCapture log;
    {
        const auto account = open(kStandard);
        ASSERT_TRUE(account->createMailboxNamed("Work/Cooks", nullptr));
        ASSERT_TRUE(settled(account->storeForItemPath("Work/Cooks")));
        settled(account->primaryMessageStore())->close();
    }
    const auto account = open(kStandard);
    account->setOffline(true);
    EXPECT_THAT(account->displayName(), HasSubstr(" (Offline)"));
    EXPECT_THAT(below(*account), ElementsAre("INBOX", "Work"));
    const auto work = account->mailboxesForItem(nullptr)[1];
    EXPECT_TRUE(account->isItemExpandable(work));
    EXPECT_FALSE(account->isItemExpandable(account->mailboxesForItem(nullptr)[0]));
    EXPECT_THAT(below(*account, work), ElementsAre("Work/Cooks"));
    EXPECT_EQ((*account->userInfoForItem(account->mailboxesForItem(nullptr)[0]))["TotalCount"].string(), "2");
    const auto store = settled(account->primaryMessageStore());
    EXPECT_EQ(store->totalCount(), 2u);
    EXPECT_FALSE(store->isConnected());
    store->close();
    for (const auto* name : {"../outside", "a/../../b", "INBOX/CachedMessages", "INBOX/mbox.index", ""})
        EXPECT_EQ(account->storeForItemPath(name), nullptr) << name;
}

TEST_F(ImapAccountThreads, AsksForAPasswordUntilThereIsNone) {
    const LogCapture log;
    auto account = open(kStandard, "");
    _agent.password = "secret";
    ASSERT_TRUE(account->connection());
    EXPECT_EQ(_agent.said.size(), 1u);
    account->closeConnection(account->connection());
    account = open(kStandard, "wrong");
    _agent.said.clear();
    ASSERT_TRUE(account->connection());
    EXPECT_THAT(_agent.said, ElementsAre(HasSubstr("IMAP Message"), HasSubstr("Please enter the password")));
    account = open(kStandard, "");
    _agent.password.reset();
    EXPECT_EQ(account->connection(), nullptr);
    EXPECT_THAT(account->displayName(), HasSubstr(" (Offline)"));
    _agent.said.clear();
    EXPECT_THAT(below(*account), IsEmpty());
    EXPECT_THAT(_agent.said, IsEmpty());
}

TEST_F(ImapAccountThreads, KeepsItsSettings) {
    const auto account = open(kClassic);
    EXPECT_EQ(account->cachePolicy(), IMAPCachePolicy::allMessages);
    for (const auto policy : {IMAPCachePolicy::noMessages, IMAPCachePolicy::messagesAsRead}) {
        account->setCachePolicy(policy);
        EXPECT_EQ(account->cachePolicy(), policy);
    }
    account->setCachePolicy(IMAPCachePolicy{7});
    EXPECT_EQ(account->accountInfo()["CachePolicy"].string(), "CacheAllMessages");
    account->setCompactWhenClosingMailboxes(true);
    MailAccount::addAccount(account);
    restart();
    const auto again = std::dynamic_pointer_cast<IMAPAccount>(MailAccount::mailAccounts().back());
    ASSERT_TRUE(again);
    EXPECT_TRUE(again->compactWhenClosingMailboxes());
    EXPECT_FALSE(again->doFetchNow(false));
}

}  // namespace
}  // namespace lorvale
