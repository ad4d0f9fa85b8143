#include <gmock/gmock.h>

#include <cstdlib>

#include "lorvale/mime.h"
#include "lorvale/platform/user_defaults.h"
#include "lorvale/values/text.h"
#include "mail/encoding/Charsets.h"
#include "mail/encoding/MimeHeaderEncoding.h"
#include "mail/encoding/PreferredEncoding.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TextRows.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;

std::string decoded(std::string_view text, StringEncoding preferred = StringEncoding::unknown) {
    return decodeHeaderValue(ExactCopy(text), preferred);
}

TEST(HeaderDecoding, ReadsEncodedWords) {
    const TextRow rows[] = {
        {"plain text keeps its inner white space", "Re:  a \t b ", "Re:  a \t b "},
        {"but not what it begins with", " \n a", "a"},
        {"both encodings, in either case", "=?utf-8?Q?caf=C3=A9?= =?UTF-8?b?4pyT?=", "café✓"},
        {"text around a word", "Re: =?iso-8859-1?q?caf=E9?= chaud", "Re: caféchaud"},
        {"blanks between words go, underscores stay", "=?utf-8?q?a_?=\n =?utf-8?q?_b__c?=", "a  b  c"},
        {"one piece is one run of bytes", "=?utf-8?Q?=E2=9C_=93?=", "â\u009C \u0093"},
        {"a base64 word broken by a blank", "=?utf-8?B?Y2Fm w6k=?=", "café"},
        {"a question mark inside", "=?utf-8?q?who?what?=", "who?what"},
        {"a blank in the end mark", "=?utf-8?q?a? =b", "ab"},
        {"Japanese", "=?iso-2022-jp?B?GyRCRnxLXBsoQg==?=", "日本"},
        {"Japanese cut inside a character", "=?iso-2022-jp?B?GyRCRnxL?= a", "日\uFFFDa"},
        {"UTF-16 in pieces without a mark", "=?unicode-1-1?q?=20=AC_=00=E9?=", "€ é"},
        {"Latin 2 and code pages", "=?iso-8859-2?q?=B1?= =?windows-1250?q?=9C?= =?WINDOWS-1252?q?=80?=", "ąś€"},
        {"ASCII that is not", "=?us-ascii?q?caf=E9?=", "café"},
        {"broken openers are dropped", "a =?b", "a "},
        {"also with an empty charset", "=??q?a?=", "?q?a?="},
        {"eight-bit text inside a word is what its bytes say", "=?utf-8?q?caf\u00C3\u00A9?=", "café"},
        {"characters that no byte gives stay", "=?utf-8?q?✓?= ✓", "✓✓"},
    };
    expectRows([](std::string_view text) { return decoded(text); }, rows);
}

TEST(HeaderDecoding, LogsWhatItDoesNotKnow) {
    const LogCapture log;
    EXPECT_EQ(decoded("=?x-utf-8?q?=E9?="), "é");
    EXPECT_EQ(decoded("a =?utf-8??b=?utf-8??"), "a ?b?");
    EXPECT_EQ(decoded("=?utf-8?x?=41_b?="), "=41 b");
    EXPECT_THAT(log.lines(),
                ElementsAre("Don't know how to decode charset \"x-utf-8\"--treating as iso-8859-1",
                            "Missing encoding char (Q or B) in MIME header: \"a =?utf-8??b=?utf-8??\"",
                            "Never heard of a \"x\" type encoding--treating as unencoded"));
}

