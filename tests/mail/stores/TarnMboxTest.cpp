#include <gmock/gmock.h>
#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <random>
#include <thread>

#include "lorvale/body.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/platform/user_defaults.h"
#include "lorvale/values/format.h"
#include "mail/stores/TOCMessage.h"
#include "tests/mail/model/RealMail.h"
#include "tests/support/PlainMbox.h"
#include "tests/support/StoreSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
namespace fs = std::filesystem;

std::shared_ptr<Message> letter(std::string_view name, std::string_view body = "hello\n") {
    return messageOf(mboxMessage(name, body));
}

/// "*d" behind the number in the subject: unread, deleted.
std::string listing(MessageStore& store) {
    std::string text;
    for (const auto& message : store.allMessages()) {
        const auto flags = message->currentFlags();
        auto subject = message->headers()->subject();
        text += (subject.size() > 6 ? subject.substr(6) : "?") + (flags->isRead() ? "" : "*") +
                (flags->isDeleted() ? "d" : "") + " ";
    }
    return text;
}

class Tarn : public ::testing::Test {
protected:
    std::shared_ptr<TarnMbox> open(bool readOnly = false) { return TarnMbox::initWithPath(path, readOnly); }
    std::shared_ptr<TarnMbox> made(std::initializer_list<const char*> names, bool unread = true) {
        auto store = TarnMbox::initWithPath(path, true, false);
        for (const auto* const name : names) EXPECT_TRUE(store->syncAppendMessages({letter(name)}, unread));
        return store;
    }
    void append(std::string_view bytes) { std::ofstream(path + "/mbox", std::ios::app) << bytes; }
    /// Until the store has taken in what was appended in the background.
    static void runMainLoopUntil(MessageStore& store, std::size_t count) {
        const auto deadline = RunLoop::Clock::now() + std::chrono::seconds(20);
        while (store.totalCount() < count && RunLoop::Clock::now() < deadline)
            RunLoop::main()->runOnce(deadline);
        while (RunLoop::main()->dispatch()) continue;
    }

    const TemporaryFolder folder;
    const std::string path = folder / "box.mbox";
    LogCapture log;
};

TEST_F(Tarn, KeepsMailAndStatusFromOneOpeningToTheNext) {
    {
        const auto store = made({"a", "b", "c"});
        EXPECT_EQ(MessageStore::storeForPath((folder / "other.mbox").string(), true)->className(), "TarnMbox");
        EXPECT_EQ(store->displayName(), "box");
        EXPECT_EQ(store->unreadCountAndSize().count, 3u);
        store->setRead(true, store->allMessages()[1]);
        store->deleteMessage(store->allMessages()[2]);
        EXPECT_EQ(store->inconsistency(), "");
        store->close();
        EXPECT_FALSE(fs::exists(path + "/.lock"));
    }
    const auto info = *MessageStore::userInfoForPath(path);
    EXPECT_EQ(info[MessageStoreUnreadCount].string(), "1");
    EXPECT_EQ(info[MessageStoreDeletedCount].string(), "1");
    EXPECT_EQ(info[MessageStoreTotalCount].string(), std::to_string(mboxMessage("c").size()))
        << "where the size of what is deleted has always been written";
    const auto store = open(/*readOnly=*/true);
    EXPECT_EQ(listing(*store), "a* b cd ");
    EXPECT_EQ(readFile(path + "/mbox"), mboxMessage("a") + mboxMessage("b") + mboxMessage("c"));
    EXPECT_THAT(bytesOf(store->allMessages()),
                ElementsAre(mboxMessage("a"), mboxMessage("b"), mboxMessage("c")));
    EXPECT_EQ(store->allMessages()[0]->messageID(), "a@x.example_about a_1030020383");
    EXPECT_EQ(store->messageForMessageID("a@x.example_about a_1030020383"), store->allMessages()[0]);
    store->allMessages()[0]->flushCachedData();
    EXPECT_EQ(store->allMessages()[0]->cachedDataSize(), 0) << "the table has its headers at hand";
    EXPECT_FALSE(store->haveLock());
    EXPECT_FALSE(store->syncAppendMessages({letter("d")}, true));
    store->deleteMessages(store->allMessages());
    EXPECT_EQ(listing(*store), "a* b cd ") << "nothing changes without the lock";
    EXPECT_THAT(log.take(), ElementsAre(HasSubstr("rebuilding table"), HasSubstr("rebuilding table")))
        << "of two new mailboxes";
}

