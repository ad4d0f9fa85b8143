#include "lorvale/values/text.h"

#include <gmock/gmock.h>

#include <random>

#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using lorvale::testing::ExactCopy;
using ::testing::ElementsAre;

/// A text of valid sequences of every length, stray and cut bytes, overlong forms and surrogates.
std::string anyText(std::mt19937& random) {
    static const auto pieces = split(
        "a B é ß € İ 中 𝔘 ﬁ \x80 \xC3 \xE2\x82 \xF0\x9F \xED\xA0\x80 \xC0\xAF \xFF \xF4\x90\x80\x80 "
        "a_run_of_plain_text_that_is_longer_than_one_word",
        ' ');
    std::string text;
    for (auto count = random() % 30; count > 0; --count) text += pieces[random() % pieces.size()];
    return text;
}

TEST(Text, CharactersComeOutAlikeFromBothEndsAndGoBackInUnchanged) {
    std::mt19937 random(1);
    for (int round = 0; round < 3000; ++round) {
        const auto text = anyText(random);
        const ExactCopy exact(text);
        std::u32string forwards, backwards;
        std::string written;
        for (std::string_view rest = exact; !rest.empty();) forwards += nextCodePoint(rest);
        for (std::string_view rest = exact; !rest.empty();) backwards += lastCodePoint(rest);
        ASSERT_EQ(forwards, std::u32string(backwards.rbegin(), backwards.rend()));
        for (const auto c : forwards) appendUtf8(written, c);
        ASSERT_EQ(written, text);
        ASSERT_EQ(characterCount(exact), forwards.size());
        ASSERT_EQ(isValidUtf8(exact), std::ranges::none_of(forwards, isBadByte));
        const auto middle = random() % (forwards.size() + 2);
        ASSERT_EQ(
            std::string(substring(exact, {0, middle})) + std::string(substring(exact, {middle, SIZE_MAX})),
            text);
        ASSERT_EQ(characterCount(substring(exact, {0, middle})), std::min(middle, forwards.size()));
    }
}

TEST(Text, OnlyTheOneRightFormOfACharacterIsValid) {
    for (const std::string_view good :
         {"\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBF",
          "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_TRUE(isValidUtf8(good));
        EXPECT_EQ(characterCount(good), 1u);
    }
    for (const std::string_view bad :
         {"\x80", "\xC1\xBF", "\xC2", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80",
          "\xF5\x80\x80\x80", "\xE2\x82", "\xC2\x41"})
        EXPECT_FALSE(isValidUtf8(ExactCopy(bad)));
    std::string text;
    for (const char32_t c : {char32_t{0x110000}, char32_t{0xD800}, char32_t{0xDC7F}}) appendUtf8(text, c);
    EXPECT_EQ(text, "\uFFFD\uFFFD\uFFFD");
}

TEST(Text, AsciiPrefixEndsAtTheFirstHighByteWhereverItStands) {
    for (std::size_t size = 0; size < 200; ++size)
        for (std::size_t high = 0; high <= size; ++high) {
            std::string text(size, 'x');
            if (high < size) text[high] = '\x80';
            ASSERT_EQ(asciiPrefixLength(ExactCopy(text)), high);
        }
}

TEST(Text, FoldsCaseByUnicode) {
    const struct {
        const char* why;
        std::string_view a, b;
    } equal[] = {
        {"ASCII", "Hello", "hELLO"},
        {"accents", "ÉCOLE", "école"},
        {"one character to two", "STRASSE", "Straße"},
        {"ligature", "ﬁn", "FIN"},
        {"final sigma", "ΌΣΟΣ", "όσος"},
        {"the Kelvin sign is a K", "\u212A", "k"},
        {"beyond the first plane", "𐐀", "𐐨"},
        {"bad bytes are themselves", "A\xFF\xC3", "a\xFF\xC3"},
        {"with a zero inside", std::string_view("A\0B", 3), std::string_view("a\0b", 3)},
    };
    for (const auto& row : equal) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(compareIgnoringCase(row.a, row.b), 0);
        EXPECT_EQ(foldCase(row.a), foldCase(row.b));
    }
    EXPECT_FALSE(equalIgnoringCase(std::string_view("a\0", 2), "a"));
    EXPECT_FALSE(equalIgnoringCase("e", "é"));
    EXPECT_EQ(lowercased("ÀB\xFFΣ"), "àb\xFFσ");
}

TEST(Text, ComparesLikeTheFoldedTexts) {
    std::mt19937 random(2);
    for (int round = 0; round < 3000; ++round) {
        const auto a = anyText(random);
        const auto b =
            random() % 2 == 0 ? anyText(random) : a.substr(0, random() % (a.size() + 1)) + anyText(random);
        const auto sign = [](int n) { return (n > 0) - (n < 0); };
        const auto forwards = sign(compareIgnoringCase(ExactCopy(a), ExactCopy(b)));
        ASSERT_EQ(forwards, -sign(compareIgnoringCase(b, a)));
        // Folding can put bad bytes together into a character, which the comparison of code points keeps apart.
        if (isValidUtf8(a) && isValidUtf8(b)) {
            ASSERT_EQ(forwards, sign(foldCase(a).compare(foldCase(b)))) << a << " / " << b;
        }
    }
}

TEST(Text, ProtocolWordsFoldAsciiOnly) {
    std::string all, lower;
    for (int i = 0; i < 300; ++i) all += static_cast<char>(i);
    for (const char c : all) lower += asciiLower(c);
    for (std::size_t start = 0; start < 9; ++start)  // the words of eight bytes fall differently
        EXPECT_EQ(asciiLowered(ExactCopy(all.substr(start))), lower.substr(start));
    EXPECT_TRUE(equalIgnoringAsciiCase("CONTENT-type", "content-TYPE"));
    EXPECT_FALSE(equalIgnoringAsciiCase("É", "é"));
    EXPECT_FALSE(equalIgnoringAsciiCase("[", "{"));
    EXPECT_LT(compareIgnoringAsciiCase("ab", "ABC"), 0);
    EXPECT_GT(compareIgnoringAsciiCase("\xFF", "z"), 0);
}

TEST(Text, SplitsAndTrims) {
    EXPECT_THAT(split("a,,b,", ','), ElementsAre("a", "", "b", ""));
    EXPECT_THAT(split("", ','), ElementsAre(""));
    EXPECT_THAT(split("a--b---c", "--"), ElementsAre("a", "b", "-c"));
    EXPECT_EQ(trimmed("\t a b\r\n"), "a b");
    EXPECT_EQ(trimmed(" \n"), "");
}

}  // namespace
}  // namespace lorvale
