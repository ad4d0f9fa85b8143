#include "base/files/FileSystem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <set>

#include "lorvale/values/format.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using testing::FailingFileSystem;
using testing::TemporaryFolder;
namespace fs = std::filesystem;

class Files : public ::testing::Test {
protected:
    std::string path(std::string_view name) const { return (_folder / name).string(); }

    const TemporaryFolder _folder;
    FileSystem& files = FileSystem::current();
};

TEST_F(Files, AreWrittenWhereThePositionIs) {
    FileStatus status;
    auto file = files.openForWriting(path("a"), WriteMode::createNew, 0600, &status);
    ASSERT_NE(file, nullptr) << status.text();
    EXPECT_TRUE(file->write("hello world"));
    EXPECT_TRUE(file->seek(6));
    EXPECT_TRUE(file->write("W"));
    EXPECT_EQ(file->position(), 7u);
    EXPECT_TRUE(file->truncate(9));
    EXPECT_TRUE(file->sync());
    EXPECT_TRUE(file->close());
    EXPECT_EQ(testing::readFile(path("a")), "hello Wor");
    EXPECT_EQ(files.attributes(path("a"))->permissions, mode_t{0600});

    file = files.openForWriting(path("a"), WriteMode::append, 0600);
    EXPECT_TRUE(file->write("!"));
    file = files.openForWriting(path("a"), WriteMode::keep, 0600);
    EXPECT_TRUE(file->write("J"));
    EXPECT_EQ(testing::readFile(path("a")), "Jello Wor!");
    const auto reader = files.openForReading(path("a"));
    EXPECT_EQ(reader->size(), 10u);
    EXPECT_EQ(reader->read(8, 100)->view(), "r!");
    EXPECT_EQ(reader->read(100, 1)->size(), 0u);
}

TEST_F(Files, RefusalsSayWhatAndWhere) {
    testing::writeFile(path("there"), "x");
    fs::create_directory(path("folder"));
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
    FileStatus status;
    EXPECT_EQ(files.openForWriting(path("there"), WriteMode::createNew, 0600, &status), nullptr);
    EXPECT_EQ(status.code(), EEXIST);
    EXPECT_EQ(files.readFile(path("nothing"), &status), std::nullopt);
    EXPECT_EQ(status.text(), "open " + path("nothing") + ": No such file or directory");
    EXPECT_EQ(files.mapFile(path("folder"), &status), std::nullopt);
    EXPECT_EQ(status.code(), EISDIR);
    EXPECT_EQ(files.readFile(path("pipe"), &status), std::nullopt) << "and does not wait for a writer";
    EXPECT_EQ(files.openForWriting(path("pipe"), WriteMode::keep, 0600, &status), nullptr);
    EXPECT_EQ(files.link(path("there"), path("folder")).code(), EEXIST);
    EXPECT_EQ(files.namesInFolder(path("there")), std::nullopt);
}

