#include "lorvale/platform/notification.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <mutex>
#include <optional>
#include <thread>

#include "lorvale/platform/run_loop.h"
#include "tests/support/LogCapture.h"

namespace lorvale {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

/// Writes down what observers of a centre see.
class NotificationTest : public ::testing::Test {
protected:
    ObserverToken observe(std::string mark, std::string_view name,
                          const std::shared_ptr<const void>& object = nullptr) {
        return center.addObserver(
            [this, mark = std::move(mark)](const Notification& n) { seen.push_back(mark + n.name); }, name,
            object);
    }
    std::vector<std::string> take() { return std::exchange(seen, {}); }

    NotificationCenter& center = NotificationCenter::defaultCenter();
    const std::shared_ptr<int> a = std::make_shared<int>(1), b = std::make_shared<int>(2);
    std::vector<std::string> seen;
};

TEST_F(NotificationTest, ObserversChooseByNameAndObject) {
    const auto any = observe("any ", ""), name = observe("X ", "X"), object = observe("a ", "", a),
               both = observe("Xa ", "X", a);
    center.postNotification("X", a);
    EXPECT_THAT(take(), ElementsAre("any X", "X X", "a X", "Xa X"));
    center.postNotification("X", b);
    EXPECT_THAT(take(), ElementsAre("any X", "X X"));
    center.postNotification("Y", a);
    EXPECT_THAT(take(), ElementsAre("any Y", "a Y"));
}

TEST_F(NotificationTest, CarriesValuesAndHoldsItsObject) {
    auto object = std::make_shared<int>(7);
    const std::weak_ptr<int> watch = object;
    int answer = 0;
    const auto token = center.addObserver([&](const Notification& n) {
        object = nullptr;
        EXPECT_FALSE(watch.expired()) << "held while the notification is under way";
        answer = std::any_cast<int>(n.userInfo.at("number"));
    });
    center.postNotification("X", object, {{"number", 42}});
    EXPECT_EQ(answer, 42);
    EXPECT_TRUE(watch.expired());
}

TEST_F(NotificationTest, ObserverOfADeadObjectSeesNoOtherAtItsAddress) {
    int place = 0;
    auto first = std::shared_ptr<int>(&place, [](int*) {});
    const auto token = observe("", "X", first);
    first = nullptr;
    const auto second = std::shared_ptr<int>(&place, [](int*) {});
    center.postNotification("X", second);
    EXPECT_THAT(take(), ElementsAre());
}

TEST_F(NotificationTest, ObjectsAreKnownByTheirOwnerAndNotByTheirAddress) {
    struct Base {
        int first = 0;
    };
    struct Other {
        int second = 0;
    };
    struct Both : Base, Other {};
    const auto both = std::make_shared<Both>();
    const std::shared_ptr<Other> other = both;
    const auto token = observe("", "X", both);
    center.postNotification("X", other);
    EXPECT_THAT(take(), ElementsAre("X"));

    int unowned[2] = {};
    const auto at = [&](int i) { return std::shared_ptr<const void>(std::shared_ptr<void>(), &unowned[i]); };
    const auto plain = observe("plain ", "X", at(0));
    center.postNotification("X", at(1));
    center.postNotification("X");
    EXPECT_THAT(take(), ElementsAre());
    center.postNotification("X", at(0));
    EXPECT_THAT(take(), ElementsAre("plain X"));
}

TEST_F(NotificationTest, TokensMayGoInsideCallbacks) {
    std::optional<ObserverToken> self, next;
    auto held = std::make_shared<int>(0);
    const std::weak_ptr<int> watch = held;
    self = center.addObserver([&, held = std::move(held)](const Notification&) {
        seen.emplace_back("self");
        self.reset();
        next.reset();
        EXPECT_EQ(held.use_count(), 1) << "the function outlives the call that runs in it";
    });
    next = observe("next ", "X");
    const auto last = observe("last ", "X");
    center.postNotification("X");
    center.postNotification("X");
    EXPECT_THAT(take(), ElementsAre("self", "last X", "last X"));
    EXPECT_TRUE(watch.expired());
}

TEST_F(NotificationTest, OneThrowingObserverDoesNotStopTheOthers) {
    testing::LogCapture log;
    const auto bad = center.addObserver([](const Notification&) { throw std::runtime_error("bad"); });
    const auto good = observe("", "X");
    center.postNotification("X");
    EXPECT_THAT(take(), ElementsAre("X"));
    EXPECT_THAT(log.take(), ElementsAre("Notification X: bad"));
}

TEST_F(NotificationTest, TokenMayOutliveItsCentre) {
    auto own = std::make_unique<NotificationCenter>();
    auto token = own->addObserver([](const Notification&) {});
    own = nullptr;
    token.reset();
    EXPECT_FALSE(token);
}

TEST_F(NotificationTest, QueueCoalescesWhatWaits) {
    NotificationQueue& queue = NotificationQueue::defaultQueue();
    const auto loop = RunLoop::current();
    const auto token = observe("", "");
    const auto turnUntilQuiet = [&] {
        while (loop->dispatch()) continue;
        return take();
    };
    for (int i = 0; i < 3; ++i) queue.enqueueNotification({"X", a, {}}, PostingStyle::whenIdle);
    queue.enqueueNotification({"X", b, {}}, PostingStyle::whenIdle);
    queue.enqueueNotification({"Y", a, {}}, PostingStyle::asap);
    EXPECT_THAT(take(), ElementsAre()) << "nothing before the loop turns";
    EXPECT_THAT(turnUntilQuiet(), ElementsAre("Y", "X", "X"));

    queue.enqueueNotification({"X", a, {}}, PostingStyle::whenIdle);
    queue.enqueueNotification({"X", a, {}}, PostingStyle::now);
    EXPECT_THAT(take(), ElementsAre("X"));
    EXPECT_THAT(turnUntilQuiet(), ElementsAre()) << "the one that waited was the same";

    for (int i = 0; i < 2; ++i)
        queue.enqueueNotification({"X", a, {}}, PostingStyle::whenIdle, Coalescing::none);
    queue.enqueueNotification({"Y", b, {}}, PostingStyle::whenIdle);
    queue.enqueueNotification({"Y", a, {}}, PostingStyle::whenIdle, Coalescing::onSender);
    EXPECT_THAT(turnUntilQuiet(), ElementsAre("Y", "Y")) << "b's and a's, which took the place of both X";

    queue.enqueueNotification({"X", a, {}}, PostingStyle::asap);
    queue.dequeueNotificationsMatching({"X", b, {}}, Coalescing::onName);
    EXPECT_THAT(turnUntilQuiet(), ElementsAre());
}

TEST_F(NotificationTest, ObserversMayEnqueueWhileTheQueueDelivers) {
    NotificationQueue& queue = NotificationQueue::defaultQueue();
    int count = 0;
    const auto token = center.addObserver([&](const Notification&) {
        if (++count < 3) queue.enqueueNotification({"again", nullptr, {}}, PostingStyle::whenIdle);
    });
    queue.enqueueNotification({"again", nullptr, {}}, PostingStyle::whenIdle);
    EXPECT_TRUE(RunLoop::current()->dispatch());
    EXPECT_EQ(count, 1) << "what an observer adds waits for the next idle moment";
    while (RunLoop::current()->dispatch()) continue;
    EXPECT_EQ(count, 3);
}

TEST(NotificationThreads, DestroyedTokenMeansTheCallbackIsDone) {
    NotificationCenter center;
    std::atomic<bool> stop = false;
    std::jthread poster([&] {
        while (!stop) center.postNotification("X");
    });
    for (int i = 0; i < 300; ++i) {
        // Freed at once: the sanitizers see a callback that still runs or runs again.
        const auto number = std::make_unique<int>(0);
        auto token = center.addObserver([&](const Notification&) { ++*number; });
        if (i % 3 == 0) std::this_thread::yield();
        token.removeAndWait();
        // The same for an observer that is held while its callback runs.
        auto held = std::make_shared<int>(0);
        const auto weak = center.addObserver(held, [&target = *held](const Notification&) { ++target; });
        held = nullptr;
    }
    stop = true;
}

TEST(NotificationThreads, TokensGoInCallbacksOfEachOtherAndUnderTheirLocks) {
    NotificationCenter center;
    for (const bool waits : {false, true}) {
        std::array<ObserverToken, 2> tokens;
        std::atomic<int> inside = 0;
        for (std::size_t i = 0; i < 2; ++i)
            tokens[i] = center.addObserver(
                [&, i](const Notification&) {
                    for (++inside; inside < 2;) std::this_thread::yield();
                    waits ? tokens[1 - i].removeAndWait() : tokens[1 - i].reset();
                },
                i == 0 ? "first" : "second");
        std::jthread poster([&] { center.postNotification("first"); });
        center.postNotification("second");
    }

    std::mutex mutex;
    std::atomic<bool> isIn = false;
    ObserverToken token = center.addObserver([&](const Notification&) {
        isIn = true;
        const std::lock_guard lock(mutex);
    });
    std::unique_lock lock(mutex);
    std::jthread poster([&] { center.postNotification("X"); });
    while (!isIn) std::this_thread::yield();
    token.reset();
    lock.unlock();
}

TEST(NotificationThreads, ManyPostersAndObserversShareACentre) {
    NotificationCenter center;
    std::atomic<int> seen = 0;
    constexpr int kThreads = 4, kPosts = 300;
    const auto token = center.addObserver([&](const Notification&) { ++seen; }, "mine");
    std::vector<std::jthread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < kPosts; ++i) {
                const auto passing = center.addObserver([](const Notification&) {}, "mine");
                center.postNotification("mine");
            }
        });
    threads.clear();
    EXPECT_EQ(seen, kThreads * kPosts);
}

}  // namespace
}  // namespace lorvale
