#include "mail/stores/StoreLock.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "lorvale/platform/paths.h"
#include "tests/mail/stores/MboxRivals.h"
#include "tests/support/TextRows.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
using namespace std::string_literals;
namespace fs = std::filesystem;

std::string lockLine(std::string_view host, long process) {
    return formatText("%@,Jane Doe,mail (Lorvale version 106),%d\n", host, process);
}

/// A process number that no process has.
long deadProcess() {
    const auto child = ::fork();
    if (child == 0) ::_exit(0);
    ::waitpid(child, nullptr, 0);
    return child;
}

class StoreLock : public ::testing::Test {
protected:
    StoreLock() { writeFile(mailbox, mboxMessage("ann") + mboxMessage("bob")); }
    ~StoreLock() override {
        setHostName({});
        setProcessName({});
    }

    TemporaryFolder folder;
    const std::string mailbox = folder / "inbox", lock = folder / "inbox.lock";
};

TEST_F(StoreLock, IsOneLineOfFourFields) {
    setHostName("here");
    setProcessName("mail,er");
    ASSERT_TRUE(createLockFile(lock));
    const auto line = readFile(lock);
    EXPECT_THAT(line, MatchesRegex("here,[^,\n]*,mail er \\(Lorvale version 106\\),[0-9]+\n"));
    EXPECT_EQ(parseLockFile(line).process, ::getpid());
    EXPECT_EQ(fs::status(lock).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_FALSE(createLockFile(lock)) << "the name is taken";
    EXPECT_EQ(readFile(lock), line);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 2) << "no temporary file stays";
}

TEST_F(StoreLock, ReadsWhateverStandsThere) {
    const TextRow rows[] = {
        {"nothing", "", "//0"},
        {"a host alone", "h", "h//0"},
        {"no process", "h,u,p", "h/u/0"},
        {"blanks around the process", "h,u,p, 12 x", "h/u/12"},
        {"a negative process", "h,u,p,-5", "h/u/0"},
        {"a process beyond all numbers", "h,u,p,99999999999999999999", "h/u/0"},
        {"a comma in the name", "h,Doe, Jane,p,12", "h/Doe/0"},
        {"empty fields", ",,,", "//0"},
    };
    const auto shown = [](std::string_view bytes) {
        const auto owner = parseLockFile(bytes);
        return owner.host + '/' + owner.user + '/' + std::to_string(owner.process);
    };
    expectRows(shown, rows);
}

TEST_F(StoreLock, OfADeadProcessIsTakenOverInSilence) {
    writeFile(lock, lockLine(hostName(), deadProcess()));
    const LogCapture log;
    const auto store = BerkeleyMbox::initWithPath(mailbox);
    ASSERT_TRUE(store);
    EXPECT_TRUE(store->haveLock());
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(parseLockFile(readFile(lock)).process, ::getpid());
    store->close();
    EXPECT_FALSE(fs::exists(lock));
}

TEST_F(StoreLock, ThatAKilledProcessLeftUnfinishedIsClearedAwayByTheNext) {
    const auto unfinished = [&](const char* number) { return lock + "." + number + ".tmp"; };
    writeFile(unfinished("1"), lockLine(hostName(), deadProcess()));
    writeFile(unfinished("2"), hostName() + ",Jane Doe,mail,1");  // killed in the middle of 1234
    writeFile(unfinished("3"), lockLine(hostName(), ::getppid()));
    writeFile(unfinished("4"), lockLine("elsewhere.example", deadProcess()));
    writeFile(lock + ".mine.tmp", "");
    EXPECT_EQ(checkMailbox(mailbox).findings.size(), 4u);
    EXPECT_TRUE(BerkeleyMbox::initWithPath(mailbox)->haveLock());
    EXPECT_THAT(unfinishedLockFiles(lock), ElementsAre(unfinished("3"), unfinished("4")));
    EXPECT_TRUE(fs::exists(lock + ".mine.tmp"));
}

TEST_F(StoreLock, ThatMayBeHeldIsHonoured) {
    const std::pair<const char*, std::string> rows[] = {
        {"a living process", lockLine(hostName(), ::getppid())},
        {"another host, whatever the number", lockLine("elsewhere.example", deadProcess())},
        {"a host whose name only begins alike", lockLine(hostName() + "x", deadProcess())},
        {"fewer than four fields", hostName() + ",Jane Doe"},
        {"garbage", "\x7F\x45LF\0\xFF\xFE,\n\r,,"s},
        {"very much garbage", std::string(3'000'000, ',')},
        {"an empty file", ""},
    };
    for (const auto& [why, line] : rows) {
        SCOPED_TRACE(why);
        writeFile(lock, line);
        const LogCapture log;
        const auto store = BerkeleyMbox::initWithPath(mailbox);
        ASSERT_TRUE(store);
        EXPECT_TRUE(store->isReadOnly());
        EXPECT_FALSE(store->haveLock());
        EXPECT_EQ(store->totalCount(), 2u);
        ASSERT_EQ(log.lines().size(), 2u);
        EXPECT_THAT(log.lines()[0], HasSubstr("is currently locked by"));
        EXPECT_EQ(log.lines()[1], "This mailbox is locked.  Opening in read-only mode.");
        store->deleteMessages(store->allMessages());
        EXPECT_EQ(store->count(), 2u) << "a locked mailbox is left alone";
        EXPECT_FALSE(store->syncAppendMessages({}, false));
        store->close();
        EXPECT_EQ(readFile(lock), line);
    }
}