TEST_F(Tarn, OpensOnlyWhatItMay) {
    EXPECT_EQ(open(), nullptr);
    EXPECT_EQ(MessageStore::openingFailure().reason, OpeningFailure::Reason::missing);
    EXPECT_EQ(TarnMbox::initWithPath(path, true, true), nullptr);
    EXPECT_EQ(TarnMbox::willingnessToOpen(path), 0);
    fs::create_directory(path);
    EXPECT_FLOAT_EQ(TarnMbox::willingnessToOpen(path), 1.1F);
    EXPECT_EQ(open(), nullptr) << "there is no mail in it";
    EXPECT_FALSE(fs::exists(path + "/.lock")) << "a failed opening gives the lock back";
    made({"a"})->close();
    const auto first = open();
    const auto second = open();
    EXPECT_TRUE(second->isReadOnly());
    {
        WindowHost host;
        EXPECT_EQ(open(), nullptr) << "the user would not";
    }
    first->syncAppendMessages({letter("b")}, true);
    // So that the stamp is another one whatever the time of the day.
    fs::last_write_time(path + "/mbox", fs::last_write_time(path + "/mbox") - std::chrono::seconds(5));
    log.take();
    EXPECT_EQ(open(true), nullptr) << "without the lock a stale table is not made anew";
    EXPECT_THAT(log.take(), ElementsAre("No table of contents present, but mailbox is locked.  Can't open this "
                                        "mailbox."));
}

TEST_F(Tarn, MakesItsTableAnewWhenThatIsStaleDamagedOrMissing) {
    made({"a", "b"})->close();
    const auto table = readFile(path + "/table_of_contents");
    const auto reopenedWith = [&](const std::string& bytes) {
        writeFile(path + "/table_of_contents", bytes);
        const auto store = open();
        EXPECT_EQ(store->inconsistency(), "");
        return listing(*store);
    };
    EXPECT_EQ(reopenedWith(table), "a* b* ");
    EXPECT_EQ(reopenedWith(table.substr(0, table.size() - 1)), "a b ");
    EXPECT_EQ(reopenedWith(""), "a b ");
    auto wild = table;
    wild[32 + 4] = '\x7F';  // where the first message lies
    EXPECT_EQ(reopenedWith(wild), "a* b* ") << "the record knows its status, if not the place";
    auto few = table;
    few[7] = '\1';
    EXPECT_EQ(reopenedWith(few), "a* b ");
    auto stale = table;
    stale[8] = '\1';
    append(mboxMessage("c"));
    EXPECT_EQ(reopenedWith(stale), "a* b* c ") << "what has no record counts as read";
    fs::remove(path + "/table_of_contents");
    EXPECT_EQ(listing(*open()), "a b c ");
    EXPECT_EQ(listing(*open(true)), "a b c ");
}

TEST_F(Tarn, ListsATailThatAKillLeft) {
    made({"a"})->close();
    const auto stamp = fs::last_write_time(path + "/mbox");
    append(mboxMessage("b") + "From c@x.example Thu");
    fs::last_write_time(path + "/mbox", stamp);
    log.take();
    const auto store = open();
    EXPECT_THAT(log.take(), Not(Contains(HasSubstr("rebuilding")))) << "the tail alone was read";
    EXPECT_EQ(store->totalCount(), 3u);
    EXPECT_TRUE(store->syncAppendMessages({letter("d")}, true));
    EXPECT_EQ(store->inconsistency(), "");
    EXPECT_EQ(bytesOf(*store->allMessages()[2]), "From c@x.example Thu\n\n") << "no piece swallows the next";
    EXPECT_EQ(bytesOf(*store->allMessages()[3]), mboxMessage("d"));
}

