#include "lorvale/platform/run_loop.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <optional>
#include <thread>

#include "base/files/Descriptor.h"
#include "lorvale/platform/exception.h"
#include "tests/support/LogCapture.h"

namespace lorvale {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

class RunLoopTest : public ::testing::Test {
protected:
    void note(int n) { seen.push_back(n); }
    RunLoop::Callback noting(int n) {
        return [this, n] { note(n); };
    }

    const std::shared_ptr<RunLoop> loop = RunLoop::current();
    std::vector<int> seen;
};

TEST_F(RunLoopTest, RunsCallsInOrderDelaysByTimeAndIdleWorkLast) {
    loop->performWhenIdle([&] {
        note(5);
        loop->perform(noting(6));
    });
    loop->performWhenIdle(noting(7));
    loop->performAfterDelay(noting(9), 400ms);
    loop->performAfterDelay(noting(8), 200ms);
    loop->performAfterDelay(noting(1), -1h);
    loop->perform(noting(2));
    loop->perform([&] {
        note(3);
        loop->perform(noting(4));
    });
    EXPECT_TRUE(loop->runFor(600ms)) << "the time passed";
    EXPECT_THAT(seen, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9)) << "idle work comes one call at a time";
}

TEST_F(RunLoopTest, CancelledCallsDoNotRun) {
    const auto delayed = loop->performAfterDelay(noting(1), 0ms);
    const auto posted = loop->perform(noting(2));
    const auto idle = loop->performWhenIdle(noting(3));
    RunLoop::CallID later = 0;
    loop->perform([&] { EXPECT_TRUE(loop->cancel(later)) << "also one that is due in this turn"; });
    later = loop->perform(noting(4));
    for (const auto call : {delayed, posted, idle}) EXPECT_TRUE(loop->cancel(call));
    EXPECT_FALSE(loop->cancel(delayed));
    EXPECT_FALSE(loop->cancel(0));
    loop->runFor(0ms);
    EXPECT_THAT(seen, ElementsAre());
}

TEST_F(RunLoopTest, StopEndsTheInnermostRun) {
    loop->perform([&] {
        note(1);
        loop->perform([&] {
            note(2);
            loop->stop();
        });
        EXPECT_FALSE(loop->runFor(1h));
        note(3);
        loop->perform([&] { loop->stop(); });
    });
    loop->run();
    EXPECT_THAT(seen, ElementsAre(1, 2, 3));
    loop->stop();
    EXPECT_FALSE(loop->runFor(1h)) << "a stop that came too early is not lost";
    EXPECT_FALSE(loop->runOnce(RunLoop::Clock::now())) << "nor kept for ever";
}

TEST_F(RunLoopTest, ExceptionsAreLoggedAndTheLoopGoesOn) {
    testing::LogCapture log;
    loop->perform([] { throw GenericException("no good"); });
    loop->performAfterDelay([] { throw 1; }, 0ms);
    loop->perform(noting(1));
    while (loop->dispatch()) continue;
    EXPECT_THAT(log.take(), ElementsAre("Delayed call: an exception of unknown kind",
                                        "Posted call: GenericException: no good"));
    EXPECT_THAT(seen, ElementsAre(1));
}

class Pipe {
public:
    Pipe() {
        int ends[2];
        if (::pipe(ends) != 0) throw std::runtime_error("no pipe");
        out.reset(ends[0]);
        in.reset(ends[1]);
    }
    Descriptor out, in;
};

TEST_F(RunLoopTest, SourcesAreCalledWhileTheyAreReadyAndWatched) {
    Pipe pipe;
    std::string got;
    std::optional<RunLoop::Source> source = loop->watch(pipe.out.get(), {.readable = true}, [&](auto ready) {
        EXPECT_TRUE(ready.readable);
        char c = 0;
        if (::read(pipe.out.get(), &c, 1) == 1) got += c;
        if (got == "abc") source.reset();  // inside its own callback
    });
    EXPECT_FALSE(loop->dispatch());
    ASSERT_EQ(::write(pipe.in.get(), "abcd", 4), 4);
    EXPECT_FALSE(loop->runOnce(RunLoop::Clock::now() - 1s) && got.empty());
    while (loop->dispatch()) continue;
    EXPECT_EQ(got, "abc") << "the fourth byte came when nobody watched any more";

    auto writer = loop->watch(pipe.in.get(), {.writable = true}, [&](auto ready) {
        EXPECT_TRUE(ready.writable);
        loop->stop();
    });
    EXPECT_FALSE(loop->runFor(1h));
    EXPECT_THROW(static_cast<void>(loop->watch(pipe.in.get(), {.writable = true}, [](auto) {})),
                 InvalidArgumentException)
        << "one watch a descriptor";
    writer.reset();
    pipe.in.reset();
    auto reader = loop->watch(pipe.out.get(), {.readable = true}, [&](auto ready) {
        EXPECT_TRUE(ready.readable) << "the end of the stream counts as readable";
        loop->stop();
    });
    EXPECT_FALSE(loop->runFor(1h));
}