TEST_F(StoreLock, ThatCannotBeReadIsHonoured) {
    const LogCapture quiet;
    fs::create_directory(lock);
    EXPECT_FALSE(shouldOpenDespiteLockFile(lock));
    EXPECT_FALSE(shouldOpenDespiteLockFile(folder / "missing"));
    EXPECT_TRUE(BerkeleyMbox::initWithPath(mailbox)->isReadOnly());
    fs::remove(lock);
    const auto reader = BerkeleyMbox::initWithPath(mailbox, true);
    EXPECT_FALSE(fs::exists(lock)) << "who only reads takes none";
    EXPECT_FALSE(reader->isReadOnly());
    EXPECT_FALSE(reader->syncAppendMessages({}, false));
}

TEST_F(StoreLock, IsTheUsersToBreakWhereThereAreWindows) {
    writeFile(lock, lockLine("elsewhere.example", 1));
    {
        WindowHost host(AlertChoice::alternateButton);
        EXPECT_FALSE(BerkeleyMbox::initWithPath(mailbox));
        EXPECT_THAT(host.asked,
                    ElementsAre("Open",
                                "The mailbox " + folder.path().string() +
                                    " is currently locked by Jane Doe on host elsewhere.example. If you open a "
                                    "mailbox that already is in use, you may damage its contents.",
                                "Open Anyway", "Don't Open", "Quit"));
    }
    {
        const WindowHost host(AlertChoice::otherButton);
        EXPECT_FALSE(BerkeleyMbox::initWithPath(mailbox));
        EXPECT_EQ(host.terminations, 1);
    }
    const WindowHost host(AlertChoice::defaultButton);
    EXPECT_TRUE(BerkeleyMbox::initWithPath(mailbox)->haveLock());
}

TEST_F(StoreLock, ThatAQuickerTakerHasMadeMeanwhileStays) {
    writeFile(lock, lockLine(hostName(), deadProcess()));
    bool waits = true;
    const SharedDisk disk(mailbox, [&](auto call) {
        if (call != SharedDisk::Call::readOn || !std::exchange(waits, false)) return;
        writeFile(lock + ".new", lockLine(hostName(), ::getppid()));
        fs::rename(lock + ".new", lock);
    });
    const LogCapture quiet;
    EXPECT_FALSE(shouldOpenDespiteLockFile(lock));
    EXPECT_FALSE(waits);
    EXPECT_EQ(readFile(lock), lockLine(hostName(), ::getppid()));
}

TEST_F(StoreLock, OfADeadProcessGoesToOneOfManyTakers) {
    for (int round = 0; round < 20; ++round) {
        writeFile(lock, lockLine(hostName(), deadProcess()));
        std::array<int, 2> go{}, tried{};
        ASSERT_EQ(::pipe(go.data()), 0);
        ASSERT_EQ(::pipe(tried.data()), 0);
        constexpr int kTakers = 6;
        std::vector<pid_t> takers;
        for (int i = 0; i < kTakers; ++i) {
            takers.push_back(::fork());
            if (takers.back() != 0) continue;
            ::close(go[1]);
            char byte = 0;
            while (::read(go[0], &byte, 1) > 0) {
            }  // until the parent closes it: all at once
            const LogCapture quiet;
            const auto store = BerkeleyMbox::initWithPath(mailbox);
            byte = store && store->haveLock() ? 1 : 0;
            if (::write(tried[1], &byte, 1) != 1) ::_exit(1);
            ::pause();  // holds what it has until the end
        }
        ::close(go[0]);
        ::close(go[1]);
        int holders = 0;
        for (int i = 0; i < kTakers; ++i) {
            char byte = 0;
            ASSERT_EQ(::read(tried[0], &byte, 1), 1);
            holders += byte;
        }
        EXPECT_EQ(holders, 1);
        for (const auto taker : takers) {
            ::kill(taker, SIGKILL);
            ::waitpid(taker, nullptr, 0);
        }
        ::close(tried[0]);
        ::close(tried[1]);
        fs::remove(lock);
    }
}

}  // namespace
}  // namespace lorvale
