#include <gmock/gmock.h>

#include "lorvale/body.h"
#include "lorvale/platform/user_defaults.h"
#include "mail/mime/CalendarText.h"
#include "mail/mime/ContentType.h"
#include "mail/mime/FlowedText.h"
#include "mail/mime/Multipart.h"
#include "mail/mime/TextBlocks.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TextRows.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;

std::shared_ptr<MimeBodyPart> partOf(std::string_view bytes) {
    return MimeBodyPart::bodyPartWithData(Data::copyOf(bytes), MailDialect::standard);
}

std::string textOf(std::string_view bytes) {
    return partOf(bytes)->decodeBodyPartInDirectory(std::nullopt).string();
}

TEST(StandardPart, ReadsParametersAsTheyAreWritten) {
    const struct {
        const char* why;
        std::string_view value, name, expected;
    } rows[] = {
        {"a token", "a/b; x=y", "x", "y"},
        {"names in any case", "a/b; X=Y", "x", "Y"},
        {"quotes and what they hold", R"x(a/b; x="y;\"z\\ (c)")x", "x", R"x(y;"z\ (c))x"},
        {"a path of another system", R"(a/b; x="C:\dir\f.txt")", "x", R"(C:\dir\f.txt)"},
        {"comments in comments", "(a(b)\\)) a/(c)b (d;e) ; (f) x (g) = (h) y (i)", "x", "y"},
        {"parentheses in a name", "a/b; x=y (1).txt", "x", "y (1).txt"},
        {"quotes that are not closed", "a/b; x=\"y z", "x", "y z"},
        {"no value, no name, nothing", "a/b; q; =; ;x=y;", "x", "y"},
        {"the first one counts", "a/b; x=1; x=2", "x", "1"},
        {"pieces in any order", "a/b; x*2=c; x*0=a; x*1=\"b \"", "x", "ab c"},
        {"a piece that is missing ends it", "a/b; x*0=a; x*2=c", "x", "a"},
        {"charset and language", "a/b; x*=koi8-r'ru'%C4%C1", "x", "\u0434\u0430"},
        {"encoded and plain pieces", "a/b; x*0*=utf-8''%C3; x*1*=%A9; x*2=%A9", "x", "\u00E9%A9"},
        {"a percent that is none", "a/b; x*=utf-8''%G1%C3%A9%", "x", "%G1\u00E9%"},
        {"the better form", "a/b; x=plain; x*=utf-8''b", "x", "b"},
        {"an index that is none", "a/b; x*a=1; x*99999999=2", "x", "-"},
        {"bytes without a charset", "a/b; name=\"\xE9\"", "name", "\u00E9"},
        {"a boundary stays as it is", "a/b; boundary=\"=?utf-8?q?a?= \"", "boundary", "=?utf-8?q?a?="},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const auto type = ContentType::parseStandard(ExactCopy(row.value));
        EXPECT_EQ(type.type, "a");
        EXPECT_EQ(type.subtype, "b");
        const auto found = type.parameters.find(row.name);
        EXPECT_EQ(found == type.parameters.end() ? "-" : found->second, row.expected);
    }
    for (const std::string_view odd : {"text", "", "/plain", "text/", "; charset=x", "charset=x"})
        EXPECT_EQ(ContentType::parseStandard(ExactCopy(odd)).type, std::nullopt) << odd;
    EXPECT_EQ(ContentType::parseStandard("; charset=x").parameters["charset"], "x");
    EXPECT_EQ(Disposition::parse("Attachment; filename=x").kind, "attachment");
    EXPECT_EQ(Disposition::parse("filename=x").parameters["filename"], "x");
    EXPECT_EQ(singleToken(" (c) \"base64\" ; x"), "base64");
}

TEST(StandardPart, DividesMultipartsAsTheyCome) {
    const LogCapture silence;
    const auto pieces = [](std::string_view body, char lineEnd = '\n',
                           std::optional<std::string> boundary = "B") {
        std::vector<std::string> texts;
        const auto parts = splitMultipartByStandard(Data::copyOf(body), std::move(boundary), lineEnd, 3);
        if (!parts) return std::vector<std::string>{"none"};
        for (const auto& part : *parts) texts.push_back(part.toString());
        return texts;
    };
    EXPECT_THAT(pieces("pre\n--B\n1\n--B\t\n2\n--B--"), ElementsAre("1", "2"));
    EXPECT_THAT(pieces("--B\r\n1\r\n--B\r\n\r\n--B--\r\nx"), ElementsAre("1", ""));
    EXPECT_THAT(pieces("--B\r1\r--B--\r", '\r'), ElementsAre("1"));
    EXPECT_THAT(pieces("--BB\n1\nx--B\n--B \n2"), ElementsAre("2")) << "not closed; others are text";
    EXPECT_THAT(pieces("--B\n--B\n1\n--B\n--B--\n"), ElementsAre("1"))
        << "lines that follow each other are one";
    EXPECT_THAT(pieces("--B--\n--B\n1\n"), ElementsAre());
    EXPECT_THAT(pieces("text"), ElementsAre("none"));
    EXPECT_THAT(pieces("--X\n1\n--X--\n", '\n', std::nullopt), ElementsAre("1")) << "guessed";
    EXPECT_THAT(pieces("--B\n1\n--B\n2\n--B\n3\n--B\n4\n"), ElementsAre("1", "2", "3\n--B\n4\n"))
        << "three at most";
}

