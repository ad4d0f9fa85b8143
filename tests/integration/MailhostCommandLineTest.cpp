/// The command line of mailhost: that help, manual and completions tell what it takes, and what its options do.

#include <gmock/gmock.h>

#include <map>
#include <regex>
#include <set>

#include "RunProgram.h"
#include "lorvale/values/text.h"
#include "tests/support/TestSupport.h"

namespace lorvale::testing {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
using Names = std::set<std::string>;

std::string output(const std::string& command) {
    const auto outcome = runShell(command);
    EXPECT_EQ(outcome.status, 0) << command << "\n" << outcome.errors;
    return outcome.output;
}

/// All that the first group of an expression matches.
Names allMatches(const std::string& text, const char* expression) {
    const std::regex regex(expression);
    Names found;
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match) {
        found.insert((*match)[1].str());
    }
    return found;
}

/// What bash offers for the last word of a command line, which is cut into words as bash does it.
Names completions(const std::string& line) {
    std::string words;
    for (const auto word : split(line, ' ')) words += " " + shellWord(word);
    const auto offered = output(
        "exec bash -c 'source <(mailhost --generate bash); COMP_WORDS=(\"$@\"); "
        "COMP_CWORD=$(($# - 1)); _mailhost; printf \"%s\\n\" \"${COMPREPLY[@]}\"' bash" +
        words);
    return allMatches(offered, "(\\S+)");
}

class MailhostCommandLine : public ::testing::Test {
protected:
    const Names commands = allMatches(output("mailhost --help"), "\n  ([a-z]+)(?: \\[?[A-Z]|  )");
    /// Of a command: those that its help names, with what stands for their values.
    static std::map<std::string, std::string> optionsOf(const std::string& command) {
        const auto help = output("mailhost " + command + " --help");
        static const std::regex row("\n  (?:(-\\w), )?(--?[\\w-]+)(?: ([A-Z=]+))?");
        std::map<std::string, std::string> options;
        for (std::sregex_iterator match(help.begin(), help.end(), row), end; match != end; ++match) {
            options[(*match)[2]] = (*match)[3];
            if ((*match)[1].matched) options[(*match)[1]] = (*match)[3];
        }
        return options;
    }
};

TEST_F(MailhostCommandLine, TakesAndDocumentsTheSameOptionsEverywhere) {
    const auto manual = output("mailhost --generate man"), zsh = output("mailhost --generate zsh");
    EXPECT_EQ(completions("mailhost "), commands);
    EXPECT_EQ(allMatches(manual, "\n\\.SS (\\w+)"), commands);
    EXPECT_EQ(allMatches(zsh, "\n        '([a-z]+):"), commands);
    Names tried;  // with one command: they all read their words in one way
    for (const auto& command : commands) {
        Names names;
        for (const auto& [name, value] : optionsOf(command)) {
            SCOPED_TRACE(command + " " + name);
            names.insert(name);
            if (tried.insert(name + value).second) {
                const auto alone = runShell("mailhost " + command + " " + name).errors;
                EXPECT_THAT(alone, StartsWith(value.empty() ? "" : "mailhost: " + name + " needs a value\n"));
                EXPECT_THAT(alone, Not(HasSubstr("no option")));
            }
            const auto inManual = "\\fB" + std::regex_replace(name, std::regex("-"), "\\-") + "\\fR" +
                                  (value.empty() ? "" : " \\fI" + value);
            EXPECT_THAT(manual, HasSubstr(inManual));
            const auto inZsh = name + (value.empty() ? "[" : name.starts_with("--") ? "=[" : "[");
            EXPECT_THAT(zsh, HasSubstr(inZsh));
        }
        EXPECT_EQ(completions("mailhost " + command + " -"), names);
    }
}

