#include "lorvale/platform/inter_thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <thread>

#include "lorvale/platform/exception.h"
#include "lorvale/platform/paths.h"
#include "lorvale/platform/progressor.h"
#include "tests/support/FailureText.h"
#include "tests/support/LogCapture.h"

namespace lorvale {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

/// Notes what it is asked for, and where.
struct Receiver {
    void nothing() { note("nothing"); }
    void one(std::shared_ptr<const int> a) { note("one " + text(a)); }
    void two(std::shared_ptr<const int> a, std::shared_ptr<const int> b) {
        note("two " + text(a) + " " + text(b));
    }
    void fail() { throw GenericException("no"); }
    static std::string text(const std::shared_ptr<const int>& number) {
        return number != nullptr ? std::to_string(*number) : "null";
    }
    void note(std::string what) {
        EXPECT_EQ(std::this_thread::get_id(), thread);
        seen.push_back(std::move(what));
    }
    std::thread::id thread = std::this_thread::get_id();
    std::vector<std::string> seen;
};

TEST(InterThreadThreads, CallsAndNotificationsRunInTheOtherThreadsLoopInOrder) {
    const testing::LogCapture log;
    const auto receiver = std::make_shared<Receiver>();
    const auto token = NotificationCenter::defaultCenter().addObserver(
        [&](const Notification& n) { receiver->note(n.name + (n.userInfo.contains("more") ? " more" : "")); },
        {}, receiver);
    std::jthread([receiver, main = RunLoop::current()] {
        const auto seven = std::make_shared<const int>(7);
        performSelector("nothing", &Receiver::nothing, receiver, main);
        performSelector("fail", &Receiver::fail, receiver, main);
        performSelector("nobody", &Receiver::nothing, std::shared_ptr<Receiver>(), main);
        performSelector("one", &Receiver::one, receiver, main, seven);
        performSelector("two", &Receiver::two, receiver, main, seven, nullptr);
        postNotificationName("plain", receiver, main);
        postNotificationName("told", receiver, {{"more", 1}}, main);
        InterThreadMessage strange;
        strange.kind = static_cast<InterThreadMessage::Kind>(0x2000);
        strange.operation = [](const InterThreadMessage&) { ADD_FAILURE() << "of an unknown kind"; };
        sendInterThreadMessage(std::move(strange), main);
    }).join();
    performSelector("nothing", &Receiver::nothing, receiver, nullptr);
    EXPECT_THAT(receiver->seen, ElementsAre()) << "also what is sent to the own thread waits";
    while (RunLoop::current()->dispatch()) continue;
    EXPECT_THAT(receiver->seen, ElementsAre("nothing", "one 7", "two 7 null", "plain", "told more", "nothing"));
    EXPECT_EQ(log.lines().size(), 1u) << "the exception";
    EXPECT_EQ(receiver.use_count(), 1) << "no share is left on the way";
}

TEST(InterThreadThreads, WhatIsSentToADeadThreadIsDropped) {
    std::shared_ptr<RunLoop> dead;
    std::jthread([&] {
        prepareToReceiveInterThreadMessages();
        dead = RunLoop::current();
    }).join();
    const auto receiver = std::make_shared<Receiver>();
    performSelector("nothing", &Receiver::nothing, receiver, dead);
    EXPECT_EQ(receiver.use_count(), 1);
}

TEST(InterThread, FailureNamesTheOperationAndGivesBackTheShares) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "UBSan looks at objects through a pipe, and takes them for none without descriptors";
#endif
    const auto receiver = std::make_shared<Receiver>();
    std::string call, post;
    std::jthread([&] {
        rlimit before{};
        ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
        const rlimit none{0, before.rlim_max};
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
        call = testing::reasonOf([&] { performSelector("nothing", &Receiver::nothing, receiver, nullptr); });
        post = testing::reasonOf([&] { postNotificationName("told", receiver, nullptr); });
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    }).join();
    EXPECT_THAT(call,
                ::testing::MatchesRegex("InvalidArgumentException: can't perform the selector `nothing' on "
                                        "the object `0x[0-9a-f]+' in the thread `.+' - No .+ left .+\\."));
    EXPECT_THAT(post, ::testing::MatchesRegex("InvalidArgumentException: can't post the notification `told' in "
                                              "the thread `.+' - .+\\."));
    EXPECT_EQ(receiver.use_count(), 1);
}

/// A host whose panel notes what happens to it, and whose user presses the button in a turn of the session.
struct PanelHost : UserInterface {
    struct Panel : ProgressPanel {
        explicit Panel(PanelHost& owner) : host(owner) {}
        void update(const ProgressState& state, std::string_view name) override {
            host.seen.push_back(state.title + "/" + state.message + "/" + std::to_string(int(state.value)) +
                                "/" + std::string(name));
        }
        void show() override { host.seen.emplace_back("show"); }
        void hide() override { host.seen.emplace_back("hide"); }
        void turnModalSession() override {
            if (host.presses) host.button();
        }
        PanelHost& host;
    };
    PanelHost() { setCurrentUserInterface(this); }
    ~PanelHost() override { setCurrentUserInterface(nullptr); }
    std::unique_ptr<ProgressPanel> makeProgressPanel(std::function<void()> cancel) override {
        button = std::move(cancel);
        return std::make_unique<Panel>(*this);
    }
    std::vector<std::string> seen;
    std::function<void()> button;
    bool presses = false;
};

TEST(Progressor, PanelShowsTheStateAndItsButtonCancelsUntilShownAgain) {
    PanelHost host;
    {
        Progressor progressor("Fetching", "one");
        progressor.setName("Frame");
        progressor.setDoubleValue(3);
        EXPECT_THAT(host.seen, ElementsAre()) << "no panel before it is needed";
        progressor.showPanel();
        host.button();
        EXPECT_TRUE(progressor.cancelled());
        progressor.showPanel();
        EXPECT_FALSE(progressor.cancelled());
        progressor.setMessage("two");
        progressor.hidePanel();
        progressor.reset();
        EXPECT_EQ(progressor.state().buttonTitle, "Cancel");
        EXPECT_TRUE(progressor.state().isButtonEnabled && progressor.showProgress());
        EXPECT_FALSE(progressor.state().showsDetail);
    }
    EXPECT_THAT(host.seen, ElementsAre("Fetching/one/3/Frame", "show", "Fetching/one/3/Frame", "show",
                                       "Fetching/two/3/Frame", "hide", ::testing::EndsWith("//0/Frame")));
    host.button();  // longer than the Progressor
}

TEST(Progressor, SessionStaysForTwoSecondsUnlessItIsCancelled) {
    const testing::LogCapture log;
    PanelHost host;
    Progressor progressor;
    progressor.endModalSession();
    EXPECT_THAT(log.lines(), ElementsAre(::testing::StartsWith("Warning: No matching beginModalSession for "
                                                               "Progressor 0x")));
    const auto seconds = [&] {
        const auto start = Progressor::Clock::now();
        progressor.beginModalSession();
        progressor.setDoubleValue(0.5);
        progressor.endModalSession();
        return std::chrono::duration<double>(Progressor::Clock::now() - start).count();
    };
    EXPECT_GE(seconds(), 2);
    host.presses = true;
    EXPECT_LT(seconds(), 1);
    EXPECT_TRUE(progressor.cancelled());
    progressor.setTitle("other");
    progressor.setTitle(std::nullopt);
    EXPECT_EQ(progressor.state().title, processName());
}

}  // namespace
}  // namespace lorvale
