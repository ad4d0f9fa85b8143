#include <gmock/gmock.h>

#include "tests/support/FailingFileSystem.h"
#include "tests/support/StoreSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
namespace fs = std::filesystem;

/// A change of a mailbox and the two states it may be found in.
struct Change {
    const char* name;
    std::string before, after;
    std::function<void(BerkeleyMbox&)> make;
};

std::string longMailbox(std::string_view name, int count) {
    std::string bytes;
    for (int i = 0; i < count; ++i) bytes += mboxMessage(name, std::string(5000, 'x') + "\n");
    return bytes;
}

const Change& append() {
    static const std::string old = longMailbox("old", 3), fresh = mboxMessage("new");
    static const Change change{"append", old, old + fresh + fresh, [](BerkeleyMbox& store) {
                                   const auto message = Message::messageWithData(Data::copyOf(fresh));
                                   store.syncAppendMessages({message, message}, false);
                               }};
    return change;
}

const Change& compaction() {
    static const std::string kept = longMailbox("kept", 2), gone = longMailbox("gone", 2);
    static const Change change{"compaction", kept + gone + kept, kept + kept, [](BerkeleyMbox& store) {
                                   store.deleteMessages({store.allMessages()[3], store.allMessages()[2]});
                                   store.doCompact();
                               }};
    return change;
}

class DyingMailbox : public ::testing::TestWithParam<const Change* (*)()> {
protected:
    const Change& change() const { return *GetParam()(); }
};

TEST_P(DyingMailbox, HoldsTheOldOrTheNewStateAfterThePowerWent) {
    bool done = false;
    for (int allowed = 0; !done; ++allowed) {
        const TemporaryFolder folder;
        const std::string path = folder / "inbox";
        writeFile(path, change().before);
        FailingFileSystem disk(static_cast<std::uint64_t>(allowed));
        disk.dieAtChange(allowed);
        const LogCapture quiet;
        done = disk.survives([&] {
            const auto store = BerkeleyMbox::initWithPath(path);
            change().make(*store);
            store->close();
        });
        disk.losePower();
        ASSERT_THAT(readFile(path), AnyOf(change().before, change().after)) << "died at " << allowed;
        if (done) {
            EXPECT_EQ(readFile(path), change().after) << "what was finished is lost";
        }
        ASSERT_LT(allowed, 100);
    }
}

TEST_P(DyingMailbox, OfAKilledProcessOpensAndGoesOn) {
    bool done = false;
    for (int allowed = 0; !done; ++allowed) {
        const TemporaryFolder folder;
        const std::string path = folder / "inbox";
        writeFile(path, change().before);
        done = survivesKillAtChange(allowed, [&] {
            const auto store = BerkeleyMbox::initWithPath(path);
            change().make(*store);
        });
        const auto found = readFile(path);
        ASSERT_THAT(found, AnyOf(change().before, change().after)) << "killed at " << allowed;
        // The lock and an unfinished file that were left do not stand in the way of the next.
        const LogCapture log;
        const auto store = BerkeleyMbox::initWithPath(path);
        ASSERT_TRUE(store->haveLock()) << "killed at " << allowed;
        if (found == change().before) change().make(*store);
        EXPECT_EQ(readFile(path), change().after);
        EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 2) << "more than mailbox and lock";
        EXPECT_THAT(log.lines(), IsEmpty());
        ASSERT_LT(allowed, 100);
    }
}

TEST_P(DyingMailbox, StaysAsItWasWhenTheDiskIsFull) {
    int changes = 0;
    for (int allowed = 0; allowed == 0 || allowed < changes; ++allowed) {
        const TemporaryFolder folder;
        const std::string path = folder / "inbox";
        writeFile(path, change().before);
        const auto store = BerkeleyMbox::initWithPath(path);
        FailingFileSystem disk;
        if (allowed > 0) disk.failFromChange(allowed - 1, ENOSPC);
        const LogCapture log;
        change().make(*store);
        if (allowed == 0) changes = disk.changes();
        const auto found = readFile(path);
        if (found == change().before) {
            EXPECT_EQ(log.lines().size(), 1u) << "failing silently at " << allowed;
            EXPECT_EQ(store->totalCount(), found == compaction().before ? 6u : 3u);
        } else {
            EXPECT_EQ(found, change().after);
        }
        EXPECT_FALSE(fs::exists(path + ".tmp"));
    }
    EXPECT_GT(changes, 4);
}

INSTANTIATE_TEST_SUITE_P(Changes, DyingMailbox,
                         ::testing::Values(
                             +[] { return &append(); }, +[] { return &compaction(); }),
                         [](const auto& each) { return each.param()->name; });

}  // namespace
}  // namespace lorvale