TEST_F(Tarn, LeavesNoTableOfMailThatAnotherProgramHasMoved) {
    constexpr std::chrono::sys_seconds kStamp(std::chrono::seconds(0x60000000));
    const auto setTime = [&](const char* name, int milliseconds) {
        fs::last_write_time(
            path + name, std::chrono::file_clock::from_sys(kStamp + std::chrono::milliseconds(milliseconds)));
    };
    made({"a", "b"})->close();
    auto table = readFile(path + "/table_of_contents");
    writeFile(path + "/table_of_contents", table.replace(8, 4, std::string("\x60\0\0\0", 4)));
    setTime("/mbox", 0);
    setTime("/table_of_contents", 400);
    const auto store = open();
    store->setRead(true, store->allMessages()[0]);
    writeFile(path + "/mbox", mboxMessage("b") + mboxMessage("a"));
    setTime("/mbox", 100);  // as of a copy that keeps its time: nothing tells that the table is older
    EXPECT_FALSE(store->syncAppendMessages({std::make_shared<Message>()}, true));
    ASSERT_EQ(listing(*store), "b* a ");
    const auto afterAKill = open(/*readOnly=*/true);
    ASSERT_NE(afterAKill, nullptr);
    EXPECT_EQ(listing(*afterAKill), "b* a ");
}

TEST_F(Tarn, TakesMailFromTheBackground) {
    const auto store = made({"a"}, /*unread=*/false);
    store->asyncAppendMessages({letter("b"), letter("c")}, true);
    store->asyncAppendMessages({letter("d")}, true);
    runMainLoopUntil(*store, 4);
    EXPECT_EQ(store->totalCount(), 4u);
    EXPECT_EQ(store->unreadCount(), 3u);
    EXPECT_EQ(store->inconsistency(), "");
    EXPECT_FALSE(fs::exists(path + "/Incoming_Mail"));
    EXPECT_TRUE(store->safeAppendMessages({letter("e")}));
    EXPECT_EQ(store->totalCount(), 4u) << "lists are the main thread's";
    store->close();
    const auto incoming = readFile(path + "/Incoming_Mail");
    EXPECT_EQ(incoming, mboxMessage("e"));
    fs::remove(path + "/Incoming_Table_of_Contents");
    const auto again = open();
    EXPECT_THAT(listing(*again), HasSubstr("e* ")) << "also without a table";
    EXPECT_EQ(again->inconsistency(), "");
    EXPECT_FALSE(fs::exists(path + "/Incoming_Mail"));
    // An incoming table whose mail is gone must not speak for other mail.
    writeFile(path + "/Incoming_Table_of_Contents", "");
    EXPECT_TRUE(again->_createSpoolCopyFromMessages(again->allMessages()));
    EXPECT_EQ(readFile(path + "/CopyOfSpoolFile"), readFile(path + "/mbox"));
}

class Compacting : public Tarn, public ::testing::WithParamInterface<bool> {
protected:
    void SetUp() override { UserDefaults::standard().setArgument("RiskyCompact", GetParam() ? "YES" : "NO"); }
    void TearDown() override { UserDefaults::standard().removeArguments(); }
};
INSTANTIATE_TEST_SUITE_P(Ways, Compacting, ::testing::Bool(),
                         [](const auto& each) { return each.param ? "Risky" : "Safe"; });

TEST_P(Compacting, TakesOutWhatIsDeletedAndItsAttachments) {
    const auto store = made({"a", "b", "c", "d"});
    const auto withAttachment = [&](std::string_view name, std::string_view reference) {
        auto bytes = mboxMessage(name);
        bytes.insert(bytes.find("Subject"), "Mime-Reference: " + std::string(reference) + "\n");
        store->syncAppendMessages({messageOf(bytes)}, false);
    };
    withAttachment("e", "own");
    withAttachment("f", "../outside");
    withAttachment("g", "shared");
    withAttachment("h", "shared");
    for (const auto* const name : {"box.mbox/own", "outside", "box.mbox/shared"})
        fs::create_directories(folder / name / "x");
    const auto all = store->allMessages();
    const auto& gone = all[1];
    store->deleteMessages({all[6], all[1], all[4], all[5]});
    store->deleteMessage(all[1]);
    EXPECT_EQ(store->deletedCountAndSize().count, 4u) << "not counted twice";
    store->doCompact();
    EXPECT_EQ(listing(*store), "a* c* d* h ");
    EXPECT_EQ(store->inconsistency(), "");
    EXPECT_THAT(bytesOf(MessageList{all[0], all[2], all[3]}),
                ElementsAre(mboxMessage("a"), mboxMessage("c"), mboxMessage("d")));
    EXPECT_EQ(bytesOf(*gone), "(no store)");
    EXPECT_EQ(store->deletedCountAndSize(), CountAndSize());
    EXPECT_FALSE(store->undeleteLastDeletedMessages());
    RunLoop::main()->runFor(std::chrono::milliseconds(GetParam() ? 1100 : 10));
    EXPECT_FALSE(fs::exists(folder / "box.mbox/own"));
    EXPECT_TRUE(fs::exists(folder / "outside") && fs::exists(folder / "box.mbox/shared"));
    store->deleteMessage(all[0]);
    store->doCompact();
    EXPECT_EQ(readFile(path + "/mbox").substr(0, 12), "From c@x.exa");
    store->close();
    EXPECT_EQ(listing(*open(true)), "c* d* h ");
}

