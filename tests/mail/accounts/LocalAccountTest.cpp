#include "lorvale/account/local_account.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <thread>

#include "lorvale/defaults.h"
#include "lorvale/platform/user_defaults.h"
#include "tests/support/AccountSupport.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/StoreSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
namespace fs = std::filesystem;

class LocalAccountTest : public AccountTest {
protected:
    LocalAccountTest() { fs::create_directories(mail); }

    void makeFolders(std::initializer_list<std::string_view> names) const {
        for (const auto name : names) fs::create_directories(mail / name);
    }
    AccountItemShare item(const std::string& name) const {
        return std::make_shared<const AccountItem>(AccountItem{account, mail / name});
    }
    /// The names below an item, and of what is below them, to any depth.
    std::vector<std::string> tree(const AccountItemShare& below = nullptr) const {
        std::vector<std::string> names;
        for (const auto& each : account->mailboxesForItem(below)) {
            names.push_back(each->path.substr(mail.string().size() + 1));
            if (!account->isItemExpandable(each)) continue;
            for (auto& name : tree(each)) names.push_back(std::move(name));
        }
        return names;
    }
    static void fill(const std::string& path, int messages) {
        const LogCapture quiet;
        const auto store = TarnMbox::initWithPath(path, true, false);
        for (int i = 0; i < messages; ++i)
            ASSERT_TRUE(store->syncAppendMessages({messageOf(mboxMessage("m"))}, true));
        store->close();  // notifications that wait still hold it
    }

    AnsweringAgent agent;
    const fs::path mail = folder / "Mail";
    const std::shared_ptr<LocalAccount> account = LocalAccount::accountWithPath(mail.string());
};

TEST_F(LocalAccountTest, TheFirstOneMadeOwnsTheStoresWithoutAnAccount) {
    EXPECT_EQ(LocalAccount::localAccount(), account);
    EXPECT_NE(LocalAccount::accountWithPath("/elsewhere"), account);
    EXPECT_EQ(MailAccount::defaultAccount(), account);
    EXPECT_EQ(agent.timed, std::vector<TimedFetchObject*>{account.get()}) << "the other one is gone";
    EXPECT_EQ(account->displayName(), "Local Mailboxes");
    const auto active = account->primaryMessageStore();
    ASSERT_TRUE(active);
    EXPECT_EQ(active->storePath(), mail / "Active.mbox");
    EXPECT_EQ(active->storePathRelativeToAccount(), "Active.mbox");
    restart();
    Defaults::sharedInstance().setDefaultMailDirectory(mail.string());
    EXPECT_EQ(LocalAccount::localAccount()->path(), mail);
    EXPECT_NE(LocalAccount::localAccount(), account);
    LocalAccount::localAccount()->setPath("~/Other");
    EXPECT_EQ(Defaults::sharedInstance().defaultMailDirectory(), folder / "Other");
    Defaults::sharedInstance().setDefaultMailDirectory(std::nullopt);
}

TEST_F(LocalAccountTest, ListsMailboxesAndFoldersByName) {
    makeFolders({"b.mbox", "A.mbox", ".hidden", ".x.mbox", "c/d.mbox", "c/e", " trailing .mbox", "\u00E4.mbox",
                 "z\\\n"});
    for (const auto* const name : {"flat.mbox", "plain", ".plain", ".mbox"}) writeFile(mail / name, "");
    fs::create_symlink("nowhere", mail / "lost");
    fs::create_symlink("c", mail / "link");
    const LogCapture quiet;
    EXPECT_THAT(tree(),
                ElementsAre(" trailing .mbox", "A.mbox", "b.mbox", "c", "c/d.mbox", "c/e", "flat.mbox", "link",
                            "link/d.mbox", "link/e", "z\\\n", "\u00E4.mbox", ".hidden", ".mbox", ".x.mbox"));
    EXPECT_EQ(account->displayNameForItem(item("c/d.mbox")), "d");
    EXPECT_EQ(account->displayNameForItem(item("c/d.e")), "d.e");
    EXPECT_TRUE(account->isItemExpandable(nullptr));
    // What was read stays, until it is known to have changed.
    makeFolders({"new.mbox"});
    EXPECT_EQ(tree().size(), 15u);
    EXPECT_EQ(account->itemForStorePath((mail / "c/d.mbox").string())->path, mail / "c/d.mbox");
    EXPECT_EQ(account->itemForStorePath((mail / "new.mbox").string()), nullptr);
    EXPECT_EQ(account->itemForStorePath(mail.string()), nullptr);
    account->setPath(mail.string());
    EXPECT_EQ(account->itemForStorePath((mail / "c/d.mbox").string()), nullptr) << "not read yet";
    EXPECT_EQ(tree().size(), 16u);
}

