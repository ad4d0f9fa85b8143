#include <gmock/gmock.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <set>

#include "lorvale/values/range.h"
#include "mail/stores/MboxScan.h"
#include "tests/mail/model/RealMail.h"
#include "tests/mail/stores/MboxRivals.h"
#include "tests/support/PlainMbox.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
using namespace std::string_literals;
namespace fs = std::filesystem;

class FlatMailbox : public ::testing::Test {
protected:
    FlatMailbox() { writeFile(path, ann + bob + cid); }

    std::shared_ptr<BerkeleyMbox> open(bool create = false, bool readOnly = false) const {
        return BerkeleyMbox::initWithPath(path, create, readOnly);
    }
    std::vector<std::string> namesInFolder() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder.path()))
            names.push_back(entry.path().filename());
        std::ranges::sort(names);
        return names;
    }

    TemporaryFolder folder;
    const std::string path = folder / "inbox";
    const std::string ann = mboxMessage("ann"), bob = mboxMessage("bob", "two\n\nparts\n"),
                      cid = mboxMessage("cid");
};

TEST_F(FlatMailbox, ListsItsMessagesAndGivesTheirBytes) {
    const auto store = open();
    ASSERT_TRUE(store);
    EXPECT_EQ(store->totalCountAndSize(), (CountAndSize{3, static_cast<std::uint32_t>(fs::file_size(path))}));
    EXPECT_THAT(bytesOf(store->allMessages()), ElementsAre(ann, bob, cid));
    auto& second = *store->allMessages()[1];
    EXPECT_EQ(store->bodyForMessage(second)->view(), "two\n\nparts\n\n");
    const auto cached = store->cachedHeadersForMessage(second);
    ASSERT_EQ(cached.size(), 2u) << "there is no date line";
    EXPECT_EQ(cached.textForKey("Subject"), "about bob");
    EXPECT_EQ(second.headers()->dateReceived().secondsSince1970() / 86400, 11921);
    EXPECT_EQ(second.messageSize(), bob.size());
    EXPECT_EQ(store->unreadCount(), 0u);
    auto& third = *store->allMessages()[2];
    third.headers()->setObject("another", "Subject");
    EXPECT_EQ(third.headers()->subject(), "another") << "changed in memory before anybody asked";
}

TEST_F(FlatMailbox, IsOpenedByTheClassThatIsWilling) {
    fs::create_directory(folder / "dir");
    writeFile(folder / "mbox", "");
    for (const auto& [name, willingness] :
         {std::pair{"inbox", 0.333F}, {"mbox", 0.667F}, {"dir", 0.0F}, {"missing", 0.0F}}) {
        const std::string place = folder / name;
        EXPECT_FLOAT_EQ(BerkeleyMbox::willingnessToOpen(place), willingness);
        const auto store = MessageStore::storeForPath(place);
        EXPECT_EQ(store ? store->className() : "none", willingness > 0 ? "BerkeleyMbox" : "none");
    }
}

TEST_F(FlatMailbox, ThatIsMissingIsEmptyWhenItMayBeCreated) {
    const std::string place = folder / "new";
    EXPECT_FALSE(BerkeleyMbox::initWithPath(place, false, false));
    EXPECT_FALSE(fs::exists(place + ".lock"));
    const auto store = BerkeleyMbox::initWithPath(place, true, false);
    ASSERT_TRUE(store);
    EXPECT_EQ(store->totalCount(), 0u);
    EXPECT_FALSE(fs::exists(place));
    store->syncAppendMessages(open(false, true)->allMessages(), false);
    EXPECT_EQ(readFile(place), ann + bob + cid);
    EXPECT_EQ(fs::status(place).permissions(), fs::perms::owner_all);
}

/// A disk on which one file cannot be read.
class UnreadableFile : public PosixFileSystem {
public:
    UnreadableFile() : _before(setCurrent(this)) {}
    ~UnreadableFile() override { setCurrent(_before); }
    std::unique_ptr<ReadableFile> openForReading(const std::string& path, FileStatus* status) override {
        if (status != nullptr) *status = FileStatus(EACCES, "open " + path + ": Permission denied");
        return nullptr;
    }

private:
    FileSystem* const _before;
};

