#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "lorvale/platform/user_defaults.h"
#include "tests/support/AccountSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;

class LocalAccountThreads : public AccountTest {};

std::size_t countBelow(LocalAccount& account, const AccountItemShare& item) {
    std::size_t count = 0;
    for (const auto& each : account.mailboxesForItem(item)) {
        ++count;
        if (account.isItemExpandable(each)) count += countBelow(account, each);
    }
    return count;
}

TEST_F(LocalAccountThreads, WalkTheTreeWhileItGrowsAndShrinks) {
    constexpr int kRounds = 8;
    const LogCapture quiet;
    AnsweringAgent agent;
    const auto mail = folder / "Mail";
    std::filesystem::create_directories(mail / "a/b");
    const auto account = LocalAccount::accountWithPath(mail.string());
    std::atomic<bool> done = false;
    std::atomic<std::size_t> least = 1000, walks = 0;
    {
        constexpr int kWalkers = 3;
        std::vector<std::jthread> walkers;
        walkers.reserve(kWalkers);
        for (int i = 0; i < kWalkers; ++i) {
            walkers.emplace_back([&] {
                while (!done) {
                    const auto count = countBelow(*account, nullptr);
                    if (count < least) least = count;
                    ++walks;
                    account->setUsername(account->username().value_or("") == "a" ? "b" : "a");
                    account->password(false);
                    static_cast<void>(MailAccount::mailAccounts());
                }
            });
        }
        for (int i = 0; i < kRounds || walks < kRounds; ++i) {
            const auto made = account->createMailboxNamed("a/x" + std::to_string(i), nullptr);
            ASSERT_TRUE(made);
            account->removeMailbox(made);
            EXPECT_TRUE(MailAccount::saveMailAccounts({account}));
        }
        done = true;
    }
    EXPECT_EQ(least, 2u);
    EXPECT_EQ(countBelow(*account, nullptr), 2u);
}

}  // namespace
}  // namespace lorvale
