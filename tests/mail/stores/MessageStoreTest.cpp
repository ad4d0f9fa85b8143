#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <thread>

#include "lorvale/platform/exception.h"
#include "lorvale/platform/notification.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/store/mail_account.h"
#include "lorvale/store/mailbox_index.h"
#include "lorvale/store/message_cache.h"
#include "lorvale/values/range.h"
#include "mail/stores/MessageSort.h"
#include "tests/mail/model/MemoryStore.h"
#include "tests/support/ListStore.h"
#include "tests/support/StoreSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
namespace fs = std::filesystem;

class Store : public ::testing::Test {
protected:
    Store() {
        store->fill({a, b, c, d});
        token = NotificationCenter::defaultCenter().addObserver([this](const Notification&) { ++changes; },
                                                                MessageStoreStructureChanged, store);
    }

    TemporaryFolder folder;
    const std::shared_ptr<ListStore> store = ListStore::initWithPath(folder.path().string());
    const std::shared_ptr<Message> a = listed("", 0, 10), b = listed("", MessageFlags::kUnread, 200),
                                   c = listed("", MessageFlags::kDeleted, 3000),
                                   d = listed("", MessageFlags::kUnread | MessageFlags::kDeleted, 40000);
    int changes = 0;
    ObserverToken token;
};

TEST_F(Store, CountsFiltersAndFocuses) {
    EXPECT_THAT(store->filteredMessages(), ElementsAre(a, b));
    EXPECT_EQ(store->totalCountAndSize(), (CountAndSize{4, 43210}));
    EXPECT_EQ(store->unreadCountAndSize(), (CountAndSize{1, 200}));
    EXPECT_EQ(store->deletedCountAndSize(), (CountAndSize{2, 43000}));
    EXPECT_EQ(store->indexOfMessage(*c), 2u);
    EXPECT_EQ(store->indexOfMessage(*listed("")), kNotFound);
    store->setIncludeDeleted(true);
    EXPECT_THAT(store->filteredMessages(), ElementsAre(a, b, c, d));
    store->setExcludeRead(true);
    EXPECT_THAT(store->filteredMessages(), ElementsAre(b)) << "a deleted message is none that is unread";
    EXPECT_EQ(changes, 2);
    store->setExcludeRead(true);
    EXPECT_EQ(changes, 2) << "nothing has changed";
    store->setFocusedMessages(MessageList{d, a});
    EXPECT_THAT(store->focusedMessages(), ElementsAre(d, a));
    store->setFocusedMessages(std::nullopt);
    EXPECT_FALSE(store->isFocused());
    EXPECT_EQ(changes, 4);
}

TEST_F(Store, DeletesAndTakesBack) {
    store->deleteMessages(store->filteredMessages());  // its own list
    EXPECT_THAT(store->keysSet, ElementsAre("MessageIsDeleted", "MessageIsUnread"));
    EXPECT_EQ(store->deletedCountAndSize(), (CountAndSize{4, 43210}));
    EXPECT_EQ(store->unreadCountAndSize(), (CountAndSize{0, 200u - 210u}))
        << "the whole size comes off, and wraps";
    store->_buildUnreadList();
    EXPECT_EQ(store->unreadCountAndSize(), (CountAndSize{0, 0}));
    store->undeleteMessage(b);
    EXPECT_TRUE(b->messageFlags()->isRead()) << "deleting has marked it read";
    EXPECT_THAT(*store->undeleteLastDeletedMessages(), ElementsAre(a, b)) << "the stack does not know of that";
    EXPECT_THAT(store->filteredMessages(), ElementsAre(a, b));

    WindowHost host;
    EXPECT_FALSE(store->undeleteLastDeletedMessages());
    EXPECT_EQ(host.beeps, 1);
    store->deleteMessage(a);
    store->doCompact();
    EXPECT_FALSE(store->undeleteLastDeletedMessages());
}

TEST_F(Store, MarksMessages) {
    store->setRead(false, a);
    EXPECT_TRUE(a->messageFlags()->isRead()) << "one message is not marked unread this way";
    store->setRead(true, b);
    EXPECT_TRUE(b->messageFlags()->isRead());
    store->setRead(false, MessageList{a, b});
    EXPECT_FALSE(a->messageFlags()->isRead());
    store->setRepliedTo(true, a);
    store->setPriority(7, MessageList{a, b});
    EXPECT_TRUE(a->messageFlags()->wasRepliedTo());
    EXPECT_EQ(b->messageFlags()->priority(), 7u);
}

