// The objects that a host supplies, and what stands in for them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <thread>

#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/notification.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/platform/user_agent.h"
#include "lorvale/platform/user_interface.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

TEST(UserAgent, AbsentHostRefusesQuestions) {
    auto& absent = userAgentOrAbsent();
    bool remember = true;
    EXPECT_FALSE(absent.queryUserForYesNoWithMessage("Delete all?", "Delete", "Yes", "No"));
    EXPECT_EQ(absent.queryUserForPasswordWithMessage("Password?", &remember), std::nullopt);
    EXPECT_FALSE(remember);
}

TEST(LogThreads, ASinkMayLogAndReplaceItself) {
    std::vector<std::string> lines;
    const auto before = setLogSink([&](std::string_view line) {
        lines.emplace_back(line);
        log("from the sink");  // to standard error
        if (line == "last")
            setLogSink([&](std::string_view later) { lines.push_back("later " + std::string(later)); });
    });
    log("first");
    log("last");
    log("line");
    setLogSink(before);
    EXPECT_THAT(lines, ::testing::ElementsAre("first", "last", "later line"));
}

TEST(UserAgentThreads, AbsentHostStillPassesWorkToTheMainLoop) {
    const auto main = std::this_thread::get_id();
    const auto sender = std::make_shared<int>(0);
    int calls = 0;
    const auto token = NotificationCenter::defaultCenter().addObserver(
        [&](const Notification& n) {
            EXPECT_EQ(std::this_thread::get_id(), main);
            EXPECT_EQ(n.object, sender);
            calls += n.userInfo.contains("many") ? 100 : 1;
        },
        "done", sender);
    std::jthread([&] {
        userAgentOrAbsent().performInMainThread([&] { calls += 10; });
        userAgentOrAbsent().postNotificationNameInMainThread("done", sender);
        userAgentOrAbsent().postNotificationNameInMainThread("done", sender, {{"many", 100}});
    }).join();
    EXPECT_EQ(calls, 0) << "not before the main loop turns";
    while (RunLoop::current()->dispatch()) continue;
    EXPECT_EQ(calls, 111);
}

TEST(UserInterface, WithoutWindowsTheCautiousAnswerIsGiven) {
    EXPECT_EQ(currentUserInterface().runAlertPanel("Open", "Locked.", "Open Anyway", "Don't Open", "Quit"),
              AlertChoice::alternateButton);
    EXPECT_EQ(currentUserInterface().askForHost("No answer", "smtp.example"), std::nullopt);
    EXPECT_EQ(currentUserInterface().soundFromData(Data::ofStatic("x"), "audio/basic"), nullptr);
    const auto panel = currentUserInterface().makeProgressPanel([] { ADD_FAILURE() << "nobody presses it"; });
    panel->beginModalSession();
    panel->update({}, "");
    panel->turnModalSession();
    bool ran = false;
    currentUserInterface().performLater([&] { ran = true; }, std::chrono::milliseconds(1));
    RunLoop::current()->runFor(std::chrono::milliseconds(20));
    EXPECT_TRUE(ran);
}

TEST(LocalizedString, IsTheTextItselfWithoutACatalogue) {
    EXPECT_EQ(LVLocalizedString(std::string_view("abcdef").substr(0, 3)), "abc");
    EXPECT_EQ(LVLocalizedString(""), "");
}

TEST(LocalizedString, ComesFromTheCatalogueOfTheUsersLanguage) {
    if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr)
        GTEST_SKIP() << "the system has no locale to translate in";
    // In the C locale gettext translates nothing, whatever $LANGUAGE says; C.UTF-8 counts as another.
    ::setenv("LANGUAGE", "xx", 1);
    setCatalogueDirectory((testing::sourceFolder() / "tests/data/catalogue").string());
    const auto translated = LVLocalizedString("Quit");
    const auto unknown = LVLocalizedString("The mailbox %@ is gone", "alert");
    ::unsetenv("LANGUAGE");
    std::setlocale(LC_ALL, "C");
    EXPECT_EQ(unknown, "The mailbox %@ is gone");
    EXPECT_EQ(translated, "ÜK") << "in UTF-8; the catalogue is in Latin 1";
}

}  // namespace
}  // namespace lorvale
