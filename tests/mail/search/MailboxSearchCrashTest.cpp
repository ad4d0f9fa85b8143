#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <random>
#include <thread>

#include "lorvale/platform/run_loop.h"
#include "lorvale/toolkit/storage/storage.h"
#include "mail/search/MboxIndex.h"
#include "tests/support/IndexedMailbox.h"
#include "tests/support/KilledProcess.h"
#include "tests/support/LogCapture.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;

constexpr int kLetters = 100;

/// Appends, deletes and compacts an indexed mailbox until somebody kills the process.
[[noreturn]] void workUntilKilled(const std::string& path, unsigned seed) {
    std::mt19937 random(seed);
    const auto store = TarnMbox::initWithPath(path, true, false);
    store->setIsIndexed(true);
    store->updateIndex();
    int next = 1000 * static_cast<int>(seed);
    for (int step = 0;; ++step) {
        if (store->totalCount() < kLetters) {
            store->syncAppendMessages(numberedLetters(next, 20), true);
            next += 20;
        }
        if (step % 3 == 2) {
            const auto all = store->allMessages();
            store->deleteMessages({all[random() % all.size()], all[random() % all.size()]});
            store->doCompact();
        }
        RunLoop::main()->dispatch();
    }
}

/// Every message is found by its own word, and nothing else is.
void expectIndexFits(const IndexedMailbox& box) {
    ASSERT_TRUE(box.wait());
    const auto all = box.store->allMessages();
    EXPECT_EQ(IndexManager::indexedCount(*box.store), all.size());
    for (const auto& message : all) {
        const auto subject = message->headers()->subject();
        EXPECT_THAT(box.find("rare" + subject.substr(6)), ::testing::ElementsAre(subject));
    }
}

TEST(MailboxSearchCrash, FitsTheMailAgainWheneverTheProcessIsKilled) {
    LogCapture log;
    IndexedMailbox box(/*indexed=*/false);
    box.close();
    std::mt19937 random(7);
    for (unsigned round = 1; round <= 4; ++round) {
        SCOPED_TRACE(round);
        const pid_t child = ::fork();
        if (child == 0) workUntilKilled(box.path(), round);
        std::this_thread::sleep_for(std::chrono::milliseconds(20 + random() % 500));
        ASSERT_EQ(::kill(child, SIGKILL), 0);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status)) << "it ended by itself";
        box.open();
        ASSERT_NE(box.store, nullptr);
        ASSERT_EQ(box.store->inconsistency(), "");
        if (!box.store->isIndexed() && !IndexManager::isSearchable(*box.store)) box.turnOn();
        expectIndexFits(box);
        box.close();
        EXPECT_EQ(checkMailbox(box.path()).count(MailboxFinding::Severity::error), 0u);
        EXPECT_THAT(checkIndex(box.path()).findings, ::testing::IsEmpty());
    }
}

/// One in which the n-th write of the index is the last thing that happens.
[[noreturn]] void workUntilWrite(const std::string& path, int writesLeft) {
    MboxIndex::setStorageMaker([&](const std::string& file) {
        return brindle::IAMakeStorage(
            std::make_unique<brindle::testing::KillingStream>(file.c_str(), writesLeft));
    });
    const auto store = TarnMbox::initWithPath(path, true, false);
    store->setIsIndexed(true);
    const auto wait = [&] {
        store->updateIndex();
        IndexManager::waitUntilIdle(*store, std::chrono::steady_clock::now() + kPatience);
    };
    wait();
    store->syncAppendMessages(numberedLetters(1000 + writesLeft * 5, 5), true);
    wait();
    store->deleteMessages({store->allMessages()[0], store->allMessages()[3]});
    store->doCompact();
    wait();
    store->close();
    ::_exit(brindle::testing::kAlive);
}

TEST(MailboxSearchCrash, FitsTheMailAgainAfterDeathAtAnyWriteOfTheIndex) {
    LogCapture log;
    IndexedMailbox box(/*indexed=*/false);
    box.close();
    bool done = false;
    for (int allowed = 0; !done; allowed += 1 + allowed / 4) {
        SCOPED_TRACE(allowed);
        const pid_t child = ::fork();
        if (child == 0) workUntilWrite(box.path(), allowed);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status));
        done = WEXITSTATUS(status) == brindle::testing::kAlive;
        ASSERT_TRUE(done || WEXITSTATUS(status) == brindle::testing::kKilled);
        box.open();
        ASSERT_NE(box.store, nullptr);
        ASSERT_EQ(box.store->inconsistency(), "");
        box.turnOn();
        expectIndexFits(box);
        box.close();
        EXPECT_THAT(checkIndex(box.path()).findings, ::testing::IsEmpty());
    }
}

/// Nothing tells that a letter of a word has changed; but whatever has changed, the mail is there, the work
/// comes to its end, and a search to an answer.
TEST(MailboxSearchCrash, DamageAnywhereInTheIndexHarmsNoMail) {
    constexpr std::size_t kStep = 509;  // another place of each block
    const LogCapture quiet;
    IndexedMailbox box;
    ASSERT_TRUE(box.append(numberedLetters(1, 12)));
    ASSERT_TRUE(box.wait());
    box.close();
    const auto sound = readFile(box.indexPath());
    std::mt19937 random(11);
    std::size_t right = 0, all = 0;
    for (std::size_t place = 0; place < sound.size(); place += kStep, ++all) {
        SCOPED_TRACE(place);
        auto damaged = sound;
        damaged[place] = static_cast<char>(random());
        writeFile(box.indexPath(), damaged);
        box.open();
        ASSERT_TRUE(box.wait());
        ASSERT_EQ(box.store->totalCount(), 12u);
        box.find("letter | rare3", true);
        ASSERT_TRUE(box.wait());
        right += box.find("rare7") == std::vector<std::string>{"about 7"} ? 1U : 0U;
        box.close();
    }
    EXPECT_GT(right, all * 9 / 10);
}

}  // namespace
}  // namespace lorvale