TEST_F(FlatMailbox, ThatCannotBeReadDoesNotOpenAndSaysWhy) {
    const auto refused = [](const std::string& place, std::string_view reason) {
        const LogCapture log;
        EXPECT_FALSE(BerkeleyMbox::initWithPath(place));
        EXPECT_THAT(log.lines(), ElementsAre(HasSubstr(reason)));
        EXPECT_FALSE(fs::exists(place + ".lock"));
    };
    fs::create_directory(folder / "dir");
    refused(folder / "dir", "Is a directory");
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    refused(folder / "fifo", "fifo");
    writeFile(folder / "huge", "From a\n\n");
    fs::resize_file(folder / "huge", (std::uintmax_t{1} << 32) + 5);
    refused(folder / "huge", "more than the 4 GB");
    const UnreadableFile disk;
    refused(path, "Permission denied");
}

TEST_F(FlatMailbox, OfSomethingElseIsEmptyAndStaysAsItIs) {
    for (const auto& bytes : {""s, " \n\n"s, "\x7F\x45LF\0\0From \n"s, "Dear all,\n\nFrom today on ...\n"s}) {
        writeFile(path, bytes);
        const auto store = open();
        ASSERT_TRUE(store);
        EXPECT_EQ(store->totalCount(), 0u);
        store->doCompact();
        if (bytes.size() > 5) {
            const LogCapture log;
            store->syncAppendMessages({messageOf("Subject: x\n\ny\n")}, false);
            EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("is no mailbox")));
        }
        EXPECT_EQ(readFile(path), bytes);
    }
}

TEST_F(FlatMailbox, DeletingHidesAndCompactingRemoves) {
    const std::string all[] = {ann, bob, cid};
    for (unsigned deleted = 0; deleted < 8; ++deleted) {
        const auto before = "\n" + ann + bob + cid;
        writeFile(path, before);
        const auto store = open();
        const auto messages = store->allMessages();
        std::string left = "\n";
        std::vector<std::shared_ptr<Message>> going;
        for (unsigned i = 0; i < 3; ++i) {
            if ((deleted >> i & 1) != 0) {
                going.insert(going.begin(), messages[i]);  // not in the order of the file
            } else {
                left += all[i];
            }
        }
        store->deleteMessages(going);
        EXPECT_EQ(store->count(), 3 - going.size());
        EXPECT_EQ(store->deletedCountAndSize().count, 2 * going.size()) << "each stands there twice";
        EXPECT_EQ(readFile(path), before);
        store->doCompact();
        EXPECT_EQ(readFile(path), left);
        EXPECT_EQ(store->totalCountAndSize(),
                  (CountAndSize{3 - going.size(), static_cast<std::uint32_t>(left.size() - 1)}));
        EXPECT_EQ(store->deletedCountAndSize(), CountAndSize());
        for (unsigned i = 0; i < 3; ++i) {  // whoever holds a message reads it at its new place
            EXPECT_EQ(bytesOf(*messages[i]), (deleted >> i & 1) != 0 ? "(no store)" : all[i]);
        }
        EXPECT_THAT(namesInFolder(), ElementsAre("inbox", "inbox.lock"));
    }
}

TEST_F(FlatMailbox, ClosingDoesNotMakeDeletingFinal) {
    const auto store = open();
    store->deleteMessage(store->allMessages()[0]);
    const auto last = store->allMessages()[2];
    store->close();
    EXPECT_EQ(readFile(path), ann + bob + cid);
    EXPECT_THAT(namesInFolder(), ElementsAre("inbox"));
    EXPECT_THAT(store->allMessages(), IsEmpty());
    EXPECT_EQ(bytesOf(*last), "(no bytes)");
    store->close();
    store->doCompact();
    EXPECT_EQ(readFile(path), ann + bob + cid) << "nor does anything that comes later";
}

