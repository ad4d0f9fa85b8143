#include "mail/stores/MboxCheck.h"

#include <gmock/gmock.h>

#include <unistd.h>

#include "lorvale/platform/paths.h"
#include "tests/support/TextRows.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;

constexpr std::string_view kGood = "From a@b.example Mon Jan  5 18:23:35 2004\nSubject: a\n\nHi\n\n";

/// "rule" of a warning, "rule!" of an error, with "@N" for message N.
std::string rulesBrokenIn(const MailboxReport& report) {
    std::string rules;
    for (const auto& finding : report.findings) {
        if (!rules.empty()) rules += ' ';
        rules += finding.rule + (finding.severity == MailboxFinding::Severity::error ? "!" : "");
        if (finding.message > 0) rules += "@" + std::to_string(finding.message);
    }
    return rules;
}

/// The rules that the mailbox examples/mail/odd breaks are named in tests/integration/approved/check.txt.
TEST(MboxCheck, NamesEachBrokenRule) {
    const std::string good(kGood),
        envelope = good.substr(0, good.find('\n') + 1), twice = good + good, bom = "\xEF\xBB\xBF" + good,
        nothing = good + good.substr(0, 41), run = good.substr(0, good.size() - 1) + good,
        escaped = envelope + ">From x\nSubject: a\n\n", endless = envelope + "Subject: a\n";
    const TextRow rows[] = {
        {"nothing to say", twice, ""},
        {"empty", "", ""},
        {"white space only", " \n\n", "only-white-space"},
        {"hidden by a byte order mark", bom, "no-separator!"},
        {"an escaped envelope behind the envelope", escaped, ""},
        {"the separator is all there is", nothing, "no-headers!@2 no-header-end!@2 no-final-line-end@2"},
        {"no empty line between", run, "no-empty-line-before@2"},
        {"headers without end", endless, "no-header-end!@1"},
    };
    const auto check = [](std::string_view bytes) {
        MailboxReport report;
        checkMboxBytes(bytes, report);
        return rulesBrokenIn(report);
    };
    expectRows(check, rows);
}

TEST(MboxCheck, GivesTheFirstHundredOfAKindAndTheNumberOfTheRest) {
    std::string bytes;
    for (int i = 0; i < 250; ++i) bytes += "From a@b.example\nSubject: a\n\n";
    MailboxReport report;
    checkMboxBytes(bytes, report);
    ASSERT_EQ(report.findings.size(), 101u);
    EXPECT_EQ(report.findings.back().rule, "no-envelope-date");
    EXPECT_THAT(report.findings.back().text, StartsWith("150 more"));
}

TEST(MboxCheck, LooksAtTheFilesBeside) {
    const TemporaryFolder folder;
    const auto box = (folder / "box").string();
    writeFile(box, kGood);
    EXPECT_EQ(rulesBrokenIn(checkMailbox(box)), "");
    writeFile(folder / "box.tmp", "half");
    writeFile(folder / "box.lock", "garbage");
    EXPECT_EQ(rulesBrokenIn(checkMailbox(box)), "lock-unreadable left-over");
    std::filesystem::remove(folder / "box.tmp");
    const auto lock = [&](const std::string& host, int process) {
        writeFile(folder / "box.lock",
                  host + ",nora,mail (Lorvale version 106)," + std::to_string(process) + "\n");
        return rulesBrokenIn(checkMailbox(box));
    };
    EXPECT_EQ(lock(hostName(), ::getpid()), "locked");
    EXPECT_EQ(lock(hostName(), 0x3FFFFFFF), "lock-stale");
    EXPECT_EQ(lock("elsewhere.example", 0x3FFFFFFF), "locked");
    EXPECT_TRUE(std::filesystem::exists(folder / "box.lock")) << "a check changes nothing";
}

TEST(MboxCheck, LooksIntoADirectoryMailbox) {
    const TemporaryFolder folder;
    EXPECT_FALSE(checkMailbox(folder.path().string()));
    writeFile(folder / "mbox", kGood);
    EXPECT_EQ(checkMailbox(folder.path().string()).messages, 1u);
    writeFile(folder / "Info.plist", "neither XML nor binary");
    EXPECT_EQ(rulesBrokenIn(checkMailbox(folder.path().string())), "bad-attributes table-missing");
    writeFile(folder / "table_of_contents", "neither");
    writeFile(folder / "Incoming_Mail", kGood);
    EXPECT_EQ(rulesBrokenIn(checkMailbox(folder.path().string())), "bad-attributes table-damaged! incoming");
    EXPECT_FALSE(checkMailbox((folder / "missing").string()));
}

}  // namespace
}  // namespace lorvale
