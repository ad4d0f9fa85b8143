/// What mailhost prints, kept in approved/: each file there is a case, whose lines behind "$ " are its
/// commands.  A case is made by writing such lines.  After a change that is meant, LORVALE_APPROVE=1 in the
/// environment writes the files anew, and the difference is read before it is committed.

#include <gmock/gmock.h>

#include <cstdlib>
#include <map>

#include "RunProgram.h"
#include "lorvale/values/text.h"
#include "tests/support/TestSupport.h"

namespace lorvale::testing {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
/// Where the checkout lies is nobody's business.
std::string withoutPlace(std::string text) {
    const auto place = sourceFolder().string();
    for (std::size_t at; (at = text.find(place)) != std::string::npos;) text.replace(at, place.size(), "TOP");
    return text;
}

/// The commands of a case, each with its output, then what it said on standard error, then its exit status.
/// What is different each time, the commands take out.
std::string transcript(std::string_view approved) {
    std::string text;
    for (const auto line : split(approved, '\n')) {
        if (!line.starts_with("$ ")) continue;
        const auto outcome = runShell(std::string(line.substr(2)));
        text.append(line).append("\n").append(outcome.output);
        if (!outcome.errors.empty()) text += "[standard error]\n" + outcome.errors;
        if (outcome.status != 0) text += "[exit status " + std::to_string(outcome.status) + "]\n";
        text += "\n";
    }
    return withoutPlace(std::move(text));
}

std::vector<std::string> approvedCases() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(sourceFolder() / "tests/integration/approved"))
        names.push_back(entry.path().stem());
    return names;
}

class MailhostApproval : public ::testing::TestWithParam<std::string> {};

TEST_P(MailhostApproval, PrintsWhatWasApproved) {
    const auto file = sourceFolder() / "tests/integration/approved" / (GetParam() + ".txt");
    const auto approved = readFile(file), printed = transcript(approved);
    EXPECT_NE(printed, "") << "the file names no command";
    if (std::getenv("LORVALE_APPROVE") != nullptr) writeFile(file, printed);
    EXPECT_EQ(printed, readFile(file));
}

INSTANTIATE_TEST_SUITE_P(All, MailhostApproval, ValuesIn(approvedCases()), [](const auto& parameter) {
    std::string name = parameter.param;
    std::erase(name, '-');
    return name;
});

TEST(Mailhost, SetsUserDefaultsAndFoldersForOneRun) {
    const TemporaryFolder home;
    std::filesystem::copy_file(sourceFolder() / "examples/mail/lists", home / "lists");
    const auto list = [&](const std::string& more) {
        const auto outcome =
            runShell("mailhost list --json --home " + shellWord(home.path().string()) + " --config " +
                     shellWord((home / "config").string()) + " " + more + " '~/lists'");
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        return outcome.output;
    };
    // A subject there has a charset that the classic dialect does not know: it takes the preferred encoding.
    const std::string classic = "-o MailDialect=classic ";
    const auto plain = list(classic);
    EXPECT_TRUE(list("-o MailDialect=Standard") == list("") && plain != list(""));
    const std::string preference = classic + "-o 'KTPreferedStringEncodingForMailMessage=";
    EXPECT_TRUE(list(preference + "Central European (Windows 1250)'") != plain);
    EXPECT_TRUE(list(preference + "Nonsense'") == plain);
    EXPECT_EQ(runShell("mailhost list -o MailDialect=some examples/mail/lists").status, 2);
    EXPECT_FALSE(std::filesystem::exists(home / "config")) << "reading must not make settings";
}

/// Names, sizes and bytes of all files in a folder.
std::map<std::string, std::string> filesIn(const std::filesystem::path& folder) {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        files[entry.path().string()] = entry.is_regular_file() ? readFile(entry.path()) : "";
    }
    return files;
}

TEST(Mailhost, ReadingTakesNoLockAndChangesNothing) {
    const TemporaryFolder folder;
    const auto source = sourceFolder() / "examples/mail";
    std::filesystem::copy_file(source / "lists", folder / "lists");
    writeFile(folder / "lists.lock", "elsewhere.example,nora,mail (Lorvale version 106),1\n");
    std::filesystem::create_directory(folder / "box.mbox");
    std::filesystem::copy_file(source / "odd", folder / "box.mbox" / "mbox");
    const auto before = filesIn(folder.path());
    const auto path = [&](std::string_view name) { return shellWord((folder / name).string()); };
    for (const auto& command :
         {"list --sort from " + path("lists"), "info " + path("lists"), "show " + path("lists") + " 1",
          "list --sort size " + path("box.mbox/mbox"), "check " + path("lists")}) {
        const auto outcome = runShell("mailhost " + command);
        EXPECT_EQ(outcome.status, 0) << command << "\n" << outcome.errors;
    }
    EXPECT_EQ(filesIn(folder.path()), before);
    const auto check = runShell("mailhost check " + path("lists"));
    EXPECT_THAT(check.output, HasSubstr("locked by nora on host elsewhere.example"));
    EXPECT_EQ(runShell("mailhost check " + path("box.mbox")).status, 1);  // of the flat file inside
}

