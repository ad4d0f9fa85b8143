#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/AccountSupport.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/StoreSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using Array = PropertyList::Array;
using Dictionary = PropertyList::Dictionary;

class AccountRegistryTest : public AccountTest {
protected:
    static std::shared_ptr<MailAccount> account(std::string_view path) {
        return LocalAccount::accountWithPath(path);
    }
    static std::vector<std::string> paths() {
        std::vector<std::string> all;
        for (const auto& one : MailAccount::mailAccounts()) all.push_back(one->path());
        return all;
    }
    /// What another process makes of the registry.
    void elsewhere(const std::function<void(Array&)>& change) const {
        UserDefaults other(processName(), (folder / "config").string());
        ASSERT_TRUE(other.update([&](Dictionary& values) { change(*values["MailAccounts"].get<Array>()); }));
    }
};

TEST_F(AccountRegistryTest, KeepsAccountsOverARestart) {
    const auto a = account("/a"), b = account("/b");
    b->setUsername("anna");
    EXPECT_TRUE(MailAccount::addAccount(a) && MailAccount::addAccount(b) && MailAccount::addAccount(a));
    EXPECT_EQ(MailAccount::mailAccounts(), (std::vector{a, b}));
    restart();
    ASSERT_EQ(paths(), (std::vector<std::string>{"/a", "/b"}));
    const auto again = MailAccount::mailAccounts();
    EXPECT_EQ(MailAccount::mailAccounts(), again);
    EXPECT_EQ(again[1]->username(), "anna");
    EXPECT_FALSE(MailAccount::removeAccount(a)) << "of the time before";
    EXPECT_TRUE(MailAccount::removeAccount(again[0]));
    restart();
    EXPECT_EQ(paths(), std::vector<std::string>{"/b"});
}

const PropertyList kEntry = Dictionary{{"AccountType", "LocalAccount"}, {"AccountPath", "/new"}};