TEST(HeaderDecoding, ReadsBytesWithoutACharsetInThePreferredEncoding) {
    const LogCapture log;
    EXPECT_EQ(decoded("caf\u00C3\u00A9 =?foo?q?=C3=A9?=", StringEncoding::utf8), "café é");
    EXPECT_EQ(decoded("\u00B1", StringEncoding::isoLatin2), "ą");
    EXPECT_EQ(decoded("a \x1B$BF|K\\\x1B(B", StringEncoding::iso2022JP), "a 日本");
    EXPECT_EQ(decoded("\u00E9 ✓", StringEncoding::utf8), "\u00E9 ✓") << "what does not fit stays";
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(HeaderEncoding, WritesOneOpenerAndNoEndMark) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"Café au lait", "Caf=?iso-8859-1?q?=E9aulait"},
        {"(été) _a b", "(=?iso-8859-1?q?=E9t=E9)_ab"},
        {"10 €", "10=?windows-1252?q?=80"},
        {"Łódź\t(x  y)", "=?iso-8859-2?q?=A3=F3d=BC(xy)"},
        {"✓ one", "=?utf-8?q?=E2=9C=93one"},
        // What could be taken for a word is kept from it.
        {"=?x", "=?us-ascii?q?=3D?x"},
        {"a =?b c", "a=?us-ascii?q?=3D?bc"},
        {"é =?b", "=?iso-8859-1?q?=E9=3D?b"},
        {"a\t=?b", "a=?us-ascii?q?=3D?b"},
        // A byte that is not UTF-8 stands for itself.
        {"caf\xE9", "caf=?iso-8859-1?q?=E9"},
    };
    for (const auto& [text, encoded] : rows) EXPECT_EQ(encodeMimeHeaderValue(text), encoded);
    for (const auto* plain : {"", "plain  text", "a=?b", "x?=", "  (=) "})
        EXPECT_EQ(encodeMimeHeaderValue(plain), plain);
    EXPECT_EQ(encodeHeaderValue("é", StringEncoding::utf8), "=?utf-8?q?=C3=A9")
        << "the preferred encoding first";
    EXPECT_EQ(encodeHeaderValue("é€\u010A", StringEncoding::unicode), "=?unicode-1-1?q?=00=E9 =AC=01=0A");
}

std::string standardWords(std::string_view text, StringEncoding preferred = StringEncoding::unknown) {
    return encodeHeaderValue(text, preferred, MailDialect::standard);
}

/// What is usual stands in docs/dialects.md.
TEST(StandardWords, ArePreferredAndCutWell) {
    EXPECT_EQ(standardWords("ł", StringEncoding::isoLatin2), "=?iso-8859-2?Q?=B3?=");
    EXPECT_EQ(standardWords("é", StringEncoding::isoLatin2), "=?iso-8859-2?Q?=E9?=");
    EXPECT_EQ(standardWords("日本", StringEncoding::iso2022JP), "=?iso-2022-jp?B?GyRCRnxLXBsoQg==?=");
    EXPECT_EQ(standardWords("日", StringEncoding::isoLatin2), "=?utf-8?B?5pel?=") << "which does not hold it";
    EXPECT_EQ(standardWords("\u0080", StringEncoding::isoLatin1), "=?utf-8?B?woA=?=")
        << "which others read as CP 1252";
    EXPECT_EQ(standardWords("é", StringEncoding::unicode), "=?utf-8?B?w6k=?=") << "which others do not know";
    EXPECT_EQ(standardWords("a =?b"), "a =?us-ascii?B?PT9i?=");
    EXPECT_EQ(standardWords(" a "), "=?us-ascii?Q?_a_?=") << "blanks at the ends would get lost";
    EXPECT_EQ(standardWords("a\r\n b\x01\tc"), "a b \tc");
    EXPECT_EQ(standardWords("\x80"), "=?utf-8?B?4oKs?=") << "not UTF-8: code page 1252";
    for (const auto line : split(standardWords(std::string(2000, 'x') + " é"), '\n'))
        EXPECT_LE(line.size(), 76u);
}

TEST(StandardWords, AreReadAsTheyComeInMail) {
    const TextRow rows[] = {
        {"words in two charsets", "=?koi8-r?b?xA==?= =?utf-8?q?=D0=B0?=", "да"},
        {"other names of charsets", "=?x-sjis?b?k/o=?= =?gb2312?b?yNU=?= =?KS_C_5601-1987?b?7O0=?=", "日日日"},
        {"blanks, no pads, rubbish in base64", "=?utf-8?b?5p el*?=", "日"},
        {"an unknown charset", "=?no/such,thing?q?=C3=A9?= =?x-x-none?q?=E9?=", "=?no/such,thing?q?=C3=A9?= é"},
        {"a line end in a word", "=?utf-8?q?a=0D=0AB:_c?=", "a  B: c"},
        {"ASCII that is not", "=?us-ascii?q?=E9?=", "é"},
        {"what is not valid in its charset", "=?utf-8?q?a=FF?=", "a\uFFFD"},
        {"openers only", "=?=?=?a?=?q?b?c", "=?=?=?a?=?q?b?c"},
    };
    const LogCapture silence;
    expectRows(
        [](std::string_view text) {
            return decodeHeaderValue(text, StringEncoding::unknown, MailDialect::standard);
        },
        rows);
    EXPECT_EQ(decodeHeaderValue("\xB3", StringEncoding::isoLatin2, MailDialect::standard), "ł");
}

