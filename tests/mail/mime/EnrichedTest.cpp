#include <gmock/gmock.h>

#include <cmath>
#include <random>

#include "lorvale/platform/exception.h"
#include "mail/mime/EnrichedReader.h"
#include "mail/mime/EnrichedWriter.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TextRows.h"
#include "tests/support/TimeGrowth.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;

/// The runs with what differs from the beginning of every text: the user's font, the default style.
std::string described(const AttributedText& text) {
    std::string all;
    for (const auto& run : text.runs()) {
        std::string words;
        const auto& [font, color, underline, style, link, attachment] = run.attributes;
        if (!font) words += "no font,";
        if (font && font->bold) words += "b,";
        if (font && font->italic) words += "i,";
        if (font && font->fixedPitch) words += "fixed,";
        if (font && font->family != Font::user().family) words += font->family + ",";
        if (font && font->size != 12) words += std::to_string(static_cast<int>(font->size)) + ",";
        if (color)
            words += formatText("%d.%d.%d,", static_cast<int>(color->red * 100),
                                static_cast<int>(color->green * 100), static_cast<int>(color->blue * 100));
        if (underline) words += "u,";
        if (!style) words += "no style,";
        if (style && style->alignment != ParagraphStyle::Alignment::left)
            words += std::string(1, "lrcj"[static_cast<int>(style->alignment)]) + ",";
        if (style && style->headIndent != 0)
            words += "indent " + std::to_string(static_cast<int>(style->headIndent)) + ",";
        for (const auto& stop : style ? style->tabStops : std::vector<TabStop>())
            words +=
                "LRCD"[static_cast<int>(stop.kind)] + std::to_string(static_cast<int>(stop.location)) + ",";
        all.append("[").append(words.substr(0, words.size() - !words.empty())).append("]").append(run.text);
    }
    return all.starts_with("[]") ? all.substr(2) : all;
}

struct Case {
    const char* why;
    std::string_view in, out;
    std::vector<std::string> log = {};
};

