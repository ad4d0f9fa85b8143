#include "lorvale/defaults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "lorvale/platform/paths.h"
#include "lorvale/platform/user_interface.h"
#include "lorvale/values/property_list.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;
using ::testing::Optional;

class DefaultsTest : public ::testing::Test {
protected:
    void SetUp() override { setHomeDirectory("/home/anna"); }
    void TearDown() override {
        Defaults::setTesseraLookup(nullptr);
        setHomeDirectory("");
        setRootDirectory("");
    }

    const testing::TemporaryFolder _folder;
    UserDefaults user{"test", _folder.path().string()};
    Defaults defaults{user};
};

TEST_F(DefaultsTest, EverySettingHasItsFallBack) {
    setRootDirectory("/sys/");
    EXPECT_THAT(defaults.mailFilter(), ElementsAre());
    EXPECT_EQ(defaults.sendFormat(), SendFormat::MIME);
    EXPECT_EQ(defaults.sendSizeLimit(), 500);
    EXPECT_EQ(defaults.spoolDirectory(), std::nullopt);
    EXPECT_EQ(defaults.defaultMailDirectory(), "/home/anna/Mailboxes");
    EXPECT_EQ(defaults.archiveMailboxName(), "Outgoing.mbox");
    EXPECT_EQ(defaults.localLibraryDirectory(), "/sys/Network/Library");
    EXPECT_EQ(defaults.SMTPHost(), "mailhost");
    EXPECT_EQ(defaults.deliveryMethod(), "sendmail");
    EXPECT_EQ(defaults.sendmailMailer(), "/usr/sbin/sendmail");
    EXPECT_EQ(defaults.popSpoolDirectory(), "/home/anna/Mailboxes/.popspool");
    EXPECT_EQ(defaults.popPassword(), "");
    EXPECT_EQ(defaults.pop3ClientVersion(), 1);
    EXPECT_EQ(defaults.alternateAddressesForSelf(), "");
    EXPECT_EQ(defaults.stringForKey("no such key"), "");
    EXPECT_FALSE(defaults.canUseWindowKit());
    EXPECT_THAT(user.searchList(), ElementsAre("test", "Lorvale"));
    EXPECT_EQ(defaults.integerForKey("LineLength"), 76) << "registered from the resource";
}

TEST_F(DefaultsTest, FallBacksAgreeWithTheRegisteredValues) {
    // An empty text counts as absent, so it brings out the fall-backs of the code itself.
    const auto all = [&] {
        return std::vector<std::string>{defaults.defaultMailDirectory(), defaults.archiveMailboxName(),
                                        defaults.SMTPHost(), defaults.deliveryMethod(),
                                        defaults.sendmailMailer()};
    };
    const auto registered = all();
    for (const auto key : {"MailDir", "ArchiveMailboxName", "SMTPHost", "DeliveryMethod", "Mailer", "SpoolDir",
                           "MailFilter", "SendFormat", "POP3SpoolDirectory", "LocalLibDir"})
        user.setString("", key);
    EXPECT_EQ(all(), registered);
    EXPECT_EQ(defaults.spoolDirectory(), std::nullopt);
    EXPECT_THAT(defaults.mailFilter(), ElementsAre());
    EXPECT_EQ(defaults.popSpoolDirectory(), "/home/anna/Mailboxes/.popspool");
}

