#include "lorvale/platform/user_defaults.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "base/files/PropertyListFile.h"
#include "lorvale/platform/paths.h"
#include "lorvale/values/property_list.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using ::testing::ElementsAre;
using ::testing::Optional;

class UserDefaultsTest : public ::testing::Test {
protected:
    UserDefaults make() { return UserDefaults("app", folder()); }
    std::string folder() const { return (_folder / "config").string(); }
    std::string file(std::string_view domain) const {
        return folder().append("/").append(domain).append(".plist");
    }
    /// A domain's file as another program may have left it.
    void writeDomain(std::string_view domain, std::string_view body) {
        std::filesystem::create_directories(folder());
        testing::writeFile(file(domain),
                           "<?xml version=\"1.0\"?><plist version=\"1.0\">" + std::string(body) + "</plist>");
    }
    static std::string stringOf(const UserDefaults& defaults, std::string_view key) {
        return defaults.stringForKey(key).value_or("none");
    }

    const testing::TemporaryFolder _folder;
};

TEST_F(UserDefaultsTest, FirstDomainOfTheListWins) {
    writeDomain("app", "<dict><key>a</key><string>app</string><key>b</key><string>app</string></dict>");
    writeDomain("Suite", "<dict><key>b</key><string>suite</string><key>c</key><string>suite</string></dict>");
    auto defaults = make();
    defaults.addSuiteNamed("Suite");
    defaults.addSuiteNamed("Suite");
    defaults.registerDefaults(PropertyList::Dictionary{{"c", "old"}, {"d", "x"}});
    defaults.registerDefaults(PropertyList::Dictionary{{"d", "registered"}});
    defaults.setArgument("a", "argument");
    EXPECT_THAT(defaults.searchList(), ElementsAre("app", "Suite"));
    EXPECT_EQ(stringOf(defaults, "a"), "argument");
    EXPECT_EQ(stringOf(defaults, "b"), "app");
    EXPECT_EQ(stringOf(defaults, "c"), "suite");
    EXPECT_EQ(stringOf(defaults, "d"), "registered");
    EXPECT_EQ(defaults.stringForKey("e"), std::nullopt);

    defaults.removeObjectForKey("b");
    EXPECT_EQ(stringOf(defaults, "b"), "suite") << "removed from the first domain only";
    defaults.removeSuiteNamed("Suite");
    defaults.removeSuiteNamed("app");
    EXPECT_THAT(defaults.searchList(), ElementsAre("app"));
    EXPECT_EQ(stringOf(defaults, "c"), "old");
    defaults.setString("set", "a");
    EXPECT_EQ(stringOf(defaults, "a"), "argument") << "for this run";
    defaults.removeArguments();
    EXPECT_EQ(stringOf(defaults, "a"), "set");
}

