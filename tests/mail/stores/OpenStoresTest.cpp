#include <gmock/gmock.h>

#include <barrier>
#include <thread>

#include "lorvale/platform/exception.h"
#include "tests/support/ListStore.h"
#include "tests/support/StoreSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
namespace fs = std::filesystem;

TEST(StoreClasses, TheFirstThatIsWillingOpensAndElseTheDefaultOne) {
    const TemporaryFolder folder;
    const auto path = folder.path().string();  // a directory: no class of our own is willing
    std::string opened;
    const auto storeClass = [&](std::string name, float willingness) {
        return StoreClass{name, [=](const std::string& asked) { return asked == path ? willingness : 0.0F; },
                          [&opened, name](const std::string& place, bool, bool, const auto&) {
                              opened += name;
                              return ListStore::initWithPath(place);
                          }};
    };
    const auto usual = MessageStore::defaultStoreClass().value();
    MessageStore::registerDefaultStoreClass(storeClass("default ", 0));
    EXPECT_FALSE(MessageStore::storeForPath(path));
    EXPECT_TRUE(MessageStore::storeForPath(path, true));
    for (const auto* const name : {"first ", "second "})
        EXPECT_TRUE(MessageStore::registerStoreClass(storeClass(name, 0.5F)));
    for (const auto* const name : {"first ", "second "}) {
        EXPECT_TRUE(MessageStore::storeForPath(path, true));
        MessageStore::unregisterStoreClass(name);
    }
    EXPECT_EQ(opened, "default first second ");
    MessageStore::registerDefaultStoreClass(usual);
}

TEST(OpenStores, AreFoundByAnyPathAsLongAsSomebodyHoldsThem) {
    const TemporaryFolder folder;
    writeFile(folder / "inbox", mboxMessage("ann"));
    fs::create_symlink(folder / "inbox", folder / "link");
    auto store = MessageStore::storeForPath(std::string(folder / "link"));
    ASSERT_TRUE(store);
    const auto around = std::string(folder / "x/../inbox");
    EXPECT_EQ(MessageStore::storeForPath(around, true, true), store) << "whatever else is asked for";
    EXPECT_EQ(MessageStore::currentlyOpenStoreForPath(std::string(folder / "inbox")), store);
    store->close();
    EXPECT_FALSE(MessageStore::currentlyOpenStoreForPath(around));
    store = MessageStore::storeForPath(around);
    EXPECT_FALSE(store->isClosed());
    const std::weak_ptr<MessageStore> gone = store;
    store.reset();
    EXPECT_TRUE(gone.expired());
    EXPECT_FALSE(MessageStore::currentlyOpenStoreForPath(around));
    EXPECT_FALSE(fs::exists(folder / "inbox.lock"));
}

TEST(OpenStores, KeepTheirPlaceWhenTheDirectoryChanges) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "box");
    const auto before = fs::current_path();
    fs::current_path(folder.path());
    const auto store = ListStore::initWithPath("box");
    MessageStore::registerOpenStore(store);
    const auto yetToBeMade = ListStore::initWithPath("new");
    MessageStore::registerOpenStore(yetToBeMade);
    store->userInfo().set("Kept", "yes");
    fs::current_path(before);
    EXPECT_EQ(MessageStore::currentlyOpenStoreForPath(std::string(folder / "new")), yetToBeMade);
    EXPECT_EQ(MessageStore::currentlyOpenStoreForPath(std::string(folder / "box")), store);
    store->close();
    EXPECT_FALSE(MessageStore::currentlyOpenStoreForPath(std::string(folder / "box")));
    EXPECT_TRUE(fs::exists(folder / "box/Info.plist"));
    MessageStore::registerOpenStore(store);
    MessageStore::registerOpenStore(nullptr);
    EXPECT_FALSE(MessageStore::currentlyOpenStoreForPath(std::string(folder / "box"))) << "it is closed";
}

TEST(OpenStores, DoNotHandOutAStoreThatIsClosing) {
    class Asking : public ListStore {
    public:
        void willClose() override { found = currentlyOpenStoreForPath(storePath()); }
        static std::shared_ptr<Asking> open(const std::string& path) {
            return openStore<Asking>(path, false, false, nullptr);
        }
        std::shared_ptr<MessageStore> found;
    };
    const TemporaryFolder folder;
    const auto store = Asking::open(folder.path().string());
    MessageStore::registerOpenStore(store);
    EXPECT_EQ(MessageStore::currentlyOpenStoreForPath(store->storePath()), store);
    store->close();
    EXPECT_FALSE(store->found);
}

