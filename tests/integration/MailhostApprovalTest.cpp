/// What mailhost prints, kept in approved/: after a change that is meant, LORVALE_APPROVE=1 in the environment
/// writes the files anew, and the difference is read before it is committed.

#include <gmock/gmock.h>

#include <cstdlib>
#include <map>
#include <sstream>

#include "RunProgram.h"
#include "tests/support/TestSupport.h"

namespace lorvale::testing {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
struct Case {
    const char* name;  // of the file
    const char* commands;
};

void PrintTo(const Case& theCase, std::ostream* out) {
    *out << theCase.name;
}

// Several commands a file where they show one thing from its several sides.
const Case kCases[] = {
    {"info",
     "mailhost info examples/mail/inbox\nmailhost info examples/mail/odd\n"
     "mailhost info examples/mail/lists --json"},
    {"list",
     "mailhost list examples/mail/inbox\nmailhost list examples/mail/odd\n"
     "mailhost list examples/mail/inbox --unread"},
    {"list-narrow",
     "COLUMNS=70 mailhost list examples/mail/odd --limit 3\nCOLUMNS=55 mailhost list examples/mail/inbox\n"
     "COLUMNS=30 mailhost list examples/mail/inbox --limit 5\nCOLUMNS=160 mailhost list examples/mail/lists"},
    {"list-json", "mailhost list --json examples/mail/inbox\nmailhost list --json examples/mail/odd"},
    {"list-sorted",
     "mailhost list examples/mail/lists --sort subject\nmailhost list examples/mail/lists --sort from\n"
     "mailhost list examples/mail/archive-2003 --sort size\n"
     "mailhost list examples/mail/odd --sort received-date\n"
     "mailhost list examples/mail/archive-2003 --sort=number\n"
     "mailhost list examples/mail/archive-2003 --sort from --reverse --limit 3"},
    {"show-text", "for n in 2 3 5 6 7 8 9 10 15 20 24 26; do mailhost show examples/mail/inbox $n; done"},
    {"show-structured",
     "for n in 11 14 17 23; do mailhost show examples/mail/inbox $n; done\n"
     "mailhost show examples/mail/archive-2003 2"},
    {"show-odd",
     "for n in 12 13 14 15 16 17 18 19 20 21 22 25 26; do mailhost show examples/mail/odd $n; done"},
    {"show-headers",
     "mailhost show examples/mail/inbox 16 --headers\nmailhost show examples/mail/odd 13 --headers\n"
     "mailhost show examples/mail/odd 14 --headers --json"},
    {"show-parts",
     "mailhost show examples/mail/inbox 4 --text\nmailhost show examples/mail/inbox 4 --raw\n"
     "mailhost show examples/mail/odd 16 --json\nmailhost show examples/mail/odd 11 --json --text\n"
     "mailhost show examples/mail/odd 11 --json --raw"},
    {"show-tree",
     "for n in 11 14 17 23; do mailhost show examples/mail/inbox $n --parts; done\n"
     "mailhost show examples/mail/inbox 11 --parts --json\nmailhost list examples/mail/inbox --attachments\n"
     "mailhost list examples/mail/inbox --attachments --json --limit 1\n"
     "box=$PWD/examples/mail/inbox; cd $(mktemp -d); for n in 11 14 1; do mailhost show $box $n --save x; "
     "done; "
     "mailhost show $box 11 --save x --json | sed 's:.*\\(.saved\\):\\1:'; rm -r x"},
    {"show-rich",
     "COLUMNS=60; export COLUMNS; for n in 10 11 12 13 25; do mailhost show examples/mail/inbox $n --rich; "
     "done\n"
     "mailhost show examples/mail/archive-2003 3 --rich\nmailhost show examples/mail/inbox 11 --rich --json"},
    {"older-rich",
     "box=examples/mail/archive-1996; mailhost list $box --attachments; mailhost show $box 1; "
     "COLUMNS=60 mailhost show $box 2 --rich; mailhost show $box 1 --parts; mailhost check $box\n"
     "box=$PWD/examples/mail/archive-1996; cd $(mktemp -d); mailhost show $box 2 --save x; "
     "mailhost show $box 1 --save x; cat x/*; mailhost import $box a.mbox --verbose 2>/dev/null; "
     "mailhost list a.mbox --attachments; mailhost show a.mbox 1 --text; mailhost show a.mbox 2 --headers | "
     "tail -n 1; "
     "mailhost check a.mbox; (cd a.mbox; ls *); cp $box moved; mailhost show moved 2 --text | sed "
     "s:$PWD:HERE:; rm -r $PWD"},
    // What is different each time goes.
    {"letters",
     "echo 'Grüße, bis morgen um acht.' | mailhost send --from me@x --to '\"Ré, X\" <a@x>,b@x' --to c@x --bcc "
     "d@x "
     "--subject \"$(printf 'a\\nBcc: e@x')\" --dry-run | sed -E 's/^Date: .* 20[2-9].*/Date: D/; "
     "s/[a-z0-9]{26}/ID/g; s/(ID@)[^>\\\"]*/\\1HOST/'\n"
     "mailhost reply examples/mail/inbox 14 --from nora@harbour.example --all --body /dev/null --format plain "
     "--dry-run | sed -E 's/^Date: .* 20[2-9].*/Date: D/; s/[a-z0-9]{26}/ID/g; s/(ID@)[^>\\\"]*/\\1HOST/'\n"
     "mailhost forward examples/mail/inbox 11 --from me@x --to b@x --attach examples/mail/odd --output "
     "/dev/stdout | sed -E 's/^Date: .* 20[2-9].*/Date: D/; s/[a-z0-9]{26}/ID/g; s/(ID@)[^>\\\"]*/\\1HOST/' | "
     "head -n 40\n"
     "cd $(mktemp -d); printf '<p>A <b>map</b>: <img src=m.png><img src=../m.png alt=far>' > p.html; printf "
     "PNG > m.png; "
     "mkdir d; ln -s m.png l.png; mailhost send --from me@x --to b@x --subject s --html p.html --attach d "
     "--attach l.png "
     "--dry-run | sed -E 's/^Date: .* 20[2-9].*/Date: D/; s/[a-z0-9]{26}/ID/g; s/(ID@)[^>\\\"]*/\\1HOST/' | "
     "grep -v '^UEsD'; mailhost send --to a@x --subject s --attach none --body p.html --dry-run; "
     "mailhost send --to a@x --subject s --body none --dry-run; mailhost send --to , --subject s --dry-run; "
     "mailhost send --subject s --dry-run < p.html; mailhost send --to a@x; "
     "mailhost send --to a@x --subject s --format plain --attach d --body p.html --dry-run; "
     "mailhost send --from me@x --to b@x --subject s --body p.html --json --dry-run | sed "
     "'s/,.date.*,.size/,\"size/; s/base64.*/base64.../'; rm -r $PWD"},
    {"check",
     "mailhost check examples/mail/inbox\nmailhost check examples/mail/odd\n"
     "mailhost check examples/mail/odd examples/mail/lists no/such/mailbox --json"},
    // The folder is its own for each command line, so the whole life of a mailbox is one.
    {
        "directory",
        "cd $(mktemp -d) && mailhost import $OLDPWD/examples/mail/lists a.mbox --unread && "
        "mailhost list a.mbox --limit 3 && mailhost flag a.mbox 2 --read && mailhost flag a.mbox 1 3 --delete "
        "&& "
        "mailhost flag a.mbox 4 --delete --json && mailhost undo a.mbox && mailhost list a.mbox --limit 4 && "
        "mailhost compact a.mbox && mailhost undo a.mbox; mailhost check a.mbox; mailhost rebuild a.mbox "
        "--json; "
        "mailhost info a.mbox; mailhost show a.mbox 1 --headers | head -n 3; mailhost import a.mbox a.mbox; "
        "mailhost flag a.mbox 99 --read; mailhost flag a.mbox 1; echo more >> a.mbox/mbox; "
        "touch -d 2001-01-01 a.mbox/mbox; mailhost list a.mbox; mailhost check a.mbox | tail -n 1; rm -r $PWD",
    },
    {"directory-failures",
     "mailhost flag examples/mail/inbox 1 --read\nmailhost compact no/such.mbox\n"
     "mailhost import examples/mail/inbox /tmp/no-extension"},
    {"similar",
     "mailhost similar examples/mail/inbox 3 --limit 4\nmailhost similar examples/mail/inbox 2 --limit 1 "
     "--json\n"
     "mailhost similar examples/mail/inbox 30\nmailhost similar examples/mail/inbox"},
    {"abstract",
     "for n in 2 3 11 14 13; do mailhost abstract examples/mail/inbox $n; done\n"
     "mailhost abstract examples/mail/inbox 1 -n 1 --json\nmailhost abstract examples/mail/inbox 30\n"
     "mailhost abstract examples/mail/inbox 1 -n 0\n"
     // A rule of the writer's own stays, and what two lists have added goes.
     "cd $(mktemp -d) && printf '%s\\n' 'From a@b.example Mon Jan  1 00:00:00 2024' 'Subject: boats' '' 'The "
     "boats are blue. Boats float.' '----------' 'We paint our boats on Monday.' '__________' 'boats mailing "
     "list' 'http://boats.example/mailman/listinfo/boats' '==========' 'To UNSUBSCRIBE from boats, write to' "
     "'boats-request@ferry.example' > boats && mailhost abstract boats 1 -n 9; rm -r $PWD"},
    {"search",
     "cd $(mktemp -d) && for b in inbox lists; do mailhost import $OLDPWD/examples/mail/$b $b.mbox --json; "
     "done; "
     "mailhost index inbox.mbox lists.mbox; mailhost search 'plan for rain' *.mbox --max 4; "
     "mailhost search --boolean '(ferry or concert) not timetable' inbox.mbox --sort date; "
     "mailhost search 'concert on the pier' inbox.mbox --show --max 2; "
     "mailhost search CONCERTS inbox.mbox --json --max 1; mailhost search pier *.mbox --from fergus --max 2; "
     "mailhost search pier *.mbox --attachments --max 2; mailhost search --boolean 'a and' inbox.mbox; "
     "mailhost search --boolean '& a' inbox.mbox; mailhost search '' inbox.mbox; "
     "mailhost import inbox.mbox lists.mbox; mailhost search 'plan for rain' lists.mbox; "
     "head -c 1000 lists.mbox/mbox.index > cut; mv cut lists.mbox/mbox.index; mailhost check lists.mbox; "
     "mailhost search pier lists.mbox; mailhost index lists.mbox --json; mailhost check lists.mbox; "
     "mailhost unindex inbox.mbox; ls inbox.mbox; mailhost search pier inbox.mbox; rm -r $PWD"},
    {"sort",
     "mailhost sort examples/mail/inbox --by examples/mail/lists examples/mail/archive-2003\n"
     "mailhost sort examples/mail/lists --by examples/mail/odd --by examples/mail/inbox --json | head -n 2\n"
     "mailhost sort examples/mail/inbox --by examples/mail/lists examples/mail/../mail/inbox --move\n"
     "mailhost sort examples/mail/inbox --by examples/mail/lists\n"
     "cd $(mktemp -d) && cp $OLDPWD/examples/mail/inbox $OLDPWD/examples/mail/lists "
     "$OLDPWD/examples/mail/archive-2003 . && mailhost sort inbox --by lists archive-2003 --move | tail -n 2; "
     "for b in *; do mailhost check $b | tail -n 1; done; rm -r $PWD"},
    {"usage",
     "mailhost --help\nmailhost check -h\nmailhost list --help\nmailhost show --help\nmailhost info --help\n"
     "for c in abstract compact flag forward import index rebuild reply search send similar sort undo unindex; "
     "do mailhost $c "
     "--help | sed "
     "/^Options.of.every/,\\$d; done\n"
     "COLUMNS=60 mailhost show --help\nmailhost --version"},
    {"usage-errors",
     "mailhost\nmailhost lits x\nmailhost list\nmailhost show x\nmailhost show x 1x\n"
     "mailhost show x 1 --raw --text\nmailhost list x --sort colour\nmailhost list x --text\n"
     "mailhost --sort size list x\nmailhost list x --frob\nmailhost info x y\nmailhost info ''\n"
     "mailhost info x -o =y\nmailhost info -o\nmailhost list x --reverse=y\nmailhost list x --limit 0\n"
     "mailhost list x --since 31.1.2004\nmailhost list x --larger 1T\nmailhost list x --larger -1\n"
     "mailhost --generate html"},
    {"failures",
     "mailhost list no/such/mailbox\nmailhost list examples/mail\nmailhost check examples/mail\n"
     "mailhost show examples/mail/inbox 30\nmailhost check no/such/mailbox\n"
     "mailhost list examples/mail/README.md\nmailhost info examples/mail/README.md\n"
     "mailhost check examples/mail/README.md\nmailhost --help >/dev/full\nmailhost --generate man >/dev/full\n"
     "mailhost list examples/mail/inbox >/dev/full\nmailhost show examples/mail/inbox 1 >/dev/full"},
};

std::filesystem::path approvedFile(const Case& theCase) {
    return sourceFolder() / "tests/integration/approved" / (std::string(theCase.name) + ".txt");
}

/// Where the checkout lies is nobody's business.
std::string withoutPlace(std::string text) {
    const auto place = sourceFolder().string();
    for (std::size_t at; (at = text.find(place)) != std::string::npos;) text.replace(at, place.size(), "TOP");
    return text;
}

/// The commands of a case, each with its output, then what it said on standard error, then its exit status.
std::string transcript(const Case& theCase) {
    std::string text;
    std::string_view rest = theCase.commands;
    while (!rest.empty()) {
        const auto end = std::min(rest.find('\n'), rest.size());
        const std::string command(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        const auto outcome = runShell(command);
        text += "$ " + command + "\n" + outcome.output;
        if (!outcome.errors.empty()) text += "[standard error]\n" + outcome.errors;
        if (outcome.status != 0) text += "[exit status " + std::to_string(outcome.status) + "]\n";
        text += "\n";
    }
    return withoutPlace(std::move(text));
}

class MailhostApproval : public ::testing::TestWithParam<Case> {};

TEST_P(MailhostApproval, PrintsWhatWasApproved) {
    const auto file = approvedFile(GetParam());
    const auto printed = transcript(GetParam());
    if (std::getenv("LORVALE_APPROVE") != nullptr) writeFile(file, printed);
    ASSERT_TRUE(std::filesystem::exists(file)) << "run with LORVALE_APPROVE=1 and read the new file";
    EXPECT_EQ(printed, readFile(file));
}

INSTANTIATE_TEST_SUITE_P(All, MailhostApproval, ::testing::ValuesIn(kCases), [](const auto& parameter) {
    std::string name = parameter.param.name;
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

// Real mail: every file lists as often as its separators say, in valid JSON, and check has an opinion.
TEST(MailhostSharedData, ListsEveryFile) {
    const auto data = sharedData();
    if (!data) GTEST_SKIP() << "the folder of real mail is not beside the checkout";
    const TemporaryFolder folder;
    std::vector<std::string> paths;
    std::string script, all;  // one shell for all of them: starting one takes longer than most lists
    for (const auto& entry : std::filesystem::recursive_directory_iterator(*data)) {
        if (!entry.is_regular_file() || entry.path().extension() == ".xz") continue;
        const auto path = shellWord(paths.emplace_back(entry.path().string()));
        script += "mailhost list --json " + path + "; echo $?\n";
        all += path + "\n";
    }
    EXPECT_GT(paths.size(), 100u);
    writeFile(folder / "script", script);
    writeFile(folder / "paths", all);
    std::istringstream listed(runShell("sh " + shellWord((folder / "script").string())).output);
    for (const auto& path : paths) {
        SCOPED_TRACE(path);
        std::size_t lines = 0;
        std::string line;
        for (; std::getline(listed, line) && line.size() > 3; ++lines) EXPECT_TRUE(isJson(line)) << line;
        const auto bytes = readFile(path);
        const auto first = bytes.find_first_not_of(" \t\n\r\f\v");
        std::size_t separators = first != std::string::npos && bytes.compare(first, 5, "From ") == 0 ? 1 : 0;
        for (auto at = first; separators > 0 && (at = bytes.find("\nFrom ", at)) != std::string::npos; ++at) {
            ++separators;
        }
        EXPECT_EQ(lines, separators);
        EXPECT_EQ(line, separators > 0 || first == std::string::npos ? "0" : "1");
    }
    const auto checked = runShell("xargs mailhost check --json <" + shellWord((folder / "paths").string()));
    EXPECT_EQ(checked.status, 123) << "some of them break rules: " << checked.errors;
    std::istringstream findings(checked.output);
    for (std::string line; std::getline(findings, line);) EXPECT_TRUE(isJson(line)) << line;
}

TEST(MailhostSharedData, ListsAndSortsALargeMailbox) {
    const auto data = sharedData();
    if (!data) GTEST_SKIP() << "the folder of real mail is not beside the checkout";
    const TemporaryFolder folder;
    const auto box = shellWord((folder / "box").string());
    ASSERT_EQ(
        runShell("xz -dc " + shellWord((*data / "large/english-4k.mbox.xz").string()) + " >" + box).status, 0);
    for (const auto* order : {"subject", "received-date"}) {
        const auto outcome =
            runShell("mailhost list --json --sort " + std::string(order) + " " + box + " | wc -l");
        EXPECT_EQ(outcome.output, "4150\n") << order << outcome.errors;
    }
}

}  // namespace
}  // namespace lorvale::testing
