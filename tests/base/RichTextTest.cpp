#include "lorvale/values/rich_text.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <random>

#include "lorvale/values/text.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"
#include "tests/support/TimeGrowth.h"

namespace lorvale {
namespace {

using lorvale::testing::LogCapture;
using lorvale::testing::TemporaryFolder;

/// One word for each attribute of a run, for tables of cases: "[b 12 Sans]text".
std::string described(const TextAttributes& attributes) {
    std::string words;
    const auto add = [&](std::string_view word) { words.append(words.empty() ? "" : " ").append(word); };
    if (const auto& font = attributes.font) {
        if (font->bold) add("b");
        if (font->italic) add("i");
        if (font->fixedPitch) add("fixed");
        add(formatText("%d", static_cast<int>(font->size * 2)));
        add(font->family);
    }
    if (const auto& color = attributes.foregroundColor)
        add(formatText("#%02x%02x%02x", static_cast<int>(color->red * 255),
                       static_cast<int>(color->green * 255), static_cast<int>(color->blue * 255)));
    if (attributes.underline) add("u");
    if (const auto& style = attributes.paragraphStyle) {
        add(std::string(1, "lrcj"[static_cast<int>(style->alignment)]));
        if (style->headIndent != 0 || style->firstLineHeadIndent != 0)
            add(formatText("%d/%d", static_cast<int>(style->firstLineHeadIndent),
                           static_cast<int>(style->headIndent)));
        for (const auto& stop : style->tabStops)
            add("tab" + std::string(1, "LRCD"[static_cast<int>(stop.kind)]) +
                std::to_string(static_cast<int>(stop.location)));
    }
    if (attributes.link) add("->" + *attributes.link);
    if (attributes.attachment) add("file " + attributes.attachment->preferredFilename());
    return "[" + words + "]";
}

std::string described(const AttributedText& text) {
    std::string all;
    for (const auto& run : text.runs()) all.append(described(run.attributes)).append(run.text);
    return all.starts_with("[]") ? all.substr(2) : all;
}

struct Case {
    const char* why;
    std::string_view in, out;
};

TEST(Rtf, ReadsTextAndAttributes) {
    const Case rows[] = {
        {"plain text has no attributes", "{\\rtf1 one\\par two}", "one\ntwo"},
        {"a group ends what was set in it", "{\\rtf1 a{\\b b{\\i c}d}e}",
         "a[b 24 Sans]b[b i 24 Sans]c[b 24 Sans]d[]e"},
        {"zero ends it too", "{\\rtf1{\\fonttbl{\\f7 Times;}}\\f7\\fs20\\ul a\\ulnone b\\plain c}",
         "[20 Times u]a[20 Times]b[]c"},
        {"the default font", "{\\rtf1\\deff1{\\fonttbl{\\f1\\fmodern\\fprq1 Courier;}}a}",
         "[fixed 24 Courier]a"},
        {"names without groups", "{\\rtf1{\\fonttbl\\f0 A;\\f1 B{\\*\\falt C};}\\f1 x}", "[24 B]x"},
        {"colours", "{\\rtf1{\\colortbl;\\red255\\green0\\blue16;}a\\cf1 b\\cf0 c\\cf9 d}", "a[#ff0010]b[]cd"},
        {"paragraphs", "{\\rtf1\\pard\\qc\\tqr\\tx200\\tx400 a\\par\\pard\\li400\\fi-200 b\\par\\pard c}",
         "[c tabR10 tabL20]a\n[l 10/20]b\n[]c"},
        {"links", "{\\rtf1 {\\field{\\*\\fldinst{HYPERLINK \"http://a.example/\\\\\\\\b\"}}{\\fldrslt x}}y}",
         "[->http://a.example/\\b]x[]y"},
        {"characters", "{\\rtf1 \\ldblquote\\emdash\\bullet\\~\\_\\{\\\\\\}\\tab}", "“—•\u00A0\u2011{\\}\t"},
        {"a code page", "{\\rtf1\\ansi\\ansicpg1251 \\'cf\\'f0\\'e8}", "При"},
        {"a code page of the font",
         "{\\rtf1\\ansicpg1252{\\fonttbl{\\f1\\fcharset128 M;}}\\'e9{\\f1 \\'93\\'fa\\'96\\'7b}}",
         "é[24 M]日本"},
        {"a byte that is none", "{\\rtf1\\ansicpg932 a\\'81}", "a\uFFFD"},
        {"Unicode with another form behind", "{\\rtf1 \\u8364?\\u8364\\'80\\u8364\\bullet x\\uc2\\u-3 ab|}",
         "€€€x\uFFFD|"},
        {"a pair of surrogates, and halves of one", "{\\rtf1 \\u-10179?\\u-8704?\\u-10179?x\\u-8704?}",
         "😀\uFFFDx\uFFFD"},
        {"the end of a group ends what is skipped", "{\\rtf1\\uc3{\\u65 b}cde}", "Acde"},
        {"what is not shown", "{\\rtf1{\\info{\\title T}}{\\*\\new N}{\\v h}{\\stylesheet{\\s1 S;}}x{\\new n}}",
         "xn"},
        {"a star counts for the next word alone", "{\\rtf1 {\\*}{\\new a}\\new b}", "ab"},
        {"a table", "{\\rtf1\\trowd a\\cell b\\cell\\row c\\cell\\row}", "a\tb\nc\n"},
        {"bytes that are to be passed over", "{\\rtf1 a{\\*\\x\\bin3 }}}}b}", "ab"},
        {"more bytes than there are", "{\\rtf1 a\\bin2147483647 b", "a"},
        {"nothing behind the document", "{\\rtf1 a}b{c", "a"},
        {"groups that nobody closed", "{\\rtf1 {{\\b a", "[b 24 Sans]a"},
        {"more ends than groups", "}}{\\rtf1 a", "}}{\\rtf1 a"},
        {"a file that is not there", "{\\rtf1 a{{\\TarnGraphic no one.gif \\width0}\\'ac}b}", "a<no one.gif>b"},
        {"a picture", "{\\rtf1{\\pict\\pngblip\n8950 4e 47}{\\pict\\wmetafile8 00}}",
         "[file picture-1.png]\uFFFC"},
        {"no RTF at all", "{\\xtf1 \xE9}", "{\\xtf1 é}"},
        {"huge numbers", "{\\rtf1\\f99999999999\\fs-99999999999\\li2147483647\\u99999999999?x\\uc-1 y}",
         "[l 107374182/107374182]\uFFFDxy"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const testing::ExactCopy exact(row.in);
        EXPECT_EQ(described(attributedTextFromRTF(Data::ofStatic(exact))), row.out);
        // Cut anywhere it is a document still.
        for (std::size_t size = 0; size < row.in.size(); ++size)
            EXPECT_TRUE(isValidUtf8(attributedTextFromRTF(Data::copyOf(row.in.substr(0, size))).string()));
    }
}

/// Attributed text that RTF can hold.
class RandomText {
public:
    explicit RandomText(unsigned seed) : _random(seed) {}

    AttributedText text() {
        AttributedText text;
        for (auto count = below(8); count > 0; --count) text.append(word(), attributes());
        text.fixAttributes();
        return text;
    }

private:
    std::size_t below(std::size_t end) { return _random() % end; }
    double twentieths() { return static_cast<double>(below(4000)) / 20; }

    std::string word() {
        static const std::string words[] = {
            "a",           "{\\}", "ä\u00A0€",           "😀\uFFFF", "\n", "x\n\ny", "\t", "\f", " ",
            "'3b\x7F\x01", "\r",   std::string("\0", 1), "\u2028"};
        return words[below(std::size(words))];
    }

    TextAttributes attributes() {
        TextAttributes all;
        if (below(2) == 0) {
            const std::string families[] = {"Sans", "A;{b}", "日本", "", " x "};
            all.font = {families[below(5)], static_cast<double>(1 + below(100)) / 2, below(2) == 0,
                        below(2) == 0, below(2) == 0};
        }
        const auto part = [&] { return static_cast<double>(below(256)) / 255; };
        if (below(3) == 0) all.foregroundColor = {part(), part(), part(), 1};
        if (below(3) == 0) all.underline = 1;
        if (below(4) == 0) all.link = below(2) == 0 ? "http://a.example/?\"q\\\"" : "mailto:ä {x}";
        if (below(3) == 0) all.paragraphStyle = style();
        return all;
    }

    ParagraphStyle style() {
        ParagraphStyle style;
        style.alignment = static_cast<ParagraphStyle::Alignment>(below(4));
        if (below(2) == 0) style.headIndent = twentieths();
        if (below(2) == 0) style.firstLineHeadIndent = twentieths();
        if (below(2) == 0) style.tailIndent = -1 - twentieths();
        for (auto count = below(4); count > 0; --count)
            style.tabStops.push_back({twentieths(), static_cast<TabStop::Kind>(below(4))});
        return style;
    }

    std::mt19937 _random;
};

TEST(Rtf, ReadsBackWhatItWrote) {
    for (unsigned seed = 0; seed < 3000; ++seed) {
        const auto text = RandomText(seed).text();
        const auto rtf = rtfFromAttributedText(text);
        ASSERT_TRUE(isAscii(rtf.view()));
        ASSERT_EQ(attributedTextFromRTF(rtf), text) << "seed " << seed << "\n" << rtf.view();
    }
}

TEST(Rtfd, KeepsAttachmentsUnderTheirNames) {
    const TemporaryFolder folder;
    const auto path = (folder / "letter.rtfd").string();
    const auto file = [](std::string_view name, std::string_view bytes) {
        const auto wrapper = FileWrapper::regularFile(Data::copyOf(bytes));
        EXPECT_EQ(wrapper->setPreferredFilename(name), !name.empty());
        return wrapper;
    };
    AttributedText text("see ");
    const auto twice = file("a {b}.gif", "one");
    for (const auto& attachment : {twice, file("a {b}.gif", "two"), file(" ä ", "three"), file("", "four"),
                                   twice, file("TXT.rtf", "five"), FileWrapper::symbolicLink("/nowhere")})
        text.append(AttributedText(attachment));
    text.append(" ¬ there");
    ASSERT_TRUE(writeRTFDFile(AttributedText("old"), path, true));
    for (const bool atomically : {true, false}) {
        ASSERT_TRUE(writeRTFDFile(text, path, atomically)) << "over the one that is there";
        const auto back = attributedTextFromRTFDFile(path);
        ASSERT_TRUE(back);
        EXPECT_EQ(back->string(), text.string());
        std::string names, contents;
        for (const auto& attachment : back->attachments()) {
            names += attachment->preferredFilename() + "|";
            contents +=
                attachment->regularFileContents().toString() + attachment->symbolicLinkDestination() + "|";
        }
        EXPECT_EQ(names, "a {b}.gif|a {b}-2.gif| ä |Attachment|a {b}.gif|TXT-2.rtf|Attachment-2|");
        EXPECT_EQ(contents, "one|two|three|four|one|five|/nowhere|");
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1) << "nothing beside it";

    const LogCapture log;
    EXPECT_FALSE(writeRTFDFile(text, (folder / "no/where.rtfd").string(), true));
    EXPECT_FALSE(attributedTextFromRTFDFile((folder / "nothing").string()));
    EXPECT_FALSE(attributedTextFromRTFD(*FileWrapper::directory()));
    EXPECT_FALSE(log.lines().empty());
}

TEST(Html, ReadsTextAndAttributes) {
    const Case rows[] = {
        {"white space", " a \n b<b> c</b>\t<p> d </p> ", "a b [b 24 Sans]c[]\n\nd"},
        {"entities", "&lt;&eacute;&#8364;&#x1F600;&#150;&nope;&amp", "<é€😀–&nope;&amp"},
        {"breaks", "<br>a<br><br>b<div>c<br></div>d", "a\n\nb\nc\nd"},
        {"a heading", "<h1>H</h1>x", "[b 48 Sans]H[]\n\nx"},
        {"a link", "<a href=' http://a.example/?a=1&amp;b '>x</a><a name=y href='#z'>z</a>",
         "[#0000ff u ->http://a.example/?a=1&b]x[]z"},
        {"lists", "<ul><li>a<li><p>b</p><ol start=1><li>c<li value=7>d<li>e</ol></ul>",
         "[l 12/24]• a\n[]\n[l 12/24]• b\n[]\n[l 36/48]1. c\n7. d\n8. e"},
        {"an empty item", "<ul><li></ul>x", "x"},
        {"a table", "<table><tr><th>a<td>b</td></tr><tr><td></td><td><p>c</p></td><td>d</table>",
         "[b 24 Sans]a[]\tb\n\nc\n\nd"},
        {"quotation", "<blockquote>a<br>b</blockquote><q>c</q>", "[l 24/24]a\nb\n[]\n“c”"},
        {"preformatted", "<pre>\n a\n\n  b\n</pre>c",
         "[fixed 24 Monospace] a[]\n\n[fixed 24 Monospace]  b[]\n\nc"},
        {"what is not shown",
         "<title>t</title><style>s</style><script>document.write('<b>')</script>a<!-- c -->"
         "<span style='Display : NONE!important'>h<b>h</b></span><p hidden>h</p><select><option>o</select>b",
         "ab"},
        {"what stands for scripts and objects", "<noscript>n</noscript><object data=x>o</object>", "no"},
        {"styles", "<span style=\"color:#F00;font-weight:700;font-family:'Arial',x;font-size:20px\">a</span>",
         "[b 30 Arial #ff0000]a"},
        {"fonts of old", "<font color=green size=+2 face=courier>a</font><center>b</center>",
         "[fixed 36 courier #008000]a[]\n[c]b"},
        {"colours", "<i style='color:rgb(255, 50%,0)'>a</i><i style='color:#1'>b</i>",
         "[i 24 Sans #ff7f00]a[i 24 Sans]b"},
        {"pictures", "<img src=http://x.example/1.gif alt='A  B'><img src=cid:1><img alt=''>c",
         "A B[file one.gif]\uFFFC[]c"},
        {"tags in the wrong order", "<b><i>a</b>b</i></p>c", "[b i 24 Sans]a[]bc"},
        {"a zero byte", {"a\0b", 3}, "a\uFFFDb"},
        {"nothing at all", "", ""},
        {"only tags", "<p><br><ul><li></p>", ""},
    };
    const auto picture = FileWrapper::regularFile(Data());
    ASSERT_TRUE(picture->setPreferredFilename("one.gif"));
    const AttachmentSource pictures = [&](std::string_view address) {
        return address == "cid:1" ? picture : nullptr;
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const testing::ExactCopy exact(row.in);
        EXPECT_EQ(described(attributedTextFromHTML(Data::ofStatic(exact), "utf-8", pictures)), row.out);
    }
}

TEST(Html, KnowsItsCharset) {
    const struct {
        const char* why;
        std::string_view in;
        std::optional<std::string_view> charset;
        std::string_view out;
    } rows[] = {
        {"as it was told", "\xCF", "windows-1251", "П"},
        {"as the page says", "<meta charset=\"koi8-r\">\xD0", {}, "п"},
        {"as the page said of old",
         "<META http-equiv=content-type content='text/html; CHARSET = iso-8859-2'>\xB1",
         {},
         "ą"},
        {"as it was told and not as the page says", "<meta charset=koi8-r>\xC4\x85", "utf-8", "ą"},
        {"as the page says, when nobody knows what was told", "<meta charset=koi8-r>\xD0", "x-none", "п"},
        {"as its mark says", "\xEF\xBB\xBF\xC4\x85", "koi8-r", "ą"},
        {"as its mark says in two bytes", {"\xFF\xFE\x05\x01", 4}, {}, "ą"},
        {"not in two bytes when that cannot be", "<meta charset=utf-16>\xC4\x85", {}, "ą"},
        {"as UTF-8 when it can be", "\xC4\x85", {}, "ą"},
        {"as Windows 1252 when not", "\xE9\x80", {}, "é€"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(attributedTextFromHTML(Data::ofStatic(row.in), row.charset).string(), row.out);
    }
}

std::string pageOf(const AttributedText& text) {
    const auto page = htmlFromAttributedText(text, [](const auto& file) {
        return file->preferredFilename() == "out" ? std::nullopt
                                                  : std::optional("cid:" + file->preferredFilename());
    });
    constexpr std::string_view kHead = "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"></head><body>\n";
    EXPECT_TRUE(page.view().starts_with(kHead));
    return std::string(page.view().substr(kHead.size(), page.size() - kHead.size() - 15));
}

TEST(Html, WritesCleanPages) {
    TextAttributes centered, linked;
    centered.paragraphStyle.emplace().alignment = ParagraphStyle::Alignment::center;
    linked.link = "http://a/?b&\"c\"";
    linked.font = Font::user();
    linked.font->bold = true;
    AttributedText text("a <b>\n\n", centered);
    text.append("x  y\n");
    text.append("here", linked);
    EXPECT_EQ(pageOf(text),
              "<div style=\"text-align: center\">a &lt;b&gt;<br>\n<br></div>\n"
              "<div><span style=\"white-space: pre-wrap\">x  y</span><br>\n"
              "<a href=\"http://a/?b&amp;&quot;c&quot;\"><b>here</b></a></div>\n");
    linked.link = " JavaScript:alert()";
    linked.font->family = "x';\"}<";
    EXPECT_EQ(pageOf(AttributedText("a", linked)),
              "<div><span style=\"font-family: 'x   }&lt;'\"><b>a</b></span></div>\n");
    for (const std::string_view name : {"p", "out"}) {
        const auto picture = FileWrapper::regularFile(Data());
        ASSERT_TRUE(picture->setPreferredFilename(name));
        EXPECT_EQ(pageOf(AttributedText(picture)),
                  name == "p" ? "<div><img src=\"cid:p\" alt=\"p\"></div>\n" : "<div><br></div>\n");
    }
}

/// The attributes that a page keeps, of a character that shows them.
std::string shownAttributes(TextAttributes all) {
    const auto usual = all.font && all.font->fixedPitch ? Font::userFixedPitch() : Font::user();
    all.font = all.font.value_or(usual);
    if (all.font->family.empty()) all.font->family = usual.family;
    all.font->family = trimmed(all.font->family);
    std::ranges::replace(all.font->family, ';', ' ');
    all.font->size = std::max(all.font->size, 4.0);  // the reader's smallest
    const auto alignment = all.paragraphStyle ? all.paragraphStyle->alignment : ParagraphStyle::Alignment::left;
    all.paragraphStyle.emplace().alignment = alignment;
    if (all.link) all.underline = 1;
    if (all.link && !all.foregroundColor) all.foregroundColor = Color::named("blue");
    all.foregroundColor = all.foregroundColor.value_or(Color());
    return described(all);
}

TEST(Html, ReadsBackWhatItWrote) {
    for (unsigned seed = 0; seed < 3000; ++seed) {
        const auto text = RandomText(seed).text();
        if (text.string().find("\uFFFF") != std::string::npos) continue;  // no character to a page
        const auto page = htmlFromAttributedText(text);
        const auto back = attributedTextFromHTML(page);
        std::string shown = text.string();
        std::ranges::replace_if(
            shown, [](char c) { return std::string_view("\f\x7F\x01\r\0", 5).find(c) < 5; }, ' ');
        ASSERT_EQ(back.string(), trimmed(shown, "\n")) << "seed " << seed << "\n" << page.view();
        const auto skipped = shown.find_first_not_of('\n');
        for (std::size_t i = 0; i < back.length(); ++i) {
            const auto was = text.runAtIndex(i + skipped), is = back.runAtIndex(i);
            if (trimmed(back.attributedSubstring({i, 1}).string()).empty()) continue;
            ASSERT_EQ(shownAttributes(is.attributes), shownAttributes(was.attributes))
                << "seed " << seed << " at " << i << "\n"
                << page.view();
        }
    }
}

std::string repeated(std::string_view text, std::size_t size) {
    std::string all;
    while (all.size() < size) all += text;
    return all;
}

TEST(RichText, TimeGrowsWithTheSizeWhateverTheMarkup) {
    constexpr std::size_t kSize = 12'000;
    const std::string rtf = "{\\rtf1 x";
    for (const std::string_view piece :
         {"{", "}", "{\\b", "{\\*\\x", "\\b a\\b0 b", "\\tx1", "\\'81", "\\u-10179", "\\cell ",
          "{\\field{\\*\\fldinst HYPERLINK \"x\"}", "\\qc a\\ql b", "{\\TarnGraphic x}"})
        testing::expectTimeInProportion(piece, kSize, [&](const std::string& text) {
            EXPECT_NE(attributedTextFromRTF(Data(rtf + text)).string(), "") << piece;
        });
    for (const std::string_view piece :
         {"<b>", "<div>", "</b>", "<i></b>", "<p>", "<ul><li>", "<table><tr><td>", "&amp;", "&", "<", "<!--",
          "a b=c ", "<b>a</b><i>b</i>", "<a href=x>y</a>", "<br>", "<font size=7>x", "<span style='color:red;",
          "<pre>\n"}) {
        testing::expectTimeInProportion(piece, kSize, [&](const std::string& text) {
            EXPECT_NE(attributedTextFromHTML(Data("x" + text)).string(), "") << piece;
            EXPECT_NE(attributedTextFromHTML(Data("x<a " + text)).string(), "") << piece;
        });
    }
    // Here the parser alone would take minutes: it looks through all open elements, and all attributes of a
    // tag.
    EXPECT_EQ(attributedTextFromHTML(Data(repeated("<i></b>", 2'000'000) + "x")).string(), "x");
    std::string attributes = "x<a ";
    for (int i = 0; attributes.size() < 2'000'000; ++i)
        attributes.append("b").append(std::to_string(i)).append("=\"<>\" ");
    EXPECT_EQ(attributedTextFromHTML(Data(attributes + ">y")).string(), "xy");
}

TEST(RichText, KeepsTheTextWhenItNoLongerKeepsAttributes) {
    const auto text =
        attributedTextFromRTF(Data("{\\rtf1 " + repeated("\\b a\\b0 b", 2'000'000) + "\\b0 end}"));
    EXPECT_LT(text.runs().size(), 250'000u);
    EXPECT_TRUE(text.string().ends_with("abend"));
    const auto deep = attributedTextFromRTF(
        Data("{\\rtf1 a" + repeated("{\\b ", 400'000) + "b{\\*\\x c}d" + std::string(100'000, '}') + "e}"));
    EXPECT_EQ(deep.string(), "abde");
    const auto page =
        attributedTextFromHTML(Data(repeated("<i>", 300'000) + "a" + repeated("</i>", 400'000) + "<b>b"));
    EXPECT_EQ(page.string(), "ab");
    EXPECT_TRUE(page.attributesAtIndex(0).font->italic);
    EXPECT_FALSE(page.attributesAtIndex(1).font->italic) << "the ends are counted, too";
}

}  // namespace
}  // namespace lorvale
