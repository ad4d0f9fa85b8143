#include "lorvale/values/encoding.h"

#include <gtest/gtest.h>

#include <random>
#include <thread>

#include "lorvale/platform/exception.h"
#include "lorvale/values/text.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using enum StringEncoding;
using lorvale::testing::ExactCopy;

/// Puts the process-wide encoding back.
class DefaultEncoding : public ::testing::Test {
protected:
    ~DefaultEncoding() override { setDefaultCStringEncoding(_before); }
    const StringEncoding _before = defaultCStringEncoding();
};

TEST(Encoding, KnownBytesReadAsTheKnownTextAndBack) {
    const struct {
        const char* why;
        StringEncoding encoding;
        std::string_view bytes, text;
    } rows[] = {
        {"plain", ascii, "abc\n", "abc\n"},
        {"0xD0 is the em dash", tarn, "a\xD0\xE9\x80", "a—é\u0080"},
        {"Latin 1", isoLatin1, "Gr\xFC\xDF\x85", "Grüß\u0085"},
        {"Latin 2", isoLatin2, "\xC8\x65sky", "Česky"},
        {"curly quotes and euro", windowsCP1252, "\x93\x80\x94", "“€”"},
        {"undefined in Windows", windowsCP1252, "\x81\x8D\x8F\x90\x9D", "\u0081\u008D\u008F\u0090\u009D"},
        {"Central European", windowsCP1250, "\x8A\x9E\x83", "Šž\u0083"},
        {"UTF-8", utf8, "naïve 𝔘", "naïve 𝔘"},
        {"EUC", japaneseEUC, "\xC6\xFC\xCB\xDC", "日本"},
        {"half width kana in EUC", japaneseEUC, "\x8E\xB1", "ｱ"},
        {"Shift JIS", shiftJIS, "\x93\xFA\x96\x7B\\~", "日本\\~"},
        {"what Windows put into Shift JIS", shiftJIS, "\x87\x40\x87\x8A", "①㈱"},
        {"ISO-2022-JP returns to ASCII", iso2022JP, "a\x1B$BF|K\\\x1B(B", "a日本"},
        {"UTF-16", unicode, std::string_view("\xFE\xFF\0a\xD8\x35\xDD\x18", 8), "a𝔘"},
        {"nothing", unicode, "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(decode(ExactCopy(row.bytes), row.encoding), std::string(row.text));
        const auto bytes = encode(ExactCopy(row.text), row.encoding);
        ASSERT_TRUE(bytes);
        EXPECT_EQ(bytes->view(), row.bytes);
    }
    EXPECT_EQ(decode("\x1B$B-!F|\n\x1B$BK\\\x1B(I1\x1B(B.", iso2022JP), "①日\n本ｱ.") << "as Windows writes it";
    EXPECT_EQ(decode("\x1B$B-!F\x1B(B", iso2022JP), std::nullopt) << "half a character";
    EXPECT_EQ(decode(std::string_view("\xFF\xFEx\0", 4), unicode), "x") << "little-endian by its mark";
    EXPECT_EQ(decode(std::string_view("\0a", 2), unicode), "a") << "big-endian without a mark";
}

TEST(Encoding, BytesThatAreNotValidAreRefusedOrMarked) {
    const struct {
        const char* why;
        StringEncoding encoding;
        std::string_view bytes, lossy;
    } rows[] = {
        {"high byte", ascii, "a\x80z", "a\uFFFDz"},
        {"each bad byte by itself", utf8, "\xE2\x82x\xFF", "\uFFFD\uFFFDx\uFFFD"},
        {"cut character", japaneseEUC, "a\xC6", "a\uFFFD"},
        {"wrong second byte", shiftJIS, "\x93\x20z", "\uFFFD z"},
        {"high byte among shifts", iso2022JP, "\x1B$BF|\x1B(B\xE9", "日\uFFFD"},
        {"odd byte", unicode, std::string_view("\0a\0", 3), "a\uFFFD"},
        {"surrogate alone", unicode, std::string_view("\xD8\x35\0a", 4), "\uFFFDa"},
        {"unknown", unknown, "a\xE9", "a\uFFFD"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(decode(ExactCopy(row.bytes), row.encoding), std::nullopt);
        EXPECT_EQ(decodeLossy(ExactCopy(row.bytes), row.encoding), row.lossy);
    }
}

TEST(Encoding, WhatIsMissingBecomesAQuestionMark) {
    const struct {
        const char* why;
        StringEncoding encoding;
        std::string_view text, lossy;
    } rows[] = {
        {"ASCII", ascii, "naïve", "na?ve"},
        {"the em dash took its place", tarn, "\u00D0—", "?\xD0"},
        {"bad byte", utf8, "a\xFFz", "a?z"},
        {"in the middle of a shift", iso2022JP, "日é本", "\x1B$BF|\x1B(B?\x1B$BK\\\x1B(B"},
        {"emoji", shiftJIS, "\U0001F600a", "?a"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_FALSE(canConvert(row.text, row.encoding));
        EXPECT_FALSE(encode(row.text, row.encoding));
        EXPECT_EQ(encode(row.text, row.encoding, Lossy::yes)->view(), row.lossy);
    }
    EXPECT_FALSE(canConvert("¥", shiftJIS)) << "it would read back as a backslash";
    EXPECT_FALSE(canConvert("\x1B$B!!", iso2022JP)) << "it would read back as a blank";
    EXPECT_FALSE(encode("a", unknown, Lossy::yes));
}

TEST(Encoding, EveryConvertibleTextReadsBackTheSame) {
    std::mt19937 random(3);
    const char32_t marks[] = {0x20AC, 0x2014, 0x301C, 0xFF5E,  0x0160, 0xD0, 0xA5, 0x81,           0x65E5,
                              0x2460, 0xFF71, 0xFEFF, 0x1F600, 0x1B,   0x0E, 0,    kBadByte + 0xFF};
    for (int round = 0; round < 4000; ++round) {
        std::string text;
        const char32_t limit = random() % 2 == 0 ? 0x80 : 0x180;
        for (auto count = random() % 6; count > 0; --count)
            appendUtf8(text, random() % 3 == 0 ? marks[random() % std::size(marks)]
                                               : static_cast<char32_t>(random() % limit));
        for (const auto& [encoding, name] : availableStringEncodings()) {
            SCOPED_TRACE(name);
            const auto bytes = encode(text, encoding);
            ASSERT_EQ(canConvert(text, encoding), bytes.has_value()) << text;
            if (bytes) {
                ASSERT_EQ(decode(ExactCopy(bytes->view()), encoding), text);
                ASSERT_EQ(encode(text, encoding, Lossy::yes), bytes);
            }
        }
    }
}

TEST(Encoding, SingleByteEncodingsKnowEveryByte) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
    for (const auto encoding : {tarn, isoLatin1, isoLatin2, windowsCP1250, windowsCP1252}) {
        const auto text = decode(all, encoding);
        ASSERT_TRUE(text);
        EXPECT_EQ(characterCount(*text), 256u);
        EXPECT_EQ(encode(*text, encoding)->view(), all);
    }
}

TEST_F(DefaultEncoding, StartsAsTarnAndReadsBytesThatAreNotValidAsLatin1) {
    EXPECT_EQ(decodeCString("caf\xE9 \xD0"), "café —");
    EXPECT_EQ(encodeCString("café — €").view(), "caf\xE9 \xD0 ?");
    setDefaultCStringEncoding(utf8);
    EXPECT_EQ(decodeCString("na\xC3\xAFve caf\xE9"), "naïve café");
    setDefaultCStringEncoding(shiftJIS);
    EXPECT_EQ(decodeCString("\x93\xFA\xFF"), "日ÿ");
    EXPECT_THROW(setDefaultCStringEncoding(unicode), InvalidArgumentException);
}

TEST(EncodingThreads, ConvertAtTheSameTime) {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int round = 0; round < 200; ++round)
                for (const auto& available : availableStringEncodings())
                    EXPECT_EQ(
                        decode(encode("plain 日本", available.encoding, Lossy::yes)->view(), available.encoding)
                            ->substr(0, 6),
                        "plain ");
        });
}

}  // namespace
}  // namespace lorvale
