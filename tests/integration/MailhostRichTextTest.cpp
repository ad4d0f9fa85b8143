#include <gmock/gmock.h>

#include "examples/mailhost/RichText.h"
#include "examples/mailhost/Terminal.h"
#include "tests/integration/RunProgram.h"

namespace mailhost {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
using lorvale::AttributedText;
using lorvale::Data;

AttributedText page(std::string_view html) {
    return lorvale::attributedTextFromHTML(Data::copyOf(html), "utf-8");
}

TEST(MailhostRichText, WrapsIndentsAndAligns) {
    const struct {
        const char* why;
        std::string_view html, out;
    } rows[] = {
        {"words go to the next line whole", "one two three four five six", "one two three four\nfive six\n"},
        {"a line is filled to its end", "<i>12345 7890</i> 2345 7890<b>!</b>", "12345 7890 2345\n7890!\n"},
        {"a word that is too long stands alone", "a aaaaaaaaaaaaaaaaaaaaaaaaaa b",
         "a\naaaaaaaaaaaaaaaaaaaaaaaaaa\nb\n"},
        {"wide characters take two columns", "日本日本日本日 本本 x", "日本日本日本日 本本\nx\n"},
        {"lists", "<ul><li>one two three four</ul>", "  • one two three\n    four\n"},
        {"alignment", "<p align=right>a</p><p align=center>bb</p>", "                   a\n\n         bb\n"},
        {"tables", "<table><tr><td>a<td>b</table>", "a       b\n"},
        {"blanks that count", "<pre>  a   b</pre>", "  a   b\n"},
        {"links",
         "<a href=http://a.example/>x <b>y</b></a>, <a href=mailto:z>z</a> <a href=http://a.example/>w</a>.",
         "x y[1], z w[1].\n\n[1] http://a.example/\n"},
        {"what could command the terminal", "a&#27;[2Jb<a href='\033]0;x'>c</a>",
         "a[2Jbc[1]\n\n[1] \\x1B]0;x\n"},
        {"nothing", "", ""},
    };
    prepareLocale();  // else no character is wide
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(richText(page(row.html), 20, false), row.out);
    }
}

TEST(MailhostRichText, StylesEachLineByItself) {
    EXPECT_EQ(richText(page("a <b>bb cc</b> d"), 5, true), "a \033[1mbb\033[0m\n\033[1mcc \033[0md\n");
    EXPECT_EQ(richText(page("<u><font color=red>r</font><font color='#333'>g</font></u>"), 20, true),
              "\033[4;38;5;196mr\033[0m\033[4mg\033[0m\n")
        << "what is nearly black has the terminal's colour";
}

TEST(MailhostRichText, ShowsAttachmentsByNameAndSize) {
    const auto file = lorvale::FileWrapper::regularFile(Data(std::string(12'345, 'x')));
    ASSERT_TRUE(file->setPreferredFilename("a\033b.gif"));
    AttributedText text("\033 see ");
    text.append(AttributedText(file));
    text.append(AttributedText(lorvale::FileWrapper::symbolicLink("/tmp/\n")));
    EXPECT_EQ(richText(text, 70, false), "\\x1B see [a\\x1Bb.gif, 12,345 bytes][attachment, at /tmp/]\n");
}

/// What the command prints on a terminal of 60 columns.
lorvale::testing::Outcome onTerminal(const std::string& commandLine) {
    using lorvale::testing::shellWord;
    return lorvale::testing::runShell("export COLUMNS=60 TERM=xterm; script -qefc " + shellWord(commandLine) +
                                      " /dev/null");
}

TEST(MailhostPager, ShowsWhatIsPrintedOnATerminal) {
    const std::string show = "mailhost show examples/mail/inbox 1";
    const auto paged = onTerminal("MAILHOST_PAGER='sed s/^/paged:/' PAGER=false " + show);
    EXPECT_EQ(paged.status, 0);
    EXPECT_THAT(paged.output, StartsWith("paged:\033[1mFrom:\033[0m ")) << "as if there were no pager";
    for (const auto* const none : {"MAILHOST_PAGER= PAGER=false ", "MAILHOST_PAGER=cat "})
        EXPECT_THAT(onTerminal(none + show).output, StartsWith("\033[1mFrom:"));
    EXPECT_THAT(onTerminal("NO_COLOR=1 PAGER='tr F G' " + show).output, StartsWith("Grom: "));
    EXPECT_THAT(onTerminal("MAILHOST_PAGER=false " + show + " --json").output, StartsWith("{"));
    EXPECT_THAT(onTerminal("PATH=$(dirname $(command -v mailhost)); unset PAGER; " + show).output,
                StartsWith("\033[1mFrom:"))
        << "without any pager";
}

TEST(MailhostPager, MayBeLeftEarly) {
    const std::string large =
        "{ echo 'From a Sat Jan  3 01:05:34 1996'; echo; seq 100000; } >$HOME/box; mailhost show $HOME/box 1";
    for (const auto* const pager : {"head -n 2", "exit 3", "no-such-program"}) {
        const auto outcome =
            onTerminal("export MAILHOST_PAGER=" + lorvale::testing::shellWord(pager) + "; " + large);
        EXPECT_EQ(outcome.status, 0) << pager;
        EXPECT_THAT(outcome.output, Not(HasSubstr("mailhost:"))) << pager;
    }
}

}  // namespace
}  // namespace mailhost
