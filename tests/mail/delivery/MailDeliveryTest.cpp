#include <gmock/gmock.h>

#include "lorvale/defaults.h"
#include "lorvale/delivery.h"
#include "lorvale/message.h"
#include "lorvale/platform/user_agent.h"
#include "tests/support/PlainMbox.h"
#include "tests/support/ScriptedPeer.h"
#include "tests/support/ServerScript.h"
#include "tests/support/StoreSupport.h"

namespace lorvale::testing {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
using namespace std::string_literals;
using Steps = std::vector<std::string>;
using enum MailDialect;

/// A user with windows, who answers what he was told to.
class Person : public WindowHost, public UserAgent, public SMTPDeliveryDelegate {
public:
    Person() { setCurrentUserAgent(this); }
    ~Person() override { setCurrentUserAgent(nullptr); }
    std::optional<std::string> askForHost(std::string_view message, std::string_view oldHost) override {
        said.push_back("host? " + std::string(message) + "|" + std::string(oldHost));
        if (hosts.empty()) return std::nullopt;
        const auto host = hosts.front();
        hosts.erase(hosts.begin());
        return host;
    }
    void alertUserWithMessage(std::string_view message, std::string_view title) override {
        said.push_back(std::string(title) + ": " + std::string(message));
    }
    bool queryUserForYesNoWithMessage(std::string_view, std::string_view, std::string_view yes,
                                      std::string_view no) override {
        said.push_back(std::string(yes) + "|" + std::string(no));
        return sendsLargeMail;
    }
    Steps said, hosts;
    bool sendsLargeMail = false;
};

class Delivery : public ::testing::Test {
protected:
    ~Delivery() override {
        setMailDialect(classic);
        UserDefaults::standard().removeArguments();
        SMTPDelivery::setSettings({});
        SMTPDelivery::setDelegate(nullptr);
    }
    static void set(std::string_view key, const std::string& value) {
        UserDefaults::standard().setArgument(key, value);
    }
    static std::string hostOf(std::uint16_t port) { return "127.0.0.1:" + std::to_string(port); }
    static std::shared_ptr<Message> letter(std::string_view body = "hi\n.\n") {
        const auto to = "From: A <a@x>\nTo: B <b@x>, c@x\nCc: d@x\nBcc: e@x, f@x\nSubject: s\n\n";
        return messageOf(to + std::string(body));
    }
    /// A program that writes down its arguments and what it reads.
    std::string mailer(std::string_view then = "") {
        writeFile(_folder / "mailer", "#!/bin/sh\nprintf '%s\\n' \"$@\" > " + (_folder / "arguments").string() +
                                          "\n" + std::string(then) + "\ncat > " + (_folder / "part").string() +
                                          "\nmv " + (_folder / "part").string() + " " +
                                          (_folder / "text").string() + "\n");
        std::filesystem::permissions(_folder / "mailer", std::filesystem::perms::owner_all);
        return _folder / "mailer";
    }
    std::filesystem::path fileOfMailer() const {
        for (int i = 0; i < 1000 && !std::filesystem::exists(_folder / "text"); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return _folder / "text";
    }
    std::string textForMailer() const {
        auto text = readFile(fileOfMailer());
        std::filesystem::remove(_folder / "text");
        return text;
    }

    const TemporaryFolder _folder;
};

/// Behind the recipients: the text, and good-bye.
constexpr auto kText = "C: DATA | S: 354 | . | S: 250 | C: QUIT | S: 221";
constexpr auto kMailer = "X-Mailer: by Orrin Corvane (2.106)";

TEST_F(Delivery, ClassicSendsOneCommandAtATime) {
    ScriptedPeer peer({"S: 220", "C: HELO * | S: 250", "C: MAIL FROM:<a@x> | S: 250",
                       "C: RCPT TO:<b@x> | S: 250", "C: RCPT TO:<c@x> | S: 250", "C: RCPT TO:<d@x> | S: 250",
                       "C: RCPT TO:<p@x> | S: 250", kText});
    set("SMTPHost", hostOf(peer.port()));
    EXPECT_TRUE(SMTPDelivery::deliverMessage(letter(), true, {"", "P <p@x>"}));
    EXPECT_EQ(peer.firstSurprise(), "");
    EXPECT_EQ(peer.texts().at(0),
              "From: A <a@x>\r\nTo: B <b@x>, c@x\r\nCc: d@x\r\nBcc: e@x, f@x\r\nSubject: s\r\nX-Mailer: by "
              "Orrin Corvane (2.106.RR)\r\n\r\nhi\r\n..\r\n.\r\n");
}

TEST_F(Delivery, StandardHidesThoseWhoAreNotToBeSeen) {
    setMailDialect(standard);
    ScriptedPeer peer({"S: 220", "C: EHLO * | S: 250", "C: MAIL FROM:<a@x> | S: 250",
                       "C: RCPT TO:<b@x> | S: 250", "C: RCPT TO:<c@x> | S: 250", "C: RCPT TO:<d@x> | S: 250",
                       "C: RCPT TO:<e@x> | S: 250", "C: RCPT TO:<f@x> | S: 250",
                       "C: DATA | S: 354 | . | S: 250", "C: QUIT | X"});
    set("SMTPHost", hostOf(peer.port()));
    const auto message = letter();
    EXPECT_TRUE(SMTPDelivery::deliverMessage(message));
    EXPECT_EQ(peer.firstSurprise(), "");
    EXPECT_THAT(peer.texts().at(0), HasSubstr("\r\nMessage-ID: <"));
    EXPECT_THAT(peer.texts().at(0), Not(HasSubstr("Bcc")));
    EXPECT_EQ(message->headers()->objectsForKey("bcc")->size(), 1U) << "the copy that is kept tells";
}

TEST_F(Delivery, NamesThoseWhoWereRefused) {
    for (const auto& [replies, says] :
         {std::pair("S: 550 who? | C: RCPT* | S: 250 | "s, "SMTP host %@ did not recognize recipient c@x\n"s),
          std::pair("S: 550 | C: RCPT* | S: 450 | "s,
                    "SMTP host %@ did not recognize the following recipients: c@x, d@x"s)}) {
        for (const bool hasWindows : {false, true}) {
            ScriptedPeer peer(
                {"S: 220 | C: * | S: 250 | C: MAIL* | S: 250 | C: RCPT* | S: 250 | C: RCPT*", replies + kText});
            set("SMTPHost", hostOf(peer.port()));
            const auto text = formatText(says, hostOf(peer.port()));
            LogCapture log;
            if (hasWindows) {
                Person person;
                EXPECT_FALSE(SMTPDelivery::deliverMessage(letter()));
                EXPECT_THAT(person.said, ElementsAre("Mail Delivery Error: " + text));
            } else {
                EXPECT_FALSE(SMTPDelivery::deliverMessage(letter()));
                EXPECT_THAT(
                    log.take(),
                    ElementsAre(text + "\nTo specify a different SMTP host, use the command\n\tdefaults "
                                       "write mail_tests SMTPHost <hostname>"));
            }
            EXPECT_EQ(peer.firstSurprise(), "");
            EXPECT_EQ(peer.texts().size(), 1U) << "the others have it";
        }
    }
}

TEST_F(Delivery, AsksForAnotherHostUntilOneWorksOrThereIsNone) {
    const std::string taken =
        "S: 220 | C: HELO* | S: 250 | C: MAIL* | S: 250 | C: RCPT* | S: 250 | C: RCPT* | S: 250 | C: RCPT* | "
        "S: 250";
    ScriptedPeer deaf({taken, "C: DATA | S: 354 | X"}), good({taken, kText});
    set("SMTPHost", hostOf(deaf.port()));
    Person person;
    person.hosts = {"", "127.0.0.1:1", hostOf(good.port())};
    const auto message = letter(std::string(300'000, 'x'));
    EXPECT_TRUE(SMTPDelivery::deliverMessage(message));
    EXPECT_EQ(good.firstSurprise(), "");
    const auto error = "host? The following error occurred during delivery via SMTP host %@:\n%@\n.|%@"s;
    ASSERT_EQ(person.said.size(), 3U);
    EXPECT_THAT(person.said[0], EndsWith("|" + hostOf(deaf.port())));
    EXPECT_EQ(person.said[1], person.said[0]) << "no answer, so asked anew";
    EXPECT_EQ(person.said[2],
              formatText(error, "127.0.0.1:1", "Can't connect to host named 127.0.0.1 on port 1, errno: 0x6f",
                         "127.0.0.1:1"));
    EXPECT_EQ(person.beeps, 3);
    set("SMTPHost", "127.0.0.1:1");
    person.hosts.clear();
    EXPECT_FALSE(SMTPDelivery::deliverMessage(message));
    EXPECT_FALSE(SMTPDelivery::deliverMessage(nullptr));
    EXPECT_FALSE(SMTPDelivery::deliverMessage(messageOf("Bcc: a@x\n\n")));
}

TEST_F(Delivery, ABrokenServerEndsInTheQuestionForAnother) {
    const struct {
        const char* why;
        std::string afterRecipients, script;  // the one or the other
        std::string classicReason, standardReason;
    } rows[] = {
        {"greeting", "", "S: 450 later", "450 later\r\n", "450 later"},
        {"silence", "", "W", "4", "The peer has been silent"},
        {"a line of a megabyte", "", "S: " + std::string(1'000'000, '2') + " | W",
         "The server's reply has more", "The server's reply has more"},
        {"no text wanted", "C: DATA | S: 554 no", "", "554 no\r\n", "554 no"},
        {"gone before the text", "C: DATA | X", "", "4", "The server has closed"},
        {"gone behind the text", "C: DATA | S: 354 | . | X", "", "4", "The server has closed"},
        {"text not taken", "C: DATA | S: 354 | . | S: 452 full", "", "452 full\r\n", "452 full"},
        {"no good-bye", "C: DATA | S: 354 | . | S: 250 | C: QUIT | X", "", "4", ""},
    };
    for (const auto dialect : {classic, standard}) {
        setMailDialect(dialect);
        for (const auto& row : rows) {
            SCOPED_TRACE(row.why);
            Steps script = {row.script};
            if (row.script.empty()) {
                script = {dialect == classic ? "S: 220" : "S: 220-a\r\n220 b", "C: * | S: 250",
                          "C: MAIL* | S: 250"};
                script.insert(script.end(), dialect == classic ? 3 : 5, "C: RCPT* | S: 250");
                script.push_back(row.afterRecipients);
            }
            ScriptedPeer peer(script);
            SMTPDelivery::setSettings({.timeout = std::chrono::milliseconds(script[0] == "W" ? 100 : 20'000)});
            set("SMTPHost", hostOf(peer.port()));
            Person person;
            const auto& reason = dialect == classic ? row.classicReason : row.standardReason;
            EXPECT_EQ(SMTPDelivery::deliverMessage(letter()), reason.empty());
            if (reason.empty())
                EXPECT_THAT(person.said, IsEmpty());
            else
                EXPECT_THAT(person.said, ElementsAre(HasSubstr(hostOf(peer.port()) + ":\n" + reason)));
        }
    }
}

TEST_F(Delivery, SendsNothingWhereAllWereRefused) {
    for (const auto dialect : {classic, standard}) {
        setMailDialect(dialect);
        Steps script = {"S: 220 | C: * | S: 250 | C: MAIL* | S: 250", "C: RCPT* | S: 550", "C: RCPT* | S: 450"};
        script.insert(script.end(), dialect == classic ? 1 : 3, "C: RCPT* | S: 550");
        script.emplace_back("C: QUIT | S: 221");
        ScriptedPeer peer(script);
        set("SMTPHost", hostOf(peer.port()));
        Person person;
        EXPECT_FALSE(SMTPDelivery::deliverMessage(letter()));
        EXPECT_EQ(peer.firstSurprise(), "");
        const std::string all = dialect == classic ? "b@x, c@x, d@x" : "b@x, c@x, d@x, e@x, f@x";
        EXPECT_THAT(person.said, ElementsAre(EndsWith("the following recipients: " + all)));
    }
}

TEST_F(Delivery, AsksBeforeItSendsALargeMessage) {
    set("SendSizeLimit", "1");
    set("Mailer", "/bin/true");
    const auto message = letter(std::string(1024, 'x'));
    LogCapture log;
    EXPECT_FALSE(SendmailDelivery::deliverMessage(message));
    EXPECT_THAT(log.take(), ElementsAre(StartsWith("Your message is larger than the recommended")));
    Person person;
    EXPECT_FALSE(SendmailDelivery::deliverMessage(message));
    EXPECT_THAT(person.said, ElementsAre("Send it anyway|Don't send it"));
    person.sendsLargeMail = true;
    EXPECT_TRUE(SendmailDelivery::deliverMessage(message));
    const auto exact = letter();
    const std::size_t others = exact->messageData()->size() + std::string(kMailer).size() + 1 - 5;
    person.said.clear();
    EXPECT_TRUE(SendmailDelivery::deliverMessage(letter(std::string(1024 - others, 'x'))));
    EXPECT_TRUE(person.said.empty());
    EXPECT_TRUE(SendmailDelivery::deliverMessage(letter(std::string(1025 - others, 'x'))));
    EXPECT_EQ(person.said.size(), 1U);
}

TEST_F(Delivery, GivesTheMailerWhatTheDialectSays) {
    const auto message = [] {
        return Message::messageWithData(
            Data::ofStatic("From a@x Thu Aug 22 12:46:23 2002\nFrom: a@x\nTo: B <b@x>, -oQ/tmp\nBcc: "
                           "c@x\nDate: d\nMessage-ID: <m>\n\nhi\n"));
    };
    set("Mailer", mailer());
    EXPECT_TRUE(SendmailDelivery::deliverMessage(message(), false, {"", "p@x"}));
    EXPECT_EQ(textForMailer(),
              "From a@x Thu Aug 22 12:46:23 2002\nFrom: a@x\nTo: B <b@x>, -oQ/tmp\nBcc: c@x\nDate: "
              "d\nMessage-ID: <m>\n"s +
                  kMailer + "\n\nhi\n");
    EXPECT_EQ(readFile(_folder / "arguments"), "-oi\n-odb\nB <b@x>\np@x\n");
    setMailDialect(standard);
    EXPECT_TRUE(SendmailDelivery::deliverMessage(message(), false, {"", "p@x"}));
    EXPECT_EQ(textForMailer(),
              "From: a@x\nTo: B <b@x>, -oQ/tmp\nDate: d\nMessage-ID: <m>\n"s + kMailer + "\n\nhi\n");
    EXPECT_EQ(readFile(_folder / "arguments"), "-oi\n-odb\n--\nb@x\n-oQ/tmp\np@x\nc@x\n");
}

TEST_F(Delivery, OutlivesAMailerThatDoesNotRead) {
    set("SendSizeLimit", "0");
    std::string body;
    body.resize(200'000'000, 'x');
    const auto large = letter(body);
    set("Mailer", mailer("exit 1"));
    EXPECT_TRUE(SendmailDelivery::deliverMessage(large));
    set("Mailer", mailer());
    EXPECT_TRUE(SendmailDelivery::deliverMessage(large));
    EXPECT_EQ(std::filesystem::file_size(fileOfMailer()), large->messageData()->size());
    LogCapture log;
    set("Mailer", _folder / "none");
    EXPECT_TRUE(SendmailDelivery::deliverMessage(large));
    EXPECT_THAT(log.take(), ElementsAre(StartsWith("Could not run " + (_folder / "none").string())));
}

TEST_F(Delivery, GoesByTheClassRegisteredLast) {
    std::string used;
    const auto named = [&](const std::string& name) {
        return MailDeliveryClass{name,
                                 [&used, name](const auto&, bool, const auto&) { return used += name, true; }};
    };
    EXPECT_FALSE(MailDelivery::deliverMessage(letter()));
    for (const auto* name : {"1", "2", "1"}) MailDelivery::registerDeliveryClass(named(name));
    EXPECT_TRUE(MailDelivery::deliverMessage(letter()));
    MailDelivery::unregisterDeliveryClass("2");
    EXPECT_TRUE(MailDelivery::deliverMessage(letter()));
    MailDelivery::unregisterDeliveryClass("1");
    EXPECT_FALSE(MailDelivery::deliverMessage(letter()));
    EXPECT_EQ(used, "21");
    EXPECT_EQ(KTMailDelivery::_defaultDeliveryClass().name, "SendmailDelivery");
}

TEST_F(Delivery, ComposesAndSendsInOneCall) {
    set("Mailer", mailer());
    EXPECT_TRUE(KTMailDelivery::deliverMessage("hi\n", "Re: S", "B@x"));
    EXPECT_EQ(textForMailer(), "to: B@x\nsubject: Re: S\n"s + kMailer + "\n\nhi\n");
    const KTMailDelivery::Headers headers = {
        {"Subject", "Re: Hello"}, {"To", "B@x"}, {"X-Two", PropertyList::Array{"One", "Two"}}};
    EXPECT_TRUE(KTMailDelivery::deliverMessage(AttributedText("hi\n"), headers, KTASCIIMailFormat, ""));
    EXPECT_EQ(textForMailer(), "x-two: One\nto: b@x\nsubject: re: hello\n"s + kMailer + "\n\nhi\n");
    EXPECT_TRUE(KTMailDelivery::deliverMessage(AttributedText("hi\n"), headers, KTMIMEMailFormat, ""));
    EXPECT_THAT(textForMailer(), HasSubstr("content-type: text/plain"));
    setMailDialect(standard);
    EXPECT_TRUE(KTMailDelivery::deliverMessage(AttributedText("é\n"), headers, KTMIMEMailFormat, "other"));
    EXPECT_THAT(textForMailer(), HasSubstr("Subject: Re: Hello\n"));
    EXPECT_FALSE(KTMailDelivery::deliverMessage(AttributedText("hi"), headers, "other", ""));
    EXPECT_FALSE(
        KTMailDelivery::deliverMessage(AttributedText("hi"), {{"To", "a@x"}, {"A", 1}}, KTMIMEMailFormat, ""));
    EXPECT_FALSE(KTMailDelivery::deliverMessage(AttributedText("hi"), {{"To", PropertyList::Array{"a", 1}}},
                                                KTMIMEMailFormat, ""));
    EXPECT_FALSE(KTMailDelivery::deliverMessage(AttributedText("hi"), {{"To", "a@x"}, {"X: a\nEvil", "e"}},
                                                KTASCIIMailFormat, ""));
    EXPECT_FALSE(std::filesystem::exists(_folder / "text"));
}

TEST_F(Delivery, ARealServerGetsEveryByte) {
    const auto shared = sharedData();
    const auto mailbox = shared ? unpacked(*shared / "large/english-4k.mbox.xz") : "";
    if (mailbox.empty()) GTEST_SKIP() << "no real mail";
    const ServerScript server("smtpd", {_folder.path()});
    if (!server.whyNot().empty()) GTEST_SKIP() << server.whyNot();
    auto messages = messagesByPlainRule(mailbox);
    messages.resize(1000);
    SMTPConnection connection(KTSocket::socket(), {}, standard);
    connection.connectToHost(hostOf(server.port("port")));
    for (std::size_t i = 0; i < messages.size(); ++i) {
        const auto refused = connection.startMail(
            {"a@x.example", {"b@x.example", "nobody@x.example", "c@x.example"}, messages[i].size(), true});
        ASSERT_EQ(refused.size(), 1U);
        connection.sendData(messages[i]);
        ASSERT_EQ(connection.endData(), 2);
        auto kept = readFile(_folder / std::to_string(i));
        std::string expected;
        for (std::size_t at = 0; at < messages[i].size(); ++at) {
            if (messages[i][at] == '\n' && (at == 0 || messages[i][at - 1] != '\r')) expected += '\r';
            expected += messages[i][at];
        }
        ASSERT_EQ(kept, expected);
        ASSERT_EQ(readFile(_folder / (std::to_string(i) + ".to")), "a@x.example\nb@x.example\nc@x.example");
    }
    connection.quit();
    setMailDialect(standard);
    set("SMTPHost", hostOf(server.port("port")));
    EXPECT_TRUE(SMTPDelivery::deliverMessage(letter()));
    setMailDialect(classic);
    EXPECT_TRUE(SMTPDelivery::deliverMessage(letter()));
    EXPECT_THAT(readFile(_folder / "1001"), EndsWith("\r\n\r\nhi\r\n.\r\n"));
}

}  // namespace
}  // namespace lorvale::testing