TEST_F(Tarn, RefusesBytesThatAreNotThereAnyMore) {
    const auto store = made({"a", "b", "c"});
    const auto whole = readFile(path + "/mbox");
    const auto other = mboxMessage("x") + mboxMessage("b") + mboxMessage("z");
    { std::fstream(path + "/mbox", std::ios::in | std::ios::out) << other; }
    EXPECT_THAT(bytesOf(store->allMessages()), ElementsAre("(no bytes)", mboxMessage("b"), "(no bytes)"));
    fs::resize_file(path + "/mbox", whole.size() / 2);
    EXPECT_EQ(bytesOf(*store->allMessages()[2]), "(no bytes)");
    // What is on disk is what counts when the store writes the next time.
    EXPECT_FALSE(store->syncAppendMessages({letter("d"), store->allMessages()[2]}, true));
    EXPECT_EQ(store->inconsistency(), "");
    EXPECT_THAT(listing(*store), HasSubstr("d* "));
    fs::rename(path + "/mbox", path + "/away");
    EXPECT_FALSE(store->syncAppendMessages({letter("e")}, true));
    EXPECT_FALSE(fs::exists(path + "/mbox")) << "a mailbox is not begun beside one that went";
}

TEST_F(Tarn, RemembersStatusByIdentity) {
    const auto store = made({"a", "same", "same", "b"});
    store->setRead(true, store->allMessages()[1]);
    const auto midnight = "From m@x.example Thu Jan  1 00:00:00 1970\nFrom: m\nSubject: about m\n\n";
    store->syncAppendMessages({messageOf(midnight)}, true);
    store->rebuildTableOfContents();
    EXPECT_EQ(listing(*store), "a* same same* b* m* ");
    append(mboxMessage("c"));
    writeFile(path + "/mbox", mboxMessage("first") + readFile(path + "/mbox"));
    store->rebuildTableOfContents();
    EXPECT_EQ(listing(*store), "first a* same* same b* m* c ")
        << "of two that are alike and moved the last wins";
    EXPECT_EQ(store->inconsistency(), "");
    EXPECT_THAT(log.lines(), Contains("Warning: two messages in one mailbox have the same ID!"));
}

TEST_F(Tarn, DoesWhatAPlainModelDoes) {
    struct Letter {
        std::string name, bytes;
        bool unread, deleted = false;
    };
    const auto seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto below = [&](std::size_t end) { return random() % end; };
    std::vector<Letter> model;
    auto store = TarnMbox::initWithPath(path, true, false);
    int serial = 0;
    for (int step = 0; step < 150; ++step) {
        const auto kind = below(10);
        if (kind < 3) {
            const bool inBackground = kind == 0, unread = inBackground || below(2) == 0;
            std::vector<std::shared_ptr<Message>> fresh;
            for (auto count = 1 + below(3); count > 0; --count) {
                const auto name = std::to_string(serial++), body = std::string(below(2000), 'x') + "\n";
                model.push_back({name, mboxMessage(name, body), unread});
                fresh.push_back(letter(name, body));
            }
            if (inBackground)
                store->asyncAppendMessages(fresh, true);
            else
                ASSERT_TRUE(store->syncAppendMessages(fresh, unread));
            runMainLoopUntil(*store, model.size());
        } else if (kind == 8) {
            UserDefaults::standard().setArgument("RiskyCompact", below(2) == 0 ? "YES" : "NO");
            store->doCompact();
            std::erase_if(model, [](const auto& each) { return each.deleted; });
        } else if (kind == 9) {
            if (below(2) == 0) store->rebuildTableOfContents();
            store->close();
            store = open();
            for (auto& each : model) each.unread = each.unread && !each.deleted;
        } else if (!model.empty()) {
            const auto index = below(model.size());
            auto& own = model[index];
            const MessageList one{store->allMessages()[index]};
            if (kind < 5) {
                own.unread = below(2) == 0;
                store->setRead(!own.unread, one);
            } else {
                own.deleted ? store->undeleteMessages(one) : store->deleteMessages(one);
                own.deleted = !own.deleted;
                own.unread = own.unread && !own.deleted;
            }
        }
        SCOPED_TRACE(::testing::Message() << "step " << step << " kind " << kind);
        std::string listed;
        std::vector<std::string> bytes;
        for (const auto& each : model) {
            listed += each.name + (each.unread ? "*" : "") + (each.deleted ? "d" : "") + " ";
            bytes.push_back(each.bytes);
        }
        const auto deleted = static_cast<std::size_t>(std::ranges::count_if(model, &Letter::deleted));
        const auto unread =
            std::ranges::count_if(model, [](auto& each) { return each.unread && !each.deleted; });
        ASSERT_EQ(store->inconsistency(), "");
        ASSERT_EQ(listing(*store), listed);
        ASSERT_EQ(bytesOf(store->allMessages()), bytes);
        ASSERT_EQ(store->unreadCount(), static_cast<std::size_t>(unread));
        ASSERT_EQ(store->deletedCountAndSize().count, deleted);
        ASSERT_EQ(store->filteredMessages().size(), model.size() - deleted);
    }
    UserDefaults::standard().removeArguments();
}