TEST_F(Files, AreReadAndMappedToTheSameBytes) {
    for (const std::size_t size : {0u, 1u, 4096u, 100'000u}) {
        const std::string bytes(size, 'b');
        testing::writeFile(path("a"), bytes);
        EXPECT_EQ(files.readFile(path("a"))->view(), bytes);
        EXPECT_EQ(files.mapFile(path("a"))->view(), bytes);
    }
    const auto ofSizeZero = files.readFile("/proc/self/status");
    ASSERT_TRUE(ofSizeZero);
    EXPECT_THAT(ofSizeZero->toString(), ::testing::HasSubstr("Threads:"));
}

TEST_F(Files, AtomicWriteKeepsPermissionsLinksAndMappingsAndLeavesNothingElse) {
    testing::writeFile(path("target"), "old");
    fs::permissions(path("target"), fs::perms(0640));
    ASSERT_TRUE(files.symbolicLink("target", path("link")));
    const auto mapped = files.mapFile(path("target"));
    ASSERT_TRUE(writeFileAtomically(path("link"), "new"));
    EXPECT_EQ(mapped->view(), "old");
    EXPECT_TRUE(files.linkAttributes(path("link"))->isLink);
    EXPECT_EQ(testing::readFile(path("target")), "new");
    EXPECT_EQ(files.attributes(path("target"))->permissions, mode_t{0640});
    ASSERT_TRUE(writeFileAtomically(path("fresh"), "1", 0600));
    EXPECT_EQ(files.attributes(path("fresh"))->permissions, mode_t{0600});
    EXPECT_EQ(writeFileAtomically(path("no/such/folder"), "x").code(), ENOENT);
    EXPECT_NE(writeFileAtomically(_folder.path().string(), "x").code(), 0) << "not over a directory";
    EXPECT_THAT(*files.namesInFolder(_folder.path().string()),
                ::testing::ElementsAre("fresh", "link", "target"));
}

/// A disk on which nobody may give a file to another owner, or not even to another group.
class StrictDisk : public PosixFileSystem {
public:
    explicit StrictDisk(bool groupToo) : _groupToo(groupToo) { setCurrent(this); }
    ~StrictDisk() override { setCurrent(nullptr); }
    FileStatus setOwner(const std::string& path, uid_t owner, gid_t group) override {
        if (_groupToo || owner != attributes(path)->owner) return {EPERM, "set the owner of " + path};
        return PosixFileSystem::setOwner(path, owner, group);
    }

private:
    const bool _groupToo;
};

TEST_F(Files, AtomicWriteKeepsOwnerAndGroupOrShutsTheGroupOut) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
    const auto rewritten = [&](FileSystem* disk) {
        testing::writeFile(path("a"), "old");
        EXPECT_TRUE(files.setOwner(path("a"), 1234, 5678));
        EXPECT_TRUE(files.setPermissions(path("a"), 0664));
        FileSystem::setCurrent(disk);
        EXPECT_TRUE(writeFileAtomically(path("a"), "new"));
        FileSystem::setCurrent(nullptr);
        const auto now = *files.attributes(path("a"));
        EXPECT_TRUE(files.remove(path("a")));
        return formatText("%d:%d %d", now.owner, now.group, now.permissions);
    };
    EXPECT_EQ(rewritten(nullptr), formatText("1234:5678 %d", 0664));
    StrictDisk noOwner(false);
    EXPECT_EQ(rewritten(&noOwner), formatText("0:5678 %d", 0664));
    StrictDisk noGroup(true);
    EXPECT_EQ(rewritten(&noGroup), formatText("0:%d %d", ::getegid(), 0604));
}

TEST_F(Files, AreCopiedAndFoldersMade) {
    const std::string bytes(3'000'000, 'c');
    testing::writeFile(path("a"), bytes);
    ASSERT_TRUE(makeDirectories(path("x/y/z"), 0700));
    ASSERT_TRUE(makeDirectories(path("x/y/z"), 0700));
    ASSERT_TRUE(copyFile(path("a"), path("x/y/z/b"), 0600));
    EXPECT_EQ(testing::readFile(path("x/y/z/b")), bytes);
    EXPECT_EQ(copyFile(path("nothing"), path("c"), 0600).code(), ENOENT);
    EXPECT_EQ(makeDirectories(path("a/b")).code(), EEXIST) << "a file is in the way";
    for (const auto& [place, folder] : {std::pair{"/a/b", "/a"}, {"/a", "/"}, {"a", "."}, {"a//b/", "a"}})
        EXPECT_EQ(folderOf(place), folder) << place;
}

// ---- The failing disk, on which the crash tests of the stores rest, and the atomic write on it.

/// What a file may hold after `write` was cut off at each of its changes in turn, over several fates.
std::set<std::string> statesAfterCrash(const std::function<void(const std::string&)>& write, bool powerLoss) {
    std::set<std::string> states;
    for (std::uint64_t seed = 1; seed <= (powerLoss ? 15u : 1u); ++seed) {
        for (int allowed = 0, done = 0; !done; ++allowed) {
            const TemporaryFolder folder;
            const auto path = (folder / "file").string();
            testing::writeFile(path, "old bytes");
            FailingFileSystem disk(seed * 1000 + static_cast<std::uint64_t>(allowed));
            disk.dieAtChange(allowed);
            done = disk.survives([&] { write(path); });
            if (powerLoss) disk.losePower();
            states.insert(fs::exists(path) ? testing::readFile(path) : "gone");
        }
    }
    return states;
}

void writeInPlace(const std::string& path) {
    const auto file = FileSystem::current().openForWriting(path, WriteMode::truncate, 0600);
    if (file == nullptr || !file->write("new and longer") || !file->sync() || !file->close()) return;
}

void renameWithoutSync(const std::string& path) {
    auto& files = FileSystem::current();
    const auto file = files.openForWriting(path + ".tmp", WriteMode::truncate, 0600);
    if (file == nullptr || !file->write("new and longer") || !file->close()) return;
    if (files.rename(path + ".tmp", path)) static_cast<void>(files.syncFolder(folderOf(path)));
}

