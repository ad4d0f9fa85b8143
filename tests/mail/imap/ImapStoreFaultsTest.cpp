/// A mailbox on a server whose disk dies, whose files are damaged, or whose server lies.

#include <gmock/gmock.h>

#include <functional>
#include <future>

#include "base/files/PosixFileSystem.h"
#include "lorvale/body.h"
#include "lorvale/message.h"
#include "lorvale/platform/user_defaults.h"
#include "lorvale/search.h"
#include "lorvale/values/attributed_text.h"
#include "lorvale/values/text.h"
#include "mail/imap/MirrorFiles.h"
#include "mail/imap/StoreArchive.h"
#include "tests/mail/imap/ImapStoreSupport.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScriptedPeer.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::Not;

std::string letter(int number) {
    return "Subject: Letter " + std::to_string(number) + "\n\nText\n";
}

/// A mailbox with the messages 1 and 2, as an earlier program left it.
class ImapStoreFaults : public ::testing::Test {
protected:
    void SetUp() override {
        setMailDialect(MailDialect::standard);
        account->patience = std::chrono::seconds(5);
    }
    void TearDown() override { setMailDialect(MailDialect::classic); }
    static std::string place(const testing::TemporaryFolder& folder) { return (folder / "box.imap").string(); }
    static void fill(const std::string& place) {
        std::filesystem::create_directories(place);
        testing::writeFile(place + "/Info.plist",
                           "<plist><dict><key>IMAPMailboxPath</key><string>INBOX</string>"
                           "<key>UIDVALIDITY</key><string>77</string></dict></plist>");
        StoreArchive archive;
        archive.uidValidity = "77";
        std::vector<std::shared_ptr<Message>> all;
        for (const auto* uid : {"1", "2"}) {
            auto message = IMAPMessage::messageWithCachedHeaders({}, std::nullopt, 10);
            message->setUID(uid);
            all.push_back(message);
        }
        archive.all = archive.filtered = MessageList(all);
        testing::writeFile(place + "/CachedData", bytesOf(archive));
    }
    std::shared_ptr<IMAPStore> open(const std::string& place) const {
        return IMAPStore::initWithPath(place, true, false, account);
    }
    static std::vector<std::string> waiting(IMAPStore& store) {
        std::vector<std::string> subjects;
        for (const auto& message : store.pendingAppends()) subjects.push_back(message->headers()->subject());
        return subjects;
    }

    const std::shared_ptr<testing::ImapUser> account = std::make_shared<testing::ImapUser>();
    const testing::LogCapture log;
};

TEST_F(ImapStoreFaults, KeepQueueAndListWhereverTheDiskDies) {
    using Texts = std::vector<std::string>;
    for (int allowed = 0, done = 0; done == 0; ++allowed) {
        SCOPED_TRACE(allowed);
        const testing::TemporaryFolder folder;
        const auto at = place(folder);
        fill(at);
        auto store = open(at);
        ASSERT_TRUE(store->appendMessages(MessageList{Message::messageWithData(Data(letter(1)))}));
        bool isTaken = false, isClosed = false;
        {
            testing::FailingFileSystem disk(static_cast<std::uint64_t>(allowed));
            disk.dieAtChange(allowed);
            done = disk.survives([&] {
                isTaken = store->appendMessages(MessageList{Message::messageWithData(Data(letter(2)))});
                store->allMessages()[0]->messageFlags()->setRepliedTo(true);
                store->close();
                isClosed = true;
            });
            disk.losePower();
        }
        store->close();
        store = open(at);
        EXPECT_THAT(waiting(*store), AnyOf(Texts{"Letter 1", "Letter 2"},
                                           isTaken ? Texts{"Letter 1", "Letter 2"} : Texts{"Letter 1"}));
        ASSERT_EQ(store->totalCount(), 2u);
        EXPECT_TRUE(!isClosed || store->allMessages()[0]->messageFlags()->wasRepliedTo());
        EXPECT_FALSE(std::filesystem::exists(at + "/CachedData.damaged"));
        store->close();
    }
}

