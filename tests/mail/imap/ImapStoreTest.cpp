/// A mailbox on a real server and its mirror.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <random>

#include "mail/imap/SentNotes.h"
#include "tests/mail/imap/ImapStoreSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/MailServer.h"

namespace lorvale {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using testing::settle;

constexpr auto kClassic = MailDialect::classic, kStandard = MailDialect::standard;

std::string letter(int number) {
    return formatText(
        "From: a%d@x.example\nDate: Fri, 23 Aug 2002 11:04:%02d +0200\nSubject: Letter %d\n\nText of %d\n",
        number, number % 60, number, number);
}

class ImapStoreThreads : public ::testing::Test {
protected:
    void SetUp() override {
        if (!_server.runs()) GTEST_SKIP() << _server.whyNot();
        for (const auto* user : {"anna", "bert"})
            for (int i = 1; i <= 5; ++i) _server.deliver(user, letter(i));
    }
    void TearDown() override { setMailDialect(kClassic); }

    void begin(MailDialect dialect) {
        setMailDialect(dialect);
        account = std::make_shared<testing::ImapUser>();
        account->user = dialect == kClassic ? "anna" : "bert";
        account->port = _server.port("imap");
        place = (_folder / account->user).string() + ".imap";
        other = IMAPConnection::imapConnection(dialect);
        account->prepareConnection(*other);
        ASSERT_TRUE(other->connectToServer("127.0.0.1") && other->login(account->user, "secret"));
        ASSERT_TRUE(other->selectMailbox("INBOX").has_value());
    }
    std::shared_ptr<IMAPStore> open() const {
        auto store = testing::openInbox(place, account);
        if (store) settle(*store);
        return store;
    }
    /// What another client finds now.
    std::vector<std::string> seenByOther(std::string_view keys) const {
        other->noop();
        return other->search(keys).value_or(std::vector<std::string>());
    }
    std::vector<std::string> mirrored() const {
        std::vector<std::string> names;
        for (const auto& file : std::filesystem::directory_iterator(place + "/CachedMessages"))
            names.push_back(file.path().filename().string());
        std::ranges::sort(names);
        return names;
    }
    static std::vector<std::string> subjects(const IMAPStore& store) {
        std::vector<std::string> found;
        for (const auto& message : store.filteredMessages()) found.push_back(message->headers()->subject());
        return found;
    }
    static std::string textOf(const IMAPStore& store, std::size_t index) {
        const auto data = store.allMessages()[index]->messageData();
        return data ? data->toString() : "none";
    }