TEST_F(FlatMailbox, AppendingKeepsTheBytesOfMessages) {
    const struct {
        const char* why;
        std::string before, added, after;
    } rows[] = {
        {"padded to an empty line", "", "From a\nS: x\n\nbody", "From a\nS: x\n\nbody\n\n"},
        {"half padded", "", "From a\nS: x\n\nbody\n", "From a\nS: x\n\nbody\n\n"},
        {"not padded", "", "From a\n\nbody\n\n\n", "From a\n\nbody\n\n\n"},
        {"a file without a final newline", "From a\n\nx", "From b\n\ny\n\n", "From a\n\nx\n\nFrom b\n\ny\n\n"},
        {"a file with one", "From a\n\nx\n", "From b\n\ny\n\n", "From a\n\nx\nFrom b\n\ny\n\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        writeFile(path, row.before);
        fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
        const auto store = open();
        EXPECT_FALSE(store->syncAppendMessages({messageOf(row.added)}, true)) << "true would be new to callers";
        EXPECT_EQ(readFile(path), row.after);
        EXPECT_EQ(store->totalCount(), messagesByPlainRule(row.after).size());
        EXPECT_EQ(fs::status(path).permissions(),
                  fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    }
    EXPECT_TRUE(open()->syncAppendMessages({}, false));
    EXPECT_THAT(namesInFolder(), ElementsAre("inbox"));
}

TEST_F(FlatMailbox, AppendingLeavesKnownMessagesAndMarksAlone) {
    const auto store = open();
    const auto known = store->allMessages();
    store->deleteMessage(known[1]);
    store->syncAppendMessages(store->allMessages(), false);  // the store's own list, too
    EXPECT_THAT(bytesOf(store->allMessages()), ElementsAre(ann, bob, cid, ann, bob, cid));
    EXPECT_EQ(store->allMessages()[2], known[2]);
    EXPECT_EQ(store->count(), 5u);
    store->doCompact();
    EXPECT_EQ(readFile(path), ann + cid + ann + bob + cid);
    EXPECT_FALSE(store->undeleteLastDeletedMessages()) << "what was compacted cannot be taken back";

    store->syncAppendMessages({messageOf("From: Dee <dee@x.example>\n\nhi\n")}, false);
    EXPECT_THAT(bytesOf(*store->allMessages().back()),
                MatchesRegex("From dee@x.example [^\n]*\nFrom: Dee <dee@x.example>\n\nhi\n\n"))
        << "a message without an envelope gets one";
}

TEST_F(FlatMailbox, ReplacesTheFileBehindALink) {
    fs::create_symlink(path, folder / "link");
    const auto store = BerkeleyMbox::initWithPath(std::string(folder / "link"));
    EXPECT_THAT(namesInFolder(), ElementsAre("inbox", "inbox.lock", "link"));
    store->deleteMessage(store->allMessages()[0]);
    store->doCompact();
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
    EXPECT_EQ(readFile(path), bob + cid);
}

TEST_F(FlatMailbox, IsMadeWhereALinkLeads) {
    fs::create_directory(folder / "elsewhere");
    fs::create_symlink("elsewhere/box", folder / "link");
    EXPECT_FALSE(BerkeleyMbox::initWithPath(std::string(folder / "link")));
    const auto store = BerkeleyMbox::initWithPath(std::string(folder / "link"), true, false);
    EXPECT_EQ(store->storePath(), (folder / "elsewhere/box").string());
    store->syncAppendMessages(open(false, true)->allMessages(), false);
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
    EXPECT_EQ(readFile(folder / "elsewhere/box"), ann + bob + cid);
    EXPECT_FALSE(BerkeleyMbox::initWithPath("", true, false)) << "an empty path is no mailbox";
}

TEST_F(FlatMailbox, StaysItsOwnersAndItsGroups) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
    auto& files = FileSystem::current();
    ASSERT_TRUE(files.setOwner(path, 1234, 5678));
    const auto owners = [&] {
        const auto now = *files.attributes(path);
        return std::pair(now.owner, now.group);
    };
    const auto store = open();
    store->syncAppendMessages(store->allMessages(), false);
    EXPECT_EQ(owners(), std::pair(uid_t{1234}, gid_t{5678}));
    store->deleteMessage(store->allMessages()[0]);
    store->doCompact();
    EXPECT_EQ(owners(), std::pair(uid_t{1234}, gid_t{5678}));
}

TEST_F(FlatMailbox, WritesACopyAndHasNoPlaceForAttributes) {
    const auto store = open();
    store->setSortOrder(MessageStoreSortBySize);
    store->saveUserInfo();
    EXPECT_EQ(open(false, true)->sortOrder(), MessageStoreSortByNumber);
    EXPECT_TRUE(store->writeToFile(folder / "copy"));
    EXPECT_EQ(readFile(folder / "copy"), ann + bob + cid);
    const LogCapture log;
    EXPECT_FALSE(store->writeToFile(path));
    EXPECT_FALSE(store->writeToFile(folder / "no/copy"));
    EXPECT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(readFile(path), ann + bob + cid);
}

// What other programs do to the file while it is open.

TEST_F(FlatMailbox, MailThatOthersAppendIsNeverLost) {
    const std::string dee = mboxMessage("dee"), eve = mboxMessage("eve");
    const auto store = open();
    std::ofstream(path, std::ios::app) << dee;
    store->syncAppendMessages({messageOf(eve)}, false);
    EXPECT_THAT(bytesOf(store->allMessages()), ElementsAre(ann, bob, cid, dee, eve));
    store->deleteMessage(store->allMessages()[1]);
    std::ofstream(path, std::ios::app) << dee;
    store->doCompact();
    EXPECT_EQ(readFile(path), ann + cid + dee + eve + dee);
    EXPECT_THAT(bytesOf(store->allMessages()), ElementsAre(ann, cid, dee, eve, dee));
    // Whoever replaces the whole file and only adds to it has appended, too.
    writeFile(folder / "other", readFile(path) + eve);
    fs::rename(folder / "other", path);
    store->deleteMessage(store->allMessages()[0]);
    store->doCompact();
    EXPECT_EQ(readFile(path), cid + dee + eve + dee + eve);
}

TEST_F(FlatMailbox, IsNotCompactedAfterForeignChanges) {
    const std::string xxx = mboxMessage("xxx");  // as long as the others
    const std::pair<const char*, std::string> rows[] = {
        {"shorter", ann},
        {"empty", ""},
        {"longer, but other mail", xxx + ann + bob + cid},
        {"one message is another", ann + mboxMessage("bob", "two\n\nPARTS\n") + cid + xxx},
        {"text behind the last message", ann + bob + cid + "more\n"},
    };
    for (const bool inPlace : {true, false}) {
        for (const auto& [why, bytes] : rows) {
            SCOPED_TRACE(why);
            writeFile(path, ann + bob + cid);
            const auto store = open();
            store->deleteMessage(store->allMessages()[0]);
            writeFile(inPlace ? path : path + "2", bytes);
            if (!inPlace) fs::rename(path + "2", path);
            const LogCapture log;
            store->doCompact();
            EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("was changed by another program")));
            EXPECT_EQ(readFile(path), bytes);
        }
    }
}