TEST_F(ImapStoreFaults, MirrorATextWholeOrNotAtAll) {
    for (int allowed = 0, done = 0; done == 0; ++allowed) {
        const testing::TemporaryFolder folder;
        testing::FailingFileSystem disk(static_cast<std::uint64_t>(allowed));
        disk.dieAtChange(allowed);
        done = disk.survives([&] {
            MirrorFiles files(folder.path().string());
            for (int i = 1; i <= 3; ++i) EXPECT_TRUE(files.add(std::to_string(i), letter(i)));
            files.commit();
        });
        disk.losePower();
        for (int i = 1; i <= 3; ++i) {
            const auto file = folder / std::to_string(i);
            const bool isThere = std::filesystem::exists(file);
            EXPECT_TRUE(isThere || done == 0) << allowed;
            EXPECT_TRUE(!isThere || testing::readFile(file) == letter(i)) << allowed;
        }
    }
    const testing::TemporaryFolder folder;
    testing::FailingFileSystem full;
    full.failFromChange(1, ENOSPC);
    MirrorFiles files(folder.path().string());
    EXPECT_FALSE(files.add("1", letter(1)));
    files.commit();
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST_F(ImapStoreFaults, SendUpNoReferenceToADirectoryOfThisMachine) {
    TarnMailBody::setTarCommand("/bin/tar");
    const testing::TemporaryFolder folder;
    const auto store = open(place(folder));
    for (const auto* converts : {"NO", "YES"}) {
        UserDefaults::standard().setArgument("ConvertTarnMailToMIME", converts);
        const auto message =
            Message::messageWithData(Data::ofStatic("Subject: a drawing\nTarn-Reference: here.attach\n\n\n"));
        const auto body = std::make_shared<TarnMailBody>();
        message->setMessageBody(body);
        body->setMessage(message);
        TextAttributes bold;
        bold.font = Font{.family = "Times", .bold = true};
        body->setDecodedBody(AttributedText("very bold", bold));
        EXPECT_TRUE(store->appendMessages(MessageList{message}));
        EXPECT_TRUE(message->headers()->objectsForKey("tarn-reference").has_value())
            << "the message itself stays as it is";
    }
    UserDefaults::standard().removeArguments();
    const auto waiting = store->pendingAppends();
    ASSERT_EQ(waiting.size(), 2u);
    const auto packed = asciiLowered(waiting[0]->messageData()->view()),
               converted = asciiLowered(waiting[1]->messageData()->view());
    EXPECT_THAT(packed, AllOf(HasSubstr("\r\ntarn-attachment: .tar."), HasSubstr("\r\nbegin 600 .tar.")));
    EXPECT_THAT(converted, AllOf(HasSubstr("subject: a drawing\r\n"), HasSubstr("mime-version: 1.0\r\n"),
                                 HasSubstr("very bold"), Not(HasSubstr("tarn-attachment"))));
    for (const auto& text : {packed, converted}) EXPECT_THAT(text, Not(HasSubstr("tarn-reference")));
    store->close();
}

TEST_F(ImapStoreFaults, SetAsideWhatCannotBeRead) {
    const testing::TemporaryFolder folder;
    const auto at = place(folder);
    fill(at);
    auto store = open(at);
    EXPECT_TRUE(store->appendMessages(MessageList{Message::messageWithData(Data(letter(1)))}));
    store->close();
    const auto queue = testing::readFile(at + "/DataToBeAppended");
    testing::writeFile(at + "/DataToBeAppended", queue.substr(0, queue.size() / 2));
    // One list that was written of another mailbox than the attributes, and one that is none.
    StoreArchive other;
    other.uidValidity = "78";
    for (const auto& list : {bytesOf(other), std::string("LvIM and no more")}) {
        testing::writeFile(at + "/CachedData", list);
        (store = open(at))->close();
    }
    EXPECT_EQ(testing::readFile(at + "/CachedData.damaged"), bytesOf(other));
    store = open(at);
    EXPECT_EQ(store->totalCount(), 0u);
    EXPECT_EQ(store->pendingAppendCount(), 0u);
    EXPECT_THAT(log.lines(),
                ::testing::IsSupersetOf({HasSubstr("The queue " + at), HasSubstr("is made anew")}));
    EXPECT_EQ(testing::readFile(at + "/DataToBeAppended.damaged"), queue.substr(0, queue.size() / 2));
    EXPECT_TRUE(store->appendMessages(MessageList{Message::messageWithData(Data(letter(2)))}));
    EXPECT_THAT(waiting(*store), ::testing::ElementsAre("Letter 2"));
    testing::FailingFileSystem full;
    full.failFromChange(0, ENOSPC);
    EXPECT_FALSE(store->appendMessages(MessageList{Message::messageWithData(Data(letter(3)))}));
}

/// A server up to the first question about the messages of a mailbox.
std::vector<std::string> opening(std::string_view counts, int messages) {
    return {"S: * OK [CAPABILITY IMAP4rev1] here",
            "C: 0 LOGIN anna secret",
            "S: 0 OK [CAPABILITY IMAP4rev1] in",
            "C: 1 LIST*",
            "S: * LIST () \"/\" \"\"",
            "S: 1 OK done",
            "C: 2 STATUS*",
            formatText("S: * STATUS INBOX (%@)", counts),
            "S: 2 OK done",
            "C: 3 SELECT*",
            formatText("S: * %d EXISTS", messages),
            "S: 3 OK [READ-WRITE] open"};
}

std::vector<std::string> operator+(std::vector<std::string> steps, const std::vector<std::string>& more) {
    steps.insert(steps.end(), more.begin(), more.end());
    return steps;
}

/// A server with the messages 1 and 2, up to the sending of the queue.
std::vector<std::string> openingOfTwo() {
    return opening("MESSAGES 2 UNSEEN 2 UIDNEXT 3 UIDVALIDITY 77", 2) +
           std::vector<std::string>{"C: 4 UID SEARCH ALL",     "S: * SEARCH 1 2", "S: 4 OK done",
                                    "C: 5 UID SEARCH DELETED", "S: * SEARCH",     "S: 5 OK done",
                                    "C: 6 UID SEARCH UNSEEN",  "S: * SEARCH 1 2", "S: 6 OK done"};
}

std::vector<std::string> taking(int tag, int number) {
    return {formatText("C: %d APPEND INBOX (\\Seen) {*", tag),
            "S: + go",
            formatText("C: Subject: Letter %d", number),
            "C: ",
            "C: Text",
            "C: ",
            formatText("S: %d OK done", tag)};
}

/// A host that looks on while stores tell what they do, in their threads, and files are renamed.
struct Onlooker : UserAgent, PosixFileSystem {
    Onlooker() {
        setCurrentUserAgent(this);
        FileSystem::setCurrent(this);
    }
    ~Onlooker() override {
        FileSystem::setCurrent(nullptr);
        setCurrentUserAgent(nullptr);
    }
    Onlooker(const Onlooker&) = delete;
    Onlooker& operator=(const Onlooker&) = delete;
    void displayStatus(std::string_view text, MessageStore*) override { onStatus(text); }
    FileStatus rename(const std::string& from, const std::string& to) override {
        onRename(to);
        return PosixFileSystem::rename(from, to);
    }
    std::function<void(std::string_view)> onStatus = [](std::string_view) {}, onRename = onStatus;
};

TEST_F(ImapStoreFaults, SendNothingTwiceWhenTheProgramOrTheConnectionDies) {
    using Texts = std::vector<std::string>;
    const testing::TemporaryFolder folder;
    const auto at = place(folder), killed = (folder / "killed.imap").string();
    account->policy = IMAPCachePolicy::messagesAsRead;
    fill(at);
    auto store = open(at);
    for (int i = 1; i <= 3; ++i)
        EXPECT_TRUE(store->appendMessages(MessageList{Message::messageWithData(Data(letter(i)))}));
    store->close();
    testing::ScriptedPeer peer(openingOfTwo() + taking(7, 1) + Texts{"C: 8 APPEND*", "S: * 3 EXISTS", "X"});
    account->port = peer.port();
    bool hasTriedOn = false;
    {
        Onlooker onlooker;
        onlooker.onStatus = [&](std::string_view text) {
            // As a program leaves it that is killed now.
            if (text.starts_with("Transferring 2"))
                std::filesystem::copy(at, killed, std::filesystem::copy_options::recursive);
            hasTriedOn = hasTriedOn || text.starts_with("Transferring 3");
        };
        onlooker.onRename = [&](std::string_view to) {
            if (!to.ends_with("DataToBeAppended")) return;
            std::promise<void> news;  // that came with the end of the connection
            RunLoop::main()->perform([&] { news.set_value(); });
            news.get_future().wait();
        };
        store = open(at);
        testing::settle(*store);
    }
    EXPECT_FALSE(hasTriedOn);
    EXPECT_FALSE(store->isSynchronized()) << "what the server told last is not in the list";
    EXPECT_EQ(waiting(*store), (Texts{"Letter 2", "Letter 3"}));
    store->close();

    account->port = 0;
    store = open(killed);
    EXPECT_EQ(waiting(*store), (Texts{"Letter 2", "Letter 3"}));
    store->close();
    testing::ScriptedPeer next(openingOfTwo() + taking(7, 2) + taking(8, 3) + Texts{"X"});
    account->port = next.port();
    store = open(killed);
    testing::settle(*store);
    EXPECT_EQ(store->pendingAppendCount(), 0u);
    EXPECT_EQ(next.firstSurprise(), "");
    EXPECT_TRUE(std::filesystem::is_empty(killed + "/DataToBeAppended.lock"));
    store->close();
}

TEST_F(ImapStoreFaults, CallNoServerThereThatHasGone) {
    const testing::TemporaryFolder folder;
    auto steps = opening("", 0);
    steps.resize(7);
    testing::ScriptedPeer peer(steps + std::vector<std::string>{"X"});
    account->port = peer.port();
    const auto store = open(place(folder));
    EXPECT_FALSE(store->isConnected());
    EXPECT_EQ(peer.firstSurprise(), "");
    store->close();
}

TEST_F(ImapStoreFaults, KeepAnIndexWhenTheOneWhoKeptItHasEnded) {
    const auto count = [](const std::shared_ptr<IMAPStore>& store) {
        store->updateIndex();
        EXPECT_TRUE(IndexManager::waitUntilIdle(*store, RunLoop::Clock::now() + std::chrono::seconds(20)));
        return IndexManager::indexedCount(*store);
    };
    const testing::TemporaryFolder folder;
    const auto at = place(folder);
    fill(at);
    std::filesystem::create_directory(at + "/CachedMessages");
    testing::writeFile(at + "/CachedMessages/1", letter(1));
    const auto first = open(at);
    first->setIsIndexed(true);
    EXPECT_EQ(count(first), 1u);
    const auto second = open(at);
    testing::writeFile(at + "/CachedMessages/2", letter(2));
    EXPECT_EQ(count(second), 1u);
    first->close();
    EXPECT_EQ(count(second), 2u);
    second->close();
}

std::string fetched(int number, std::uint32_t uid) {
    const auto headers = "Subject: Letter " + std::to_string(uid) + "\r\n\r\n";
    return formatText(
        "* %d FETCH (UID %d RFC822.SIZE 30 BODY[HEADER.FIELDS (DATE SUBJECT FROM)] {%d}\r\n%@)\r\n", number,
        uid, headers.size(), headers);
}

TEST_F(ImapStoreFaults, BelieveNoServerThatMixesMessagesUp) {
    const struct {
        const char* why;
        std::string answer;
        std::size_t listed;
    } rows[] = {
        {"as asked", fetched(1, 11) + fetched(2, 12), 2},
        {"in another order", fetched(2, 12) + fetched(1, 11), 2},
        {"one twice", fetched(1, 11) + fetched(1, 11) + fetched(2, 12), 2},
        {"one that nobody asked for", fetched(1, 11) + fetched(2, 13), 0},
        {"one missing", fetched(2, 12), 0},
        {"with news of others",
         fetched(1, 11) + "* 2147483648 EXISTS\r\n* 0 EXPUNGE\r\n* 99 EXPUNGE\r\n" + fetched(2, 12), 2},
        {"a literal that is too long", "* 1 FETCH (UID 11 BODY[HEADER.FIELDS (DATE)] {4294967296}\r\n", 0},
        {"a literal below zero", "* 1 FETCH (UID 11 BODY[HEADER.FIELDS (DATE)] {-1}\r\n", 0},
        {"bytes", std::string("* 1 FETCH \0\xFF(((((\r\n", 19), 0},
        {"nothing", "", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        testing::ScriptedPeer peer(opening("MESSAGES 2 UNSEEN 0 UIDNEXT 13 UIDVALIDITY 1", 2) +
                                   std::vector<std::string>{"C: 4 UID SEARCH ALL", "S: * SEARCH 12 11",
                                                            "S: 4 OK done", "C: 5 UID FETCH*",
                                                            "s: " + row.answer, "S: 5 OK done", "X"});
        account->port = peer.port();
        const testing::TemporaryFolder folder;
        const auto store = open(place(folder));
        testing::settle(*store);
        ASSERT_EQ(store->totalCount(), row.listed) << peer.firstSurprise();
        std::uint32_t uid = 11;
        for (const auto& message : store->allMessages())
            EXPECT_EQ(message->headers()->subject(), "Letter " + std::to_string(uid++));
        store->close();
    }
}

}  // namespace
}  // namespace lorvale