TEST_F(DefaultsTest, SettingsAreStoredUnderTheirKeys) {
    using Text = std::optional<std::string_view>;
    const struct {
        std::string_view key;
        std::function<void(Text)> set;
        std::string_view value, stored;
        std::function<std::string()> get;
        std::string_view read;
    } rows[] = {
        {"SpoolDir", [&](Text t) { defaults.setSpoolDirectory(t); }, "/sp", "/sp",
         [&] { return *defaults.spoolDirectory(); }, "/sp"},
        {"MailDir", [&](Text t) { defaults.setDefaultMailDirectory(t); }, "~/../M/", "~/../M/",
         [&] { return defaults.defaultMailDirectory(); }, "/home/M"},
        {"ArchiveMailboxName", [&](Text t) { defaults.setArchiveMailboxName(t); }, "Sent.2001",
         "Sent.2001.mbox", [&] { return defaults.archiveMailboxName(); }, "Sent.2001.mbox"},
        {"ArchiveMailboxName", [&](Text t) { defaults.setArchiveMailboxName(t); }, "Sent.mbox", "Sent.mbox",
         [&] { return defaults.archiveMailboxName(); }, "Sent.mbox"},
        {"LocalLibDir", [&](Text t) { defaults.setLocalLibraryDirectory(t); }, "/lib/./x", "/lib/./x",
         [&] { return defaults.localLibraryDirectory(); }, "/lib/x"},
        {"SMTPHost", [&](Text t) { defaults.setSMTPHost(t); }, "smtp.example", "smtp.example",
         [&] { return defaults.SMTPHost(); }, "smtp.example"},
        {"DeliveryMethod", [&](Text t) { defaults.setDeliveryMethod(t); }, "smtp", "smtp",
         [&] { return defaults.deliveryMethod(); }, "smtp"},
        {"Mailer", [&](Text t) { defaults.setSendmailMailer(t); }, "/opt/mailer", "/opt/mailer",
         [&] { return defaults.sendmailMailer(); }, "/opt/mailer"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.key);
        const auto before = user.stringForKey(row.key);
        row.set(row.value);
        EXPECT_THAT(user.stringForKey(row.key), Optional(std::string(row.stored)));
        EXPECT_EQ(row.get(), row.read);
        row.set("");
        EXPECT_EQ(user.stringForKey(row.key), before) << "empty takes the key away";
        row.set(row.value);
        row.set(std::nullopt);
        EXPECT_EQ(user.stringForKey(row.key), before);
    }
    defaults.setSendmailMailer("/opt/mailer");
    defaults.setSendmailMailer("/usr/sbin/sendmail");
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_FALSE(UserDefaults("test", _folder.path().string()).objectForKey("Mailer"))
        << "the usual one is not stored";
}

TEST_F(DefaultsTest, SendFormatIsAWordInAnyCase) {
    const struct {
        const char *word, *nonTarn;
        SendFormat format;
    } rows[] = {
        {"mime", "", SendFormat::MIME},     {"MIME", "YES", SendFormat::MIME}, {"pLAIN", "", SendFormat::plain},
        {"Plain", "NO", SendFormat::plain}, {"", "YES", SendFormat::plain},    {"", "", SendFormat::MIME},
        {"other", "1", SendFormat::plain},  {"other", "0", SendFormat::MIME},
    };
    for (const auto& row : rows) {
        user.setString(row.word, "SendFormat");
        user.setString(row.nonTarn, "NonTarn");
        EXPECT_EQ(defaults.sendFormat(), row.format) << row.word << '/' << row.nonTarn;
    }
    defaults.setSendFormat(SendFormat::plain);
    EXPECT_THAT(user.stringForKey("SendFormat"), Optional(std::string("Plain")));
    defaults.setSendFormat(SendFormat::MIME);
    EXPECT_THAT(user.stringForKey("SendFormat"), Optional(std::string("MIME")));
}

TEST_F(DefaultsTest, HeaderFilterIsMadeOnceFromTheUsersNames) {
    EXPECT_EQ(Defaults::defaultFilterHeaders().size(), 12u);
    user.setString("Received:Organization", "MailFilter");
    EXPECT_THAT(defaults.mailFilter(), ElementsAre("Received", "Organization"));
    EXPECT_THAT(defaults.filterHeaders(), Contains("received"));
    EXPECT_THAT(defaults.filterHeaders(), Contains("organization"));
    EXPECT_THAT(defaults.filterHeaders(), Contains("from ")) << "with its blank";
    EXPECT_EQ(defaults.filterHeaders().size(), 14u);

    const std::vector<std::string> names{"X-Mailer", "X-Status"};
    defaults.setMailFilter(names);
    EXPECT_EQ(defaults.mailFilter(), names);
    EXPECT_THAT(defaults.filterHeaders(), Not(Contains("x-mailer"))) << "kept for the session";
    EXPECT_EQ(Defaults(user).filterHeaders().size(), 13u) << "x-status is there anyway";
}

TEST_F(DefaultsTest, PasswordIsHiddenFromTheEye) {
    defaults.setPopPassword("open sesame");
    EXPECT_EQ(user.stringForKey("POP3Password")->find("sesame"), std::string::npos);
    EXPECT_THAT(user.stringForKey("POP3ClientVersion"), Optional(std::string("1")));
    EXPECT_EQ(defaults.popPassword(), "open sesame");
    const std::string longOne(200, 'p');
    defaults.setPopPassword(longOne);
    EXPECT_EQ(defaults.popPassword(), longOne);
    user.setObject(PropertyList(Data::ofStatic("c2VjcmV0")), "POP3Password");
    EXPECT_EQ(defaults.popPassword(), "secret") << "a data value too";
}

TEST_F(DefaultsTest, PlainPasswordIsWrittenBackHidden) {
    for (const auto version : {"", "0"}) {
        user.setString("open sesame", "POP3Password");
        user.setString(version, "POP3ClientVersion");
        ASSERT_TRUE(user.synchronize());
        EXPECT_EQ(defaults.popPassword(), "open sesame");
        EXPECT_THAT(testing::readFile(_folder / "test.plist"), Not(::testing::HasSubstr("sesame")))
            << "at once";
        EXPECT_EQ(defaults.popPassword(), "open sesame");
    }
}

