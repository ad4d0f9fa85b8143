/// The console host sends letters: to a peer that plays a script, and to a mailer that writes down what it
/// gets.

#include <gmock/gmock.h>

#include "MailhostUser.h"
#include "tests/support/ScriptedPeer.h"

namespace lorvale::testing {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
using Steps = std::vector<std::string>;

class MailhostSend : public MailhostUser {
protected:
    Outcome send(const std::string& options, const std::string& text = "hi") {
        return run("printf '" + text + "' | mailhost send --from a@x --subject s " + options);
    }
    static std::string host(const ScriptedPeer& peer) {
        return " --host 127.0.0.1:" + std::to_string(peer.port());
    }
};

TEST_F(MailhostSend, NamesEachRefusalByItsRecipient) {
    const Steps script = {"S: 220",
                          "C: EHLO * | S: 250",
                          "C: MAIL FROM:<a@x> | S: 250",
                          "C: RCPT TO:<b@x> | S: 250",
                          "C: RCPT TO:<c@x> | S: 550 5.1.1 who is \x1B[31mthat",
                          "C: RCPT TO:<d@x> | S: 250",
                          "C: DATA | S: 354 | . | S: 250",
                          "C: QUIT | S: 221"};
    for (const bool json : {false, true}) {
        ScriptedPeer peer(script);
        const auto outcome = send("--to 'B <b@x>, c@x' --bcc d@x" + host(peer) + (json ? " --json" : ""));
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.errors, HasSubstr("mailhost: c@x gets nothing: 550 5.1.1 who is \\x1B[31mthat\n"));
        EXPECT_EQ(outcome.output,
                  json ? "{\"complete\":false,\"refused\":[{\"recipient\":\"c@x\",\"reply\":\"550 5.1.1 who is "
                         "\\u001B[31mthat\"}]}\n"
                       : "");
        EXPECT_EQ(peer.firstSurprise(), "");
        EXPECT_THAT(peer.texts().at(0), HasSubstr("\r\n\r\nhi\r\n.\r\n"));
        EXPECT_THAT(peer.texts().at(0), Not(HasSubstr(" d@x"))) << "a message ID may end so";
    }
}

TEST_F(MailhostSend, SecuresAndLogsIn) {
    const TestAuthority authority;
    authority.writeTo(folder / "authority.pem");
    writeFile(folder / "password", "secret\r\nmore\n");
    const Steps script = {"S: 220",
                          "C: EHLO * | S: 250-x\r\n250 STARTTLS",
                          "C: STARTTLS | S: 220 | T",
                          "C: EHLO * | S: 250-x\r\n250 AUTH PLAIN",
                          "C: AUTH PLAIN AGFubmEAc2VjcmV0 | S: 235",
                          "C: MAIL* | S: 250",
                          "C: RCPT* | S: 250",
                          "C: DATA | S: 354 | . | S: 250",
                          "C: QUIT | S: 221"};
    const auto options = " --to b@x --security starttls --user anna --password-file " + at("password");
    ScriptedPeer good(script, ScriptedPeer::Pace::whole, authority.issue("IP:127.0.0.1"));
    const auto sent = send(options + host(good) + " --authorities " + at("authority.pem"));
    EXPECT_EQ(sent.status, 0) << sent.errors;
    EXPECT_EQ(good.firstSurprise(), "");
    ScriptedPeer stranger(script, ScriptedPeer::Pace::whole, authority.issue("IP:127.0.0.1"));
    const auto refused = send(options + host(stranger));
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.errors, HasSubstr("The certificate of 127.0.0.1 cannot be trusted"));
}

TEST_F(MailhostSend, TellsWhatKeepsItFromSending) {
    ScriptedPeer silent({"W"});
    const struct {
        std::string options;
        int status;
        std::string says;
    } rows[] = {
        {"--host 127.0.0.1:1", 1,
         "nothing was sent by 127.0.0.1:1: Can't connect to host named 127.0.0.1 on port 1"},
        {host(silent) + " --timeout 1", 1, "The peer has been silent for 1 seconds."},
        {"--via sendmail --host x", 2, "--host is for --via smtp"},
        {"-o Mailer=/none", 1, "there is no mailer at /none"},
        {"--host 127.0.0.1:1 --user anna", 1, "there is no password"},
    };
    for (const auto& row : rows) {
        const auto outcome = send("--to b@x " + row.options);
        EXPECT_EQ(outcome.status, row.status) << row.options;
        EXPECT_THAT(outcome.errors, HasSubstr(row.says));
    }
}

TEST_F(MailhostSend, GivesALargeLetterToTheMailer) {
    writeFile(folder / "mailer", "#!/bin/sh\ncd " + folder.path().string() +
                                     "\necho \"$@\" > arguments\ncat > part\nmv part text\n");
    std::filesystem::permissions(folder / "mailer", std::filesystem::perms::owner_all);
    writeFile(folder / "file", std::string(1'000'000, 'x'));
    const auto outcome = send("--to b@x --bcc c@x --attach file -o Mailer=" + at("mailer"));
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    for (int i = 0; i < 1000 && !std::filesystem::exists(folder / "text"); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(readFile(folder / "arguments"), "-oi -odb -- b@x c@x\n");
    EXPECT_GT(std::filesystem::file_size(folder / "text"), 1'000'000U);
}

}  // namespace
}  // namespace lorvale::testing
