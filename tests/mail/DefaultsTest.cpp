#include "lorvale/defaults.h"

#include <gmock/gmock.h>

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

using namespace lorvale::testing;
using namespace ::testing;

class DefaultsTest : public ::testing::Test {
protected:
    void SetUp() override { setHomeDirectory("/home/anna"); }
    void TearDown() override {
        Defaults::setTesseraLookup(nullptr);
        setHomeDirectory("");
        setRootDirectory("");
    }

    const TemporaryFolder _folder;
    UserDefaults user{"test", _folder.path().string()};
    Defaults defaults{user};
};

TEST_F(DefaultsTest, SettingsAreStoredUnderTheirKeysAndHaveFallBacks) {
    using Text = std::optional<std::string_view>;
    setRootDirectory("/sys/");
    const struct {
        std::string_view key;
        std::string (Defaults::*get)() const;
        void (Defaults::*set)(Text);
        std::string_view fallBack, value, stored, read;
    } rows[] = {
        {"MailDir", &Defaults::defaultMailDirectory, &Defaults::setDefaultMailDirectory, "/home/anna/Mailboxes",
         "~/../M/", "~/../M/", "/home/M"},
        {"ArchiveMailboxName", &Defaults::archiveMailboxName, &Defaults::setArchiveMailboxName, "Outgoing.mbox",
         "Sent.2001", "Sent.2001.mbox", "Sent.2001.mbox"},
        {"ArchiveMailboxName", &Defaults::archiveMailboxName, &Defaults::setArchiveMailboxName, "Outgoing.mbox",
         "Sent.mbox", "Sent.mbox", "Sent.mbox"},
        {"LocalLibDir", &Defaults::localLibraryDirectory, &Defaults::setLocalLibraryDirectory,
         "/sys/Network/Library", "/lib/./x", "/lib/./x", "/lib/x"},
        {"SMTPHost", &Defaults::SMTPHost, &Defaults::setSMTPHost, "mailhost", "smtp.x", "smtp.x", "smtp.x"},
        {"DeliveryMethod", &Defaults::deliveryMethod, &Defaults::setDeliveryMethod, "sendmail", "smtp", "smtp",
         "smtp"},
        {"Mailer", &Defaults::sendmailMailer, &Defaults::setSendmailMailer, "/usr/sbin/sendmail", "/opt/m",
         "/opt/m", "/opt/m"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.key);
        const auto before = user.stringForKey(row.key);
        EXPECT_EQ((defaults.*row.get)(), row.fallBack);
        user.setString("", row.key);
        EXPECT_EQ((defaults.*row.get)(), row.fallBack) << "without the registered value, too";
        for (const auto& nothing : {Text(""), Text()}) {
            (defaults.*row.set)(row.value);
            EXPECT_THAT(user.stringForKey(row.key), Optional(std::string(row.stored)));
            EXPECT_EQ((defaults.*row.get)(), row.read);
            (defaults.*row.set)(nothing);
            EXPECT_EQ(user.stringForKey(row.key), before) << "nothing takes the key away";
        }
    }
    EXPECT_EQ(defaults.popSpoolDirectory(), "/home/anna/Mailboxes/.popspool");
    EXPECT_EQ(defaults.spoolDirectory(), std::nullopt);
    defaults.setSpoolDirectory("~/../sp/");
    EXPECT_THAT(defaults.spoolDirectory(), Optional(std::string("/home/sp")));
    user.setString("~/./pop", "POP3SpoolDirectory");
    EXPECT_EQ(defaults.popSpoolDirectory(), "/home/anna/pop");
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
    user.setString("Received:Organization", "MailFilter");
    EXPECT_THAT(defaults.mailFilter(), ElementsAre("Received", "Organization"));
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
    EXPECT_EQ(defaults.popPassword(), "open sesame");
    user.setObject(PropertyList(Data::ofStatic("c2VjcmV0")), "POP3Password");
    EXPECT_EQ(defaults.popPassword(), "secret") << "a data value too";
    for (const auto version : {"", "0"}) {  // of old, it stood there in plain text
        user.setString("open sesame", "POP3Password");
        user.setString(version, "POP3ClientVersion");
        ASSERT_TRUE(user.synchronize());
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(defaults.popPassword(), "open sesame");
            EXPECT_THAT(readFile(_folder / "test.plist"), Not(HasSubstr("sesame"))) << "written back at once";
        }
    }
}

TEST_F(DefaultsTest, DirectoryAnswersWhileNoSendSizeLimitIsStored) {
    std::string answer = "1200 and more", asked;
    EXPECT_EQ(defaults.sendSizeLimit(), 500);
    Defaults(user).setSendSizeLimit(500);
    EXPECT_EQ(user.integerForKey("SendSizeLimit"), 500)
        << "stored when it is what there would be without it, too";
    user.removeObjectForKey("SendSizeLimit");
    Defaults::setTesseraLookup([&](std::string_view directory, std::string_view property) {
        asked = std::string(directory) + ' ' + std::string(property);
        return answer;
    });
    for (const auto* next : {"99", "98"}) {
        defaults.getTesseraSendSizeLimit();
        EXPECT_EQ(asked, "/locations/mail send_size_limit");
        EXPECT_EQ(defaults.sendSizeLimit(), 1200) << "the first answer stays";
        answer = next;
    }
    EXPECT_EQ(Defaults(user).sendSizeLimit(), 500) << "an answer is not stored";
    defaults.setSendSizeLimit(700);
    EXPECT_EQ(user.integerForKey("SendSizeLimit"), 700);
    defaults.setSendSizeLimit(0);
    EXPECT_EQ(Defaults(user).sendSizeLimit(), 0) << "no limit but a known one";
    Defaults::setTesseraLookup(nullptr);
    defaults.setSendSizeLimit(-1);
    EXPECT_EQ(Defaults(user).sendSizeLimit(), 500) << "the key is gone, and no directory answers";
}

TEST_F(DefaultsTest, WindowsAreUsedWhereTheHostHasThem) {
    UserInterface panels;
    setCurrentUserInterface(&panels);
    const Defaults inWindows(user);
    setCurrentUserInterface(nullptr);
    EXPECT_TRUE(inWindows.canUseWindowKit());
    EXPECT_FALSE(defaults.canUseWindowKit());
}

TEST(DefaultsThreads, DirectoryIsAskedBehindTheUsersBack) {
    const TemporaryFolder folder;
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