TEST_F(Tarn, KeepsRealMail) {
    const auto shared = sharedData();
    if (!shared) GTEST_SKIP() << "the folder of real mail is not there";
    const std::string source = folder / "source";
    writeFile(source, unpacked(*shared / "large/english-4k.mbox.xz"));
    if (fs::file_size(source) == 0) GTEST_SKIP() << "xz is not there";
    const auto from = BerkeleyMbox::initWithPath(source, true);
    auto store = TarnMbox::initWithPath(path, true, false);
    ASSERT_TRUE(store->syncAppendMessages(from->allMessages(), true));
    std::vector<std::shared_ptr<Message>> read;
    for (std::size_t i = 0; i < store->totalCount(); i += 3) read.push_back(store->allMessages()[i]);
    store->setRead(true, MessageList(read));
    store->close();
    store = open(true);
    EXPECT_EQ(store->inconsistency(), "");
    const auto expected = bytesOf(from->allMessages()), kept = bytesOf(store->allMessages());
    ASSERT_EQ(kept.size(), expected.size());
    for (std::size_t i = 0; i < kept.size(); ++i) {
        ASSERT_EQ(kept[i], expected[i] + std::string(mboxPadding(expected[i]))) << i;
        ASSERT_EQ(store->allMessages()[i]->currentFlags()->isRead(), i % 3 == 0) << i;
    }
}

/// A host that writes down the sessions of its panel and the last progress shown; its user ends it at once.
class ProgressHost : public WindowHost {
public:
    struct Seen {
        std::string progress, sessions;
    };
    std::unique_ptr<ProgressPanel> makeProgressPanel(std::function<void()> cancel) override {
        struct Panel : ProgressPanel {
            void update(const ProgressState& state, std::string_view) override {
                const auto value = static_cast<int>(state.value), maximum = static_cast<int>(state.maximum);
                seen->progress = formatText("%@: %@ %d/%d%@", state.title, state.message, value, maximum,
                                            state.isButtonEnabled ? " may be ended" : "");
            }
            void beginModalSession() override { seen->sessions += "+"; }
            void turnModalSession() override { press(); }
            void endModalSession() override { seen->sessions += "-"; }
            std::shared_ptr<Seen> seen;
            std::function<void()> press;
        };
        auto panel = std::make_unique<Panel>();
        panel->seen = seen;  // the process keeps the panel
        panel->press = std::move(cancel);
        return panel;
    }
    const std::shared_ptr<Seen> seen = std::make_shared<Seen>();
};

TEST_F(Tarn, ShowsTheProgressOfALongRebuild) {
    ProgressHost host;
    const auto store = made({"1", "2", "3", "4", "5", "6", "7", "8", "9", "10"});
    store->rebuildTableOfContents();
    EXPECT_EQ(host.seen->sessions, "") << "it does not take long";
    EXPECT_TRUE(store->syncAppendMessages({letter("11")}, true));
    store->rebuildTableOfContents();
    EXPECT_EQ(host.seen->sessions, "+-");
    EXPECT_EQ(host.seen->progress, "Open Mailbox: Upgrading table of contents for box.  Please wait... 11/11");
    store->close();
}