TEST_F(AccountRegistryTest, ReadsWhatItCanAndKeepsTheRest) {
    const LogCapture quiet;
    const PropertyList olderInfo = Dictionary{{"AccountPath", "/d"}, {"Username", "u"}};
    const PropertyList unknown = Dictionary{{"AccountType", "NewsAccount"}, {"AccountPath", "/n"}};
    const PropertyList pathless = Dictionary{{"AccountType", "LocalAccount"}, {"Username", "u"}};
    const PropertyList numeric = Dictionary{{"AccountType", "LocalAccount"}, {"AccountPath", 5}};
    const struct {
        const char* why;
        PropertyList registry;
        std::vector<std::string> paths;
        Array keptBehind = {}, setAside = {};
    } rows[] = {
        {"nothing", Array{}, {}, {}},
        {"an entry", Array{kEntry}, {"/new"}, {}},
        {"older pairs", Array{"LocalAccount", "/p", "LocalAccount", olderInfo}, {"/p", "/d"}, {}},
        {"a pair among entries", Array{kEntry, "LocalAccount", "/p", kEntry}, {"/new", "/p", "/new"}, {}},
        {"half a pair", Array{kEntry, "LocalAccount"}, {"/new"}, {}, {"LocalAccount"}},
        {"stray texts", Array{"LocalAccount", kEntry, "/x"}, {"/new"}, {}, {"LocalAccount", "/x"}},
        {"a class that nobody knows", Array{unknown, kEntry}, {"/new"}, {unknown}},
        {"no path", Array{pathless}, {}, {}, {pathless}},
        {"other kinds",
         Array{1, Array{"x"}, Dictionary{}, kEntry},
         {"/new"},
         {},
         {1, Array{"x"}, Dictionary{}}},
        {"a path that is a number", Array{numeric}, {}, {}, {numeric}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        setRegistry(row.registry);
        EXPECT_EQ(paths(), row.paths);
        EXPECT_TRUE(MailAccount::saveMailAccounts(MailAccount::mailAccounts()));
        EXPECT_EQ(setAside().array(), row.setAside);
        const auto written = registry().array();
        ASSERT_EQ(written.size(), row.paths.size() + row.keptBehind.size());
        for (std::size_t i = 0; i < written.size(); ++i) {
            if (i < row.paths.size())
                EXPECT_EQ(written[i]["AccountPath"].string(), row.paths[i]);
            else
                EXPECT_EQ(written[i], row.keptBehind[i - row.paths.size()]);
        }
    }
}

TEST_F(AccountRegistryTest, SetsAsideWhatIsNoRegistry) {
    const LogCapture quiet;
    for (const auto& value : {PropertyList("damaged"), PropertyList(Dictionary{{"a", 1}})}) {
        setRegistry(value);
        EXPECT_EQ(paths(), std::vector<std::string>());
        EXPECT_TRUE(MailAccount::addAccount(account("/a")));
        EXPECT_EQ(registry().array().size(), 1u);
        EXPECT_EQ(setAside(), PropertyList(Array{value}));
    }
}

TEST_F(AccountRegistryTest, KeepsWhatAnotherProcessChanges) {
    const auto a = account("/a"), b = account("/b"), c = account("/c"), d = account("/d");
    a->setHostname("old");
    ASSERT_TRUE(MailAccount::saveMailAccounts({a, b, c, d}));
    elsewhere([](Array& entries) {
        entries[0].set("Password", "theirs");
        entries[0].set("Hostname", "theirs");
        entries.erase(entries.begin() + 1, entries.begin() + 3);
        entries.push_back(kEntry);
    });
    a->setHostname("ours");
    c->setUsername("ours");
    ASSERT_TRUE(MailAccount::removeAccount(d));
    restart();
    EXPECT_EQ(paths(), (std::vector<std::string>{"/a", "/c", "/new"}))
        << "b was removed there, c changed here meanwhile, d removed here";
    const auto first = MailAccount::mailAccounts()[0];
    EXPECT_EQ(first->hostname(), "ours");
    EXPECT_EQ(first->accountInfo()["Password"].string(), "theirs");
    // One that moves stays one.
    first->setPath("/moved");
    EXPECT_TRUE(first->saveAccountInfo());
    restart();
    EXPECT_EQ(paths(), (std::vector<std::string>{"/moved", "/c", "/new"}));
}

TEST_F(AccountRegistryTest, LetsProcessesAddAccountsAtOnce) {
    constexpr int kProcesses = 4, kEach = 5;
    std::vector<pid_t> children;
    for (int process = 0; process < kProcesses; ++process) {
        const pid_t child = ::fork();
        if (child == 0) {
            bool good = true;
            for (int i = 0; i < kEach; ++i)
                good = MailAccount::addAccount(account("/" + std::to_string(process * kEach + i))) && good;
            ::_exit(good ? 0 : 1);
        }
        children.push_back(child);
    }
    for (const auto child : children) {
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    restart();
    EXPECT_EQ(paths().size(), static_cast<std::size_t>(kProcesses * kEach));
}

TEST_F(AccountRegistryTest, IsTheOldOneOrTheNewOneWhereverTheDiskDies) {
    const LogCapture quiet;
    bool done = false;
    for (int allowed = 0; !done; ++allowed) {
        setRegistry(Array{kEntry, "stray"});
        static_cast<void>(MailAccount::mailAccounts());
        {
            FailingFileSystem disk(static_cast<std::uint64_t>(allowed));
            disk.dieAtChange(allowed);
            done = disk.survives([&] { EXPECT_TRUE(MailAccount::addAccount(account("/a"))); });
            disk.losePower();
        }
        restart();
        const auto now = registry();
        const bool isNew = now[0] == kEntry && now[1]["AccountPath"].string() == "/a" &&
                           setAside() == PropertyList(Array{"stray"});
        const bool isOld = now == PropertyList(Array{kEntry, "stray"}) && setAside().isNull();
        EXPECT_TRUE(isNew || (isOld && !done)) << "died at " << allowed;
    }
}

TEST_F(AccountRegistryTest, TriesAgainWhatCouldNotBeWritten) {
    const LogCapture quiet;
    setRegistry(Array{kEntry});
    {
        FailingFileSystem disk;
        disk.failFromChange(0, ENOSPC);
        EXPECT_FALSE(MailAccount::addAccount(account("/a")));
    }
    EXPECT_EQ(paths().size(), 2u);
    EXPECT_TRUE(MailAccount::addAccount(account("/b")));
    restart();
    EXPECT_EQ(paths(), (std::vector<std::string>{"/new", "/a", "/b"}));
}

}  // namespace
}  // namespace lorvale
