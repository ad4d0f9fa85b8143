#include <gmock/gmock.h>
#include <unistd.h>

#include "lorvale/platform/exception.h"
#include "lorvale/platform/paths.h"
#include "tests/mail/fetch/FetchSupport.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/ListStore.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
namespace fs = std::filesystem;

class SpoolFetch : public FetchFolder {
protected:
    /// Fetches to the end; what doFetch() said.
    static bool fetch(SpoolFetchStore& store) {
        const bool started = store.doFetch();
        runMainLoopUntil([&] { return !store.isBusy(); });
        return started;
    }
    std::shared_ptr<SpoolFetchStore> store() const { return SpoolFetchStore::initWithPath(spool); }
};

TEST_F(SpoolFetch, MovesTheSpoolIntoTheMailboxForNewMailAndTellsSo) {
    writeFile(spool, mboxMessage("a") + mboxMessage("b", "x\n>From y\n"));
    UserDefaults::standard().setArgument("SaveFetchedMail", "YES");
    setHomeDirectory(at("home"));
    const auto fetcher = store();
    std::vector<std::string> told;
    const auto token = NotificationCenter::defaultCenter().addObserver([&](const Notification& n) {
        if (n.name == SMFetchStoreFetching || n.name == FetchStoreRoutingDone) told.push_back(n.name);
        if (n.name == MessageStoreNewMail && Notification::isSameObject(n.object, fetcher))
            told.push_back("new");
    });
    EXPECT_TRUE(fetcher->doFetch());
    EXPECT_TRUE(fetcher->isBusy());
    EXPECT_EQ(fetcher->totalCount(), 2u) << "it shows what is on its way";
    EXPECT_FALSE(fetcher->doFetch()) << "one at a time";
    EXPECT_THROW(fetcher->routeMessages(), InternalInconsistencyException);
    runMainLoopUntil([&] { return !fetcher->isBusy(); });
    EXPECT_FALSE(fs::exists(spool) || fs::exists(spool + ".lock"));
    const auto mailbox = TarnMbox::initWithPath(active);
    EXPECT_THAT(bytesOf(mailbox->allMessages()),
                ElementsAre(mboxMessage("a"), mboxMessage("b", "x\n>From y\n")));
    EXPECT_EQ(mailbox->unreadCount(), 2u);
    mailbox->close();
    EXPECT_THAT(told, ElementsAre(SMFetchStoreFetching, "new", FetchStoreRoutingDone));
    EXPECT_EQ(readFile(at("home/tmp/fetch_backup/backup")),
              mboxMessage("a") + mboxMessage("b", "x\n>From y\n"));
    setHomeDirectory({});
    EXPECT_FALSE(fetch(*fetcher)) << "no file, no fetch";
    writeFile(spool, "");
    told.clear();
    EXPECT_TRUE(fetch(*fetcher));
    EXPECT_THAT(told, ElementsAre()) << "nothing has come";
    EXPECT_FALSE(fs::exists(spool));
}

TEST_F(SpoolFetch, WhatCannotBeRoutedStays) {
    writeFile(spool, mboxMessage("a") + mboxMessage("b") + mboxMessage("c") + mboxMessage("d"));
    const RoutingBy routing([this](Message& message) -> std::shared_ptr<MessageStore> {
        const auto subject = message.headers()->subject();
        if (subject == "about c") throw GenericException("c is too much");
        if (subject == "about b") return nullptr;
        return MessageStore::storeForPath(at(subject == "about a" ? "one.mbox" : "two.mbox"), true);
    });
    const auto fetcher = store();
    EXPECT_TRUE(fetch(*fetcher));
    EXPECT_EQ(readFile(spool), mboxMessage("b") + mboxMessage("c"));
    EXPECT_THAT(lettersIn(at("one.mbox")), ElementsAre(Pair("a", 1)));
    EXPECT_THAT(lettersIn(at("two.mbox")), ElementsAre(Pair("d", 1)));
    EXPECT_THAT(log.take(), Contains("Exception raised during message routing: c is too much"));
    bool news = false;
    const auto token = NotificationCenter::defaultCenter().addObserver(
        [&](const Notification&) { news = true; }, MessageStoreNewMail);
    EXPECT_TRUE(fetch(*fetcher));
    EXPECT_EQ(readFile(spool), mboxMessage("b") + mboxMessage("c"));
    EXPECT_FALSE(news);
}

TEST_F(SpoolFetch, ADestinationThatTakesNothingCostsNothing) {
    const auto mail = mboxMessage("a") + mboxMessage("b");
    writeFile(spool, mail);
    const auto fetcher = store();
    TarnMbox::initWithPath(active, true, false)->close();
    const std::shared_ptr<MessageStore> none, refusing = ListStore::initWithPath(at("list"));
    for (const auto& target : {none, MessageStore::storeForPath(active, false, /*readOnly=*/true), refusing}) {
        const RoutingBy routing([&](Message&) { return target; }, /*separately=*/target != none);
        EXPECT_TRUE(fetch(*fetcher));
        EXPECT_EQ(readFile(spool), mail);
        EXPECT_EQ(std::ranges::count(log.take(), "Couldn't open destination store for fetch"), target ? 0 : 1);
    }
    EXPECT_TRUE(fetch(*fetcher)) << "and nothing stands in the way of the next time";
    EXPECT_THAT(lettersIn(active), ElementsAre(Pair("a", 1), Pair("b", 1)));
}