TEST(HeaderEncoding, FoldsJapaneseText) {
    const std::string word = "=?ISO-2022-JP?B?GyRCRnxLXBsoQg==?=";
    EXPECT_EQ(encodeMimeHeaderValue("日本"), word);
    EXPECT_EQ(encodeMimeHeaderValue("Re:  日本 go 日本 "), "Re:  " + word + "go " + word);
    // 68 columns are left beside the name of the header.
    const std::string x66(66, 'x'), x77(77, 'x');
    EXPECT_EQ(encodeMimeHeaderValue(x66 + x66 + x77 + "日"), x66 + "xx\n " + x66 + std::string(11, 'x') +
                                                                 "\n " + std::string(64, 'x') +
                                                                 "\n \n =?ISO-2022-JP?B?GyRCRnwbKEI=?=")
        << "a word that does not fit folds twice";
    // Columns 61 and 60: the first has room for no Japanese word, the second for a plain run of 18 more.
    EXPECT_EQ(encodeMimeHeaderValue(x66.substr(0, 60) + "日"),
              x66.substr(0, 60) + "\n \n =?ISO-2022-JP?B?GyRCRnwbKEI=?=");
    const std::string after = encodeMimeHeaderValue("日" + x66);
    EXPECT_EQ(after, "=?ISO-2022-JP?B?GyRCRnwbKEI=?=" + x66.substr(0, 46) + "\n " + x66.substr(0, 20));
}

TEST(HeaderEncoding, LongJapaneseTextComesBackWhole) {
    std::string pure, mixed;
    for (int i = 0; i < 5000; ++i) {
        pure += i % 3 == 0 ? "日" : i % 3 == 1 ? "本" : "語";
        mixed += i % 61 == 60 ? "abc" : i % 2 == 0 ? "語" : "¥";
    }
    for (const auto& text : {pure, mixed}) EXPECT_EQ(decoded(encodeMimeHeaderValue(text)), text);
    for (const auto line : split(encodeMimeHeaderValue(pure), '\n')) ASSERT_LE(line.size(), 78u) << line;
}

