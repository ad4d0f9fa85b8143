#include "base/text/DataScanner.h"

#include <gmock/gmock.h>

#include <random>

#include "base/text/DataUtils.h"
#include "lorvale/platform/exception.h"
#include "lorvale/values/text.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using lorvale::testing::ExactCopy;
using ::testing::ElementsAre;

Data bytes(std::string_view text) {
    return Data::copyOf(text);
}

std::string membersOf(const ByteSet& set) {
    std::string members;
    for (int byte = 0; byte < 256; ++byte)
        if (set.byteIsMember(static_cast<std::uint8_t>(byte))) members += static_cast<char>(byte);
    return members;
}

TEST(ByteSet, ChangesByRangesWithin256) {
    MutableByteSet set("x");
    set.addBytesInRange({'a', 3});
    set.removeBytesInRange({'b', 1});
    EXPECT_EQ(membersOf(set.copy()), "acx");
    set.invert();
    EXPECT_EQ(membersOf(set).size(), 253u);
    EXPECT_EQ(membersOf(ByteSet(Range{0, 256})).size(), 256u);
    EXPECT_NO_THROW(set.addBytesInRange({256, 0}));
    EXPECT_THROW(set.removeBytesInRange({2, SIZE_MAX}), InvalidArgumentException);
    EXPECT_THROW(ByteSet(Range{1, 256}), InvalidArgumentException);
    EXPECT_EQ(membersOf(ByteSet::suspiciousCodepage1252ByteSet()).size(), 31u) << "all but 0x9F";
}

TEST(ByteSet, IsFoundInData) {
    const auto data = bytes("ab c d");
    EXPECT_EQ(rangeOfByteFromSet(data, ByteSet(" ")), (Range{2, 1}));
    EXPECT_EQ(rangeOfByteFromSet(data, ByteSet(" "), kBackwardsSearch), (Range{2, 1})) << "always forwards";
    EXPECT_EQ(rangeOfByteFromSet(data, ByteSet(" "), 0, {3, 500}), (Range{4, 1}));
    EXPECT_FALSE(rangeOfByteFromSet(data, ByteSet(" "), 0, {3, 1}).found());
    EXPECT_FALSE(rangeOfByteFromSet(data, ByteSet(" "), 0, {7, 1}).found());
}