TEST_F(RunLoopTest, SourcesThatAnotherCallbackEmptiedAreNotCalled) {
    std::array<Pipe, 2> pipes;
    std::vector<RunLoop::Source> sources;
    int calls = 0;
    for (auto& pipe : pipes) {
        ASSERT_EQ(::write(pipe.in.get(), "a", 1), 1);
        sources.push_back(loop->watch(pipe.out.get(), {.readable = true}, [&](auto) {
            char c = 0;
            EXPECT_EQ(::read(pipe.out.get(), &c, 1), 1) << "waits for ever where nothing is left";
            if (++calls == 1) loop->runFor(0ms);  // serves the other one
        }));
    }
    for (auto& pipe : pipes) ASSERT_EQ(::fcntl(pipe.out.get(), F_SETFL, O_NONBLOCK), 0);
    EXPECT_TRUE(loop->dispatch());
    EXPECT_EQ(calls, 2);
}

TEST_F(RunLoopTest, ForeignLoopDrivesItThroughOneDescriptor) {
    const auto isReady = [&](int timeout) {
        pollfd poll{loop->descriptor(), POLLIN, 0};
        return ::poll(&poll, 1, timeout) == 1;
    };
    while (loop->dispatch()) continue;
    EXPECT_FALSE(isReady(0));
    loop->performAfterDelay(noting(1), 5ms);
    EXPECT_TRUE(isReady(5000));
    EXPECT_TRUE(loop->dispatch());
    EXPECT_FALSE(isReady(0));
    loop->performWhenIdle(noting(2));
    loop->performWhenIdle(noting(3));
    EXPECT_TRUE(isReady(0));
    EXPECT_TRUE(loop->dispatch());
    EXPECT_TRUE(isReady(0)) << "idle work is left";
    EXPECT_TRUE(loop->dispatch());
    EXPECT_FALSE(isReady(0));
    loop->stop();
    loop->dispatch();
    EXPECT_FALSE(isReady(0)) << "a stop is no work: a host that polls must not spin";
    EXPECT_FALSE(loop->runFor(1h));
    EXPECT_THAT(seen, ElementsAre(1, 2, 3));
}

TEST(RunLoopThreads, EveryThreadHasItsOwnAndAnyThreadMayPost) {
    const auto loop = RunLoop::current();
    EXPECT_EQ(loop, RunLoop::main());
    EXPECT_TRUE(RunLoop::isMainThread());
    constexpr int kThreads = 4, kCalls = 500;
    std::array<int, kThreads> next{};
    int ran = 0;
    {
        std::vector<std::jthread> threads;
        for (std::size_t t = 0; t < kThreads; ++t)
            threads.emplace_back([&, t] {
                EXPECT_NE(RunLoop::current(), loop);
                EXPECT_FALSE(RunLoop::isMainThread());
                for (int i = 0; i < kCalls; ++i) {
                    const auto call = loop->performAfterDelay([] { ADD_FAILURE() << "cancelled"; }, 1h);
                    loop->perform([&, t, i] {
                        EXPECT_EQ(next[t]++, i) << "in the order of each thread";
                        if (++ran == kThreads * kCalls) loop->stop();
                    });
                    EXPECT_TRUE(loop->cancel(call));
                }
            });
        EXPECT_FALSE(loop->runFor(30s));
    }
    EXPECT_EQ(ran, kThreads * kCalls);
}

TEST(RunLoopThreads, AskingForTheMainThreadMakesNoLoop) {
    const auto descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    std::thread([&] {
        const auto before = descriptors();
        EXPECT_FALSE(RunLoop::isMainThread());
        EXPECT_EQ(descriptors(), before);
        RunLoop::setMain(RunLoop::current());
        EXPECT_TRUE(RunLoop::isMainThread());
        std::thread([] { EXPECT_FALSE(RunLoop::isMainThread()); }).join();
        RunLoop::setMain(nullptr);
    }).join();
}

TEST(RunLoopThreads, ALoopWhoseThreadHasEndedTakesNothing) {
    std::shared_ptr<RunLoop> loop;
    const auto held = std::make_shared<int>(0);
    std::thread([&, held] {
        loop = RunLoop::current();
        loop->perform([held] {});
        loop->performAfterDelay([held] {}, 1h);
        RunLoop::setMain(loop);
        EXPECT_TRUE(RunLoop::isMainThread()) << "a host may name another one";
        RunLoop::setMain(nullptr);
    }).join();
    EXPECT_TRUE(RunLoop::isMainThread());
    EXPECT_EQ(held.use_count(), 1) << "what was left is dropped";
    EXPECT_EQ(loop->perform([] {}), 0u);
    EXPECT_EQ(loop->performAfterDelay([] {}, 1s), 0u);
    EXPECT_FALSE(loop->cancel(1));
}

}  // namespace
}  // namespace lorvale