TEST_F(Store, TellsOfChanges) {
    while (RunLoop::current()->dispatch()) continue;  // what stores of other tests have to tell
    std::vector<std::string> heard;
    std::shared_ptr<const void> object;
    const auto observer =
        NotificationCenter::defaultCenter().addObserver([&](const Notification& notification) {
            heard.push_back(notification.name);
            object = notification.object;
            if (notification.name != MessageStoreMessagesWillBeCompacted) return;
            EXPECT_THAT(std::any_cast<MessageList>(notification.userInfo.at("messages")), ElementsAre(c));
        });
    store->messageFlagsDidChange({a, c});
    EXPECT_THAT(*static_cast<const MessageList*>(object.get()), ElementsAre(a, c));
    store->messagesWillBeCompacted({c});
    EXPECT_EQ(object, store);
    store->queueStructureDidChange();
    store->queueStructureDidChange();
    EXPECT_EQ(heard.size(), 2u) << "not before the thread is idle";
    RunLoop::current()->runFor(std::chrono::milliseconds(50));
    EXPECT_THAT(heard, ElementsAre(MessageStoreMessageFlagsChanged, MessageStoreMessagesWillBeCompacted,
                                   MessageStoreStructureChanged));
}

TEST_F(Store, CountsAndNumbersWithoutAnyListButThatOfAll) {
    class Unlisted : public ListStore {
    public:
        explicit Unlisted(MessageList messages) { setAllMessages(std::move(messages)); }
    };
    const Unlisted unlisted({a, b, c, d});
    EXPECT_EQ(unlisted.unreadCountAndSize(), (CountAndSize{1, 200}));
    EXPECT_EQ(unlisted.deletedCountAndSize(), (CountAndSize{2, 43000}));
    EXPECT_EQ(unlisted.numberOfMessage(*d), 4u);
    EXPECT_EQ(unlisted.numberOfMessage(*listed("")), 0u);
}

TEST_F(Store, FindsAMessageByItsIDTheLastOfEqualOnes) {
    const auto first = listed("Message-ID: <1>\n\n"), again = listed("Message-ID: <1>\n\n"),
               other = listed("Message-ID: <2>\n\n");
    store->fill({first, again, other});
    EXPECT_EQ(store->messageForMessageID("<1>"), again);
    EXPECT_EQ(store->messageForMessageID("<3>"), nullptr);
    EXPECT_FALSE(other->headers()->hasAllHeaders()) << "what was read for this is given up again";
}

TEST_F(Store, ListsThatWereHandedOutStayAsTheyAre) {
    const auto all = store->allMessages(), filtered = store->filteredMessages();
    store->fill({b});
    EXPECT_THAT(all, ElementsAre(a, b, c, d));
    EXPECT_THAT(filtered, ElementsAre(a, b));
    store->close();
    store->rebuildMessageLists();
    store->fill({a, b});
    EXPECT_THAT(store->allMessages(), ElementsAre(b)) << "a closed store does not come back to life";
}

TEST_F(Store, RefusesMessagesUnlessItsClassTakesSome) {
    const LogCapture log;
    EXPECT_FALSE(store->syncAppendMessages({a}, false));
    EXPECT_FALSE(store->safeAppendMessages({a}));
    EXPECT_EQ(log.lines().size(), 2u);
}

TEST(StoreAccount, AnswersForTheStoresOpenedWithoutOne) {
    class Account : public MailAccount {
    public:
        explicit Account(std::string path) : _path(std::move(path)) {}
        std::string path() const override { return _path; }
        std::string displayName() const override { return "Home"; }

    private:
        const std::string _path;
    };
    const TemporaryFolder folder;
    fs::create_directories(folder / "mail/in");
    const auto account = std::make_shared<Account>(std::string(folder / "mail"));
    MailAccount::registerDefaultAccount([&] { return account; });
    const auto store = ListStore::initWithPath(std::string(folder / "mail/in"));
    MailAccount::registerDefaultAccount({});
    EXPECT_EQ(store->account(), account);
    EXPECT_EQ(store->storePathRelativeToAccount(), "in");
    store->setAccount(std::make_shared<Account>("/elsewhere"));
    EXPECT_EQ(store->storePathRelativeToAccount(), std::string(folder / "mail/in"));
    EXPECT_EQ(account->errorStringWithMessage("No.", ""),
              "Account name: Home\nMailbox name: Not specified\n\nNo.");
    store->setAccount(nullptr);
    EXPECT_EQ(store->storePathRelativeToAccount(), store->storePath());
    EXPECT_EQ(ListStore::initWithPath(std::string(folder / "mail"))->account(), MailAccount::defaultAccount());
}

