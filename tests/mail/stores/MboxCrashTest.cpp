#include <gmock/gmock.h>

#include "tests/support/FailingFileSystem.h"
#include "tests/support/PlainMbox.h"
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

std::vector<Change> changes() {
    const auto old = longMailbox("old", 3), fresh = mboxMessage("new"), kept = longMailbox("kept", 2),
               gone = longMailbox("gone", 2);
    const auto append = [=](BerkeleyMbox& store) {
        const auto message = messageOf(fresh);
        store.syncAppendMessages({message, message}, false);
    };
    const auto compact = [](BerkeleyMbox& store) {
        store.deleteMessages({store.allMessages()[3], store.allMessages()[2]});
        store.doCompact();
    };
    return {{"append", old, old + fresh + fresh, append},
            {"compaction", kept + gone + kept, kept + kept, compact}};
}

using DyingMailbox = ::testing::TestWithParam<Change>;

TEST_P(DyingMailbox, HoldsTheOldOrTheNewStateAndGoesOn) {
    const LogCapture quiet;
    for (const auto way : {CutOff::isKilled, CutOff::powerGoes}) {
        bool done = false;
        for (int allowed = 0; !done; ++allowed) {
            SCOPED_TRACE(PrintToString(way) + " at " + std::to_string(allowed));
            const TemporaryFolder folder;
            const std::string path = folder / "inbox";
            writeFile(path, GetParam().before);
            done = survivesCutOff(way, allowed, [&] { GetParam().make(*BerkeleyMbox::initWithPath(path)); });
            const auto found = readFile(path);
            ASSERT_THAT(found, AnyOf(GetParam().before, GetParam().after));
            EXPECT_TRUE(!done || found == GetParam().after) << "what was finished is lost";
            // The lock and an unfinished file that were left do not stand in the way of the next.
            const LogCapture log;
            const auto store = BerkeleyMbox::initWithPath(path);
            ASSERT_TRUE(store->haveLock() || way == CutOff::powerGoes) << "a lock may have lost its text";
            if (!store->haveLock()) continue;
            if (found == GetParam().before) GetParam().make(*store);
            EXPECT_EQ(readFile(path), GetParam().after);
            EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 2)
                << "more than mailbox and lock";
            EXPECT_THAT(log.lines(), IsEmpty());
            ASSERT_LT(allowed, 100);
        }
    }
}

TEST_P(DyingMailbox, StaysAsItWasWhenTheDiskIsFull) {
    int changes = 0;
    for (int allowed = 0; allowed == 0 || allowed < changes; ++allowed) {
        const TemporaryFolder folder;
        const std::string path = folder / "inbox";
        writeFile(path, GetParam().before);
        const auto store = BerkeleyMbox::initWithPath(path);
        FailingFileSystem disk;
        if (allowed > 0) disk.failFromChange(allowed - 1, ENOSPC);
        const LogCapture log;
        GetParam().make(*store);
        if (allowed == 0) changes = disk.changes();
        const auto found = readFile(path);
        if (found == GetParam().before) {
            EXPECT_EQ(log.lines().size(), 1u) << "failing silently at " << allowed;
            EXPECT_EQ(store->totalCount(), messagesByPlainRule(found).size());
        } else {
            EXPECT_EQ(found, GetParam().after);
        }
        EXPECT_FALSE(fs::exists(path + ".tmp"));
    }
    EXPECT_GT(changes, 4);
}

INSTANTIATE_TEST_SUITE_P(Changes, DyingMailbox, ValuesIn(changes()),
                         [](const auto& each) { return each.param.name; });

}  // namespace
}  // namespace lorvale
