#include "lorvale/platform/thread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "lorvale/platform/exception.h"
#include "tests/support/LogCapture.h"

namespace lorvale {
namespace {

using namespace std::chrono_literals;

std::chrono::steady_clock::time_point soon() {
    return std::chrono::steady_clock::now() + 20ms;
}

TEST(ThreadThreads, HasItsNameAndItsShareOfTheProcessor) {
    const int normal = ::getpriority(PRIO_PROCESS, 0);  // the tests may run with less than the usual share
    std::string name(16, '\0');
    int priority = 0;
    Thread thread("a name that is far too long", Thread::kBackgroundPriority, [&](const std::stop_token&) {
        ::pthread_getname_np(::pthread_self(), name.data(), name.size());
        priority = ::getpriority(PRIO_PROCESS, 0);  // 0: the calling thread
    });
    thread.join();
    EXPECT_STREQ(name.c_str(), "a name that is ");
    EXPECT_EQ(priority, std::min(normal + 10, 19));
    EXPECT_EQ(::getpriority(PRIO_PROCESS, 0), normal) << "of that thread only";
}

TEST(ThreadThreads, IsToldToStopAndJoinedWhenItGoes) {
    std::atomic<bool> ended = false;
    {
        const Thread thread("sleeper", [&](const std::stop_token& stop) {
            EXPECT_FALSE(sleepUnlessStopped(stop, 1h));
            ended = true;
        });
    }
    EXPECT_TRUE(ended);
    EXPECT_TRUE(sleepUnlessStopped({}, 1ms));
}

TEST(ThreadThreads, MayDropItselfAndWaitForItself) {
    struct Owner {
        std::atomic<bool> dropped = false, ended = false;
        std::unique_ptr<Thread> thread;
    };
    const auto owner = std::make_shared<Owner>();
    std::atomic<bool> mayStart = false;
    owner->thread = std::make_unique<Thread>("dropped", [owner, &mayStart](const std::stop_token& stop) {
        while (!mayStart) std::this_thread::yield();
        owner->thread->join();  // does nothing, here
        owner->thread.reset();
        owner->dropped = stop.stop_requested();
        owner->ended = true;
    });
    mayStart = true;
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (!owner->ended && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    EXPECT_TRUE(owner->dropped) << "and is told to stop";
    Thread().join();
}

TEST(ThreadThreads, ChangesItsShareOfTheProcessor) {
    const int normal = ::getpriority(PRIO_PROCESS, 0);
    Thread("worker", 1, [&](const std::stop_token&) {
        for (int i = 0; i < 2; ++i) {
            EXPECT_TRUE(Thread::setCurrentPriority(7));
            EXPECT_EQ(::getpriority(PRIO_PROCESS, 0), std::min(normal + 7, 19))
                << "counted from the process's own";
        }
    }).join();
}

TEST(ThreadThreads, LogsTheExceptionThatLeavesItsBody) {
    testing::LogCapture log;
    Thread("worker", [](const std::stop_token&) { throw GenericException("lost"); }).join();
    EXPECT_EQ(log.take(), std::vector<std::string>{"Thread worker: GenericException: lost"});
}

TEST(ConditionLockThreads, WaitsEndAtTheirDeadlineAndOnRequest) {
    ConditionLock lock(1);
    EXPECT_FALSE(lock.lockWhenCondition(2, soon()));
    EXPECT_FALSE(lock.tryLockWhenCondition(2));
    if (!lock.lockWhenCondition(1, soon())) FAIL();
    EXPECT_FALSE(lock.tryLock()) << "not recursive";
    EXPECT_FALSE(lock.tryLockWhenCondition(1)) << "the condition holds, but the lock is taken";
    lock.unlockWithCondition(2);
    EXPECT_EQ(lock.condition(), 2);
    if (!lock.tryLockWhenCondition(2)) FAIL();
    lock.unlock();
    EXPECT_EQ(lock.condition(), 2);

    std::stop_source stop;
    Thread waiter("waiter",
                  [&](const std::stop_token&) { EXPECT_FALSE(lock.lockWhenCondition(3, stop.get_token())); });
    stop.request_stop();
    waiter.join();
}

TEST(ConditionLockThreads, HandsWorkOverBothWays) {
    constexpr int kIdle = 0, kWork = 1, kRounds = 2000;
    ConditionLock lock(kIdle);
    int box = 0, taken = 0;  // touched only under the lock
    const Thread consumer("consumer", [&](const std::stop_token&) {
        for (int i = 0; i < kRounds; ++i) {
            lock.lockWhenCondition(kWork);
            taken += box;
            lock.unlockWithCondition(kIdle);
        }
    });
    Thread visitor("visitor", [&](const std::stop_token&) {
        for (int i = 0; i < kRounds; ++i) {
            const ConditionLockGuard guard(lock);  // leaves the condition as it is
            ++taken;
        }
    });
    for (int i = 1; i <= kRounds; ++i) {
        lock.lockWhenCondition(kIdle);
        box = i;
        lock.unlockWithCondition(kWork);
    }
    visitor.join();
    lock.lockWhenCondition(kIdle);
    EXPECT_EQ(taken, kRounds * (kRounds + 1) / 2 + kRounds);
    lock.unlock();
}

}  // namespace
}  // namespace lorvale