TEST(StoreIndex, StandsBehindTheStoreFromOpeningToClosing) {
    class Index : public MailboxIndex {
    public:
        explicit Index(std::string& calls) : _calls(calls) {}
        void storeDidOpen() override { _calls += "open "; }
        void storeDidClose() override { _calls += "close "; }
        bool isIndexed() const override { return true; }
        void setIsIndexed(bool) override {}
        void updateIndex() override { _calls += "update "; }
        void updateIndexInBackground() override {}
        void stopUpdatingIndex() override {}
        bool isUpdatingIndex() const override { return true; }
        void stopBackgroundActivity() override { _calls += "stop "; }
        void addMessagesToIndex(const MessageList& messages) override {
            _calls += "add" + std::to_string(messages.size()) + " ";
        }
        void removeMessagesFromIndex(const MessageList&) override { _calls += "remove "; }
        void flushToDisk() override {}

    private:
        std::string& _calls;
    };
    const TemporaryFolder folder;
    writeFile(folder / "mbox", mboxMessage("ann"));
    std::string calls;
    Message::initialize();  // after which nobody registers another one
    auto usual = MailboxIndex::registerMaker([&](const auto&) { return std::make_shared<Index>(calls); });
    auto store = ListStore::initWithPath(folder.path().string());
    EXPECT_FALSE(BerkeleyMbox::initWithPath(std::string(folder / "mbox"))->isIndexed()) << "cannot be indexed";
    MailboxIndex::registerMaker(std::move(usual));
    EXPECT_FALSE(ListStore::initWithPath(folder.path().string())->isIndexed());
    EXPECT_TRUE(store->isIndexed());
    EXPECT_TRUE(store->isUpdatingIndex());
    store->addMessagesToIndex({listed(""), listed("")});
    store->removeMessagesFromIndex({});
    store->updateIndex();
    store.reset();
    EXPECT_EQ(calls, "open add2 remove update stop close ");
}

TEST(StoreAttributes, AreReadAtOpeningAndSavedAtClosing) {
    const TemporaryFolder folder;
    const auto path = folder.path().string();
    EXPECT_FALSE(MessageStore::userInfoForPath(path));
    {
        const auto store = ListStore::initWithPath(path);
        EXPECT_EQ(store->sortOrder(), "number");
        store->setSortOrder("size");
        EXPECT_EQ(store->userInfo()[MessageStoreIsDirty].string(), "Yes");
    }
    ASSERT_TRUE(fs::exists(folder / "Info.plist"));
    EXPECT_EQ((*MessageStore::userInfoForPath(path))[MessageStoreSortOrder].string(), "size");
    const auto store = ListStore::initWithPath(path);
    store->fill({listed("", 0, 9), listed("", 0, 8)});
    EXPECT_EQ(store->filteredMessages()[0]->messageSize(), 8u);
    store->setUserInfo(PropertyList(PropertyList::Dictionary()));
    EXPECT_EQ(store->sortOrder(), "number");
    writeFile(folder / "Info.plist", "\xFFno property list");
    EXPECT_EQ(ListStore::initWithPath(path)->sortOrder(), "number");
}

TEST(AbstractStore, ComplainsOnceOfEachOperationThatIsMissing) {
    class Bare : public MessageStore {
    public:
        std::string className() const override { return "Bare"; }
    };
    Bare bare;
    Message message;
    const LogCapture log;
    EXPECT_THROW(bare.bodyForMessage(message), InternalInconsistencyException);
    EXPECT_EQ(log.lines().back(),
              "****** ALERT: MessageStore::bodyForMessage Must be implemented by the subclass Bare.");
    EXPECT_FALSE(bare.bodyForMessage(message));
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_THROW(bare.rebuildMessageLists(), InternalInconsistencyException);
}

