#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <random>
#include <thread>

#include "lorvale/platform/run_loop.h"
#include "tests/support/IndexedMailbox.h"
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

}  // namespace
}  // namespace lorvale