TEST_F(LocalAccountTest, WalksOnlyOnceRoundACircle) {
    makeFolders({"a/b", "c/in.mbox"});
    fs::create_symlink("../..", mail / "a/b/top");
    fs::create_symlink("..", mail / "a/up");
    fs::create_symlink(".", mail / "self");
    fs::create_symlink("../a", mail / "c/a");
    EXPECT_THAT(tree(), ElementsAre("a", "a/b", "a/b/top", "a/up", "c", "c/a", "c/a/b", "c/a/b/top", "c/a/up",
                                    "c/in.mbox", "self"));
}

TEST_F(LocalAccountTest, FolderThatCannotBeReadIsEmpty) {
    const LogCapture log;
    EXPECT_TRUE(account->mailboxesForItem(item("missing")).empty());
    EXPECT_EQ(log.lines().size(), 0u);
    writeFile(mail / "file", "");
    EXPECT_TRUE(account->mailboxesForItem(item("file")).empty());
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(LocalAccountTest, MakesMailboxesByName) {
    const LogCapture quiet;
    makeFolders({"there"});
    const struct {
        const char* name;
        const char* path;  ///< null: not made
        bool asks = false;
    } rows[] = {
        {"x", "x.mbox"},
        {"x.mbox", "x.mbox"},
        {"x.y", "x.y.mbox"},
        {"there/x", "there/x.mbox"},
        {"/there/lead", "there/lead.mbox"},
        {"a/b/c", "a/b/c.mbox", true},
        {"a/b/d/", "a/b/d.mbox"},
        {"\u00FCber \u65E5\u672C ", "\u00FCber \u65E5\u672C .mbox"},
        {"there/../y", "y.mbox"},
        {"..", "...mbox"},
        {"", nullptr},
        {"//", nullptr},
        {"../out", nullptr},
        {"a/../../out", nullptr},
        {"../Mailbox/out", nullptr},
        {"x.mbox/in", nullptr},
        {"no.mbox/in/in", nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        agent.said.clear();
        const auto made = account->createMailboxNamed(row.name, nullptr);
        EXPECT_EQ(made ? made->path : "", row.path ? (mail / row.path).string() : "");
        EXPECT_TRUE(!row.path || fs::exists(mail / row.path / "mbox"));
        if (row.asks)
            EXPECT_THAT(agent.said, ElementsAre("New Mailbox: The path " + (mail / "a/b").string() +
                                                " does not exist, create it? Create/Cancel"));
        else if (!row.path)
            EXPECT_THAT(agent.said,
                        ElementsAre(std::string("Mailbox creation failed: Could not create mailbox named ") +
                                    row.name + "."));
        else
            EXPECT_THAT(agent.said, ElementsAre());
    }
    EXPECT_EQ(account->createMailboxNamed("z", item("there"))->path, mail / "there/z.mbox");
    EXPECT_EQ(account->createMailboxNamed("in", item("x.mbox")), nullptr);
    EXPECT_FALSE(fs::exists(folder / "out.mbox") || fs::exists(folder / "Mailbox"));
    agent.agrees = false;
    EXPECT_EQ(account->createMailboxNamed("new/x", nullptr), nullptr);
    EXPECT_FALSE(fs::exists(mail / "new"));
}

TEST_F(LocalAccountTest, RemovesMailboxesAndFoldersOnceTheUserAgrees) {
    fill(mail / "a.mbox", 1);
    fill(mail / "f/b.mbox", 1);
    makeFolders({"f/g", "kept.mbox"});
    writeFile(mail / "f/stray", "x");
    fs::create_symlink("../kept.mbox", mail / "f/link.mbox");
    fs::create_symlink("..", mail / "f/up");
    EXPECT_EQ(tree().size(), 7u);
    const auto open = account->storeForItem(item("a.mbox"));
    EXPECT_EQ(open->account(), account);
    agent.agrees = false;
    EXPECT_TRUE(account->removeMailbox(item("a.mbox")));
    EXPECT_THAT(agent.said,
                ElementsAre("Delete Mailbox: Permanently delete mailbox ~/Mail/a.mbox? Delete/Cancel"));
    EXPECT_TRUE(fs::exists(mail / "a.mbox/mbox"));
    agent.agrees = true;
    agent.said.clear();
    EXPECT_TRUE(account->removeMailbox(item("a.mbox")));
    EXPECT_EQ(agent.closed, 1);
    EXPECT_TRUE(open->isClosed());
    EXPECT_TRUE(account->removeMailbox(item("f")));
    EXPECT_TRUE(account->removeMailbox(item("f"))) << "passed over";
    EXPECT_EQ(
        agent.said[1],
        "Delete Mailbox: Permanently delete folder ~/Mail/f and all of the mailboxes in it? Delete/Cancel");
    EXPECT_EQ(agent.said.size(), 2u);
    EXPECT_THAT(tree(), ElementsAre("kept.mbox"));
    account->setPath(mail.string());
    EXPECT_THAT(tree(), ElementsAre("kept.mbox"));
}

TEST_F(LocalAccountTest, LeavesAMailboxThatAnotherProcessHasOpen) {
    const LogCapture quiet;
    fill(mail / "f/a.mbox", 1);
    makeFolders({"f/b.mbox"});
    // Somebody on another machine.
    writeFile(mail / "f/a.mbox/.lock", "elsewhere,anna,mail,1\n");
    account->removeMailbox(item("f"));
    EXPECT_EQ(agent.said.back(), "Delete Mailbox: Unable to delete " + (mail / "f/a.mbox").string());
    EXPECT_THAT(tree(), ElementsAre("f", "f/a.mbox"));
    EXPECT_TRUE(fs::exists(mail / "f/a.mbox/mbox"));
    // One that is dead.
    writeFile(mail / "f/a.mbox/.lock", hostName() + ",anna,mail,2147483647\n");
    account->removeMailbox(item("f"));
    EXPECT_THAT(tree(), ElementsAre());
}

TEST_F(LocalAccountTest, AppendsCopies) {
    const LogCapture quiet;
    fill(mail / "from.mbox", 2);
    fill(mail / "to.mbox", 0);
    const auto source = MessageStore::storeForPath((mail / "from.mbox").string());
    EXPECT_TRUE(account->transferMessages(source->allMessages(), item("to.mbox")));
    EXPECT_FALSE(account->transferMessages(source->allMessages(), nullptr));
    EXPECT_FALSE(account->transferMessages(source->allMessages(), item("none.mbox")));
    const auto target = MessageStore::storeForPath((mail / "to.mbox").string());
    EXPECT_EQ(target->totalCount(), 2u);
    EXPECT_EQ(target->unreadCount(), 0u);
    EXPECT_EQ(account->userInfoForItem(nullptr), std::nullopt);
    EXPECT_EQ((*account->userInfoForItem(item("to.mbox")))["UnreadCount"].string(), "0");
}

TEST_F(LocalAccountTest, NothingButTheMailboxIsLostWhereverTheDiskDies) {
    const LogCapture quiet;
    fill(mail / "f/a.mbox", 3);
    fill(mail / "kept.mbox", 2);
    fs::rename(mail, folder / "Before");
    const std::function<void()> changes[] = {
        [this] { account->removeMailbox(item("f/a.mbox")); },
        [this] { account->removeMailbox(item("f")); },
        [this] { account->createMailboxNamed("g/new", nullptr); },
    };
    for (std::size_t change = 0; change < std::size(changes); ++change) {
        bool done = false;
        for (int allowed = 0; !done; ++allowed) {
            SCOPED_TRACE(std::to_string(change) + " died at " + std::to_string(allowed));
            fs::remove_all(mail);
            fs::copy(folder / "Before", mail, fs::copy_options::recursive);
            account->setPath(mail.string());
            {
                FailingFileSystem disk(static_cast<std::uint64_t>(allowed));
                disk.dieAtChange(allowed);
                done = disk.survives(changes[change]);
                disk.losePower();
            }
            const auto kept = MessageStore::storeForPath((mail / "kept.mbox").string());
            ASSERT_TRUE(kept);
            EXPECT_EQ(bytesOf(kept->allMessages()), std::vector(2, mboxMessage("m")));
            kept->close();
            account->setPath(mail.string());
            if (!fs::exists(mail / "f/a.mbox")) {
                EXPECT_LT(change, 2u);
                continue;
            }
            EXPECT_TRUE(!done || change >= 2);
            fs::remove(mail / "f/a.mbox/.lock");  // of a process that is dead
            const auto other = MessageStore::storeForPath((mail / "f/a.mbox").string());
            ASSERT_TRUE(other);
            EXPECT_EQ(bytesOf(other->allMessages()), std::vector(3, mboxMessage("m")));
            other->close();
        }
    }
}

TEST_F(LocalAccountTest, MovedMessagesAreInOneMailboxOrInBothWhereverTheProcessIsKilled) {
    const LogCapture quiet;
    fill(mail / "from.mbox", 2);
    fill(mail / "to.mbox", 1);
    fs::rename(mail, folder / "Before");
    const auto move = [this] {
        const auto from = account->storeForItem(item("from.mbox"));
        if (!account->transferMessages(from->allMessages(), item("to.mbox"))) ::_exit(1);
        from->deleteMessages(from->allMessages());
        from->doCompact();
        from->close();
    };
    int kills = 0;
    for (bool done = false; !done; ++kills) {
        fs::remove_all(mail);
        fs::copy(folder / "Before", mail, fs::copy_options::recursive);
        done = survivesKillAtChange(kills, move);
        const auto from = TarnMbox::initWithPath((mail / "from.mbox").string()),
                   to = TarnMbox::initWithPath((mail / "to.mbox").string());
        ASSERT_TRUE(from && to);
        // An append that was cut off may leave a piece.
        const auto whole = [](TarnMbox& box) {
            return std::ranges::count(bytesOf(box.allMessages()), mboxMessage("m"));
        };
        EXPECT_TRUE(whole(*from) == 2 || whole(*to) == 3) << "killed at " << kills;
        EXPECT_GE(whole(*to), 1);
        EXPECT_TRUE(!done || (from->totalCount() == 0 && to->totalCount() == 3));
        from->close();
        to->close();
    }
    EXPECT_GT(kills, 10);
}

using LocalAccountThreads = LocalAccountTest;

TEST_F(LocalAccountThreads, WalkTheTreeWhileItGrowsAndShrinks) {
    constexpr int kRounds = 8;
    const LogCapture quiet;
    makeFolders({"a/b"});
    std::atomic<bool> done = false;
    std::atomic<std::size_t> least = 1000, walks = 0;
    {
        std::vector<std::jthread> walkers(3);
        for (auto& walker : walkers)
            walker = std::jthread([&] {
                while (!done) {
                    const auto count = tree().size();
                    if (count < least) least = count;
                    ++walks;
                    account->setUsername(account->username().value_or("") == "a" ? "b" : "a");
                    account->password(false);
                    static_cast<void>(MailAccount::mailAccounts());
                }
            });
        for (int i = 0; i < kRounds || walks < kRounds; ++i) {
            const auto made = account->createMailboxNamed("a/x" + std::to_string(i), nullptr);
            ASSERT_TRUE(made);
            account->removeMailbox(made);
            EXPECT_TRUE(MailAccount::saveMailAccounts({account}));
        }
        done = true;
    }
    EXPECT_EQ(least, 2u);
    EXPECT_THAT(tree(), ElementsAre("a", "a/b"));
}

}  // namespace
}  // namespace lorvale