TEST_F(SpoolFetch, ALockedSpoolIsNotFetched) {
    writeFile(spool, mboxMessage("a"));
    writeFile(spool + ".lock", "elsewhere,somebody,mailer (Lorvale version 106),1\n");
    EXPECT_FALSE(fetch(*store()));
    EXPECT_EQ(readFile(spool), mboxMessage("a"));
    fs::remove(spool + ".lock");
    EXPECT_TRUE(fetch(*store()));
}

TEST_F(SpoolFetch, MailThatIsDeliveredMeanwhileStaysInTheSpool) {
    writeFile(spool, mboxMessage("a"));
    const auto fetcher = store();
    EXPECT_TRUE(fetcher->doFetch());
    writeFile(spool, readFile(spool) + mboxMessage("b"));
    runMainLoopUntil([&] { return !fetcher->isBusy(); });
    EXPECT_EQ(readFile(spool), mboxMessage("b"));
    EXPECT_THAT(lettersIn(active), ElementsAre(Pair("a", 1)));
}

TEST_F(SpoolFetch, AnotherAppendToTheDestinationEndsNoRouting) {
    writeFile(spool, mboxMessage("a"));
    writeFile(at("other"), mboxMessage("b"));
    const auto mailbox = TarnMbox::initWithPath(active, true, false);
    const RoutingBy routing([&](Message&) { return mailbox; });
    const auto fetcher = store(), other = SpoolFetchStore::initWithPath(at("other"));
    EXPECT_TRUE(fetcher->doFetch() && other->doFetch());
    mailbox->syncAppendMessages({messageOf(mboxMessage("mine"))}, false);
    EXPECT_TRUE(fetcher->isBusy() && other->isBusy()) << "what was fetched is still on its way";
    EXPECT_TRUE(fs::exists(spool));
    runMainLoopUntil([&] { return !fetcher->isBusy() && !other->isBusy(); });
    EXPECT_FALSE(fs::exists(spool) || fs::exists(at("other")));
    EXPECT_EQ(mailbox->totalCount(), 3u);
}

TEST_F(SpoolFetch, TheOneOfTheProcessIsWhereTheFirstSettingSaysUntilItIsClosed) {
    setHomeDirectory(at("home"));
    UserDefaults::standard().setArgument("DebugFetch", "YES");
    const auto first = SpoolFetchStore::globalFetcher();
    UserDefaults::standard().setArgument("DebugFetchSource", spool);
    EXPECT_EQ(SpoolFetchStore::globalFetcher(), first);
    EXPECT_EQ(first->storePath(), at("home/tmp/test.spool"));
    first->close();
    EXPECT_EQ(SpoolFetchStore::globalFetcher()->storePath(), spool);
    SpoolFetchStore::globalFetcher()->close();
    setHomeDirectory({});
}

TEST_F(SpoolFetch, RoutersNeedANameOfTheirOwnAndBothFunctions) {
    const auto make = [] { return std::make_unique<MessageRouter>(); };
    const auto willing = MessageRouter::willingnessToRouteForStore;
    EXPECT_TRUE(MessageRouter::registerRouterClass({"Equal", willing, [] { return nullptr; }}));
    EXPECT_NE(MessageRouter::routerForStore(*store()), nullptr) << "of equal ones it is the first";
    EXPECT_FALSE(MessageRouter::registerRouterClass({"Equal", willing, make}));
    EXPECT_FALSE(MessageRouter::registerRouterClass({"Another", {}, make}));
    EXPECT_FALSE(MessageRouter::registerRouterClass({"Another", willing, {}}));
    MessageRouter::unregisterRouterClass("Equal");
}

// What happens where, at every change of a file in turn.

constexpr std::size_t kLetters = 3;

class DyingSpoolFetch : public SpoolFetch, public WithParamInterface<CutOff> {
protected:
    void prepare() const {
        for (const auto& entry : fs::directory_iterator(folder.path())) fs::remove_all(entry.path());
        std::string mail;
        for (std::size_t i = 0; i < kLetters; ++i)
            mail += mboxMessage(std::string(1, static_cast<char>('a' + i)));
        writeFile(spool, mail);
    }
    /// Every letter is in one place or in both, whole.
    void examine(int at) const {
        const auto there = lettersIn(active), here = lettersIn(spool);
        for (std::size_t i = 0; i < kLetters; ++i) {
            const std::string name(1, static_cast<char>('a' + i));
            const auto count = [&](const auto& map) { return map.contains(name) ? map.at(name) : 0; };
            EXPECT_GE(count(there) + count(here), 1) << name << " at change " << at;
        }
        if (at % 3 != 0) return;  // a fetch costs its syncs
        // It goes on from there.
        const auto again = store();
        fetch(*again);
        EXPECT_FALSE(fs::exists(spool)) << "at change " << at;
        EXPECT_EQ(lettersIn(active).size(), kLetters) << "at change " << at;
    }
};

TEST_P(DyingSpoolFetch, LosesNothing) {
    for (int at = 0, done = 0; done == 0; ++at) {
        prepare();
        done = survivesCutOff(GetParam(), at, [&] { fetch(*store()); }) ? 1 : 0;
        examine(at);
        ASSERT_LT(at, 500);
    }
}

INSTANTIATE_TEST_SUITE_P(When, DyingSpoolFetch, ValuesIn(kCutOffs), PrintToStringParamName());

}  // namespace
}  // namespace lorvale