TEST_F(MailhostCommandLine, WritesScriptsAndPagesWithoutFaults) {
    EXPECT_EQ(output("mailhost --generate bash | bash -n 2>&1"), "");
    for (const std::string reader : {"zsh -n", "groff -man -Tutf8 -ww -z"}) {
        if (runShell("command -v " + reader.substr(0, reader.find(' '))).status != 0) continue;
        const std::string kind = reader.starts_with("zsh") ? "zsh" : "man";
        EXPECT_EQ(output("mailhost --generate " + kind + " | " + reader + " 2>&1"), "");
    }
}

TEST_F(MailhostCommandLine, CompletesInBash) {
    const struct {
        const char* line;
        Names offered;
    } rows[] = {
        {"mailhost li", {"list"}},
        {"mailhost --json -o Key=Value --home li in", {"index", "info"}},  // "li" is the value of --home
        {"mailhost list --s", {"--sort", "--subject", "--since"}},
        {"mailhost list --sort s", {"subject", "size"}},
        {"mailhost list --sort = rec", {"received-date"}},
        {"mailhost --home = x list --sort =", {"number", "from", "subject", "received-date", "size"}},
        {"mailhost show --si", {}},
        {"mailhost list --from -", {}},
    };
    for (const auto& row : rows) EXPECT_EQ(completions(row.line), row.offered) << row.line;
}

TEST_F(MailhostCommandLine, ListsWhatTheOptionsPick) {
    const struct {
        const char* options;
        const char* numbers;
    } rows[] = {
        {"--limit 2", "1 2"},
        {"--limit 1 --reverse", "29"},
        {"--limit 3 --sort size", "20 10 18"},
        {"--sort size --limit 3 --reverse", "17 22 11"},
        {"--from 'WEISS'", "3 20 28"},
        {"--from j.weiss@ --limit 2", "3 20"},
        {"--from ΠΑΠΠΆ", "8 22"},
        {"--subject tides", ""},
        {"--subject 'TIDE '", "14"},
        {"--to cleo@choir.example", "16"},
        {"--to fergus@ --from bois", "2"},  // one of several in Cc
        {"--larger 1319", "11 17 22"},      // two have 1,320 and 1,318 bytes
        {"--larger 1320", "17 22"},
        {"--larger 1.29k", "17 22"},
        {"--larger 1M", ""},
        {"--since 2004-05", "27 28 29"},
        {"--until 2004-01-06", "1 2 3 4"},
        {"--since 2004-03-12 --until 2004-03-12", "16 17 18"},
        {"--since '2004-03-12 19:00:47' --until 2004-03-12T19:00", "16 17"},
        {"--since 2004-03-12T19:00:48Z --until '2004-03-12 20:31:47 +0100'", "17 18"},
        {"--since 2004-03-12T19:01 --until '2004-03-12 19:31:46'", ""},
        {"--until 2003", ""},
        {"--since 2005", ""},
        {"--until 2004 --since 2004 --unread", ""},
        {"--since 9999 --until 9999-12-31", ""},
    };
    for (const auto& row : rows) {
        std::string numbers;
        const auto listed = output(std::string("mailhost list --json examples/mail/inbox ") + row.options);
        for (const auto line : split(trimmed(listed), '\n')) {
            if (line.empty()) continue;
            EXPECT_TRUE(isJson(line)) << line;
            numbers += (numbers.empty() ? "" : " ") + std::string(line.substr(10, line.find(',') - 10));
        }
        EXPECT_EQ(numbers, row.numbers) << row.options;
    }
    // A date without a zone is local, that of an envelope line and that of an option.
    EXPECT_THAT(
        output("TZ=JST-9 mailhost list examples/mail/inbox --since 2004-03-12T10:31:47Z --until 2004-03-12"),
        HasSubstr("\n 18  2004-03-12 19:31"));
}

TEST(Mailhost, NamesTheMessageThatALogLineIsAbout) {
    const auto errors = runShell("mailhost list examples/mail/odd --verbose --sort subject").errors;
    EXPECT_THAT(errors, HasSubstr("lorvale: message 15: Unknown charset"));
    EXPECT_THAT(errors, HasSubstr("lorvale: message 24: Can't determine date"));
}

