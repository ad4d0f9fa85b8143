/// The commands of mailhost that are about accounts and their mailboxes.

#include <gmock/gmock.h>

#include <filesystem>

#include "MailhostUser.h"

namespace lorvale::testing {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
namespace fs = std::filesystem;

using MailhostAccounts = MailhostUser;

TEST_F(MailhostAccounts, TakePasswordsFromElsewhereAndNeverShowThem) {
    const auto add = [](const std::string& name, const std::string& how) {
        return "mailhost accounts add " + name + " --host h --user u " + how;
    };
    good(add("Fd", "--password-fd 5 5<<'X'\nsecret\nnext\nX"));
    good(add("Command", "--password-command 'echo secret; echo next'"));
    good(add("Long", "--password-command \"printf %4096d 1\""));
    for (const auto* const how :
         {"--password-command \"printf %4097d 1\"", "--password", "--password-fd 9", "--password-command false",
          "--password-command true", "--password-fd 5 5</dev/null"})
        EXPECT_EQ(run(add("None", how)).status, 1) << how;
    EXPECT_EQ(run(add("None", "--password-fd x")).status, 2);
    const auto told = good(
        "mailhost accounts; for a in Fd Command; do mailhost accounts show $a; mailhost accounts show $a "
        "--json; "
        "done");
    EXPECT_THAT(told, Not(AnyOf(HasSubstr("secret"), HasSubstr("c2VjcmV0"), HasSubstr("None"))));
    const auto file = folder / ".config/lorvale/mailhost.plist";
    const auto stored = readFile(file);
    EXPECT_EQ(stored.find("c2VjcmV0\n"), stored.find("c2VjcmV0"));
    EXPECT_NE(stored.find("c2VjcmV0"), stored.rfind("c2VjcmV0")) << "both have it";
    EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    good("mailhost accounts set Fd --forget-password; mailhost accounts remove Command");
    EXPECT_THAT(readFile(file), Not(HasSubstr("c2VjcmV0")));
}

TEST_F(MailhostAccounts, RefuseWhatMakesNoSense) {
    good("mailhost accounts add A --host h");
    const struct {
        const char* line;
        int status;
    } rows[] = {
        {"accounts add A", 1},
        {"accounts add B --path ~/Mailboxes/.popspool/A", 1},
        {"accounts show B", 1},
        {"accounts remove 'Local Mailboxes'", 1},
        {"accounts add", 2},
        {"accounts add C --type local", 2},
        {"accounts set A --port 65536", 2},
        {"accounts set A --spool x", 2},
        {"accounts set A --type pop", 2},
        {"accounts show A --host h", 2},
        {"mailboxes B", 1},
        {"new A/x", 1},
        {"remove Mailboxes", 1},
        {"remove /", 1},
        {"copy x 1 y", 1},
    };
    for (const auto& row : rows)
        EXPECT_EQ(run(std::string("mailhost ") + row.line).status, row.status) << row.line;
    EXPECT_THAT(good("mailhost accounts set A --port 65535 --json"), HasSubstr("\"port\":65535"));
}

TEST_F(MailhostAccounts, MakeFillWalkAndRemoveMailboxes) {
    const auto inbox = shellWord((sourceFolder() / "examples/mail/inbox").string());
    good("mailhost new 'Local Mailboxes/In'; mailhost new Mailboxes/Trips/2003.mbox --yes; mailhost new ./out");
    EXPECT_EQ(run("mailhost new 'Local Mailboxes/In.mbox'").status, 1) << "is there";
    EXPECT_EQ(run("mailhost new 'Local Mailboxes/no/x' </dev/null").status, 1) << "nobody agrees to the folder";
    for (const auto* const name : {"Mailboxes/In.mbox/x", "out.mbox/x", "'Local Mailboxes/no.mbox/x/y' --yes"})
        EXPECT_THAT(bad(std::string("mailhost new ") + name), HasSubstr(".mbox is a mailbox"));
    good("mailhost import " + inbox +
         " 'Local Mailboxes/In' --unread; mailhost flag Mailboxes/In.mbox 2 --read");
    good("mailhost copy 'Local Mailboxes/In' 1 2 Mailboxes/Trips/2003.mbox");
    EXPECT_EQ(good("mailhost move 'Local Mailboxes/In' 3 5 3 out.mbox"), "2 messages moved.\n");
    EXPECT_EQ(good("mailhost mailboxes"),
              "Mailbox           Messages  Unread   Bytes\n"
              "Local Mailboxes/\n"
              "  In                    29      26  27,414\n"
              "  Trips/\n"
              "    2003                 2       1   2,323\n");
    EXPECT_EQ(good("mailhost undo Mailboxes/In.mbox"), "message 3: read\nmessage 5: read\n");
    // Out of a flat mailbox they are taken at once.
    good("cp " + inbox + " flat; mailhost move flat 1 out.mbox");
    EXPECT_EQ(good("mailhost list flat --json | wc -l; mailhost list out.mbox --json | wc -l"), "28\n3\n");
    EXPECT_EQ(run("mailhost move flat 1 ./flat").status, 1);
    EXPECT_EQ(run("mailhost move flat 1 99 out.mbox").status, 1);
    EXPECT_EQ(run("mailhost remove 'Local Mailboxes/Trips' </dev/null").status, 1);
    good("mailhost remove 'Local Mailboxes/Trips' --yes; mailhost remove out.mbox --yes");
    EXPECT_EQ(good("mailhost mailboxes --json | wc -l; ls -d out.mbox Mailboxes/* 2>/dev/null; true"),
              "2\nMailboxes/In.mbox\n");
    // A mailbox that cannot be read is told of, and the others are shown.
    writeFile(folder / "Mailboxes/bad.mbox", "no mailbox");
    const auto outcome = run("mailhost mailboxes");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output, HasSubstr("bad                    -       -       -"));
    EXPECT_THAT(outcome.errors, HasSubstr("bad.mbox"));
}

}  // namespace
}  // namespace lorvale::testing
