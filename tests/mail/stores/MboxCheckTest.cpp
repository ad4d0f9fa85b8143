#include "mail/stores/MboxCheck.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include "lorvale/platform/paths.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using ::testing::ElementsAre;
using testing::TemporaryFolder;
using testing::writeFile;

constexpr std::string_view kGood = "From a@b.example Mon Jan  5 18:23:35 2004\nSubject: a\n\nHi\n\n";

/// "rule" of a warning, "rule!" of an error, with "@N" for message N.
std::vector<std::string> rulesBrokenIn(const MailboxReport& report) {
    std::vector<std::string> rules;
    for (const auto& finding : report.findings) {
        rules.push_back(finding.rule + (finding.severity == MailboxFinding::Severity::error ? "!" : "") +
                        (finding.message > 0 ? "@" + std::to_string(finding.message) : ""));
    }
    return rules;
}

std::vector<std::string> rulesBrokenIn(std::string_view bytes) {
    MailboxReport report;
    checkMboxBytes(testing::ExactCopy(bytes), report);
    return rulesBrokenIn(report);
}

TEST(MboxCheck, NamesEachBrokenRule) {
    const std::string good(kGood);
    const std::string envelope = "From a@b.example Mon Jan  5 18:23:35 2004\n";
    const struct {
        const char* why;
        std::string bytes;
        std::vector<std::string> rules;
    } rows[] = {
        {"nothing to say", good + good, {}},
        {"empty", "", {}},
        {"white space only", " \n\n", {"only-white-space"}},
        {"white space first", "\n" + good, {"leading-white-space"}},
        {"no mailbox at all", "Subject: x\n\n" + good, {"no-separator!"}},
        {"hidden by a byte order mark", "\xEF\xBB\xBF" + good, {"no-separator!"}},
        {"no date", "From a@b.example\nSubject: a\n\n", {"no-envelope-date@1"}},
        {"unreadable date", "From a@b.example yesterday\nSubject: a\n\n", {"bad-envelope-date@1"}},
        {"a line of verse",
         good + "From the harbour, where\nthe lights are low,\n\n",
         {"bad-envelope-date@2", "text-as-separator!@2", "header-without-colon@2"}},
        {"an escaped envelope behind the envelope", envelope + ">From x\nSubject: a\n\n", {}},
        {"the separator is all there is",
         good + "From a@b.example Mon Jan  5 18:23:35 2004",
         {"no-headers!@2", "no-header-end!@2", "no-final-line-end@2"}},
        {"no empty line between", good.substr(0, good.size() - 1) + good, {"no-empty-line-before@2"}},
        {"headers without end", envelope + "Subject: a\n", {"no-header-end!@1"}},
        {"headers that end in CRLF", envelope + "Subject: a\r\n\r\nHi\r\n\n", {"crlf!@1"}},
        {"a NUL", envelope + "Subject: a\n\n\0\n" + std::string(1, '\0') + "\n\n", {"nul@1"}},
        {"cut off in a line", good + envelope + "Subject: b\n\nThe e", {"no-final-line-end@2"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(rulesBrokenIn(row.bytes), row.rules);
    }
}

TEST(MboxCheck, GivesTheFirstHundredOfAKindAndTheNumberOfTheRest) {
    std::string bytes;
    for (int i = 0; i < 250; ++i) bytes += "From a@b.example\nSubject: a\n\n";
    MailboxReport report;
    checkMboxBytes(bytes, report);
    EXPECT_EQ(report.messages, 250u);
    ASSERT_EQ(report.findings.size(), 101u);
    EXPECT_EQ(report.findings.back().rule, "no-envelope-date");
    EXPECT_THAT(report.findings.back().text, ::testing::StartsWith("150 more"));
}

TEST(MboxCheck, LooksAtTheFilesBeside) {
    const TemporaryFolder folder;
    const auto box = (folder / "box").string();
    writeFile(box, kGood);
    EXPECT_THAT(rulesBrokenIn(checkMailbox(box)), ElementsAre());
    writeFile(folder / "box.tmp", "half");
    writeFile(folder / "box.lock", "garbage");
    EXPECT_THAT(rulesBrokenIn(checkMailbox(box)), ElementsAre("lock-unreadable", "left-over"));
    std::filesystem::remove(folder / "box.tmp");
    const auto lock = [&](const std::string& host, int process) {
        writeFile(folder / "box.lock",
                  host + ",nora,mail (Lorvale version 106)," + std::to_string(process) + "\n");
        return rulesBrokenIn(checkMailbox(box));
    };
    EXPECT_THAT(lock(hostName(), ::getpid()), ElementsAre("locked"));
    EXPECT_THAT(lock(hostName(), 0x3FFFFFFF), ElementsAre("lock-stale"));
    EXPECT_THAT(lock("elsewhere.example", 0x3FFFFFFF), ElementsAre("locked"));
    EXPECT_TRUE(std::filesystem::exists(folder / "box.lock")) << "a check changes nothing";
}

TEST(MboxCheck, LooksIntoADirectoryMailbox) {
    const TemporaryFolder folder;
    EXPECT_FALSE(checkMailbox(folder.path().string()));
    writeFile(folder / "mbox", kGood);
    const auto report = checkMailbox(folder.path().string());
    EXPECT_TRUE(report);
    EXPECT_EQ(report.messages, 1u);
    writeFile(folder / "Info.plist", "neither XML nor binary");
    EXPECT_THAT(rulesBrokenIn(checkMailbox(folder.path().string())), ElementsAre("bad-attributes"));
    EXPECT_FALSE(checkMailbox((folder / "missing").string()));
}

}  // namespace
}  // namespace lorvale