TEST(FailingFileSystem, AtomicWriteShowsTheOldBytesOrTheNewOnes) {
    const auto write = [](const std::string& path) {
        static_cast<void>(writeFileAtomically(path, "new and longer"));
    };
    for (const bool powerLoss : {false, true})
        EXPECT_THAT(statesAfterCrash(write, powerLoss), ::testing::ElementsAre("new and longer", "old bytes"));
}

TEST(FailingFileSystem, AtomicWriteIsSafeOnceItReturns) {
    for (std::uint64_t seed = 1; seed <= 15; ++seed) {
        const TemporaryFolder folder;
        const auto path = (folder / "new/file").string();
        FailingFileSystem disk(seed);
        ASSERT_TRUE(makeDirectories((folder / "new").string()));
        ASSERT_TRUE(writeFileAtomically(path, "bytes"));
        disk.losePower();
        ASSERT_TRUE(fs::exists(path)) << seed;
        EXPECT_EQ(testing::readFile(path), "bytes");
    }
}

TEST(FailingFileSystem, CatchesCarelessWriters) {
    EXPECT_GT(statesAfterCrash(writeInPlace, false).size(), 2u) << "an emptied or half written file shows";
    EXPECT_THAT(statesAfterCrash(renameWithoutSync, false), ::testing::SizeIs(2))
        << "fine until the power goes";
    EXPECT_GT(statesAfterCrash(renameWithoutSync, true).size(), 2u) << "the name was safe before the bytes";
}

TEST(FailingFileSystem, PowerLossTakesBackNamesFromSomeMomentOn) {
    std::set<std::vector<std::string>> seen;
    for (std::uint64_t seed = 1; seed <= 40; ++seed) {
        const TemporaryFolder folder;
        const auto path = [&](std::string_view name) { return (folder / name).string(); };
        testing::writeFile(path("a"), "a");
        testing::writeFile(path("b"), "b");
        FailingFileSystem disk(seed);
        ASSERT_TRUE(disk.link(path("a"), path("safe")));
        ASSERT_TRUE(disk.syncFolder(folder.path().string()));
        ASSERT_TRUE(disk.rename(path("a"), path("b")));
        ASSERT_TRUE(disk.remove(path("safe")));
        ASSERT_TRUE(disk.makeDirectory(path("d"), 0700));
        disk.losePower();
        const auto names = *disk.namesInFolder(folder.path().string());
        seen.insert(names);
        if (fs::exists(path("a"))) {
            EXPECT_EQ(testing::readFile(path("b")), "b") << "an undone rename brings both files back";
        }
    }
    using Names = std::vector<std::string>;
    EXPECT_THAT(seen, ::testing::UnorderedElementsAre(Names{"a", "b", "safe"}, Names{"b", "safe"}, Names{"b"},
                                                      Names{"b", "d"}));
}

TEST(FailingFileSystem, FullDiskFailsTheAtomicWriteAndLeavesTheOldFile) {
    for (int n = 0; n < 5; ++n) {
        const TemporaryFolder folder;
        const auto path = (folder / "file").string();
        testing::writeFile(path, "old");
        FailingFileSystem disk;
        disk.failFromChange(n, ENOSPC);
        EXPECT_EQ(writeFileAtomically(path, "new").code(), ENOSPC) << n;
        EXPECT_EQ(testing::readFile(path), "old") << n;
        EXPECT_EQ(disk.namesInFolder(folder.path().string())->size(), 1u) << "the new file is removed, " << n;
    }
}

TEST(FailingFileSystem, KilledChildLeavesTheOldFileOrTheNewOne) {
    const TemporaryFolder folder;
    const auto path = (folder / "file").string();
    int allowed = 0;
    for (bool done = false; !done; ++allowed) {
        testing::writeFile(path, "old");
        done = testing::survivesKillAtChange(allowed,
                                             [&] { static_cast<void>(writeFileAtomically(path, "new")); });
        EXPECT_THAT(testing::readFile(path), ::testing::AnyOf("old", "new")) << allowed;
    }
    EXPECT_EQ(testing::readFile(path), "new");
    EXPECT_GT(allowed, 4) << "opening, writing, syncing, renaming, syncing the folder";
    EXPECT_THROW(testing::survivesKillAtChange(0, [] { throw 1; }), std::runtime_error);
}

}  // namespace
}  // namespace lorvale