TEST(Mailhost, SavesAttachmentsIntoTheFolderAndNowhereElse) {
    const TemporaryFolder folder;
    std::string letter = "From a@b Mon Jan  5 18:23:35 2004\nContent-Type: multipart/mixed; boundary=B\n\n";
    const char* const names[] = {"../evil", "/tmp/../evil", "..", "a/b", "same", "same", "-rf"};
    for (const auto* const name : names)
        letter += "--B\nContent-Type: image/gif\nContent-Disposition: attachment; filename=\"" +
                  std::string(name) + "\"\n\nx\n";
    letter +=
        "--B\nContent-Type: message/external-body; access-type=local-file; name=\"/etc/passwd\"\n\n\n--B--\n";
    writeFile(folder / "box", letter);
    for (const std::string dialect : {"classic", "standard"}) {
        const auto target = folder / ("in/" + dialect);
        const auto outcome =
            runShell("mailhost show -o MailDialect=" + dialect + " " + shellWord((folder / "box").string()) +
                     " 1 --save " + shellWord(target.string()));
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        for (const auto& entry : std::filesystem::directory_iterator(target))
            EXPECT_TRUE(entry.is_regular_file());
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(target), {}), dialect == "classic" ? 7 : 8);
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 2);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder / "in"), {}), 2);
}

TEST(Mailhost, TakesAnyFileForAMailboxOrSaysWhyNot) {
    const TemporaryFolder folder;
    std::string noise;
    for (unsigned i = 0; i < 70'000; ++i) noise += static_cast<char>(i * i / 7);
    const std::string real = readFile(sourceFolder() / "examples/mail/odd");
    const struct {
        const char* why;
        std::string bytes;
        int checkStatus;
        int listStatus = 0;
    } rows[] = {
        {"empty", "", 0},
        {"white space", "\n \n", 0},
        {"binary", noise, 1, 1},
        {"binary behind a separator", "From a@b.example\n" + noise, 1},
        {"cut off in a header", real.substr(0, 150), 1},
        {"cut off in a body", real.substr(0, 245), 0},
        {"a separator alone", "From ", 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        writeFile(folder / "box", row.bytes);
        const auto box = shellWord((folder / "box").string());
        EXPECT_EQ(runShell("mailhost list " + box).status, row.listStatus);
        EXPECT_EQ(runShell("mailhost info " + box).status, row.listStatus);
        EXPECT_EQ(runShell("mailhost check " + box).status, row.checkStatus);
    }
}

TEST(Mailhost, KeepsControlCharactersOfMailOffTheTerminal) {
    // script(1) gives the program a terminal; NO_COLOR leaves no escape sequence of our own in the output.
    for (const std::string command : {"list examples/mail/odd", "show examples/mail/odd 16 --raw",
                                      "show examples/mail/odd 16 --text", "show examples/mail/odd 17 --json"}) {
        SCOPED_TRACE(command);
        const auto outcome =
            runShell("NO_COLOR=1 script -qec " + shellWord("mailhost " + command) + " /dev/null");
        ASSERT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_FALSE(outcome.output.empty());
        EXPECT_THAT(outcome.output, Not(ContainsRegex("[\x01-\x08\x0B\x0C\x0E-\x1F\x7F]")));
        EXPECT_THAT(outcome.output, Not(HasSubstr("\u202E")));
    }
    const auto piped = runShell("mailhost show examples/mail/odd 16 --raw");
    EXPECT_THAT(piped.output, HasSubstr("\x1b[31mred?"));  // a file gets the very bytes
}

// Real mail.  That every file lists as often as its separators say is tested with the stores.
TEST(MailhostSharedData, ChecksEveryFileAndListsALargeMailbox) {
    const auto data = sharedData();
    if (!data) GTEST_SKIP() << "the folder of real mail is not beside the checkout";
    const TemporaryFolder folder;
    const auto linesOf = [](const std::string& output) {
        std::size_t lines = 0;
        for (const auto line : split(trimmed(output), '\n')) {
            EXPECT_TRUE(isJson(line)) << line;
            ++lines;
        }
        return lines;
    };
    const auto checked = runShell("find " + shellWord((*data / "").string()) +
                                  " -type f ! -name '*.xz' -print0 | xargs -0 mailhost check --json");
    EXPECT_EQ(checked.status, 123) << "some of them break rules: " << checked.errors;
    EXPECT_GT(linesOf(checked.output), 100u);
    const auto box = shellWord((folder / "box").string());
    ASSERT_EQ(
        runShell("xz -dc " + shellWord((*data / "large/english-4k.mbox.xz").string()) + " >" + box).status, 0);
    for (const std::string order : {"subject", "received-date"}) {
        const auto outcome = runShell("mailhost list --json --sort " + order + " " + box);
        EXPECT_EQ(linesOf(outcome.output), 4150u) << order << outcome.errors;
    }
}

}  // namespace
}  // namespace lorvale::testing
