#include <gmock/gmock.h>

#include <atomic>
#include <random>
#include <set>
#include <thread>

#include "lorvale/platform/run_loop.h"
#include "lorvale/platform/user_agent.h"
#include "mail/search/IndexedText.h"
#include "mail/search/TextsAhead.h"
#include "tests/support/IndexedMailbox.h"
#include "tests/support/LogCapture.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;

/// A host that does something with the status lines, on whatever thread they come.
class StatusReader : public UserAgent {
public:
    StatusReader() { setCurrentUserAgent(this); }
    ~StatusReader() override { setCurrentUserAgent(nullptr); }
    void displayStatus(std::string_view status, MessageStore*) override { lines += !status.empty(); }
    std::atomic<int> lines = 0;
};

/// The index threads have a low priority: on a busy machine they would hardly get between searches without end.
void takeABreath() {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

TEST(MailboxSearchThreads, SeveralMailboxesIndexWhileTheyAreSearchedAndCompacted) {
    constexpr int kMailboxes = 3, kRounds = 4, kEach = 8;
    const LogCapture quiet;
    StatusReader reader;
    std::vector<std::unique_ptr<IndexedMailbox>> boxes;
    for (int i = 0; i < kMailboxes; ++i) boxes.push_back(std::make_unique<IndexedMailbox>());
    std::atomic<bool> done = false;
    std::atomic<int> wrong = 0, searches = 0;
    std::vector<std::jthread> searchers;
    for (int thread = 0; thread < 2; ++thread) {
        searchers.emplace_back([&, thread] {
            while (!done) {
                const auto& store = boxes[static_cast<std::size_t>(thread)]->store;
                std::vector<float> ranks;
                std::string error;
                const auto found = IndexManager::indexManager().messagesInStore(
                    thread == 0 ? nullptr : store, "letter | rare7", &ranks, true, &error);
                // One state: the best has 1, and nothing is worse than what follows it.
                if (!found || !error.empty() || !std::ranges::is_sorted(ranks, std::greater()) ||
                    (!ranks.empty() && ranks.front() != 1.0F))
                    ++wrong;
                ++searches;
                takeABreath();
            }
        });
    }
    for (int round = 0; round < kRounds; ++round) {
        for (auto& box : boxes) {
            ASSERT_TRUE(box->append(numberedLetters(round * kEach, kEach)));
            if (round % 2 == 0) continue;
            box->store->deleteMessages({box->store->allMessages()[1]});
            box->store->doCompact();
        }
    }
    for (auto& box : boxes) {
        EXPECT_TRUE(box->wait());
        EXPECT_EQ(IndexManager::indexedCount(*box->store), kRounds * kEach - kRounds / 2);
    }
    done = true;
    searchers.clear();
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(searches, 0);
    EXPECT_GT(reader.lines, 0);
}

TEST(MailboxSearchThreads, EverySearchSeesTheMailUpToOneMoment) {
#ifdef __SANITIZE_THREAD__
    constexpr int kLetters = 300;
#else
    constexpr int kLetters = 1000;
#endif
    const LogCapture quiet;
    IndexedMailbox box;
    std::atomic<bool> done = false;
    std::atomic<int> wrong = 0, searches = 0;
    const auto search = [&](bool isBoolean) {
        const std::shared_ptr<MessageStore> stores[] = {box.store};
        const auto before = IndexManager::indexedCount(*box.store);
        const auto found = IndexManager::indexManager().search(stores, {"letter", isBoolean, kLetters});
        const auto after = IndexManager::indexedCount(*box.store);
        if (!found.hits || !found.error.empty()) return false;
        // The first messages and no others, since they are added one by one.
        std::set<std::uint64_t> numbers;
        for (const auto& hit : *found.hits) numbers.insert(box.store->numberOfMessage(*hit.message));
        const auto count = found.hits->size();
        return count >= before && count <= after && numbers.size() == count &&
               (count == 0 || (*numbers.begin() == 1 && *numbers.rbegin() == count));
    };
    std::vector<std::jthread> searchers;
    for (const bool isBoolean : {false, true}) {
        searchers.emplace_back([&, isBoolean] {
            for (; !done; ++searches) {
                if (!search(isBoolean)) ++wrong;
                takeABreath();
            }
        });
    }
    for (int number = 1; number <= kLetters; number += 50) {
        ASSERT_TRUE(box.append(numberedLetters(number, 50)));
        RunLoop::main()->dispatch();
    }
    EXPECT_TRUE(box.wait());
    done = true;
    searchers.clear();
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(searches, 0);
    for (int number = 1; number <= kLetters; ++number)
        ASSERT_EQ(box.find("rare" + std::to_string(number)).size(), 1u) << number;
    const auto all = box.store->allMessages();
    std::vector<std::shared_ptr<Message>> gone;
    for (std::size_t i = 0; i < all.size(); i += 3) gone.push_back(all[i]);
    box.store->deleteMessages(gone);
    box.store->doCompact();
    EXPECT_TRUE(box.wait());
    for (int number = 1; number <= kLetters; ++number)
        ASSERT_EQ(box.find("rare" + std::to_string(number)).size(), number % 3 == 1 ? 0u : 1u) << number;
}

TEST(MailboxSearchThreads, AnyOrderOfChangesEndsCleanly) {
    const LogCapture quiet;
    std::mt19937 random(3);
    IndexedMailbox box;
    std::atomic<bool> done = false;
    std::jthread searcher([&] {
        for (; !done; takeABreath()) IndexManager::indexManager().messagesInStore(nullptr, "letter");
    });
    int next = 1;
    for (int step = 0; step < 50; ++step) {
        auto& store = *box.store;
        switch (random() % 10) {
            case 0:
                box.reopen();
                break;
            case 1:
                store.setIsIndexed(false);
                break;
            case 2:
                store.setIsIndexed(true);
                break;
            case 3:
                store.stopUpdatingIndex();
                break;
            case 4:
                store.stopBackgroundActivity();
                break;
            case 5:
                store.updateIndex();
                break;
            case 6:
                if (store.totalCount() > 0)
                    store.deleteMessage(store.allMessages()[random() % store.totalCount()]);
                break;
            case 7:
                store.doCompact();
                break;
            default:
                ASSERT_TRUE(box.append(numberedLetters(next, 5)));
                next += 5;
        }
        RunLoop::main()->dispatch();
    }
    box.reopen();  // what waits to be removed is removed now
    box.turnOn();
    done = true;
    searcher.join();
    EXPECT_EQ(IndexManager::indexedCount(*box.store), box.store->totalCount());
    for (const auto& message : box.store->allMessages()) {
        const auto subject = message->headers()->subject();
        EXPECT_THAT(box.find("rare" + subject.substr(6)), ::testing::ElementsAre(subject));
    }
    EXPECT_THAT(checkIndex(box.path()).findings, ::testing::IsEmpty());
    // A store that is dropped without being closed.
    ASSERT_TRUE(box.append(numberedLetters(next, 200)));
    box.store = nullptr;
    box.open();
    // Until its thread, and what was posted about it, has let go of the old one.
    const auto isOpen = [&] { return box.store != nullptr && box.store->haveLock(); };
    for (int turn = 0; !isOpen() && turn < 1000; ++turn) {
        RunLoop::main()->runFor(std::chrono::milliseconds(10));
        box.reopen();
    }
    ASSERT_TRUE(isOpen());
    EXPECT_TRUE(box.wait());
    EXPECT_THAT(box.find("rare" + std::to_string(next + 199)), ::testing::SizeIs(1));
}

TEST(TextsAheadOfTheIndex, AreThoseOfTheirMessagesHoweverFewAreAskedFor) {
    IndexedMailbox box;
    ASSERT_TRUE(box.append(numberedLetters(0, 200)));
    auto run = box.store->allMessages().toVector();
    run[21] = std::make_shared<Message>();  // its bytes cannot be had
    for (const std::size_t count : {run.size(), std::size_t{16}, std::size_t{0}}) {
        run.resize(count);
        for (const auto step : {1U, 7U, 150U}) {
            TextsAhead texts(run, IndexedForm::utf8);
            for (std::size_t place = 0; place < run.size(); place += step)
                ASSERT_EQ(texts.textAt(place), indexedText(*run[place], IndexedForm::utf8)) << place;
        }
        const TextsAhead nobodyAsks(run, IndexedForm::cString);
    }
}

}  // namespace
}  // namespace lorvale
