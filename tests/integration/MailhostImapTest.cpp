/// The commands of mailhost over an account on a real IMAP server, with the server and without.

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

#include "MailhostUser.h"
#include "tests/support/MailServer.h"
#include "tests/support/ScriptedPeer.h"

namespace lorvale::testing {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
namespace fs = std::filesystem;

class MailhostImap : public MailhostUser {
protected:
    void SetUp() override {
        if (!_server.runs()) GTEST_SKIP() << _server.whyNot();
        for (const auto* name : {"One", "Two", "Three"})
            _server.deliver("anna", "From: a@x.example\nDate: Fri, 23 Aug 2002 11:04:00 +0200\nSubject: " +
                                        std::string(name) + "\n\nText of " + name + "\n");
        good("mailhost accounts add work --type imap --host 127.0.0.1 --user anna --security none --port " +
             std::to_string(_server.port("imap")) + " --password-command 'echo secret'");
    }
    std::size_t mirrored(const std::string& mailbox) const {
        std::error_code none;
        const fs::directory_iterator files(folder / (".mailhost/work/" + mailbox + "/CachedMessages"), none);
        return none ? 0 : static_cast<std::size_t>(std::distance(begin(files), end(files)));
    }
    static auto lines(const std::string& text) {
        return static_cast<std::size_t>(std::ranges::count(text, '\n'));
    }
    std::string fileOnServer(std::size_t index) const { return _server.messagesOf("anna")[index].string(); }

