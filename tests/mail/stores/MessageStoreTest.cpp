#include <gmock/gmock.h>

#include <random>
#include <thread>

#include "lorvale/platform/exception.h"
#include "lorvale/platform/notification.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/values/range.h"
#include "mail/model/HeaderDecoding.h"
#include "mail/stores/MessageSort.h"
#include "tests/support/StoreSupport.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A message that stands in a program.
class ListedMessage : public Message {
public:
    explicit ListedMessage(std::string text, std::uint32_t flags = 0, std::uint32_t messageSize = 0)
        : header(std::move(text)), bits(flags), size(messageSize) {}
    std::uint32_t messageSize() const override { return size; }

    const std::string header;
    std::uint32_t bits;
    const std::uint32_t size;
};

/// A whole store over a list in memory.
class ListStore : public MessageStore {
public:
    static std::shared_ptr<ListStore> initWithPath(std::string_view path) {
        return openStore<ListStore>(path, false, false, nullptr);
    }
    ~ListStore() override {
        if (!_path.empty()) ListStore::close();
    }
    void fill(MessageList messages) {
        list = std::move(messages);
        rebuildMessageLists();
    }
    std::string className() const override { return "ListStore"; }
    void _resetAllMessages() override { _allMessages = std::make_shared<MessageList>(list); }
    std::shared_ptr<MessageFlags> flagsForMessage(Message& message) override {
        return std::make_shared<MessageFlags>(static_cast<ListedMessage&>(message).bits);
    }
    using MessageStore::setFlags;
    void setFlags(const MessageFlags& flags, std::span<const std::string_view> havingKeys,
                  const MessageList& forMessages) override {
        for (const auto key : havingKeys) keysSet.emplace_back(key);
        for (const auto& message : forMessages) {
            const auto own = message->messageFlags();
            for (const auto key : havingKeys) {
                if (key == MessageIsUnread) own->setRead(flags.isRead());
                if (key == MessageIsDeleted) own->setDeleted(flags.isDeleted());
                if (key == MessageWasRepliedTo) own->setRepliedTo(flags.wasRepliedTo());
                if (key == MessagePriorityLevel) own->setPriority(flags.priority());
            }
        }
    }
    CachedHeaders cachedHeadersForMessage(Message& message) override {
        return cachedHeadersInBlock(static_cast<ListedMessage&>(message).header);
    }
    std::optional<Data> allHeadersForMessage(Message& message) override {
        ++headerReads;
        return Data::copyOf(static_cast<ListedMessage&>(message).header);
    }

    MessageList list;
    std::vector<std::string> keysSet;
    int headerReads = 0;
};

std::shared_ptr<Message> listed(std::string header, std::uint32_t flags = 0, std::uint32_t size = 0) {
    return std::make_shared<ListedMessage>(std::move(header), flags, size);
}

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

TEST(StoreSorting, AgreesWithTheComparisons) {
    std::mt19937 random(11);
    const auto one = [&](std::initializer_list<const char*> lines) {
        return std::string(std::data(lines)[random() % lines.size()]);
    };
    const TemporaryFolder folder;
    const auto store = ListStore::initWithPath(folder.path().string());
    MessageList messages;
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

TEST(StoreClasses, TheMostWillingOpensAndOfEqualOnesTheFirst) {
    const TemporaryFolder folder;
    const auto path = folder.path().string();  // a directory: no class of our own is willing
    std::vector<std::string> opened;
    const auto storeClass = [&](std::string name, float willingness) {
        return StoreClass{name, [=](const std::string& asked) { return asked == path ? willingness : 0.0F; },
                          [&opened, name](const std::string& place, bool, bool, const auto&) {
                              opened.push_back(name);
                              return ListStore::initWithPath(place);
                          }};
    };
    MessageStore::registerDefaultStoreClass(storeClass("default", 0));
    EXPECT_FALSE(MessageStore::storeForPath(path));
    EXPECT_TRUE(MessageStore::storeForPath(path, true));
    EXPECT_TRUE(MessageStore::registerStoreClass(storeClass("first", 0.5F)));
    EXPECT_TRUE(MessageStore::registerStoreClass(storeClass("second", 0.5F)));
    EXPECT_TRUE(MessageStore::storeForPath(path, true));
    MessageStore::unregisterStoreClass("first");
    EXPECT_TRUE(MessageStore::storeForPath(path));
    EXPECT_THAT(opened, ElementsAre("default", "first", "second"));
    MessageStore::unregisterStoreClass("second");
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
    const auto message = Message::messageWithData(Data::ofStatic("FROM: a\nSubject: b\n\nbody\n\nmore"));
    const auto store = message->messageStore();
    ASSERT_TRUE(store);
    EXPECT_EQ(bytesOf(*message), "FROM: a\nSubject: b\n\nbody\n\nmore");
    EXPECT_EQ(store->bodyForMessage(*message)->view(), "body\n\nmore");
    EXPECT_EQ(store->cachedHeadersForMessage(*message).textForKey("FROM"), "a");
    EXPECT_THAT(store->allMessages(), IsEmpty());
    const auto headless = Message::messageWithData(Data::ofStatic("Subject: b\n"));
    const LogCapture log;
    EXPECT_FALSE(headless->messageStore()->bodyForMessage(*headless));
    EXPECT_FALSE(headless->messageStore()->allHeadersForMessage(*headless));
    EXPECT_THAT(log.lines(), ElementsAre("KTDataMessageStore: couldn't find body",
                                         "KTDataMessageStore: couldn't find body"));
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

}  // namespace
}  // namespace lorvale