TEST(Mailhost, StylesATerminalAndNothingElse) {
    const auto onTerminal = [](const std::string& environment) {
        return output(environment + " script -qec 'mailhost list examples/mail/inbox --limit 1' /dev/null");
    };
    const auto bold = HasSubstr("\033[1mNo.");
    EXPECT_THAT(onTerminal("TERM=xterm"), bold);
    EXPECT_THAT(onTerminal("TERM=xterm NO_COLOR="), bold);
    EXPECT_THAT(onTerminal("TERM=xterm NO_COLOR=1"), Not(bold));
    EXPECT_THAT(onTerminal("TERM=dumb"), Not(bold));
    EXPECT_THAT(output("TERM=xterm mailhost list examples/mail/inbox"), Not(bold));
    EXPECT_THAT(onTerminal("COLUMNS=60"), Not(HasSubstr("Bytes")));
}

/// So many small messages, each with its number in the subject.
std::string manyMessages(std::size_t count) {
    std::string box;
    for (std::size_t i = 1; i <= count; ++i) {
        box += "From a@b.example Mon Jan  5 10:00:00 2004\nFrom: a@b.example\nSubject: no " +
               std::to_string(i) + "\nMessage-ID: <" + std::to_string(i) + "@b.example>\n\ntext\n\n";
    }
    return box;
}

TEST(Mailhost, MarksWhatIsCutOffWhileItLists) {
    const TemporaryFolder folder;
    const auto bytes = manyMessages(5'000);
    const auto box = shellWord((folder / "box").string()), status = shellWord((folder / "status").string());
    // The pipe is full long before the end, so the rest is listed after the cut.
    for (const std::string options : {"--json --reverse", "", "--json --subject no --sort from"}) {
        SCOPED_TRACE(options);
        writeFile(folder / "box", bytes);
        const auto outcome = runShell("{ mailhost list " + options + " " + box + "; echo $? >" + status +
                                      "; } | { read -r first; truncate -s 300000 " + box + "; cat; }");
        EXPECT_EQ(readFile(folder / "status"), "1\n");
        EXPECT_THAT(outcome.errors, HasSubstr("cannot be read any more"));
        const std::size_t lines = static_cast<std::size_t>(std::ranges::count(outcome.output, '\n'));
        EXPECT_EQ(lines, options.empty() ? 5'000u : 4'999u);
        const auto* const mark = options.empty() ? "5000  !   -" : ",\"id\":null,\"from\":null,";
        EXPECT_THAT(outcome.output, HasSubstr(mark));
        EXPECT_THAT(outcome.output, Not(HasSubstr("Bogus")));
    }
    EXPECT_EQ(runShell("mailhost show " + box + " 1").status, 0);
    // Lines that go out while the mailbox is read know of nothing behind the cut.
    writeFile(folder / "box", bytes);
    const auto outcome = runShell("{ mailhost list --json " + box + "; echo $? >" + status +
                                  "; } | { read -r first; truncate -s 300000 " + box + "; cat; }");
    EXPECT_EQ(readFile(folder / "status"), "1\n");
    EXPECT_THAT(outcome.errors, HasSubstr("has changed the mailbox while it was read, from message 2,"));
    EXPECT_THAT(outcome.output, Not(HasSubstr("null")));
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they need more than any limit allows
TEST(Mailhost, SaysWhatWasTooLargeForTheMemory) {
    const TemporaryFolder folder;
    writeFile(folder / "box", manyMessages(2));
    const auto box = shellWord((folder / "box").string());
    ASSERT_EQ(runShell("truncate -s 300M " + box).status, 0);
    const auto outcome = runShell("ulimit -v 500000; mailhost show --text " + box + " 2");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("not enough memory for message 2 of 314,572,"));
}
#endif

}  // namespace
}  // namespace lorvale::testing