TEST(EnrichedReader, ReadsCommands) {
    const Case rows[] = {
        {"a doubled less-than sign", "a << b>c", "a < b>c"},
        {"line ends", "\na\nb\n\nc\n\n\nd", "a b\nc\n\nd"},
        {"two line ends at the start", "\n\na", "\na"},
        {"line ends that count", "<nofill>a\nb\n\nc</nofill>\nd", "a\nb\n\nc d"},
        {"fonts in each other, in any case", "a<BOLD>b<Italic>c</italic>d</Bold>e", "a[b]b[b,i]c[b]d[]e"},
        {"crossing ends", "<bold>a<underline>b</bold>c</underline>d", "[b]a[b,u]b[u]c[]d"},
        {"an end without a start ends what every text begins with", "</bold>a</bold>b<bold>c</bold>d",
         "[no font]ab[b]c[no font]d"},
        {"sizes", "<bigger><bigger>a</bigger>b</bigger><smaller>c<fixed>d</fixed></smaller>",
         "[16]a[14]b[10]c[fixed,Monospace,10]d"},
        {"a font and its size",
         "<fontfamily><param>Courier</param>a<x-fontsize><param>9.5</param>b</x-fontsize></fontfamily>c",
         "[fixed,Courier]a[fixed,Courier,9]b[]c"},
        {"a family that looks larger", "<fontfamily><param>Brunt</param>a", "[Brunt,10]a"},
        {"a size below nothing", "<x-fontsize><param>-4</param>a", "[0]a"},
        {"colours",
         "<color><param>Red</param>a</color><color><param>FFFF,8000,0</param>b</color><color><param>no</"
         "param>c<color><param>1,x,3</param>d",
         "[100.0.0]a[99.50.0]b[0.0.0]cd"},
        {"alignment", "<center>a<flushright>b</flushright>\n\n</center>c", "[c]ab\n[]c"},
        {"indents by the font's size", "<indent>a\n\n<indent>b\n\n<outdent>c",
         "[indent 36]a\n[indent 72]b\n[indent 36]c"},
        {"tab stops", "<x-tabstops><param>10;20R;3.5C;4D;x</param>a", "[L10,R20,C3,D4,L0]a"},
        {"tab stops where no style is left", "</center><x-tabstops><param>10</param>a", "a"},
        {"a comment, but not its commands", "a<comment>b<lt>c</comment>d", "a<d"},
        {"an unasked parameter", "a<param>x</param>b", "ab"},
        {"an empty one takes the sign behind it", "a<param></param>b", "a/param>b"},
        {"the last one that waits is served", "<color><fontfamily><param>A</param><param>red</param>x",
         "[A,100.0.0]x"},
        {"what stands for text", "a<lt>b<nl>c<np>d<paragraph>e</paragraph>f", "a<b\nc\fd\n\ne\n\nf"},
        {"known and without effect", "<signature><samepage><rtf>a</rtf><us-ascii>b", "ab"},
        {"a quotation", "<excerpt>a</excerpt>b</excerpt>c</excerpt>d", "[i]a[]b[no font]cd"},
        {"one that nobody opened", "a</excerpt>b", "ab", {"Ignoring unmatched </excerpt> command"}},
        {"unknown commands",
         "a<gt>b</none x=y>c",
         "abc",
         {"Skipping unrecognized command: <gt>", "Skipping unrecognized command: </none>"}},
        {"a command that never ends", "a<bold b", "a"},
        {"a lone sign at the end", "a<", "a", {"Skipping unrecognized command: <>"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const LogCapture log;
        EXPECT_EQ(described(attributedStringFromMimeEnrichedString(row.in)), row.out);
        EXPECT_EQ(log.lines(), row.log);
    }
}

TEST(EnrichedReader, ReadsTheOlderRichText) {
    const TextRow rows[] = {
        {"line ends are blanks between words", "a\nb\n\n\nc \nd\n e", "a b c d e"},
        {"only commands end lines", "a<nl>b<nl>\nc", "a\nb\n c"},
        {"fonts", "<bold>a\n</bold>b<lt>\nc", "[b]a[] b< c"},
        {"comments", "a<comment>\nx y</comment>b", "ab"},
    };
    expectRows([](std::string_view text) { return described(attributedStringFromMimeRichTextString(text)); },
               rows);
}

TEST(EnrichedReader, LeavesSubscriptsToWhoeverShowsTheSource) {
    for (const auto* const text : {"a<subscript>b", "</SUPERSCRIPT>"}) {
        EXPECT_THROW(attributedStringFromMimeEnrichedString(text), NamedException);
        EXPECT_THROW(attributedStringFromMimeRichTextString(text), NamedException);
    }
}

TEST(EnrichedReader, TakesTimeInProportionToTheSize) {
    const LogCapture log;
    for (const std::string_view piece :
         {"<bold>", "<bold><underline>", "</bold>", "<", "<<", "<a ", "\n", " ", "<param>", "<color><param>r",
          "<bold>a</bold>b", "<indent>x\n\n", "<x", "<x-tabstops><param>1;2;", "<none>", ">"}) {
        expectTimeInProportion(piece, 10'000, [&](const std::string& pieces) {
            const auto text = "x" + pieces;
            EXPECT_EQ(attributedStringFromMimeEnrichedString(text).string()[0], 'x') << piece;
            EXPECT_EQ(attributedStringFromMimeRichTextString(text).string()[0], 'x') << piece;
            std::string ends = text;
            while (ends.size() < 2 * text.size()) ends += "</bold>";
            EXPECT_EQ(attributedStringFromMimeEnrichedString(ends + "y").string()[0], 'x');
        });
    }
    EXPECT_LE(log.lines().size(), 100u * 6 * 16) << "a letter does not fill the log";
}

TextAttributes withFont(Font font) {
    TextAttributes attributes;
    attributes.font = std::move(font);
    return attributes;
}

/// The user's font with other properties.
TextAttributes sized(double size, bool bold = false, bool italic = false) {
    auto font = Font::user();
    font.size = size, font.bold = bold, font.italic = italic;
    return withFont(font);
}

std::string classic(const AttributedText& text) {
    return enrichedString(text, MailDialect::classic);
}

TEST(EnrichedWriter, WritesTheCommandsThatDiffer) {
    EXPECT_EQ(classic(AttributedText("a < b\nc\n\n\nd")), "a << b\n\nc\n\n\n\nd")
        << "no attributes, no commands";
    EXPECT_EQ(classic(AttributedText("a", sized(13))), "a") << "half a step";
    EXPECT_EQ(classic(AttributedText("a", sized(14))), "<bigger>a");
    AttributedText sizes("a", sized(18));
    sizes.append("b", sized(8)), sizes.append("c", sized(12));
    EXPECT_EQ(classic(sizes),
              "<bigger><bigger><bigger>a</bigger></bigger></bigger><smaller><smaller>b</smaller></smaller>c");
    AttributedText crossing("a", sized(12, true, true));
    crossing.append("b", sized(12, false, true)), crossing.append("c\n"),
        crossing.append("\nd", sized(12, true));
    EXPECT_EQ(classic(crossing), "<bold><italic>a</italic></bold><italic>b</italic>c\n\n<bold>\n\nd");
    EXPECT_EQ(enrichedString(crossing, MailDialect::standard), classic(crossing) + "</bold>");

    TextAttributes all = withFont({"Brunt", 12});
    all.foregroundColor = {1, 0.5, 0};
    all.underline = 2;
    all.paragraphStyle.emplace().alignment = ParagraphStyle::Alignment::center;
    AttributedText text("a", all);
    text.append("b");
    EXPECT_EQ(classic(text),
              "<underline><bigger><center><color><param>FFFF,7FFF,0000</param><fontfamily><param>Brunt</param>a"
              "</fontfamily></color></center></bigger></underline><flushleft>b")
        << "the larger family counts two points more";

    // What the reader makes of them is written as it was; and of what it cannot read nothing is written.
    TextAttributes odd = withFont({"a<b>", std::nan("")});
    odd.foregroundColor = {0xFFFE / 65536.0, 1, std::nan("")};
    EXPECT_EQ(classic(AttributedText("a", odd)),
              "<smaller><smaller><smaller><smaller><smaller><smaller><color><param>FFFD,FFFF,0000</param>"
              "<fontfamily><param>a<<b></param>a");
    odd.font->size = 12;
    EXPECT_EQ(enrichedString(AttributedText("a", odd), MailDialect::standard),
              "<color><param>FFFE,FFFF,0000</param>a</color>");
}

TEST(EnrichedWriter, PutsAttachmentsOutsideOfAllFormatting) {
    const auto file = FileWrapper::regularFile(Data());
    ASSERT_TRUE(file->setPreferredFilename("a<b.gif"));
    auto attributes = sized(14, true);
    AttributedText text("x", attributes);
    attributes.attachment = file;
    text.append("\uFFFC\uFFFC", attributes);
    const std::string one = "</bold></bigger><attachment>a<<b.gif</attachment><bold><bigger>";
    EXPECT_EQ(classic(text), "<bold><bigger>x" + one + one);
}

TEST(EnrichedWriter, SurroundsTheTextWithRtfOnlyWhenAsked) {
    MimeEnrichedWriter::setWriteRtfEnriched(true);
    EXPECT_EQ(classic(AttributedText("a")), "<rtf><param>{</param></rtf>a<rtf><param>}</param></rtf>");
    MimeEnrichedWriter::setWriteRtfEnriched(false);
}

TEST(EnrichedWriter, WritesWhatTheReaderReadsBack) {
    std::mt19937 random(5);
    const auto below = [&](std::size_t end) { return random() % end; };
    for (int round = 0; round < 1000; ++round) {
        AttributedText text;
        for (auto count = below(8); count > 0; --count) {
            auto attributes = sized(8 + 2 * static_cast<double>(below(6)), below(2) == 0, below(2) == 0);
            if (below(3) == 0) attributes.font->family = below(2) == 0 ? "Courier" : "Times";
            // The reader's fixed-pitch font is the user's plain one.
            if (attributes.font->family == "Courier") attributes.font = Font::userFixedPitch();
            if (below(3) == 0) attributes.underline = 1;
            if (below(3) == 0) attributes.foregroundColor = Color();
            attributes.paragraphStyle.emplace().alignment = static_cast<ParagraphStyle::Alignment>(below(3));
            const std::string_view words[] = {"a", "<", " ", "\n", "\n\n\n", "x<<y\nz", "ä>"};
            text.append(words[below(std::size(words))], attributes);
        }
        text.fixAttributes();
        for (const auto dialect : {MailDialect::classic, MailDialect::standard}) {
            const auto written = enrichedString(text, dialect);
            ASSERT_EQ(attributedStringFromMimeEnrichedString(written), text) << written;
        }
    }
}

}  // namespace
}  // namespace lorvale