TEST(DataStore, HoldsOneMessage) {
    const auto message = messageOf("FROM: a\nSubject: b\n\nbody\n\nmore");
    const auto store = message->messageStore();
    ASSERT_TRUE(store);
    EXPECT_EQ(bytesOf(*message), "FROM: a\nSubject: b\n\nbody\n\nmore");
    EXPECT_EQ(store->bodyForMessage(*message)->view(), "body\n\nmore");
    EXPECT_EQ(store->cachedHeadersForMessage(*message).textForKey("FROM"), "a");
    EXPECT_THAT(store->allMessages(), IsEmpty());
    const auto headless = messageOf("Subject: b\n");
    const LogCapture log;
    EXPECT_FALSE(headless->messageStore()->bodyForMessage(*headless));
    EXPECT_FALSE(headless->messageStore()->allHeadersForMessage(*headless));
    EXPECT_THAT(log.lines(), ElementsAre("KTDataMessageStore: couldn't find body",
                                         "KTDataMessageStore: couldn't find body"));
}

// Three threads read, sort, look up and flag what the fourth appends, deletes and takes back.
TEST(StoreThreads, ReadSortFlagAndFlushWhileMailArrives) {
    const TemporaryFolder folder;
    const auto store = ListStore::initWithPath(folder.path().string());
    const auto letter = [](int i) {
        return listed("From a Thu Aug 22 12:46:23 2002\nSubject: s" + std::to_string(i % 7) + "\n\n",
                      i % 2 == 0 ? MessageFlags::kUnread : 0, 10);
    };
    std::vector<std::shared_ptr<Message>> first;
    for (int i = 0; i < 300; ++i) first.push_back(letter(i));
    store->fill(first);
    std::atomic<bool> done = false;
    std::vector<std::jthread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&, t] {
            while (!done) {
                const auto all = store->allMessages();
                EXPECT_GE(all.size(), 300u);
                const auto sorted = sortedMessages(all, t == 0 ? "subject" : "received-date", *store);
                EXPECT_EQ(sorted.size(), all.size());
                for (std::size_t i = 0; i < all.size(); i += 17) {
                    EXPECT_EQ(all.indexOf(*all[i]), i);
                    EXPECT_EQ(store->indexOfMessage(*all[i]), i);
                    EXPECT_EQ(all[i]->messageStore(), store);
                    all[i]->messageFlags()->setRepliedTo(t == 1);
                    if (t == 2) all[i]->flushCachedData();
                }
                const auto shown = store->count(), unread = store->unreadCount();
                EXPECT_LE(std::max(shown, unread), store->totalCount()) << "asked for last: mail only arrives";
            }
        });
    }
    for (int round = 0; round < 40; ++round) {
        store->fill(store->allMessages().appending({letter(round)}));
        store->deleteMessages({store->allMessages().back()});
        store->undeleteLastDeletedMessages();
        store->setSortOrder(round % 2 == 0 ? "from" : "number");
    }
    done = true;
    threads.clear();
    EXPECT_EQ(store->totalCount(), 340u);
}

