#include <gmock/gmock.h>

#include "lorvale/platform/notification.h"
#include "tests/support/AccountSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;

class Plain : public MailAccount {
public:
    static std::shared_ptr<Plain> accountWithPath(std::string_view path) { return openAccount<Plain>(path); }
};

class MailAccountTest : public AccountTest {
protected:
    const std::shared_ptr<MailAccount> account = Plain::accountWithPath("~/acc//x/");
};

TEST_F(MailAccountTest, StoresItsSettingsUnderTheirKeys) {
    EXPECT_EQ(account->path(), (folder / "acc/x").string());
    EXPECT_EQ(account->accountInfo(), PropertyList(PropertyList::Dictionary()));
    EXPECT_TRUE(account->shouldAutoFetch());
    EXPECT_EQ(account->connectionSecurity(), ConnectionSecurity::none);
    account->setDisplayName("Work");
    account->setHostname("pop.example");
    account->setUsername("anna");
    account->setPassword("pässword");
    account->setShouldAutoFetch(false);
    account->setConnectionSecurity(ConnectionSecurity::upgraded);
    account->setPort(65535);
    const PropertyList::Dictionary expected = {
        {"AccountName", "Work"}, {"Hostname", "pop.example"},
        {"Username", "anna"},    {"Password", "cMOkc3N3b3Jk\n"},
        {"AutoFetch", false},    {"ConnectionSecurity", "STARTTLS"},
        {"Port", 65535},
    };
    EXPECT_EQ(account->accountInfo(), PropertyList(expected));
    EXPECT_EQ(account->password(false), "pässword");
    EXPECT_FALSE(account->shouldAutoFetch());
    EXPECT_THAT(account->port(), Optional(65535));
    for (const auto nothing : {std::optional<std::string_view>(), std::optional<std::string_view>("")}) {
        account->setHostname(nothing);
        account->setUsername(nothing);
        account->setPassword(nothing);
        account->setDisplayName(nothing);
        EXPECT_EQ(account->accountInfo().dictionary().size(), 3u);
    }
    EXPECT_EQ(account->hostname(), std::nullopt);
    EXPECT_EQ(account->password(false), std::nullopt);
    account->setAccountInfo(
        PropertyList(PropertyList::Dictionary{{"Port", 65536}, {"ConnectionSecurity", "Q"}}));
    EXPECT_EQ(account->port(), std::nullopt);
    EXPECT_EQ(account->connectionSecurity(), ConnectionSecurity::fromStart) << "a word of a later version";
    account->setAccountInfo("no dictionary");
    EXPECT_EQ(account->accountInfo(), PropertyList(PropertyList::Dictionary()));
}

TEST_F(MailAccountTest, BeginsWithTheSettingsInItsDirectory) {
    writeFile(folder / "Info.plist", PropertyList(PropertyList::Dictionary{{"Username", "anna"}}).xml());
    EXPECT_THAT(Plain::accountWithPath("~")->username(), Optional(std::string("anna")));
    writeFile(folder / "Info.plist", "damaged");
    EXPECT_EQ(Plain::accountWithPath("~")->username(), std::nullopt);
}

TEST_F(MailAccountTest, AsksForAPasswordOnceASession) {
    AnsweringAgent agent;
    account->setHostname("h");
    account->setUsername("u");
    EXPECT_EQ(account->password(), std::nullopt);
    EXPECT_THAT(agent.said, ElementsAre("Please enter the password for user \"u\" on host \"h\""));
    agent.password = "secret";
    agent.agrees = false;
    EXPECT_EQ(account->password(false), std::nullopt);
    EXPECT_THAT(account->password(), Optional(std::string("secret")));
    EXPECT_THAT(account->password(), Optional(std::string("secret")));
    EXPECT_EQ(agent.said.size(), 2u);
    ASSERT_TRUE(MailAccount::addAccount(account));
    EXPECT_EQ(registry()[0].dictionary().size(), 4u) << "host, user, class and path";
    account->forgetRememberedPassword();
    EXPECT_EQ(account->password(false), std::nullopt);
    agent.agrees = true;
    EXPECT_THAT(account->password(), Optional(std::string("secret")));
    EXPECT_EQ(registry()[0]["Password"].string(), "c2VjcmV0\n");
    account->forgetRememberedPassword();
    EXPECT_THAT(account->password(false), Optional(std::string("secret")));
    agent.password = std::nullopt;
    EXPECT_EQ(account->promptUserForPassword(), std::nullopt);
}

TEST_F(MailAccountTest, TellsWhenItChanges) {
    int told = 0;
    const auto token = NotificationCenter::defaultCenter().addObserver(
        [&](const Notification& change) {
            ++told;
            EXPECT_EQ(std::any_cast<PropertyList>(change.userInfo.at("Hostname")).string(), "h");
        },
        AccountInfoDidChange, account);
    account->setHostname("h");
    EXPECT_EQ(told, 0);
    account->setPath("~/y");
    account->setAccountInfo(account->accountInfo());
    EXPECT_EQ(told, 2);
    const auto item = std::make_shared<const AccountItem>(AccountItem{account, "x"});
    const auto status = NotificationCenter::defaultCenter().addObserver([&](const Notification&) { ++told; },
                                                                        AccountItemStatusChanged, item);
    account->postStatusChanged(item, std::nullopt);
    account->postStatusChanged(nullptr, PropertyList());
    EXPECT_EQ(told, 2);
    account->postStatusChanged(item, PropertyList());
    EXPECT_EQ(told, 3);
}

TEST_F(MailAccountTest, HasNoMailboxesOfItsOwn) {
    const auto item = std::make_shared<const AccountItem>(AccountItem{account, "a/b.c"});
    EXPECT_EQ(account->displayName(), "Generic Account");
    EXPECT_EQ(account->displayNameForItem(nullptr), "Generic Account");
    EXPECT_EQ(account->displayNameForItem(item), "b.c");
    EXPECT_FALSE(account->isItemExpandable(nullptr) || account->isItemExpandable(item));
    EXPECT_FALSE(account->mailboxesForItem(nullptr).isKnown() || account->storeForItem(nullptr) ||
                 account->doFetchNow(false) || account->removeMailbox(item));
}

}  // namespace
}  // namespace lorvale
