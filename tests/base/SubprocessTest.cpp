#include "lorvale/platform/subprocess.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <thread>

#include "lorvale/platform/log.h"
#include "lorvale/platform/run_loop.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace std::chrono_literals;
using namespace std::string_literals;
using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

struct Listener : SubprocessDelegate {
    void subprocessOutput(std::string_view text) override { output += text; }
    void subprocessDone() override {
        ++done;
        if (whenDone) whenDone();
    }
    bool subprocessError(std::string_view text) override { return errors.emplace_back(text), true; }

    bool waitUntil(const std::function<bool()>& isThere) const {
        const auto deadline = RunLoop::Clock::now() + 20s;
        while (!isThere() && RunLoop::Clock::now() < deadline) RunLoop::current()->runOnce(deadline);
        return isThere();
    }
    bool waitForEnd() const {
        return waitUntil([this] { return done > 0; });
    }

    std::string output;
    std::vector<std::string> errors;
    int done = 0;
    std::function<void()> whenDone;
};

/// What the command writes, up to its end.
std::string outputOf(std::string_view command, Subprocess::PtySupport pty = Subprocess::PtySupport::no,
                     Subprocess::StdErr withErrors = Subprocess::StdErr::yes) {
    Listener listener;
    const auto child = Subprocess::init(command, &listener, pty, withErrors);
    EXPECT_TRUE(listener.waitForEnd()) << command;
    return listener.output;
}

bool hasNoChildren() {
    for (int look = 0; look < 500; ++look) {
        if (::waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD) return true;
        std::this_thread::sleep_for(10ms);
    }
    return false;
}

TEST(SubprocessTest, TakesWhatIsSentAndTellsItsEndOnce) {
    Listener listener;
    auto child = Subprocess::init("while read line; do echo got $line; done; echo end >&2", &listener);
    EXPECT_GT(child->childPid(), 0);
    EXPECT_TRUE(child->send("one"));
    EXPECT_TRUE(listener.waitUntil([&] { return listener.output == "got one\n"; }));
    EXPECT_TRUE(child->sendFormat("%@ and %d", "two", 3));
    EXPECT_TRUE(child->send("fo", false));
    EXPECT_TRUE(child->send("ur"));
    child->terminateInput();
    listener.whenDone = [&] { child.reset(); };  // a delegate may drop what calls it
    EXPECT_TRUE(listener.waitForEnd());
    EXPECT_EQ(listener.output, "got one\ngot two and 3\ngot four\nend\n");
    EXPECT_EQ(listener.done, 1);
    EXPECT_EQ(outputOf("echo out; echo err >&2", Subprocess::PtySupport::no, Subprocess::StdErr::no), "out\n");
}

TEST(SubprocessTest, GivesATerminalThatEchoesNothing) {
    Listener listener;
    const auto child = Subprocess::init("tty -s && tty < /dev/tty > /dev/null && read line && echo $line",
                                        &listener, Subprocess::PtySupport::yes);
    EXPECT_TRUE(child->send("said once"));
    EXPECT_TRUE(listener.waitForEnd());
    EXPECT_EQ(listener.output, "said once\r\n");
    const auto modes = outputOf("stty -a", Subprocess::PtySupport::yes);
    for (const auto* mode :
         {"speed 9600 baud", "intr = ^C; quit = ^\\; erase = ^?; kill = ^U; eof = ^D; eol = <undef>",
          "start = ^Q", "stop = ^S", "susp = ^Z", "rprnt = ^R", "werase = ^W", "lnext = ^V", " icrnl ",
          " onlcr ", " -echo "})
        EXPECT_THAT(modes, HasSubstr(mode));
}

TEST(SubprocessTest, InheritsNeitherDescriptorsNorSignals) {
    const int mine = ::fcntl(0, F_DUPFD, 100);  // one that its owner forgot to protect
    sigset_t usr1, before;
    ::sigemptyset(&usr1);
    ::sigaddset(&usr1, SIGUSR1);
    ::pthread_sigmask(SIG_BLOCK, &usr1, &before);
    const auto ignored = std::signal(SIGUSR2, SIG_IGN);
    for (const auto pty : {Subprocess::PtySupport::no, Subprocess::PtySupport::yes}) {
        EXPECT_EQ(outputOf("printf '%s ' $(ls /proc/self/fd)", pty), "0 1 2 3 ");  // 3 is the folder itself
        for (const auto* mask : {"SigBlk", "SigIgn"})
            // Of signals the C library ignores the two that are its own.
            EXPECT_THAT(outputOf("grep "s + mask + " /proc/self/status", pty),
                        ContainsRegex(":.*0000000\r?\n"));
    }
    std::signal(SIGUSR2, ignored);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    ::close(mine);
}

TEST(SubprocessTest, LeavesNoZombieWhoeverForgetsIt) {
    EXPECT_GT(Subprocess::init("read line")->childPid(), 0) << "and its input is closed at once";
    EXPECT_TRUE(hasNoChildren());
    const int lowest = ::dup(0);
    ::close(lowest);
    outputOf("true", Subprocess::PtySupport::yes);
    outputOf("true");
    const int again = ::dup(0);
    EXPECT_EQ(again, lowest) << "nor a descriptor";
    ::close(again);
    EXPECT_TRUE(hasNoChildren());
}