    MailServer _server;
};

TEST_F(MailhostImap, ReadsAnAccountLikeAnyOtherAndMarksNothing) {
    EXPECT_THAT(good("mailhost accounts show work"), AllOf(HasSubstr("imap"), Not(HasSubstr("secret"))));
    EXPECT_THAT(good("mailhost mailboxes work --json"),
                HasSubstr(R"("path":"INBOX","depth":1,"kind":"mailbox","messages":3,"unread":3,"size":null)"));
    EXPECT_THAT(good("mailhost list work/INBOX; mailhost list work/INBOX --json --sort received-date"),
                AllOf(HasSubstr("One"), HasSubstr("Three"), HasSubstr("a@x.example")));
    EXPECT_EQ(mirrored("INBOX"), 0u) << "a list needs no text";
    EXPECT_THAT(good("mailhost show work/INBOX 2 --parts; mailhost show work/INBOX 2 --parts --json"),
                AllOf(HasSubstr("text/plain"), HasSubstr(R"("body":{"part":"","type":"text/plain")")));
    EXPECT_THAT(good("mailhost search --server 'text of t' work/INBOX"),
                AllOf(HasSubstr("Two"), HasSubstr("Three"), Not(HasSubstr("One"))));
    EXPECT_EQ(mirrored("INBOX"), 0u) << "the server tells of parts and words";
    EXPECT_THAT(good("mailhost show work/INBOX 2"), HasSubstr("Text of Two"));
    EXPECT_EQ(mirrored("INBOX"), 1u);
    EXPECT_THAT(good("mailhost list work/INBOX --json"), Not(HasSubstr("\"read\":true")));
    EXPECT_THAT(bad("mailhost list work/Nowhere"), HasSubstr("no such mailbox"));
    EXPECT_FALSE(fs::exists(folder / ".mailhost/work/Nowhere"));
}

TEST_F(MailhostImap, ChangesWhatTheServerHas) {
    good("mailhost new work/Done; mailhost flag work/INBOX 1 3 --read; mailhost copy work/INBOX 1 work/Done");
    EXPECT_THAT(fileOnServer(0), HasSubstr(":2,S"));
    good("mailhost move work/INBOX 1 work/Done; mailhost compact work/INBOX");
    EXPECT_EQ(_server.messagesOf("anna").size(), 2u);
    EXPECT_THAT(good("mailhost list work/Done"), AllOf(HasSubstr("  1  "), HasSubstr("  2  ")));
    EXPECT_THAT(good("mailhost fetch work"), HasSubstr("0 messages"));
    _server.deliver("anna", "Subject: Four\n\nText\n");
    EXPECT_THAT(good("mailhost fetch work"), HasSubstr("1 message\n"));
    good("mailhost new Here.mbox; mailhost copy work/INBOX 3 Here.mbox; mailhost copy Here.mbox 1 work/Done");
    EXPECT_THAT(good("mailhost list work/Done --unread"), HasSubstr("Four"));
    good("mailhost remove work/Done --yes");
    EXPECT_THAT(good("mailhost mailboxes work"), Not(HasSubstr("Done")));
    EXPECT_THAT(bad("mailhost remove work/Done --yes"), HasSubstr("not there"));
}

TEST_F(MailhostImap, WorksFromTheMirrorAndQueuesMeanwhile) {
    EXPECT_THAT(bad("mailhost --offline list work/INBOX"), HasSubstr("nothing is known"));
    EXPECT_THAT(good("mailhost sync work --headers"), HasSubstr("3 messages, 0 fetched"));
    EXPECT_THAT(good("mailhost sync work/INBOX"), HasSubstr("3 messages, 3 fetched"));
    EXPECT_EQ(mirrored("INBOX"), 3u);
    EXPECT_THAT(good("mailhost --offline show work/INBOX 3; mailhost --offline mailboxes work"),
                AllOf(HasSubstr("Text of Three"), HasSubstr("INBOX")));
    EXPECT_THAT(bad("mailhost --offline flag work/INBOX 1 --read"), HasSubstr("needs the server"));
    writeFile(folder / "flat", "From a@b Fri Aug 23 11:04:00 2002\nSubject: Later\n\nBody\n\n");
    good("mailhost --offline copy flat 1 work/INBOX");
    EXPECT_THAT(good("mailhost queue"), HasSubstr("Later"));
    good("mailhost list work/INBOX");  // only looks
    EXPECT_EQ(_server.messagesOf("anna").size(), 3u);
    good("mailhost sync");
    EXPECT_THAT(good("mailhost queue work"), HasSubstr("Nothing waits."));
    EXPECT_THAT(good("mailhost --offline show work/INBOX 4"), HasSubstr("Body"));
    EXPECT_EQ(_server.messagesOf("anna").size(), 4u);
}

TEST_F(MailhostImap, SearchesByAnIndexOrTheServerAndTakesDeletionsBack) {
    auto found = run("mailhost search 'text of t' work/INBOX");
    EXPECT_THAT(found.errors, HasSubstr("has no search index, so the server looks"));
    EXPECT_THAT(found.output, AllOf(HasSubstr("Two"), HasSubstr("Three"), Not(HasSubstr("One"))));
    EXPECT_THAT(bad("mailhost --offline search three work/INBOX"), HasSubstr("no server that could look"));
    EXPECT_THAT(good("mailhost index work/INBOX"), HasSubstr("3 messages indexed"));
    _server.deliver("anna", "Subject: Four\n\nferries\n");
    found = run(
        "mailhost search 'ferry or nobody' --boolean work/INBOX; mailhost --offline search three work/INBOX");
    EXPECT_EQ(found.errors, "");
    EXPECT_THAT(found.output, AllOf(HasSubstr("Four"), HasSubstr("Three")));
    EXPECT_THAT(good("mailhost list work/INBOX --json"), Not(HasSubstr("\"read\":true")))
        << "indexing is no reading";
    // UIDs of another mailbox of that name: what was indexed under them counts no more.
    good("mailhost new work/Box; mailhost copy work/INBOX 3 work/Box; mailhost index work/Box");
    fs::rename(_server.folder() / "mail/anna/.Box", _server.folder() / "mail/anna/.Gone");
    good("mailhost new work/Box; mailhost copy work/INBOX 4 work/Box");
    EXPECT_THAT(good("mailhost search three work/Box; mailhost search ferry work/Box"),
                AllOf(HasSubstr("Four"), Not(HasSubstr("Three"))));
    good(
        "mailhost unindex work/INBOX; mailhost flag work/INBOX 1 --delete; mailhost move work/INBOX 2 4 "
        "work/Box");
    good("mailhost flag work/INBOX 1 --undelete; mailhost flag work/INBOX 1 3 --delete");
    fs::remove(fileOnServer(0));
    EXPECT_THAT(good("mailhost undo work/INBOX"), HasSubstr("message 2: read\n"))
        << "the third is the second now";
    EXPECT_THAT(good("mailhost undo work/INBOX"), HasSubstr("message 3: read\n"));
    EXPECT_THAT(bad("mailhost undo work/INBOX"), HasSubstr("nothing to take back"));
    EXPECT_THAT(bad("mailhost copy work/INBOX 1 work/Nowhere"), HasSubstr("(Mailbox doesn't exist: Nowhere"));
}

TEST_F(MailhostImap, SharesAMailboxWithOtherRunsOfItself) {
    good("mailhost sync --headers work");
    std::string commands;
    for (int i = 0; i < 6; ++i) {
        const auto name = "flat" + std::to_string(i);
        writeFile(folder / name, "From a@b Fri Aug 23 11:04:00 2002\nSubject: " + name + "\n\nBody\n\n");
        commands += "mailhost --offline copy " + name + " 1 work/INBOX & ";
    }
    good(commands + "wait");
    EXPECT_EQ(lines(good("mailhost queue --json")), 6u);
    (void)run("mailhost sync & mailhost sync & mailhost sync & wait");
    EXPECT_THAT(good("mailhost sync; mailhost queue"), HasSubstr("Nothing waits."));
    EXPECT_EQ(_server.messagesOf("anna").size(), 9u);

    // Told by the server, long before it would be asked.
    good("mailhost watch --every 3600 work >told 2>&1 & echo $! >watching");
    const auto told = [&](std::string_view text) {
        for (int i = 0; i < 200 && readFile(folder / "told").find(text) == std::string::npos; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return readFile(folder / "told");
    };
    std::this_thread::sleep_for(std::chrono::seconds(1));
    _server.deliver("anna", "Subject: New\n\nText\n");
    EXPECT_THAT(told("1 message"), HasSubstr("anna@127.0.0.1: 1 message\n"));
    good("mailhost --offline list work/INBOX");
    const std::string interrupt =
        "kill -INT $(cat watching); for i in $(seq 50); do kill -0 $(cat watching) 2>/dev/null || exit 0; "
        "sleep 0.1; done; exit 1";
    good(interrupt);
    // A server that takes a connection and is silent would be waited for for a minute.
    ScriptedPeer silent({"W"});
    good("mailhost accounts set work --port " + std::to_string(silent.port()));
    good("mailhost watch work >told 2>&1 & echo $! >watching; sleep 1");
    good(interrupt);
}

TEST_F(MailhostImap, SortsIntoMailboxesOfTheServer) {
    for (const auto* name : {"Rome", "Oslo"}) {
        good(std::string("mailhost new work/") + name);
        writeFile(folder / name, std::string("From a@b Fri Aug 23 11:04:00 2002\nSubject: ") + name + "\n\n" +
                                     name + ' ' + name + "\n\n");
        good(std::string("mailhost copy ") + name + " 1 work/" + name + "; mailhost copy " + name +
             " 1 work/INBOX");
    }
    good("mailhost flag work/INBOX 5 --unread");
    good("mailhost sort work/INBOX --by work/Rome work/Oslo --move");
    EXPECT_THAT(good("mailhost list work/Oslo --json"),
                AllOf(HasSubstr("\"read\":true"), HasSubstr("\"read\":false")));
    EXPECT_THAT(good("mailhost compact work/INBOX"), HasSubstr("2 messages removed"));
    EXPECT_THAT(good("mailhost list work/INBOX --json"), Not(HasSubstr("\"read\":true")))
        << "sorting is no reading";
}

}  // namespace
}  // namespace lorvale::testing