TEST(StandardPart, KnowsWhatItsHeaderSays) {
    const auto part = partOf(
        ">From a@b\nno field here\nX-A: 1\nX-A: 2\nContent-Type: image/gif\n"
        "Content-Type: text/html\ncontent-transfer-encoding : BASE64\nContent-Disposition: odd\n\nQQ");
    EXPECT_EQ(part->mimeType(), "image");
    EXPECT_EQ(part->mimeHeaderForKey("x-a"), "1");
    EXPECT_EQ(part->bodyData()->view(), "A");
    EXPECT_EQ(part->disposition(), ContentDisposition::attachment) << "what is not known is kept apart";
    EXPECT_EQ(partOf("no field\nX-A: 1\n\nb")->mimeHeaderForKey("x-a"), std::nullopt) << "all of it is body";
    EXPECT_EQ(partOf("Subject: s")->bodyData()->view(), "");
    EXPECT_EQ(partOf("Subject: s\rContent-Type: text/html\r\ra\rb")->body(), "a\nb") << "old Macintoshes";
    EXPECT_EQ(partOf("")->mimeSubtype(), "plain");
    EXPECT_EQ(partOf("Content-Type: multipart/digest; boundary=B\n\n--B\nContent-Type: odd\n\nx\n--B--")
                  ->bodyParts()
                  ->front()
                  ->mimeType(),
              "text");
    EXPECT_EQ(partOf("Content-Type: a/b; name=x.dat\nContent-Transfer-Encoding: uuencode\n\nhello\nbegin 644 "
                     "y\n#86)C\nend\n")
                  ->bodyData()
                  ->view(),
              "abc");
    EXPECT_EQ(partOf("Content-Transfer-Encoding: x-uue\n\nbegin 644 y.gif\n#86)C\nend\n")->givenFilename(),
              "y.gif");
    EXPECT_EQ(partOf("Content-Transfer-Encoding: uuencode\n\nno block")->bodyData()->view(), "no block");
}

TEST(StandardPart, ShowsRelatedPartsAndReports) {
    const LogCapture silence;
    const std::string picture = "Content-Type: image/gif\nContent-ID: <p>\n\nGIF\n";
    const auto related = [&](std::string_view root) {
        return textOf("Content-Type: multipart/related; boundary=R; start=\"<r>\"\n\n--R\n" + picture +
                      "--R\n" + "Content-ID: <r>\n" + std::string(root) + "\n--R--\n");
    };
    EXPECT_EQ(related("\nroot"), "root\n" + std::string(kAttachmentCharacter));
    const auto report = textOf(
        "Content-Type: multipart/report; boundary=B\n\n--B\n\nNo.\n--B\nContent-Type: "
        "message/delivery-status\n\n"
        "Status: 5\n\n--B\nContent-Type: message/rfc822\n\nX: y\nTo: =?utf-8?q?=C3=A9?= "
        "<a@b>\n\nbody\n--B--\n");
    EXPECT_EQ(report, "No.\nStatus: 5\nTo: \u00E9 <a@b>\n\nbody");
    const std::string alternatives =
        "Content-Type: multipart/alternative; boundary=B\n\n--B\n\nplain\n--B\nContent-Type: "
        "text/calendar\n\nBEGIN\n--B\n"
        "Content-Type: multipart/mixed; boundary=C\n\n--C\nContent-Type: image/gif\n\n\n--C--\n--B--\n";
    EXPECT_EQ(textOf(alternatives), "plain") << "rather than data for programs";
    EXPECT_EQ(partOf(alternatives)->alternativeAtIndex(1)->mimeSubtype(), "calendar");
    UserDefaults::standard().setArgument("ShouldInlineMIMETextAttachments", "YES");
    EXPECT_EQ(textOf("Content-Type: text/plain; name=n\n\nx"), "x");
    UserDefaults::standard().removeArguments();
    EXPECT_EQ(textOf("Content-Type: text/plain; name=n\n\nx"), kAttachmentCharacter);
}

TEST(FlowedText, JoinsTheLinesOfAParagraph) {
    const TextRow rows[] = {
        {"soft and hard ends", "a \nb\nc\n", "a b\nc\n"},
        {"the last line flows", "a \n", "a \n"},
        {"no line end at the end", "a \nb", "a b"},
        {"quotes of one depth", "> a \n> b\n>> c\n", "> a b\n>> c\n"},
        {"another depth ends a paragraph", "> a \nb\n", "> a \nb\n"},
        {"stuffed lines", " >a\n  b\n", ">a\n b\n"},
        {"a signature never flows", "a \n-- \nb\n", "a \n-- \nb\n"},
    };
    expectRows([](std::string_view text) { return unflowedText(text, /*deletesSpace=*/false); }, rows);
    EXPECT_EQ(unflowedText("\u4E00 \n\u4E8C\n", true), "\u4E00\u4E8C\n") << "words without blanks between";
}