TEST_F(DefaultsTest, SendSizeLimitIsStoredOrTakenAway) {
    user.setInteger(600, "SendSizeLimit");
    EXPECT_EQ(defaults.sendSizeLimit(), 600);
    defaults.setSendSizeLimit(700);
    EXPECT_EQ(user.integerForKey("SendSizeLimit"), 700);
    EXPECT_EQ(defaults.sendSizeLimit(), 700);
    defaults.setSendSizeLimit(-1);
    EXPECT_EQ(defaults.sendSizeLimit(), 500) << "the key is gone, and no directory answers";
    defaults.setSendSizeLimit(0);
    EXPECT_EQ(defaults.sendSizeLimit(), 0) << "no limit but a known one";
    Defaults again(user);
    EXPECT_EQ(again.sendSizeLimit(), 0);
}

TEST_F(DefaultsTest, DirectoryAnswersWhileNoLimitIsKnown) {
    std::string answer = "1200 and more", asked;
    Defaults::setTesseraLookup([&](std::string_view directory, std::string_view property) {
        asked = std::string(directory) + ' ' + std::string(property);
        return answer;
    });
    defaults.getTesseraSendSizeLimit();
    EXPECT_EQ(asked, "/locations/mail send_size_limit");
    EXPECT_EQ(defaults.sendSizeLimit(), 1200);
    answer = "99";
    defaults.getTesseraSendSizeLimit();
    EXPECT_EQ(defaults.sendSizeLimit(), 1200) << "the first answer stays";
    EXPECT_EQ(Defaults(user).sendSizeLimit(), 500) << "an answer is not stored";
}

TEST_F(DefaultsTest, SharedInstanceIsOverTheStandardUserDefaults) {
    const testing::TemporaryFolder configuration;
    setConfigurationDirectory(configuration.path().string());
    auto& shared = Defaults::sharedInstance();
    EXPECT_EQ(&shared, &Defaults::sharedInstance());
    EXPECT_THAT(UserDefaults::standard().searchList(), Contains("Lorvale"));
    UserDefaults::standard().setArgument("SMTPHost", "given.example");
    EXPECT_EQ(shared.SMTPHost(), "given.example");
    UserDefaults::standard().removeArguments();
    setConfigurationDirectory("");
}

TEST_F(DefaultsTest, WindowsAreUsedWhereTheHostHasThem) {
    UserInterface panels;
    setCurrentUserInterface(&panels);
    Defaults inWindows(user);
    setCurrentUserInterface(nullptr);
    EXPECT_TRUE(inWindows.canUseWindowKit());
    inWindows.setCanUseWindowKit(false);
    EXPECT_FALSE(inWindows.canUseWindowKit());
}

TEST(DefaultsThreads, DirectoryIsAskedBehindTheUsersBack) {
    const testing::TemporaryFolder folder;
    UserDefaults user("test", folder.path().string());
    std::mutex mutex;
    std::condition_variable changed;
    int asked = 0;
    bool mayAnswer = false;
    Defaults::setTesseraLookup([&](std::string_view, std::string_view) -> std::optional<std::string> {
        std::unique_lock lock(mutex);
        ++asked;
        changed.notify_all();
        changed.wait(lock, [&] { return mayAnswer; });
        return "800";
    });
    {
        Defaults defaults(user);
        defaults.setSendSizeLimit(-1);
        {
            std::unique_lock lock(mutex);
            changed.wait(lock, [&] { return asked == 1; });
        }
        EXPECT_EQ(defaults.sendSizeLimit(), 500) << "nobody waits for the directory";
        defaults.setSendSizeLimit(900);
        {
            const std::lock_guard lock(mutex);
            mayAnswer = true;
        }
        changed.notify_all();
        Defaults::lockTessera();  // the look-up holds it, so that here it is done
        Defaults::unlockTessera();
        EXPECT_EQ(defaults.sendSizeLimit(), 900) << "what the user set meanwhile stays";
        for (int i = 0; i < 50; ++i) {
            defaults.setSendSizeLimit(-1);
            defaults.setSendSizeLimit(i);
            EXPECT_EQ(defaults.sendSizeLimit(), i);
        }
        defaults.setSendSizeLimit(-1);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (defaults.sendSizeLimit() != 800 && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        EXPECT_EQ(defaults.sendSizeLimit(), 800);
    }
    Defaults::setTesseraLookup(nullptr);
}

}  // namespace
}  // namespace lorvale