TEST(DataScanner, ReadsNumbersInItsOwnWay) {
    const struct {
        const char* why;
        std::string_view in;
        std::optional<std::int32_t> value;
        std::uint32_t location;
    } rows[] = {
        {"decimal", "12 ", 12, 2},
        {"needs a byte behind it", "12", std::nullopt, 0},
        {"sign", "-5 ", -5, 2},
        {"plus", "+7)", 7, 2},
        {"octal", "010 ", 8, 3},
        {"8 is no octal digit", "08 ", 0, 1},
        {"hexadecimal", "0x10,", 16, 4},
        {"letters count below zero", "0XA ", -10, 3},
        {"lower case too", "-0xf.", 5, 4},
        {"no digit", "x", 0, 0},
        {"a sign alone", "- ", 0, 1},
        {"wraps round", "4294967297 ", 1, 10},
        {"nothing", "", std::nullopt, 0},
        {"a sign at the end", "-", std::nullopt, 0},
        {"a prefix at the end", "0x", std::nullopt, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const ExactCopy exact(row.in);
        DataScanner scanner(Data::ofStatic(exact));
        std::int32_t value = 99;
        EXPECT_EQ(scanner.scanInt(&value), row.value.has_value());
        EXPECT_EQ(value, row.value.value_or(99));
        EXPECT_EQ(scanner.scanLocation(), row.location);
    }
}

TEST(DataScanner, TakesPatternsRunsAndTokensAsSlices) {
    const auto data = bytes("key: (a b) tail");
    DataScanner scanner(data);
    Data taken;
    EXPECT_FALSE(scanner.scanCString("keys", &taken));
    EXPECT_TRUE(scanner.scanUpToBytesFromSet(ByteSet(":"), &taken));
    EXPECT_EQ(taken.view(), "key");
    EXPECT_EQ(taken.bytes(), data.bytes()) << "no copy";
    EXPECT_FALSE(scanner.scanUpToBytesFromSet(ByteSet(":"))) << "nothing to take";
    EXPECT_TRUE(scanner.scanData(":"));
    EXPECT_TRUE(scanner.scanBytesFromSet(ByteSet::asciiWhitespaceSet()));
    EXPECT_FALSE(scanner.scanBytesFromSet(ByteSet::asciiWhitespaceSet()));
    std::vector<std::string> tokens;
    scanner.setData(scanner.data().subdata(Range{5, 5}));
    while (const auto token = scanner.nextTokenWithPunctuation(ByteSet("( )")))
        tokens.push_back(token->toString());
    EXPECT_THAT(tokens, ElementsAre("(", "a", " ", "b", ")"));
    EXPECT_EQ(scanner.byteAtScanLocation(), 0);
    scanner.incrementLocation();
    EXPECT_EQ(scanner.scanLocation(), 5u);
}

TEST(DataScanner, TheTwoScansUpToAPatternDifferInWhatFails) {
    DataScanner scanner(bytes("ab--c"));
    Data taken;
    EXPECT_TRUE(scanner.scanUpToCString("--", &taken));
    EXPECT_EQ(taken.view(), "ab");
    EXPECT_FALSE(scanner.scanUpToCString("--", &taken)) << "it stands right here";
    EXPECT_EQ(scanner.scanLocation(), 2u);
    EXPECT_TRUE(scanner.scanUpToCString("++", &taken)) << "not there: up to the end";
    EXPECT_EQ(taken.view(), "--c");
    EXPECT_TRUE(scanner.scanUpToCString("++", &taken)) << "and at the end an empty piece";
    EXPECT_EQ(taken.view(), "");
    EXPECT_FALSE(scanner.scanUpToData("++", &taken));
}

TEST(DataUtils, SearchesAgreeWithTheObviousOne) {
    std::mt19937 random(4);
    const auto word = [&](std::size_t length) {
        std::string text;
        while (text.size() < length) text += "abAB["[random() % 5];
        return text;
    };
    for (int round = 0; round < 20'000; ++round) {
        const auto text = word(random() % 40), pattern = word(1 + random() % 4);
        const auto location = random() % (text.size() + 1), length = random() % (text.size() - location + 1);
        const auto options = static_cast<unsigned>(random() % 16) & ~2u;
        const auto candidateMatches = [&](std::size_t at) {
            const auto part = std::string_view(text).substr(at, pattern.size());
            return (options & kCaseInsensitiveSearch) != 0 ? equalIgnoringAsciiCase(part, pattern)
                                                           : part == pattern;
        };
        auto expected = Range::notFound();
        for (auto at = location; at + pattern.size() <= location + length; ++at) {
            const bool backwards = (options & kBackwardsSearch) != 0;
            const auto anchor = backwards ? location + length - pattern.size() : location;
            if (((options & kAnchoredSearch) != 0 && at != anchor) || !candidateMatches(at)) continue;
            expected = {at, pattern.size()};
            if (!backwards) break;
        }
        const ExactCopy exact(text);
        ASSERT_EQ(rangeOfCString(Data::ofStatic(exact), pattern, options, {location, length}), expected)
            << text << " for " << pattern << " options " << options;
    }
}

TEST(DataUtils, ARangePastTheEndIsAnError) {
    EXPECT_THROW(rangeOfCString(bytes("abc"), "a", 0, {2, 2}), RangeException);
    EXPECT_THROW(rangeOfData(bytes("abc"), bytes("a"), 0, {4, SIZE_MAX}), RangeException);
    EXPECT_THROW(subdataFromIndex(bytes("abc"), 4), RangeException);
    EXPECT_EQ(subdataFromIndex(bytes("abc"), 3).size(), 0u);
    EXPECT_FALSE(rangeOfCString(bytes("abc"), "").found());
}

TEST(DataUtils, PiecesBetweenSeparators) {
    const auto pieces = [](std::string_view text, std::string_view separator) {
        std::vector<std::string> result;
        for (const auto& piece : componentsSeparatedByData(bytes(text), bytes(separator)))
            result.push_back(piece.toString());
        return result;
    };
    EXPECT_THAT(pieces("a,,b", ","), ElementsAre("a", "", "b"));
    EXPECT_THAT(pieces(",a,", ","), ElementsAre("", "a"));
    EXPECT_THAT(pieces("", ","), ElementsAre());
    EXPECT_THAT(pieces("ab", ""), ElementsAre("ab"));
}

TEST(DataUtils, MemcasecmpGivesTheDifferenceOfTheFoldedBytes) {
    EXPECT_EQ(memcasecmp("ABC", "abd", 3), 'c' - 'd');
    EXPECT_EQ(memcasecmp("\xC9", "e", 1), 0xC9 - 'e');
    EXPECT_EQ(memcasecmp("Abx", "aBy", 2), 0);
}

}  // namespace
}  // namespace lorvale
