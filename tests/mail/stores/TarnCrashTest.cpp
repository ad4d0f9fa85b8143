/// A directory mailbox whose process is killed, or whose disk loses power or room, at every single change.
#include <gmock/gmock.h>

#include <set>

#include "lorvale/platform/exception.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/platform/user_defaults.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/StoreSupport.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
namespace fs = std::filesystem;

const std::string kBody(3000, 'x');

std::shared_ptr<Message> letter(std::string_view name) {
    return messageOf(mboxMessage(name, kBody + "\n"));
}

/// What is done to a mailbox with the messages a* b cd e* (unread, deleted), and what must be there afterwards.
struct Change {
    const char* name;
    std::function<bool(TarnMbox&)> make;  ///< whether it was reported as done
    std::vector<std::string> added = {};  ///< there once that was reported
    bool removesDeleted = false;
    /// The names that only a power loss or kill in the middle of an overwriting may cost.
    std::set<std::string> atRisk = {};
    bool mayDouble = false;
};

bool compact(TarnMbox& store, const char* risky) {
    UserDefaults::standard().setArgument("RiskyCompact", risky);
    try {
        store.doCompact();
    } catch (const GenericException&) {
        return false;
    }
    return store.deletedCountAndSize().count == 0;
}

const Change kChanges[] = {
    {.name = "ForegroundAppend",
     .make =
         [](auto& store) {
             return store.syncAppendMessages({letter("new"), letter("newer")}, true);
         },
     .added = {"new", "newer"}},
    {.name = "BackgroundAppend",
     .make =
         [](auto& store) {
             return store.safeAppendMessages({letter("new")}) && store.safeAppendMessages({letter("newer")});
         },
     .added = {"new", "newer"},
     .mayDouble = true},
    {.name = "Finalising",
     .make =
         [](auto& store) {
             const bool reported = store.safeAppendMessages({letter("new"), letter("newer")});
             store.finalizeAsyncAppend();
             return reported;
         },
     .added = {"new", "newer"},
     .mayDouble = true},
    {.name = "SafeCompaction",
     .make = [](auto& store) { return compact(store, "NO"); },
     .removesDeleted = true},
    {.name = "RiskyCompaction",
     .make = [](auto& store) { return compact(store, "YES"); },
     .removesDeleted = true,
     .atRisk = {"d", "e"}},
    // As long afterwards as the mailbox was before, and all letters are of one length.
    {.name = "AppendAndCompaction",
     .make =
         [](auto& store) {
             return store.syncAppendMessages({letter("f")}, false) && (compact(store, "NO"), true);
         },
     .added = {"f"},
     .removesDeleted = true},
    {.name = "Rebuild", .make = [](auto& store) { return store.rebuildTableOfContents(), true; }},
    {.name = "FlagFlush", .make = [](auto& store) { return store.close(), true; }},
};

class DyingTarn : public ::testing::TestWithParam<Change> {
protected:
    static void make(const std::string& path) {
        static const TemporaryFolder folder;
        static const std::string original = [] {
            auto first = (folder / "box.mbox").string();
            const auto store = TarnMbox::initWithPath(first, true, false);
            store->syncAppendMessages({letter("a")}, true);
            store->syncAppendMessages({letter("b"), letter("c"), letter("d")}, false);
            store->syncAppendMessages({letter("e")}, true);
            store->deleteMessage(store->allMessages()[2]);
            store->close();
            return first;
        }();
        fs::copy(original, path, fs::copy_options::recursive);
        fs::last_write_time(path + "/mbox", fs::last_write_time(original + "/mbox"));
    }
    void TearDown() override { UserDefaults::standard().removeArguments(); }

