#include "base/text/Cursor.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>

#include "base/text/Ascii.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using testing::ExactCopy;

TEST(Ascii, KindsAreThoseOfTheCLibrary) {
    const struct {
        const char* name;
        AsciiPredicate is;
        int (*expected)(int);
    } rows[] = {
        {"digit", isAsciiDigit, std::isdigit},     {"hex", isAsciiHexDigit, std::isxdigit},
        {"upper", isAsciiUpper, std::isupper},     {"lower", isAsciiLower, std::islower},
        {"letter", isAsciiLetter, std::isalpha},   {"alphanumeric", isAsciiAlphanumeric, std::isalnum},
        {"blank", isAsciiBlank, std::isblank},     {"white", isAsciiWhite, std::isspace},
        {"control", isAsciiControl, std::iscntrl}, {"punctuation", isAsciiPunctuation, std::ispunct},
    };
    for (const auto& row : rows) {
        for (int c = 0; c < 256; ++c)
            EXPECT_EQ(row.is(static_cast<char>(c)), row.expected(c) != 0) << row.name << " " << c;
        EXPECT_FALSE(row.is(U'\u0141')) << row.name;  // its last byte is that of "A"
    }
    for (int c = 0; c < 256; ++c) {
        EXPECT_EQ(asciiUpper(static_cast<char>(c)), static_cast<char>(std::toupper(c)));
        const char digit[] = {static_cast<char>(c), '\0'};
        EXPECT_EQ(hexDigitValue(digit[0]), std::isxdigit(c) ? std::strtol(digit, nullptr, 16) : -1);
    }
}

TEST(Cursor, TakesWhatIsThereAndStopsAtTheEnd) {
    const ExactCopy text("ab12, Word\nrest=end");
    Cursor cursor{std::string_view(text)};
    EXPECT_EQ(cursor.takeWhile(isAsciiLetter), "ab");
    EXPECT_EQ(cursor.takeWhile(isAsciiDigit, 1), "1");
    EXPECT_EQ(cursor.peek(), '2');
    EXPECT_FALSE(cursor.skip("2;"));
    EXPECT_TRUE(cursor.skip("2,"));
    EXPECT_TRUE(cursor.skip(' '));
    const auto word = cursor.position();
    EXPECT_FALSE(cursor.skipIgnoringCase("wordy"));
    EXPECT_TRUE(cursor.skipIgnoringCase("wORD"));
    EXPECT_EQ(cursor.takenSince(word), "Word");
    EXPECT_EQ(cursor.takeLine(), "");
    EXPECT_EQ(cursor.takeUntil(isAsciiPunctuation), "rest");
    EXPECT_EQ(cursor.takeUntil("==").size(), 4u);

    EXPECT_TRUE(cursor.atEnd());
    EXPECT_EQ(cursor.peek(), '\0');
    EXPECT_FALSE(cursor.skip('d') || cursor.skipIf(isAsciiLetter) || cursor.skipIgnoringCase("d"));
    EXPECT_EQ(cursor.takeLine(), "");
    cursor.advance(5);
    EXPECT_EQ(cursor.takeRest(), "");

    cursor.moveTo(cursor.position() - 3);
    EXPECT_EQ(cursor.peek(2), 'd');
    EXPECT_EQ(cursor.peek(3), '\0');
    EXPECT_EQ(cursor.take(9), "end");
}

}  // namespace
}  // namespace lorvale