TEST(StoreSorting, AgreesWithTheComparisons) {
    std::mt19937 random(11);
    const auto one = [&](std::initializer_list<const char*> lines) {
        return std::string(std::data(lines)[random() % lines.size()]);
    };
    const TemporaryFolder folder;
    const auto store = ListStore::initWithPath(folder.path().string());
    std::vector<std::shared_ptr<Message>> messages;
    for (int i = 0; i < 300; ++i) {
        messages.push_back(
            listed(one({"", "From a Thu Aug 22 12:46:23 2002\n", "From a Thu Aug 22 12:46:24 2002\n"}) +
                       one({"", "From: Zoe <a@x>\n", "From: zoe <b@x>\n",
                            "From: \xC3\xA4"
                            "da\n",
                            "From: <q@x>\n"}) +
                       one({"", "Subject:\n", "Subject: Re: tea\n", "Subject: TEA\n", "Subject: fwd: tea\n",
                            "Subject: Cake\n"}) +
                       "Date: Thu, 22 Aug 2002 12:46:2" + std::to_string(random() % 3) + " +0000\n\n",
                   0, static_cast<std::uint32_t>(random() % 5 + 1)));
    }
    store->fill(messages);
    const std::pair<std::string_view, int (*)(Message&, Message&, const MessageStore&)> orders[] = {
        {MessageStoreSortByTitle, _compareMsgsBySubject},
        {MessageStoreSortByAuthor, _compareMsgsBySender},
        {MessageStoreSortBySize, _compareMsgsBySize},
        {MessageStoreSortByCreationDate, _compareMsgsByDate},
    };
    for (const auto& [name, compare] : orders) {
        SCOPED_TRACE(name);
        store->headerReads = 0;
        store->setSortOrder(name);
        EXPECT_LE(store->headerReads, 300) << "each message is read once";
        const auto& sorted = store->filteredMessages();
        ASSERT_EQ(sorted.size(), messages.size());
        for (std::size_t i = 1; i < sorted.size(); ++i) {
            ASSERT_FALSE(sorted[i]->headers()->hasAllHeaders())
                << "a listing keeps no more than the cached ones";
            ASSERT_LT(compare(*sorted[i - 1], *sorted[i], *store), 0) << i;
            sorted[i - 1]->flushCachedData();
        }
        sorted.back()->flushCachedData();
    }
    store->setSortOrder("no such order");
    EXPECT_EQ(store->filteredMessages(), messages);
}

/// A body that is held, so that it has a weight until it is flushed.
std::shared_ptr<Message> loaded(std::size_t size) {
    const auto message = messageOf("Subject: a\n\n" + std::string(size, 'x'));
    message->setMessageBody(std::make_shared<MessageBody>());
    message->messageBody()->setMessage(message);
    message->messageBody()->encodedBody();
    return message;
}

TEST(MessageCache, EvictsByAgeAndBySize) {
    MessageCacheManager byAge(1);
    const auto a = loaded(10), b = loaded(20), c = loaded(3000);
    byAge.viewedMessage(nullptr);
    byAge.viewedMessage(a);
    byAge.viewedMessage(a);
    EXPECT_EQ(a->cachedDataSize(), 10u);
    byAge.viewedMessage(b);
    EXPECT_EQ(a->cachedDataSize(), 0u);
    EXPECT_EQ(b->cachedDataSize(), 20u);

    MessageCacheManager bySize(-1, 30);
    const auto d = loaded(20), e = loaded(10), f = loaded(9);
    for (const auto& message : {d, e, f}) bySize.viewedMessage(message);
    EXPECT_EQ(d->cachedDataSize(), 20u) << "30 beside the one viewed is within the limit";
    bySize.viewedMessage(c);
    EXPECT_EQ(c->cachedDataSize(), 3000u) << "the viewed one stays, however large";
    EXPECT_EQ(d->cachedDataSize(), 0u) << "the largest of the others goes";
    EXPECT_EQ(e->cachedDataSize() + f->cachedDataSize(), 19u);
    MessageCacheManager unlimited(-1, MessageCacheManager::kNoLimit);
    for (const auto& message : {loaded(5'000'000), c, f}) unlimited.viewedMessage(message);
    EXPECT_EQ(unlimited.count(), 3u);
    unlimited.flushAllCachedData();
    EXPECT_EQ(c->cachedDataSize() + unlimited.count(), 0u);
}

TEST(MessageCache, LetsGoOfMessagesAndStores) {
    MessageCacheManager cache;
    const auto a = loaded(10), b = loaded(20), c = loaded(30);
    const auto storeOfA = a->messageStore();
    for (const auto& message : {a, b}) cache.viewedMessage(message);
    cache.removeObjectsFromCache({b, c});
    EXPECT_EQ(b->cachedDataSize() + c->cachedDataSize(), 0u) << "also one that was not in it";
    cache.removeObjectsFromCacheForStore(*c->messageStore());
    EXPECT_EQ(cache.count(), 1u);
    cache.removeObjectsFromCacheForStore(*storeOfA);
    EXPECT_EQ(cache.count(), 0u);
    EXPECT_EQ(a->cachedDataSize(), 10u) << "not flushed";
}

}  // namespace
}  // namespace lorvale
