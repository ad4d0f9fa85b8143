#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "lorvale/platform/run_loop.h"
#include "tests/support/StoreSupport.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;

std::shared_ptr<Message> letter(int number) {
    return Message::messageWithData(Data::copyOf(mboxMessage(std::to_string(number))));
}

TEST(TarnMboxThreads, AppendsInTheBackgroundWhileListingSortingFlaggingAndCompacting) {
    constexpr int kThreads = 3, kEach = 12;
    const LogCapture quiet;  // of messages that are taken out while they are read
    const TemporaryFolder folder;
    const auto store = TarnMbox::initWithPath((folder / "box.mbox").string(), true, false);
    ASSERT_TRUE(store->syncAppendMessages({letter(1), letter(2), letter(3)}, true));
    std::atomic<bool> done = false;
    std::atomic<int> wrong = 0;
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&store, thread] {
            for (int i = 0; i < kEach; ++i) store->safeAppendMessages({letter(100 * (thread + 1) + i)});
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