TEST(SubprocessTest, ThatIsGoneTakesNothingAndSendsNoSignal) {
    Listener listener;
    const auto child = Subprocess::init("exec <&-; echo closed; sleep 20", &listener);
    EXPECT_TRUE(listener.waitUntil([&] { return !listener.output.empty(); }));
    EXPECT_FALSE(child->send("anybody?"));
    child->terminate();
    EXPECT_EQ(listener.done, 1);
    EXPECT_EQ(child->childPid(), 0);
    EXPECT_FALSE(child->send("anybody?"));
    child->terminate();
    child->terminateInput();
    EXPECT_EQ(listener.done, 1);
}

TEST(SubprocessTest, TerminatesTheCommandOfTheShellAndNotTheShell) {
    const TemporaryFolder folder;
    const auto said = (folder / "said").string();
    // Where another process got the number behind the shell's, nothing is sent: so a few tries.
    for (int attempt = 0; attempt < 20; ++attempt) {
        // Standard error is the host's: the shell tells there that the command was ended.
        const auto child = Subprocess::init("sleep 0.5 && echo slept > " + said + " || echo ended > " + said,
                                            nullptr, Subprocess::PtySupport::no, Subprocess::StdErr::no);
        std::this_thread::sleep_for(50ms);
        child->terminate();
        std::string word;
        for (int look = 0; look < 500 && word.empty(); ++look) {
            std::this_thread::sleep_for(10ms);
            if (std::filesystem::exists(said)) word = readFile(said);
        }
        std::filesystem::remove(said);
        ASSERT_FALSE(word.empty());
        if (word == "ended\n") return;
    }
    FAIL() << "no command was ever ended";
}

TEST(RunCommand, MovesLargeInputAndOutputAtOnce) {
    const auto input = Data::copyOf(std::string(5'000'000, 'x'));
    ByteBuffer output;
    EXPECT_TRUE(runCommand("/bin/cat", {}, &input, &output));
    EXPECT_EQ(output.view(), input.view());
    const std::string arguments[] = {"-c", "cat; echo end"};
    ByteBuffer none;
    EXPECT_TRUE(runCommand("/bin/sh", arguments, nullptr, &none));
    EXPECT_EQ(none.view(), "end\n");
    LogCapture log;
    EXPECT_TRUE(runCommand("/no/such/program", {}, &input, &output));
    EXPECT_THAT(log.take(), ElementsAre(HasSubstr("Could not run /no/such/program")));
    EXPECT_TRUE(hasNoChildren());
}

TEST(RunPipe, PassesTheInputThroughAll) {
    const auto input = Data::ofStatic("first\nsecond\n");
    ByteBuffer output;
    const PipeCommand three[] = {{"/usr/bin/tr", {"a-z", "A-Z"}}, {"/bin/cat", {}}, {"/usr/bin/sort", {"-r"}}};
    EXPECT_TRUE(runPipe(three, &input, &output));
    EXPECT_EQ(output.view(), "SECOND\nFIRST\n");
    LogCapture log;
    EXPECT_FALSE(runPipe({}, &input, &output));
    const PipeCommand missing[] = {{"/bin/cat", {}}, {"/no/such/program", {}}, {"/bin/cat", {}}};
    EXPECT_FALSE(runPipe(missing, &input, &output));
    const auto large = Data::copyOf(std::string(1'000'000, 'x'));
    const PipeCommand deaf[] = {{"/bin/true", {}}};
    EXPECT_FALSE(runPipe(deaf, &large, nullptr)) << "nobody has read it";
    EXPECT_TRUE(hasNoChildren());
}

TEST(RunPipe, EndsAllWhereALimitIsPassed) {
    const PipeCommand endless[] = {{"/usr/bin/yes", {}}, {"/bin/sh", {"-c", "trap '' TERM; cat"}}};
    ByteBuffer output;
    EXPECT_FALSE(runPipe(endless, nullptr, &output, {.mostOutput = 100'000}));
    EXPECT_LT(output.size(), 200'000U);
    const PipeCommand silent[] = {{"/bin/sleep", {"20"}}};
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(runPipe(silent, nullptr, &output, {.deadline = begin + 50ms}));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
    const PipeCommand exact[] = {{"/bin/echo", {"four"}}};
    EXPECT_TRUE(runPipe(exact, nullptr, &output, {.mostOutput = 5}));
    EXPECT_FALSE(runPipe(exact, nullptr, &output, {.mostOutput = 4}));
    EXPECT_TRUE(hasNoChildren());
}

TEST(RunPipe, AsksAProgramThatGoesOnToEnd) {
    LogCapture log;
    setDebugLogging(true);
    ByteBuffer output;
    const PipeCommand stubborn[] = {{"/bin/sh", {"-c", "exec > /dev/null; exec sleep 20"}},
                                    {"/bin/sh", {"-c", "trap '' TERM; exec > /dev/null; sleep 3.5"}}};
    const auto begin = std::chrono::steady_clock::now();
    int turns = 0;
    RunLoop::current()->performAfterDelay([&] { ++turns; }, 1ms);
    EXPECT_TRUE(runPipe(stubborn, nullptr, &output));
    setDebugLogging(false);
    EXPECT_EQ(turns, 1);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 15s);
    const std::string kill = "task /bin/sh still running... attempting to kill";
    EXPECT_THAT(log.take(), ElementsAre(kill, kill, kill, "stopped waiting for task: /bin/sh", kill));
    EXPECT_TRUE(hasNoChildren()) << "also of those not waited for any more";
}

}  // namespace
}  // namespace lorvale