TEST_F(Tarn, LaysOutDocumentsOfTheOlderRichFormatAndKeepsWhatItCannot) {
    TarnMailBody::setTarCommand("/bin/tar");
    const auto composed = messageOf("Subject: doc\nX-Kept:\n folded\n\n");
    const auto body = std::make_shared<TarnMailBody>();
    composed->setMessageBody(body);
    body->setMessage(composed);
    TextAttributes bold;
    bold.font = Font{.family = "Times", .bold = true};
    body->setDecodedBody(AttributedText("very bold", bold));
    const auto packed = body->encodedBody()->toString();
    const auto sent = messageOf(composed->headers()->encodedHeaders()->toString() + packed);
    const auto broken = Message::messageWithData(
        Data::ofStatic("Subject: broken\ntarn-attachment: x, 0, 1/1, 0, 0\n\nno blob\n"));
    const auto store = made({});
    EXPECT_TRUE(store->syncAppendMessages({sent, broken}, true));
    EXPECT_EQ(store->inconsistency(), "");
    const auto all = store->allMessages();
    EXPECT_THAT(bytesOf(*all[0]), HasSubstr("X-Kept: folded\nTarn-Reference: doc.attach, 1/1\n\n"));
    EXPECT_THAT(bytesOf(*all[0]), Not(HasSubstr("arn-attachment")));
    EXPECT_EQ(all[0]->messageBody()->decodedBody()->string(), "very bold");
    EXPECT_THAT(bytesOf(*all[1]), HasSubstr("tarn-attachment: x, 0, 1/1, 0, 0\n\nno blob\n"));
    EXPECT_THAT(log.take(), Contains(HasSubstr("failed to convert message\n")));
    EXPECT_EQ(std::distance(fs::directory_iterator(path + "/doc.attach"), {}), 1);
    store->deleteMessage(all[0]);
    store->doCompact();
    while (RunLoop::main()->dispatch()) continue;
    EXPECT_FALSE(fs::exists(path + "/doc.attach"));
    store->close();
}

using TarnMboxThreads = Tarn;

TEST_F(TarnMboxThreads, AppendsInTheBackgroundWhileListingSortingFlaggingAndCompacting) {
    constexpr int kThreads = 3, kEach = 12;
    const auto store = made({"1", "2", "3"});
    std::atomic<bool> done = false;
    std::atomic<int> wrong = 0;
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&store, thread] {
            for (int i = 0; i < kEach; ++i)
                store->safeAppendMessages({letter(std::to_string(100 * (thread + 1) + i))});
        });
    }
    threads.emplace_back([&] {
        while (!done) {
            for (const auto& message : store->allMessages()) {
                const auto subject = message->headers()->subject();
                const auto bytes = message->headers()->encodedHeaders();
                // One that was just taken out has no bytes; none has another's.
                if (bytes && bytes->view().find("Subject: " + subject) == std::string_view::npos) ++wrong;
                message->flushCachedData();
                message->currentFlags();
            }
            store->unreadCount();
        }
    });
    std::size_t gone = 0;
    const auto deadline = RunLoop::Clock::now() + std::chrono::seconds(60);
    for (int turn = 0; store->totalCount() + gone < 3 + kThreads * kEach && RunLoop::Clock::now() < deadline;
         ++turn) {
        RunLoop::main()->runOnce(RunLoop::Clock::now() + std::chrono::milliseconds(5));
        const auto all = store->allMessages();
        store->setSortOrder(turn % 2 == 0 ? MessageStoreSortByAuthor : MessageStoreSortByNumber);
        store->setRead(turn % 3 == 0, MessageList{all.back()});
        if (turn % 5 != 0) continue;
        store->deleteMessage(all.front());
        const auto before = all.size();
        store->doCompact();
        gone += before - store->totalCount();
        EXPECT_EQ(store->inconsistency(), "");
    }
    done = true;
    threads.clear();
    EXPECT_EQ(store->totalCount() + gone, 3u + kThreads * kEach);
    EXPECT_EQ(wrong, 0);
    store->close();
}

}  // namespace
}  // namespace lorvale
