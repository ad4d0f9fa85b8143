/// A mailbox on a server whose disk dies, whose files are damaged, or whose server lies.

#include <gmock/gmock.h>

#include "lorvale/body.h"
#include "lorvale/message.h"
#include "lorvale/platform/user_defaults.h"
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
    testing::writeFile(at + "/CachedData", "LvIM and no more");
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
        testing::ScriptedPeer peer(
            {"S: * OK [CAPABILITY IMAP4rev1] here", "C: 0 LOGIN anna secret",
             "S: 0 OK [CAPABILITY IMAP4rev1] in", "C: 1 LIST*", "S: * LIST () \"/\" \"\"", "S: 1 OK done",
             "C: 2 STATUS*", "S: * STATUS INBOX (MESSAGES 2 UNSEEN 0 UIDNEXT 13 UIDVALIDITY 1)", "S: 2 OK done",
             "C: 3 SELECT*", "S: * 2 EXISTS", "S: 3 OK [READ-WRITE] open", "C: 4 UID SEARCH ALL",
             "S: * SEARCH 12 11", "S: 4 OK done", "C: 5 UID FETCH*", "s: " + row.answer, "S: 5 OK done", "X"});
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