TEST(HeaderEncoding, QuotesParametersThatNeedIt) {
    EXPECT_EQ(quotedMimeString("two words.txt"), "two words.txt");
    EXPECT_EQ(quotedMimeString(R"(a"b\c)"), R"("a\"b\\c")");
    for (const char c : std::string_view("()<>@,;:/[]?=")) {
        const std::string special(1, c);
        EXPECT_EQ(quotedMimeString(special), '"' + special + '"');
    }
}

TEST(Charsets, KeysAreEqualWithoutCaseAndX) {
    EXPECT_TRUE(isKeyEqual("x-UUencode", "X-uuencode"));
    EXPECT_FALSE(isKeyEqual("x-x-a", "a"));
}

TEST(Charsets, AreReadAndWrittenByOneTable) {
    const LogCapture log;
    using enum StringEncoding;
    // The other names stand in the encoded words above.
    EXPECT_EQ(_charsetForEncoding(unicode), "unicode-1-1");
    EXPECT_EQ(_charsetForEncoding(windowsCP1250), "windows-1250");
    for (const auto encoding :
         {ascii, isoLatin1, isoLatin2, windowsCP1250, windowsCP1252, utf8, unicode, iso2022JP}) {
        const auto name = _charsetForEncoding(encoding);
        EXPECT_EQ(_charsetForStringEncoding(encoding), name);
        EXPECT_EQ(_encodingForCharset(name), encoding);
        EXPECT_EQ(encodingOfEncodedWord(name), encoding);
    }
    EXPECT_EQ(_encodingForCharset("X-UTF-8"), utf8);
    EXPECT_EQ(encodingOfEncodedWord("x-utf-8"), std::nullopt);
    EXPECT_EQ(_encodingForCharset("x-tarn"), tarn);
    EXPECT_EQ(encodingOfEncodedWord("x-tarn"), std::nullopt);
    EXPECT_EQ(_charsetForEncoding(tarn), "iso-8859-1");
    EXPECT_EQ(_charsetForStringEncoding(tarn), std::nullopt);
    EXPECT_EQ(_encodingForCharset(std::nullopt), unknown);

    EXPECT_EQ(_charsetForEncoding(japaneseEUC), "iso-8859-1");
    EXPECT_EQ(_encodingForCharset("koi8-r"), isoLatin1);
    EXPECT_THAT(log.lines(), ElementsAre("Using charset iso-8859-1 for " +
                                             localizedNameOfStringEncoding(japaneseEUC) + " encoded body",
                                         "Unknown specified charset \"koi8-r\"--treating as iso-8859-1"));
}

TEST(Charsets, BestEncodingIsTheSimplestThatHoldsTheText) {
    using enum StringEncoding;
    const std::pair<std::string_view, StringEncoding> rows[] = {
        {"", ascii},           {"plain", ascii},    {"é", isoLatin1}, {"€", windowsCP1252}, {"ł", isoLatin2},
        {"ł“", windowsCP1250}, {"日本", iso2022JP}, {"日本é", utf8},  {"\xFF", isoLatin1},
    };
    for (const auto& [text, encoding] : rows) EXPECT_EQ(bestMIMEStringEncoding(text), encoding) << text;
    EXPECT_EQ(bestStringEncoding("é", windowsCP1250), windowsCP1250);
    EXPECT_EQ(bestStringEncoding("e", windowsCP1250), ascii);
    EXPECT_EQ(bestStringEncoding("日本", windowsCP1250), iso2022JP);
}

TEST(PreferredEncoding, ComesFromTheUserDefaults) {
    // In a process of its own, since it is settled for good.
    const auto readsLatin2 = [] {
        UserDefaults::standard().setArgument("KTPreferedStringEncodingForMailMessage",
                                             localizedNameOfStringEncoding(StringEncoding::isoLatin2));
        const bool prefers = preferedMIMEStringEncoding() == StringEncoding::isoLatin2 &&
                             bestMIMEStringEncoding("é") == StringEncoding::isoLatin2 &&
                             _encodingForCharset("koi8-r") == StringEncoding::isoLatin2 &&
                             decodeMimeHeaderValue("\u00B1") == "ą" &&
                             encodeMimeHeaderValue("é") == "=?iso-8859-2?q?=E9";
        std::_Exit(prefers ? 0 : 1);
    };
    EXPECT_EXIT(readsLatin2(), ::testing::ExitedWithCode(0), "");
}

TEST(PreferredEncoding, IsSettledByTheFirstNameThatIsSet) {
    std::optional<std::string> name;
    PreferredEncoding preferred([&] { return name; });
    EXPECT_EQ(preferred.value(), StringEncoding::unknown);
    for (const auto encoding : {StringEncoding::isoLatin2, StringEncoding::utf8}) {
        name = asciiLowered(localizedNameOfStringEncoding(encoding));
        EXPECT_EQ(preferred.value(), StringEncoding::isoLatin2);
    }
    // An unknown name stands for Japanese mail on a Japanese desktop only.
    name = "no such encoding";
    EXPECT_EQ(PreferredEncoding([&] { return name; }).value(), StringEncoding::unknown);
    const auto before = defaultCStringEncoding();
    for (const auto own : {StringEncoding::japaneseEUC, StringEncoding::shiftJIS}) {
        setDefaultCStringEncoding(own);
        EXPECT_EQ(PreferredEncoding([&] { return name; }).value(), StringEncoding::iso2022JP);
    }
    setDefaultCStringEncoding(before);
}

}  // namespace
}  // namespace lorvale