TEST(StoreOpening, TellsWhyItFailed) {
    using enum OpeningFailure::Reason;
    const TemporaryFolder folder;
    fs::create_directory(folder / "folder");
    writeFile(folder / "mbox", mboxMessage("ann"));
    writeFile(folder / "locked", mboxMessage("ann"));
    writeFile(folder / "locked.lock", "elsewhere.example,ann,mail,1\n");
    const struct {
        const char* name;
        std::function<std::shared_ptr<MessageStore>(const std::string&)> open;
        OpeningFailure::Reason reason;
    } rows[] = {
        {"mbox", [](const auto& path) { return MessageStore::storeForPath(path); }, none},
        {"none", [](const auto& path) { return MessageStore::storeForPath(path); }, noClass},
        {"none", [](const auto& path) { return BerkeleyMbox::initWithPath(path); }, missing},
        {"folder", [](const auto& path) { return BerkeleyMbox::initWithPath(path); }, unreadable},
        {"locked", [](const auto& path) { return MessageStore::storeForPath(path); }, locked},
        {"mbox", [](const auto& path) { return BerkeleyMbox::initWithPath(path); }, none},
        {"mbox", [](const auto&) { return MessageStore::storeForPath("", true); }, emptyPath},
        {"mbox", [](const auto&) { return BerkeleyMbox::initWithPath(""); }, emptyPath},
    };
    const WindowHost host;
    const LogCapture log;
    for (const auto& row : rows) {
        const std::string path = folder / row.name;
        const auto store = row.open(path);
        EXPECT_EQ(MessageStore::openingFailure().reason, row.reason) << path;
        EXPECT_EQ(static_cast<bool>(MessageStore::openingFailure()), store == nullptr);
        if (row.reason != none && row.reason != emptyPath) {
            EXPECT_THAT(MessageStore::openingFailure().text, HasSubstr(path));
        }
    }
}

// A subclass may well take its lock before the base step, and may throw.
TEST(StoreOpening, LeavesNothingBehindWhenItIsGivenUp) {
    class Locking : public MessageStore {
    public:
        static std::shared_ptr<Locking> open(const std::string& path, bool throws) {
            return openStore<Locking>(path, throws, false, nullptr);
        }
        void close() override {
            if (isClosed()) return;
            MessageStore::close();
            fs::remove(_lock);
        }

    protected:
        bool openAtPath(std::string_view path, bool throws, bool,
                        const std::shared_ptr<MailAccount>&) override {
            _lock = std::string(path) + "/.lock";
            EXPECT_TRUE(createLock(_lock));
            if (throws) throw GenericException("given up");
            return false;
        }

    private:
        std::string _lock;
    };
    const TemporaryFolder folder;
    const LogCapture log;
    EXPECT_FALSE(Locking::open(folder.path().string(), false));
    EXPECT_FALSE(fs::exists(folder / ".lock"));
    EXPECT_EQ(MessageStore::openingFailure().reason, OpeningFailure::Reason::other);
    EXPECT_THROW(Locking::open(folder.path().string(), true), GenericException);
    EXPECT_FALSE(fs::exists(folder / ".lock"));
}

TEST(OpenStoresThreads, OpenFindAndCloseAtOnce) {
    const TemporaryFolder folder;
    for (const auto name : {"a", "b"}) writeFile(folder / name, mboxMessage(name));
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            const std::string path = folder / (i % 2 == 0 ? "a" : "b");
            for (int round = 0; round < 100; ++round) {
                auto store = BerkeleyMbox::initWithPath(path, true);
                MessageStore::registerOpenStore(store);
                const auto open = MessageStore::currentlyOpenStoreForPath(path);
                EXPECT_TRUE(!open || open->totalCount() <= 1);
                if (round % 3 == 0) store->close();
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_FALSE(MessageStore::currentlyOpenStoreForPath(std::string(folder / "a")));
}

TEST(OpenStoresThreads, ThoseWhoAskAtOnceGetOneStore) {
    const TemporaryFolder folder;
    writeFile(folder / "inbox", mboxMessage("ann"));
    fs::create_symlink(folder / "inbox", folder / "link");
    constexpr int kThreads = 4, kRounds = 60;
    std::shared_ptr<MessageStore> got[kThreads];
    std::barrier all(kThreads);
    std::vector<std::jthread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < kRounds; ++round) {
                all.arrive_and_wait();
                got[t] = MessageStore::storeForPath(std::string(folder / (t == 0 ? "link" : "inbox")));
                all.arrive_and_wait();
                EXPECT_TRUE(got[t] && got[t] == got[0] && !got[t]->isReadOnly());
                all.arrive_and_wait();
                got[t].reset();
            }
        });
    }
}

// The opening of each of two stores asks for the other one, and for itself.
TEST(OpenStoresThreads, DoNotWaitForEachOther) {
    const TemporaryFolder folder;
    const std::string paths[] = {folder / "a", folder / "b"};
    for (const auto& path : paths) fs::create_directory(path);
    std::barrier both(2);
    thread_local int depth = 0;
    const auto open = [&](const std::string& path, bool, bool, const auto&) {
        if (depth++ == 0) {
            both.arrive_and_wait();
            for (const auto& asked : paths) EXPECT_TRUE(MessageStore::storeForPath(asked));
        }
        --depth;
        return ListStore::initWithPath(path);
    };
    const auto willing = [&](const std::string& path) {
        return path.starts_with(folder.path().string()) ? 1 : 0;
    };
    ASSERT_TRUE(MessageStore::registerStoreClass({"Asking", willing, open}));
    {
        const std::jthread other([&] { EXPECT_TRUE(MessageStore::storeForPath(paths[1])); });
        EXPECT_TRUE(MessageStore::storeForPath(paths[0]));
    }
    MessageStore::unregisterStoreClass("Asking");
}

}  // namespace
}  // namespace lorvale