    testing::MailServer _server;
    testing::TemporaryFolder _folder;
    std::shared_ptr<testing::ImapUser> account;
    std::shared_ptr<IMAPConnection> other;
    std::string place;
};

TEST_F(ImapStoreThreads, MirrorsTheMailboxAndServesItOffline) {
    for (const auto dialect : {kClassic, kStandard}) {
        begin(dialect);
        const testing::LogCapture log;
        other->storeFlag("\\Seen", true, {2});
        other->storeFlag("\\Deleted", true, {4});
        auto store = open();
        ASSERT_TRUE(store && store->isSynchronized());
        EXPECT_THAT(subjects(*store), ElementsAre("Letter 1", "Letter 2", "Letter 3", "Letter 5"));
        EXPECT_EQ(store->totalCount(), 5u);
        EXPECT_EQ(store->unreadCount(), 3u);
        EXPECT_EQ(store->deletedCountAndSize().count, 1u);
        EXPECT_THAT(mirrored(), ElementsAre("1", "2", "3", "4", "5"));
        EXPECT_EQ(testing::readFile(place + "/CachedMessages/3"), letter(3));
        EXPECT_EQ(seenByOther("SEEN").size(), 1u);  // filling the mirror reads nothing
        store->close();

        // Opened again, nothing new: what is known stays the same object, and no header is fetched.
        store = open();
        EXPECT_TRUE(store->isSynchronized());
        EXPECT_EQ(subjects(*store).size(), 4u);
        store->close();
        account->port = 1;
        store = open();
        EXPECT_FALSE(store->isConnected());
        EXPECT_EQ(subjects(*store).size(), 4u);
        EXPECT_EQ(textOf(*store, 2), letter(3));
        EXPECT_EQ(store->unreadCount(), 3u);
        std::filesystem::remove(place + "/CachedMessages/3");
        store->allMessages()[2]->flushCachedData();
        EXPECT_EQ(textOf(*store, 2), "none");
        store->close();
    }
}

TEST_F(ImapStoreThreads, ChangesFlagsCopiesAndCompacts) {
    for (const auto dialect : {kClassic, kStandard}) {
        begin(dialect);
        const testing::LogCapture log;
        ASSERT_TRUE(other->createMailbox("Copies"));
        const auto store = open();
        ASSERT_TRUE(store != nullptr);
        const auto all = store->allMessages();
        store->setRead(true, MessageList{all[0], all[2]});
        store->deleteMessage(all[1]);
        EXPECT_EQ(store->unreadCount(), 2u);
        EXPECT_THAT(seenByOther("SEEN"), ElementsAre("1", "2", "3"));
        EXPECT_THAT(seenByOther("DELETED"), ElementsAre("2"));
        store->undeleteMessage(all[1]);
        EXPECT_THAT(seenByOther("DELETED"), IsEmpty());
        EXPECT_TRUE(store->copyMessages(MessageList{all[0], all[4]}, "Copies"));
        EXPECT_FALSE(store->copyMessages(MessageList{std::make_shared<Message>()}, "Copies"));
        store->deleteMessages(MessageList{all[1], all[3]});
        EXPECT_TRUE(store->canCompact());
        store->doCompact();
        RunLoop::current()->runFor(std::chrono::milliseconds(50));
        settle(*store);
        EXPECT_THAT(subjects(*store), ElementsAre("Letter 1", "Letter 3", "Letter 5"));
        EXPECT_FALSE(store->canCompact());
        EXPECT_EQ(textOf(*store, 1), letter(3));
        EXPECT_THAT(mirrored(), ElementsAre("1", "3", "5"));
        EXPECT_EQ(_server.messagesOf(account->user).size(), 3u);
        store->close();
        ASSERT_TRUE(other->selectMailbox("Copies").has_value());
        EXPECT_THAT(*other->fetchRawData({1, 2}, false), ElementsAre(letter(1), letter(5)));
        EXPECT_TRUE(other->selectMailbox("INBOX").has_value());
    }
}

TEST_F(ImapStoreThreads, SeesWhatOthersDo) {
    for (const auto dialect : {kClassic, kStandard}) {
        begin(dialect);
        const testing::LogCapture log;
        auto store = open();
        const auto third = store->allMessages()[2];
        _server.deliver(account->user, letter(6));
        EXPECT_TRUE(store->doFetchNow(false) || dialect == kStandard);
        settle(*store);
        EXPECT_EQ(store->totalCount(), 6u);
        EXPECT_EQ(store->allMessages()[5]->headers()->subject(), "Letter 6");
        other->storeFlag("\\Seen", true, {1});
        store->doFetchNow(false);
        settle(*store);
        EXPECT_TRUE(store->allMessages()[0]->messageFlags()->isRead());
        store->close();
        // While nobody looks: one goes in front; then one comes behind.
        other->storeFlag("\\Deleted", true, {2});
        EXPECT_EQ(other->expunge(), std::nullopt);
        store = open();
        EXPECT_EQ(store->totalCount(), 5u) << "the next UID is the same, the count is not";
        store->close();
        _server.deliver(account->user, letter(7));
        store = open();
        EXPECT_THAT(subjects(*store),
                    ElementsAre("Letter 1", "Letter 3", "Letter 4", "Letter 5", "Letter 6", "Letter 7"));
        EXPECT_EQ(textOf(*store, 5), letter(7));
        EXPECT_THAT(mirrored(), Not(Contains("2")));
        store->close();
    }
}

TEST_F(ImapStoreThreads, QueuesWhatCannotGoUp) {
    for (const auto dialect : {kClassic, kStandard}) {
        begin(dialect);
        const testing::LogCapture log;
        auto store = open();
        EXPECT_TRUE(store->appendMessages(MessageList{Message::messageWithData(Data(letter(8)))}));
        settle(*store);
        EXPECT_EQ(store->totalCount(), 6u);
        EXPECT_EQ(textOf(*store, 5), letter(8));
        store->close();
        const auto port = std::exchange(account->port, std::uint16_t{1});
        store = open();
        EXPECT_TRUE(store->appendMessages(MessageList{Message::messageWithData(Data(letter(9)))}));
        EXPECT_TRUE(store->appendMessages(MessageList{Message::messageWithData(Data(letter(10)))}));
        EXPECT_EQ(store->pendingAppendCount(), 2u);
        store->close();
        account->port = port;
        store = open();
        EXPECT_EQ(store->pendingAppendCount(), 0u);
        other->noop();
        EXPECT_THAT(*other->fetchRawData({7, 8}, false), ElementsAre(letter(9), letter(10)));
        store->close();
    }
}

TEST_F(ImapStoreThreads, KeepsWhatThePolicyAndTheServerSay) {
    begin(kStandard);
    const testing::LogCapture log;
    account->policy = IMAPCachePolicy::messagesAsRead;
    auto store = open();
    EXPECT_THAT(mirrored(), IsEmpty());
    EXPECT_EQ(textOf(*store, 1), letter(2));
    EXPECT_THAT(mirrored(), ElementsAre("2"));
    EXPECT_THAT(seenByOther("SEEN"), ElementsAre("2"));
    account->policy = IMAPCachePolicy::noMessages;
    EXPECT_EQ(textOf(*store, 2), letter(3));
    EXPECT_THAT(mirrored(), ElementsAre("2"));
    store->close();
    // A list that cannot be read is made anew, another UIDVALIDITY ends all that was known.
    const auto list = testing::readFile(place + "/CachedData");
    testing::writeFile(place + "/CachedData", list.substr(0, list.size() - 1));
    EXPECT_EQ(subjects(*(store = open())).size(), 5u);
    store->close();
    EXPECT_TRUE(std::filesystem::exists(place + "/CachedData.damaged"));
    testing::writeFile(place + "/Info.plist",
                       "<plist><dict><key>IMAPMailboxPath</key><string>INBOX</string><key>UIDVALIDITY</key>"
                       "<string>1</string></dict></plist>");
    EXPECT_EQ(subjects(*(store = open())).size(), 5u);
    EXPECT_EQ(IMAPStore::willingnessToOpen("/x.mbox"), 0);
    EXPECT_GT(IMAPStore::willingnessToOpen("/x.imap"), 1);
}

TEST_F(ImapStoreThreads, StaysTrueWhileAnotherChangesTheMailbox) {
    begin(kStandard);
    const testing::LogCapture log;
    const auto store = open();
    std::mt19937 random(7);
    int delivered = 5;
    for (int step = 0; step < 1000; ++step) {
        const auto count = other->search("ALL")->size();
        const auto pick = static_cast<std::uint32_t>(1 + random() % std::max<std::size_t>(count, 1));
        switch (random() % 4) {
            case 0:
                _server.deliver(account->user, letter(++delivered));
                break;
            case 1:
                if (count > 0) other->storeFlag("\\Seen", (random() & 1) != 0, {pick});
                break;
            case 2:
                if (count < 3) break;
                other->storeFlag("\\Deleted", true, {pick});
                (void)other->expunge();
                break;
            default:
                (void)store->doFetchNow(false);
        }
        if (step % 8 != 7) continue;
        settle(*store);
        (void)store->doFetchNow(false);
        settle(*store);
        other->noop();
        IMAPConnection::Numbers all;
        for (std::size_t n = 1; n <= other->search("ALL")->size(); ++n)
            all.push_back(static_cast<std::uint32_t>(n));
        const auto there = other->fetchRawData(all, false).value_or(std::vector<std::string>());
        ASSERT_EQ(store->totalCount(), there.size()) << step;
        for (std::size_t i = 0; i < there.size(); ++i) ASSERT_EQ(textOf(*store, i), there[i]) << step;
    }
    store->close();
}

TEST(ImapSentNotes, AreOfTheVeryMessagesOfTheQueue) {
    const testing::TemporaryFolder folder;
    const auto path = (folder / "notes").string();
    const Data first("one"), second("two"), third("six");
    {
        SentNotes notes(path, {first, second});
        notes.add(1);
    }
    const auto noted = [&](const std::vector<Data>& queue) {
        const SentNotes notes(path, queue);
        std::vector<bool> has;
        for (std::size_t place = 0; place < queue.size(); ++place) has.push_back(notes.has(place));
        return has;
    };
    EXPECT_EQ(noted({first, second, third}), (std::vector{false, true, false}));
    EXPECT_EQ(noted({first, third}), (std::vector{false, false})) << "as long, at that place";
    EXPECT_EQ(noted({second}), std::vector{false}) << "another place";
    SentNotes(path, {first, second}).clear();
    EXPECT_EQ(noted({first, second}), (std::vector{false, false}));
}

}  // namespace
}  // namespace lorvale