    /// All of it may have happened within the second that the table's stamp tells.
    static void squeezeIntoOneSecond(const std::string& path) {
        const auto table = readFile(path + "/table_of_contents");
        std::int64_t stamp = 0;
        for (const char c : table.substr(0, 12).substr(8)) stamp = stamp << 8 | static_cast<std::uint8_t>(c);
        const auto now = std::chrono::duration_cast<std::chrono::seconds>(
                             std::chrono::system_clock::now().time_since_epoch())
                             .count();
        constexpr int kHour = 3600;  // what is further off was never a time of the mailbox
        if (std::abs(stamp - now) < kHour)
            fs::last_write_time(path + "/mbox", std::chrono::file_clock::from_sys(
                                                    std::chrono::sys_time(std::chrono::seconds(stamp))));
    }
    /// Opens the mailbox and looks at everything.
    void examine(const std::string& path, bool reported, int allowed) const {
        SCOPED_TRACE("at change " + std::to_string(allowed));
        squeezeIntoOneSecond(path);
        const auto store = TarnMbox::initWithPath(path);
        ASSERT_TRUE(store && store->haveLock());
        EXPECT_EQ(store->inconsistency(), "");
        std::map<std::string, int> found;
        for (const auto& message : store->allMessages()) {
            const auto subject = message->headers()->subject();
            if (!subject.starts_with("about ")) continue;  // a piece of what was never reported
            const auto name = subject.substr(6);
            const auto bytes = bytesOf(*message);
            for (const auto* const other : {"a", "b", "c", "d", "e", "f"})
                EXPECT_TRUE(name == other || bytes != mboxMessage(other, kBody + "\n")) << name << other;
            if (bytes != mboxMessage(name, kBody + "\n")) continue;
            ++found[name];
            const auto flags = message->currentFlags();
            const auto& risk = GetParam().atRisk;
            if (std::string("abcde").find(name) == std::string::npos || risk.contains(name)) continue;
            EXPECT_EQ(flags->isRead(), name != "a" && name != "e") << name;
            EXPECT_EQ(flags->isDeleted(), name == "c") << name;
        }
        for (const auto* const name : {"a", "b", "d", "e"})
            EXPECT_TRUE(found[name] == 1 || GetParam().atRisk.contains(name)) << name;
        EXPECT_TRUE(found["c"] == 1 || GetParam().removesDeleted);
        for (const auto& name : GetParam().added) {
            EXPECT_TRUE(found[name] >= 1 || !reported) << name;
            EXPECT_LE(found[name], GetParam().mayDouble ? 2 : 1) << name;
        }
        // It goes on from there.
        EXPECT_TRUE(store->syncAppendMessages({letter("last")}, true));
        EXPECT_EQ(bytesOf(*store->allMessages().back()), mboxMessage("last", kBody + "\n"));
        EXPECT_EQ(store->inconsistency(), "");
        store->close();
    }
};

TEST_P(DyingTarn, LosesNothingWhenItsProcessIsKilledOrThePowerGoes) {
    const LogCapture quiet;
    for (const auto way : {CutOff::isKilled, CutOff::powerGoes}) {
        SCOPED_TRACE(PrintToString(way));
        bool done = false;
        for (int allowed = 0; !done; ++allowed) {
            const TemporaryFolder folder;
            const std::string path = folder / "box.mbox";
            make(path);
            done = survivesCutOff(way, allowed, [&] {
                const auto store = TarnMbox::initWithPath(path);
                if (store && GetParam().make(*store)) writeFile(folder / "reported", "");
            });
            if (way == CutOff::powerGoes) fs::remove(path + "/.lock");  // which may have lost its text
            examine(path, fs::exists(folder / "reported"), allowed);
            ASSERT_LT(allowed, 100);
        }
    }
}

TEST_P(DyingTarn, ShowsWhatIsThereWhenTheDiskIsFull) {
    int changes = 1;
    for (int allowed = 0; allowed < changes; ++allowed) {
        SCOPED_TRACE("full at change " + std::to_string(allowed));
        const TemporaryFolder folder;
        const std::string path = folder / "box.mbox";
        const LogCapture log;
        make(path);
        auto store = TarnMbox::initWithPath(path);
        bool reported = false;
        {
            FailingFileSystem disk;
            if (allowed > 0) disk.failFromChange(allowed - 1, ENOSPC);
            reported = GetParam().make(*store);
            if (allowed == 0) changes = disk.changes() + 1;
            if (!store->isClosed()) {
                EXPECT_EQ(store->inconsistency(), "");
                for (const auto& message : store->allMessages()) EXPECT_NE(bytesOf(*message), "(no bytes)");
            }
        }
        store->close();
        store = nullptr;
        fs::remove(path + "/.lock");
        examine(path, reported, allowed);
    }
    EXPECT_GT(changes, 2);
}

INSTANTIATE_TEST_SUITE_P(Changes, DyingTarn, ::testing::ValuesIn(kChanges),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace lorvale