TEST(FlowedText, ReadsBackAsItWas) {
    const std::string word(30, 'w'), longWord(100, 'w');
    const MadeTextRow rows[] = {
        {"short lines stay", "a\n\nb " + std::string(74, 'x'), "a\n\nb " + std::string(74, 'x')},
        {"one more is too long", "b " + std::string(75, 'x'), "b \n" + std::string(75, 'x')},
        {"a long one is cut behind blanks", word + " " + word + "  " + word, word + " " + word + "  \n" + word},
        {"a word longer than a line", "a " + longWord + " b", "a \n" + longWord + " \nb"},
        {"stuffing", " a\n>b\nFrom c\n>\n", "  a\n >b\n From c\n>\n"},
        {"quoted lines", "> a\n>> " + word + " " + word + " " + word,
         "> a\n>> " + word + " " + word + " \n>> " + word},
        {"a mark within", "> > a", "> > a"},
        {"signatures", "-- \n> -- \na", "-- \n> -- \na"},
        {"what would become one", "-- " + std::string(73, 'x') + " b", "-- " + std::string(73, 'x') + " \nb"},
        {"a cut in front of a mark", word + " " + word + " www >" + std::string(12, 'b'),
         word + " " + word + " www \n >" + std::string(12, 'b')},
    };
    const auto flowed = [](std::string_view text) {
        const auto made = flowedText(text).value_or("none");
        EXPECT_EQ(unflowedText(made, false), text);
        return made;
    };
    expectRows(flowed, rows);
    EXPECT_FALSE(flowedText("a \nb"));
    EXPECT_FALSE(flowedText("> "));
}

TEST(TextBlocks, AreFilesInText) {
    const auto names = [](std::string_view text) {
        std::vector<std::string> found;
        for (const auto& block : blocksInText(Data::copyOf(text)))
            found.push_back(block.name + "=" + block.contents.toString());
        return found;
    };
    EXPECT_THAT(names("begin 644 a b\r\n#86)C\r\n \r\nend\r\nbegin 0644 c\n#86)C\nend"),
                ElementsAre("a b=abc", "c=abc"));
    EXPECT_THAT(names("begin 644 a\nwords of a letter\nend\n"), ElementsAre());
    EXPECT_THAT(names("begin 644 a\n#86)C\n"), ElementsAre()) << "cut off";
    EXPECT_THAT(names("begin 644 a\nend\nbegin at home\nbegin 9 a\n#86)C\nend\n"), ElementsAre());
    EXPECT_THAT(names("begin 644 a\n#86)C86)CX\nend\n"), ElementsAre()) << "longer than it says";
    EXPECT_THAT(names("=ybegin line=128 size=3 name= x y.z \n\x8B\x8C=n\r\n=yend size=3\n"),
                ElementsAre("x y.z=ab\x04"));
    EXPECT_THAT(names("=ybegin part=1 line=1 size=9 name=x\n=ypart begin=1 end=1\n\x8B\n=yend size=1 part=1\n"),
                ElementsAre("x=a"));
    EXPECT_THAT(names("=ybegin line=1 name=x\n\x8B\n=yend size=1\n=ybegin size=1 name=x\n\x8B\n"),
                ElementsAre());
    std::string openers;
    for (int i = 0; i < 100'000; ++i) openers += "=ybegin size=1 name=x\nbegin 644 x\n#86)C\n";
    EXPECT_THAT(names("\n=yend \nend\n" + openers), ElementsAre()) << "in the time that its size asks";
}

TEST(CalendarText, TellsWhatAndWhenAndWhere) {
    EXPECT_EQ(
        calendarText(
            "BEGIN:VCALENDAR\nBEGIN:VEVENT\nDTSTART;TZID=\"A/B\":20040105T182300\nDTEND;VALUE=DATE:20040106\n"
            "SUMMARY:Tea\\, \n and\\ncake\nORGANIZER;CN=\"Port: Office\":MAILTO:p@x\nATTENDEE:mailto:q@x\n"
            "BEGIN:VALARM\nSUMMARY:no\nEND:VALARM\nDUE:soon\nX-A:b\nEND:VEVENT\nEND:VCALENDAR\n"),
        "Begins: 2004-01-05 18:23 A/B\nEnds: 2004-01-06\nSummary: Tea, and\ncake\nOrganizer: Port: Office "
        "<p@x>\n"
        "Attendee: q@x\nDue: soon\n");
    EXPECT_EQ(calendarText("nothing\n"), "nothing\n");
}

}  // namespace
}  // namespace lorvale