TEST_F(FlatMailbox, SurvivesBeingCutOff) {
    std::string big = ann;
    while (big.size() < 100'000) big += bob;
    writeFile(path, big);
    const auto store = open();
    const auto last = store->allMessages().back();
    const auto kept = store->bodyForMessage(*store->allMessages()[9]);
    fs::resize_file(path, ann.size() + 3);
    const LogCapture log;
    EXPECT_EQ(bytesOf(*store->allMessages()[0]), ann);
    EXPECT_EQ(bytesOf(*last), "(no bytes)");
    EXPECT_THAT(log.lines(), Contains(HasSubstr("cut off")));
    EXPECT_EQ(kept->view(), "two\n\nparts\n\n") << "what was handed out stays good";
    store->setSortOrder(MessageStoreSortByCreationDate);
    EXPECT_FALSE(store->writeToFile(folder / "copy"));
    store->rebuildMessageLists();
    EXPECT_THAT(bytesOf(store->allMessages()), ElementsAre(ann + "Fro"));
}

TEST_F(FlatMailbox, MailThatArrivesDuringTheCopyingIsKept) {
    const std::string dee = mboxMessage("dee");
    const auto store = open();
    store->deleteMessage(store->allMessages()[1]);
    int deliveries = 2;
    const SharedDisk disk(path, [&](auto call) {
        if (call == SharedDisk::Call::openForWriting && deliveries-- > 0)
            std::ofstream(path, std::ios::app) << dee;
    });
    store->doCompact();
    EXPECT_EQ(readFile(path), ann + cid + dee + dee);
    const LogCapture log;
    deliveries = 1000;
    store->syncAppendMessages({messageOf(ann)}, false);
    EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("is busy")));
    EXPECT_EQ(readFile(path), ann + cid + dee + dee + dee + dee + dee);
}

