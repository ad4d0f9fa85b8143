#include <gtest/gtest.h>

#include <string>

#include "lorvale/toolkit/retrieval.h"
#include "tests/support/FailureText.h"

namespace brindle::testing {
namespace {

/// The tree with all its parentheses; "-" for a query without a tree; else the failure.
std::string parsed(const std::string& text, bool unicodeWords = false) {
    IABooleanQuery query;
    query.SetUnicodeWords(unicodeWords);
    std::string tree = "-";
    const std::string failure = failureOf([&] {
        if (query.Initialize(text)) tree = query.GetTree()->Describe();
    });
    return failure.empty() ? tree : failure;
}

std::string words(int count, const std::string& between) {
    std::string text = "w100";
    for (int i = 1; i < count; ++i) text += between + "w" + std::to_string(100 + i);
    return text;
}

const std::string kUnbalanced = "VAIQ Error unballanced parentheses";
const std::string kInvalid = "VAIQ invalid query";
const std::string kFull = "QFLT attempt to push a new item into full stack";

TEST(QueryParser, ReadsTheLanguage) {
    const std::string a50(50, 'a'), b50(50, 'b'), c20(20, 'c');
    const struct {
        const char* why;
        std::string text, tree;
    } rows[] = {
        {"one word", " mail ", "mail"},
        {"words side by side are joined by or", "a b", "(a|b)"},
        {"or", "a | b", "(a|b)"},
        {"and before or", "a & b | c", "((a&b)|c)"},
        {"and before or, behind", "a | b & c", "(a|(b&c))"},
        {"and before not", "a ! b & c", "(a!(b&c))"},
        {"not before or", "a | b ! c", "(a|(b!c))"},
        {"from left to right", "a ! b ! c", "((a!b)!c)"},
        {"parentheses", "a & (b | c)", "(a&(b|c))"},
        {"without blanks", "a&!b", kInvalid},
        {"what stands side by side is joined last", "a b & c", "(a|(b&c))"},
        {"and only when the operators have taken theirs", "a & b c", "(a|(b&c))"},
        {"parentheses do not hold them together", "(a b) & c", "(a|(b&c))"},
        {"marks are part of words", "o'clock e-mail 3.14", "(o'clock|(e-mail|3.14))"},
        {"long words fall apart", a50 + b50 + c20, "(" + a50 + "|(" + b50 + "|" + c20 + "))"},
        {"a later word that begins alike shares the first", "mail & mailbox", "(mail&mail)"},
        {"an earlier one does not", "mailbox & mail", "(mailbox&mail)"},
        {"side by side as well", "mail mailbox", "(mail|mail)"},
        {"open", "(a", kUnbalanced},
        {"closed", "a)", kUnbalanced},
        {"closed twice", "(a))", kUnbalanced},
        {"nothing before", "!a", kInvalid},
        {"nothing behind", "a |", kInvalid},
        {"nothing inside", "()", kInvalid},
        {"blanks alone", "  ", kInvalid},
        {"nothing at all", "", "-"},
        {"a byte of no class ends the query behind a blank", "a \xC3\xA9t\xC3\xA9", "-"},
        {"and is part of a word elsewhere", "\xC3\xA9t\xC3\xA9", "\xC3\xA9t\xC3\xA9"},
        {"as many as there may be", words(50, "&"), parsed(words(50, "&"))},
        {"one word more than 99", words(100, " "), kFull},
        {"50 words and 49 operators are 99", words(51, "&"), kFull},
        {"98 may be open", std::string(98, '(') + "a" + std::string(98, ')'), "a"},
        {"no more", std::string(99, '(') + "a" + std::string(99, ')'), kFull},
        {"deep", std::string(1 << 20, '('), kFull},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(parsed(row.text), row.tree);
    }
    EXPECT_EQ(parsed(words(50, "&")).substr(0, 50), std::string(49, '(') + "w");
    EXPECT_EQ(parsed(words(99, " ")).size(), words(99, "|").size() + 2 * 98);
}

TEST(QueryParser, ReadsUnicodeWords) {
    const std::string e = "\xC3\xA9", han = "\xE6\x97\xA5";
    const auto times = [](int count, const std::string& text) {
        std::string all;
        while (count-- > 0) all += text;
        return all;
    };
    EXPECT_EQ(parsed("a " + e + "t" + e + " & " + han, true), "(a|(" + e + "t" + e + "&" + han + "))");
    EXPECT_EQ(parsed(times(17, han), true), "(" + times(16, han) + "|" + han + ")");
    EXPECT_EQ(parsed(times(26, e), true), "(" + times(25, e) + "|" + e + ")");
    EXPECT_EQ(parsed("a" + times(25, e), true), "(a" + times(24, e) + "|" + e + ")");
    EXPECT_EQ(parsed(times(51, "\x80"), true), "(" + times(50, "\x80") + "|\x80)");
}

TEST(QueryParser, TakesOtherOperators) {
    IABooleanQuery query;
    query.GetParser().SetAndOperator('+');
    query.GetParser().SetOrOperator('/');
    query.GetParser().SetNotOperator('-');
    query.GetParser().SetLeftFence('<');
    query.GetParser().SetRightFence('>');
    ASSERT_TRUE(query.Initialize("<a/b>+c-d&e"));
    EXPECT_EQ(query.GetTree()->Describe(), "(((a|b)&c)!d&e)");
    EXPECT_EQ(query.Count(), 4u);
}

TEST(QueryParser, ForgetsTheQueryBefore) {
    IABooleanQuery query;
    EXPECT_TRUE(query.Initialize("mail"));
    EXPECT_EQ(failureOf([&] { query.Initialize("post |"); }), kInvalid);
    EXPECT_EQ(query.GetTree(), nullptr);
    EXPECT_TRUE(query.Initialize("box"));
    EXPECT_EQ(query.Count(), 1u);
}

}  // namespace
}  // namespace brindle::testing
