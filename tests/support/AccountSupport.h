#pragma once
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "lorvale/account.h"
#include "lorvale/platform/paths.h"
#include "lorvale/platform/user_defaults.h"
#include "mail/accounts/AccountRegistry.h"
#include "mail/accounts/SharedLocalAccount.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

namespace lorvale::testing {

/// The host, whose user gives the answers that are set, and what it was asked and told.
class AnsweringAgent : public UserAgent {
public:
    AnsweringAgent() { setCurrentUserAgent(this); }
    ~AnsweringAgent() override { setCurrentUserAgent(nullptr); }
    AnsweringAgent(const AnsweringAgent&) = delete;
    AnsweringAgent& operator=(const AnsweringAgent&) = delete;

    void alertUserWithMessage(std::string_view message, std::string_view title) override {
        said.push_back(std::string(title) + ": " + std::string(message));
    }
    bool queryUserForYesNoWithMessage(std::string_view message, std::string_view title, std::string_view yes,
                                      std::string_view no) override {
        said.push_back(std::string(title) + ": " + std::string(message) + " " + std::string(yes) + "/" +
                       std::string(no));
        return agrees;
    }
    std::optional<std::string> queryUserForPasswordWithMessage(std::string_view message,
                                                               bool* remember) override {
        said.emplace_back(message);
        *remember = agrees;
        return password;
    }
    void closeStore(const std::shared_ptr<MessageStore>&) override { ++closed; }
    void registerObjectForTimedFetch(TimedFetchObject& object) override { timed.push_back(&object); }
    void unregisterObjectForTimedFetch(TimedFetchObject& object) override { std::erase(timed, &object); }

    std::vector<std::string> said;
    std::vector<TimedFetchObject*> timed;
    std::optional<std::string> password;
    bool agrees = true;
    int closed = 0;
};

/// Settings and mail of a user of its own, as at the start of a process.
class AccountTest : public ::testing::Test {
protected:
    AccountTest() {
        setHomeDirectory(folder.path().string());
        setConfigurationDirectory((folder / "config").string());
        restart();
    }
    ~AccountTest() override {
        forgetSettings();
        setConfigurationDirectory("");
        setHomeDirectory("");
    }

    /// The settings are read from the disk again, and the accounts from them.
    static void restart() {
        forgetSettings();
        static_cast<void>(UserDefaults::standard().synchronize());
    }
    static PropertyList registry() {
        return UserDefaults::standard().objectForKey("MailAccounts").value_or(PropertyList());
    }
    static PropertyList setAside() {
        return UserDefaults::standard().objectForKey("MailAccountsSetAside").value_or(PropertyList());
    }
    static void setRegistry(const PropertyList& value) {
        ASSERT_TRUE(UserDefaults::standard().update([&](PropertyList::Dictionary& values) {
            values["MailAccounts"] = value;
            values.erase("MailAccountsSetAside");
        }));
        restart();
    }

    const TemporaryFolder folder;

private:
    static void forgetSettings() {
        AccountRegistry::shared().forget();
        forgetLocalAccount();
        // What was set and not written does not belong to the next test.
        static_cast<void>(UserDefaults::standard().synchronize());
    }
};

}  // namespace lorvale::testing