TEST_F(FlatMailbox, CostsFewBytesAMessage) {
    if (::mallinfo2().uordblks == 0) GTEST_SKIP() << "the sanitizer's allocator keeps no such account";
    constexpr std::size_t kCount = 50'000;
    std::string bytes;
    for (std::size_t i = 0; i < kCount; ++i) bytes += ann;
    writeFile(path, bytes);
    std::string().swap(bytes);
    open();  // what is made once in a process is made now
    const auto used = [] {
        const auto info = ::mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    const auto before = used();
    const auto store = open();
    const auto each = static_cast<double>(used() - before) / kCount;
    EXPECT_EQ(store->totalCount(), kCount);
    EXPECT_LE(each, 200.0);
    RecordProperty("bytes", std::to_string(each));
    for (const auto& message : store->allMessages()) {
        message->headers()->cachedHeaders();
        message->flushCachedData();
    }
    const auto flushed = static_cast<double>(used() - before) / kCount;
    EXPECT_LE(flushed, each + 120.0) << "three short headers, and nothing around them";
}

std::multiset<const Message*> theSame(const MessageList& messages) {
    std::multiset<const Message*> all;
    for (const auto& message : messages) all.insert(message.get());
    return all;
}

/// Everything that a listing touches, in every order.
void listInEveryOrder(MessageStore& store) {
    const auto all = theSame(store.allMessages());
    for (const auto order : {MessageStoreSortByTitle, MessageStoreSortByAuthor, MessageStoreSortBySize,
                             MessageStoreSortByCreationDate, MessageStoreSortByNumber}) {
        store.setSortOrder(order);
        EXPECT_TRUE(theSame(store.filteredMessages()) == all);
    }
    for (const auto& message : store.allMessages()) {
        message->headers()->sender();
        message->headers()->subject();
        message->encodedBody();
        message->flushCachedData();
    }
}

class RealMailboxes : public ::testing::Test {
protected:
    void SetUp() override {
        if (!shared) GTEST_SKIP() << "the folder of real mail is not there";
    }
    const std::optional<fs::path> shared = sharedData();
    const LogCapture quiet;  // dates that nobody can read are told by hundreds
};

TEST_F(RealMailboxes, EveryFileOpensAndListsByTheRule) {
    int files = 0, messages = 0;
    for (const auto& entry : fs::recursive_directory_iterator(*shared)) {
        if (!entry.is_regular_file()) continue;
        SCOPED_TRACE(entry.path());
        const auto bytes = readFile(entry.path());
        const auto expected = messagesByPlainRule(bytes);
        const auto store = BerkeleyMbox::initWithPath(entry.path().string(), true);
        ASSERT_TRUE(store);
        const auto found = bytesOf(store->allMessages());
        ASSERT_TRUE(std::ranges::equal(found, expected));
        listInEveryOrder(*store);
        ++files;
        messages += static_cast<int>(found.size());
    }
    EXPECT_GT(files, 500);
    EXPECT_GT(messages, 30);
}

TEST_F(RealMailboxes, FourThousandMessagesKeepTheirBytesFromMailboxToMailbox) {
    const TemporaryFolder folder;
    const std::string source = folder / "source", target = folder / "target";
    writeFile(source, unpacked(*shared / "large/english-4k.mbox.xz"));
    if (fs::file_size(source) == 0) GTEST_SKIP() << "xz is not there";
    const auto from = BerkeleyMbox::initWithPath(source, true);
    ASSERT_TRUE(from);
    EXPECT_EQ(from->totalCountAndSize(), (CountAndSize{4150, 20'141'207}));
    const auto to = BerkeleyMbox::initWithPath(target, true, false);
    to->syncAppendMessages(from->allMessages(), false);
    ASSERT_EQ(to->totalCount(), 4150u);
    const auto before = bytesOf(from->allMessages()), after = bytesOf(to->allMessages());
    for (std::size_t i = 0; i < before.size(); ++i)
        ASSERT_EQ(after[i], before[i] + std::string(mboxPadding(before[i]))) << "message " << i;
    listInEveryOrder(*to);
    std::vector<std::shared_ptr<Message>> odd;
    for (std::size_t i = 1; i < to->totalCount(); i += 2) odd.push_back(to->allMessages()[i]);
    to->deleteMessages(odd);
    to->doCompact();
    ASSERT_EQ(to->totalCount(), 2075u);
    for (std::size_t i = 0; i < to->totalCount(); ++i)
        ASSERT_EQ(bytesOf(*to->allMessages()[i]), after[2 * i]) << "message " << i;
}

}  // namespace
}  // namespace lorvale