TEST_F(UserDefaultsTest, ValuesAreReadAsWhatIsWanted) {
    auto defaults = make();
    const struct {
        const char* value;
        bool boolean;
        std::int64_t integer;
    } rows[] = {
        {"YES", true, 1}, {"true", true, 1}, {"-3", true, -3},
        {"no", false, 0}, {"0", false, 0},   {"", false, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        defaults.setArgument("k", row.value);
        EXPECT_EQ(defaults.boolForKey("k"), row.boolean);
        EXPECT_EQ(defaults.integerForKey("k"), row.integer);
    }
    defaults.removeArguments();
    defaults.setInteger(-12, "i");
    defaults.setBool(true, "b");
    defaults.setObject(2.5, "r");
    defaults.setObject(PropertyList::Array{"x", 3, PropertyList::Dictionary()}, "a");
    EXPECT_EQ(stringOf(defaults, "i"), "-12");
    EXPECT_EQ(stringOf(defaults, "b"), "YES");
    EXPECT_EQ(stringOf(defaults, "r"), "2.5");
    EXPECT_TRUE(defaults.boolForKey("r"));
    EXPECT_THAT(defaults.stringArrayForKey("a"), Optional(ElementsAre("x", "3")));
    EXPECT_FALSE(defaults.dictionaryForKey("a"));
    EXPECT_EQ(stringOf(defaults, "a"), "none");
    EXPECT_EQ(defaults.integerForKey("none"), 0);
}

TEST_F(UserDefaultsTest, TwoProcessesKeepEachOthersChanges) {
    auto one = make(), other = make();
    EXPECT_TRUE(other.synchronize());
    EXPECT_FALSE(std::filesystem::exists(folder())) << "without changes nothing is written";
    EXPECT_EQ(other.stringForKey("of one"), std::nullopt);
    one.setString("1", "of one");
    other.setString("2", "of other");
    one.setString("one", "of both");
    other.setString("other", "of both");
    EXPECT_TRUE(one.synchronize());
    EXPECT_EQ(other.stringForKey("of one"), std::nullopt) << "not before it synchronizes";
    EXPECT_TRUE(other.synchronize());
    EXPECT_TRUE(one.synchronize());
    for (const auto* defaults : {&one, &other}) {
        EXPECT_EQ(stringOf(*defaults, "of one"), "1");
        EXPECT_EQ(stringOf(*defaults, "of other"), "2");
        EXPECT_EQ(stringOf(*defaults, "of both"), "other") << "the later writer's";
    }
    one.removeObjectForKey("of other");
    EXPECT_TRUE(one.synchronize());
    EXPECT_TRUE(other.synchronize());
    EXPECT_EQ(other.stringForKey("of other"), std::nullopt);
    EXPECT_EQ(FileSystem::current().attributes(file("app"))->permissions, mode_t{0600});
    EXPECT_EQ(FileSystem::current().attributes(folder())->permissions, mode_t{0700});
}

TEST_F(UserDefaultsTest, DamagedFileCountsAsEmptyAndIsKept) {
    const testing::LogCapture log;
    std::filesystem::create_directories(folder());
    const std::set<std::string> all = {"no property list", "<?xml version=\"1.0\"?><plist><array/></plist>"};
    for (const auto& damaged : all) {
        testing::writeFile(file("app"), damaged);
        auto defaults = make();
        EXPECT_EQ(defaults.stringForKey("a"), std::nullopt);
        defaults.setString("1", "a");
        EXPECT_TRUE(defaults.synchronize());
        EXPECT_EQ(stringOf(make(), "a"), "1");
    }
    std::set<std::string> kept;
    for (const auto& entry : std::filesystem::directory_iterator(folder()))
        if (entry.path() != file("app")) kept.insert(testing::readFile(entry.path()));
    EXPECT_EQ(kept, all);
    EXPECT_FALSE(log.lines().empty());
}

TEST_F(UserDefaultsTest, FailedWriteKeepsTheChangesForTheNextTime) {
    auto defaults = make();
    defaults.setString("old", "a");
    ASSERT_TRUE(defaults.synchronize());
    defaults.setString("new", "a");
    {
        const testing::LogCapture log;
        testing::FailingFileSystem disk;
        disk.failFromChange(0, ENOSPC);
        EXPECT_FALSE(defaults.synchronize());
    }
    EXPECT_EQ(stringOf(make(), "a"), "old");
    EXPECT_EQ(stringOf(defaults, "a"), "new");
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_EQ(stringOf(make(), "a"), "new");
}

TEST_F(UserDefaultsTest, ValueSetWhileTheFileIsWrittenStays) {
    auto defaults = make();
    struct Meddling : PosixFileSystem {
        FileStatus rename(const std::string& from, const std::string& to) override {
            meddle();
            return PosixFileSystem::rename(from, to);
        }
        std::function<void()> meddle;
    } disk;
    disk.meddle = [&] { defaults.setString("later", "a"); };
    defaults.setString("sooner", "a");
    FileSystem::setCurrent(&disk);
    EXPECT_TRUE(defaults.synchronize());
    FileSystem::setCurrent(nullptr);
    EXPECT_EQ(stringOf(defaults, "a"), "later");
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_EQ(stringOf(make(), "a"), "later");
}

TEST_F(UserDefaultsTest, CrashWhileWritingLeavesTheOldSettingsOrTheNewOnes) {
    for (int allowed = 0, done = 0; !done; ++allowed) {
        std::filesystem::remove_all(folder());
        auto defaults = make();
        defaults.setString("old", "a");
        ASSERT_TRUE(defaults.synchronize());
        defaults.setString("new", "a");
        testing::FailingFileSystem disk(static_cast<std::uint64_t>(allowed));
        disk.dieAtChange(allowed);
        done = disk.survives([&] { static_cast<void>(defaults.synchronize()); });
        disk.losePower();
        EXPECT_THAT(make().stringForKey("a"), Optional(::testing::AnyOf("old", "new"))) << allowed;
    }
}

TEST_F(UserDefaultsTest, StandardOneFollowsTheConfigurationDirectory) {
    UserDefaults defaults("app");
    setConfigurationDirectory(folder());
    writeDomain("app", "<dict><key>a</key><string>there</string></dict>");
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_EQ(stringOf(defaults, "a"), "there");
    setConfigurationDirectory("");
    EXPECT_EQ(UserDefaults::standard().searchList().front(), program_invocation_short_name);
}

TEST(UserDefaultsThreads, ReadersAndWritersOfOneFileKeepEachOthersValues) {
    const testing::TemporaryFolder folder;
    UserDefaults shared("app", folder.path().string());
    constexpr int kRounds = 20;
    {
        std::vector<std::jthread> threads;
        for (int t = 0; t < 3; ++t)
            threads.emplace_back([&, t] {
                UserDefaults own("app", folder.path().string());  // as another process would have them
                const auto number = std::to_string(t);
                for (int i = 1; i <= kRounds; ++i) {
                    shared.setInteger(i, "shared" + number);
                    own.setInteger(i, "own" + number);
                    EXPECT_TRUE((i % 2 == 0 ? shared : own).synchronize());
                    EXPECT_EQ(shared.integerForKey("shared" + number), i) << "also while another thread writes";
                    EXPECT_EQ(own.integerForKey("own" + number), i);
                }
                EXPECT_TRUE(own.synchronize());
            });
    }
    EXPECT_TRUE(shared.synchronize());
    for (int t = 0; t < 3; ++t) {
        EXPECT_EQ(shared.integerForKey("shared" + std::to_string(t)), kRounds);
        EXPECT_EQ(shared.integerForKey("own" + std::to_string(t)), kRounds);
    }
}

}  // namespace
}  // namespace lorvale
