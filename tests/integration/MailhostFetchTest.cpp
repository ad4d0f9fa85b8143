/// Mail brought by the console host: from spools, and from a real server.

#include <gmock/gmock.h>

#include "MailhostUser.h"
#include "tests/support/MailServer.h"
#include "tests/support/StoreSupport.h"

namespace lorvale::testing {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
namespace fs = std::filesystem;

class MailhostFetch : public MailhostUser {
protected:
    Outcome run(const std::string& command) const {
        return MailhostUser::run("mailhost -o MailDir=" + at("mail") + " " + command);
    }
};

TEST_F(MailhostFetch, SortsASpoolByRules) {
    writeFile(at("spool"), mboxMessage("a") + mboxMessage("B") + mboxMessage("c"));
    writeFile(at("rules"), "# who gets what\n\nSubject contains ABOUT b -> two\nfrom contains c@ -> " +
                               at("three.mbox") + "\n");
    const auto fetched = run("fetch --spool " + at("spool") + " --rules " + at("rules"));
    EXPECT_EQ(fetched.output, at("spool") + ": 3 messages\n");
    EXPECT_EQ(fetched.status, 0) << fetched.errors;
    EXPECT_FALSE(fs::exists(at("spool")));
    EXPECT_THAT(run("list " + at("mail/Active.mbox")).output, HasSubstr("about a"));
    EXPECT_THAT(run("list --unread " + at("mail/two.mbox")).output, HasSubstr("about B"));
    EXPECT_THAT(run("list " + at("three.mbox")).output, HasSubstr("about c"));
    EXPECT_EQ(run("fetch --json --spool " + at("spool")).output,
              "{\"source\":\"" + at("spool") + "\",\"messages\":0,\"left\":0,\"failures\":[]}\n");
}

TEST_F(MailhostFetch, TellsWhatFailedAndKeepsTheMail) {
    const struct {
        const char* why;
        std::string options, error;
        int status;
    } rows[] = {
        {"a flat mailbox cannot say what it has taken", "--into " + at("flat"), "a flat mailbox", 1},
        {"a rule that is none", "--rules " + at("rules"), "line 2 is not", 1},
        {"no such file", "--rules " + at("none"), "none: cannot be read", 1},
        {"another program has the spool", "", "has locked it", 1},
        {"an account that nobody has", "nobody", "there is no account \"nobody\"", 1},
        {"a server that is not there", "--pop 127.0.0.1:1 --password-command 'echo x'",
         "127.0.0.1: Background fetch", 1},
        {"a program without a password", "--pop 127.0.0.1:1 --password-command false",
         "the password command failed", 1},
        {"nobody to ask", "--pop 127.0.0.1:1", "no password", 1},
        {"no room for what it keeps", "--pop 127.0.0.1:1 --state " + at("file/x"), "127.0.0.1: POP spool", 1},
        {"a port that is none", "--pop 127.0.0.1:x", "HOST:PORT", 2},
        {"nor is that one", "--pop 127.0.0.1:0", "HOST:PORT", 2},
    };
    writeFile(at("flat"), mboxMessage("x"));
    writeFile(at("file"), "");
    writeFile(at("rules"), "# one\nsubject is x -> y\n");
    writeFile(at("spool"), mboxMessage("a"));
    writeFile(at("spool.lock"), "elsewhere,somebody,mailer (Lorvale version 106),1\n");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const auto outcome = run("fetch --spool " + at("spool") + " " + row.options);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_THAT(outcome.errors, HasSubstr(row.error));
    }
    EXPECT_EQ(readFile(at("spool")), mboxMessage("a"));
    EXPECT_EQ(run("fetch").status, 1) << "nothing to fetch from";
}

/// All the way: from a server, by an account, into an indexed mailbox, unread, and found by a rare word.
TEST_F(MailhostFetch, WhatAServerHasIsFoundByItsWords) {
    MailServer server;
    if (!server.runs()) GTEST_SKIP() << server.whyNot();
    server.deliver("anna", "From: a@b.example\nSubject: first\n\nA letter about the zymurgy of old.\n");
    server.deliver("anna", "From: a@b.example\nSubject: second\n\nAnother one.\n");
    const auto added = run("accounts add Work --host 127.0.0.1 --user anna --security none --port " +
                           std::to_string(server.port("pop3")) + " --password-command 'echo secret'");
    EXPECT_EQ(added.status, 0) << added.errors;
    const auto active = at("mail/Active.mbox");
    EXPECT_EQ(run("new " + active).errors, "");
    EXPECT_EQ(run("index " + active).errors, "");
    EXPECT_EQ(run("fetch Work").output, "anna@127.0.0.1: 2 messages\n");
    const auto found = run("search zymurgy --unread --json " + active);
    EXPECT_THAT(found.output, HasSubstr("\"subject\":\"first\""));
    EXPECT_THAT(found.output, Not(HasSubstr("second")));
    EXPECT_EQ(found.errors, "") << "nothing had to be indexed behind the fetch";
    EXPECT_EQ(run("accounts set Work --auto-fetch no").status, 0);
    EXPECT_THAT(run("watch").errors, HasSubstr("no account to fetch from")) << "nothing goes by the clock";
}

TEST_F(MailhostFetch, BringsMailFromAServerOnceAndWatchesForMore) {
    MailServer server;
    if (!server.runs()) GTEST_SKIP() << server.whyNot();
    const auto letter = [](const std::string& name) {
        return "From: a@b.example\nSubject: " + name + "\n\nhello\n";
    };
    writeFile(at("password"), "secret\n");
    server.deliver("anna", letter("first"));
    const auto pop = "--pop localhost:" + std::to_string(server.port("pop3")) +
                     " --user anna --security starttls --authorities " + server.certificate().string();
    const auto fetched = run("fetch " + pop + " --password-fd 0 <" + at("password"));
    EXPECT_EQ(fetched.output, "anna@localhost: 1 message\n") << fetched.errors;
    EXPECT_EQ(run("fetch " + pop + " --password-command 'echo secret'").output, "anna@localhost: 0 messages\n");
    EXPECT_THAT(run("list --unread " + at("mail/Active.mbox")).output, HasSubstr("first"));
    EXPECT_THAT(run("fetch " + pop + " --password-command 'echo wrong'").errors,
                HasSubstr("were not accepted"));
    server.deliver("anna", letter("second"));
    const auto watched =
        run("watch " + pop + " --every 1 --password-command 'echo secret' > " + at("out") +
            " & watch=$!; for i in $(seq 100); do sleep 0.1; test -s " + at("out") +
            " && break; done; kill -INT $watch; wait $watch; echo \"ended $?\"; cat " + at("out"));
    EXPECT_EQ(watched.output, "ended 0\nanna@localhost: 1 message\n") << watched.errors;
}

}  // namespace
}  // namespace lorvale::testing
