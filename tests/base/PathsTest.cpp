#include "lorvale/platform/paths.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using testing::TemporaryFolder;

/// Redirects what a test names, and takes it back.
class Paths : public ::testing::Test {
protected:
    void SetUp() override { setHomeDirectory("/home/anna/"); }
    void TearDown() override {
        setHomeDirectory("");
        setConfigurationDirectory("");
        setResourceDirectory("");
        setSpoolDirectory("");
    }
};

TEST_F(Paths, AreStandardised) {
    const TemporaryFolder folder;
    const auto base = folder.path().string();
    std::filesystem::create_directories(folder / "deep/down");
    std::filesystem::create_symlink("deep/down", folder / "link");
    const struct {
        const char* why;
        std::string in, out;
    } rows[] = {
        {"nothing stays nothing", "", ""},
        {"the home directory", "~", "/home/anna"},
        {"below it", "~/Mailboxes/", "/home/anna/Mailboxes"},
        {"an unknown user", "~nobody-of-that-name/x", "~nobody-of-that-name/x"},
        {"a tilde elsewhere is a letter", "/a/~/b~", "/a/~/b~"},
        {"dots and slashes", "/a/./b//c/", "/a/b/c"},
        {"going up", "/a/b/../../c/..", "/"},
        {"above the root is the root", "/../../a", "/a"},
        {"relative paths stay so", "./a/../../b", "../b"},
        {"all of it taken back", "a/..", "."},
        {"two steps above the start", "../../a/../b", "../../b"},
        {"hidden and odd names", "/a/.../..b", "/a/.../..b"},
        {"up from where a link leads", base + "/link/../x", base + "/deep/x"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(standardizePath(row.in), row.out);
        EXPECT_EQ(standardizePath(standardizePath(row.in)), row.out) << "once is enough";
    }
    EXPECT_EQ(standardizePath("~root/x").front(), '/');
}

TEST_F(Paths, AreAbbreviatedWithATilde) {
    EXPECT_EQ(abbreviateWithTilde("/home/anna"), "~");
    EXPECT_EQ(abbreviateWithTilde("/home/anna/Mail"), "~/Mail");
    EXPECT_EQ(abbreviateWithTilde("/home/annabel/Mail"), "/home/annabel/Mail");
    setHomeDirectory("/");
    EXPECT_EQ(abbreviateWithTilde("/etc"), "/etc") << "a home at the root abbreviates nothing";
}

TEST_F(Paths, ConfigurationFollowsARedirectedHomeAndNotTheEnvironment) {
    ::setenv("XDG_CONFIG_HOME", "/elsewhere", 1);
    EXPECT_EQ(configurationDirectory(), "/home/anna/.config/lorvale");
    setHomeDirectory("");
    EXPECT_EQ(configurationDirectory(), "/elsewhere/lorvale");
    ::setenv("XDG_CONFIG_HOME", "not/absolute", 1);
    EXPECT_EQ(configurationDirectory(), homeDirectory() + "/.config/lorvale");
    ::unsetenv("XDG_CONFIG_HOME");
    setConfigurationDirectory("/given");
    EXPECT_EQ(configurationDirectory(), "/given");
}

TEST_F(Paths, SpoolComesFromTheEnvironment) {
    ::setenv("MAIL", "/var/spool/mail/anna", 1);
    EXPECT_EQ(spoolDirectory(), "/var/spool/mail");
    ::unsetenv("MAIL");
    EXPECT_EQ(spoolDirectory(), "/var/mail");
}

TEST_F(Paths, ResourcesAreFoundByNameAndType) {
    const TemporaryFolder folder;
    testing::writeFile(folder / "Words.list", "");
    testing::writeFile(folder / "Plain", "");
    setResourceDirectory(folder.path().string());
    EXPECT_EQ(pathForResource("Words", "list"), (folder / "Words.list").string());
    EXPECT_EQ(pathForResource("Plain"), (folder / "Plain").string());
    EXPECT_EQ(pathForResource("Words"), std::nullopt);
}

}  // namespace
}  // namespace lorvale
