#include "lorvale/values/regular_expression.h"

#include <gmock/gmock.h>
#include <regex.h>

#include <functional>
#include <random>

#include "lorvale/platform/exception.h"
#include "lorvale/values/property_list.h"
#include "tests/support/LogCapture.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// The characters of which texts are made here.
constexpr std::string_view kAlphabet = "abc.";

/// An expression as a tree, with a matcher that follows the rules word by word: all ways to match, in order.
struct Tree {
    enum Kind { one, begin, end, group, sequence, either, star, plus, maybe } kind;
    std::string written = {};
    std::string_view accepts = {};  // of one character
    std::vector<Tree> parts = {};
    std::size_t number = 0;  // of a group

    using Places = std::array<Range, 10>;
    using Then = std::function<bool(std::size_t, const Places&)>;

    bool match(const std::string& in, std::size_t at, const Places& places, const Then& then) const {
        switch (kind) {
            case one:
                return at < in.size() && accepts.find(in[at]) != std::string_view::npos && then(at + 1, places);
            case begin:
                return at == 0 && then(at, places);
            case end:
                return at == in.size() && then(at, places);
            case group:
                return parts[0].match(in, at, places, [&](std::size_t to, Places inner) {
                    inner[number] = {at, to - at};
                    return then(to, inner);
                });
            case sequence:
                return matchFrom(0, in, at, places, then);
            case either:
                return std::ranges::any_of(parts,
                                           [&](const Tree& part) { return part.match(in, at, places, then); });
            case star:
                return again(in, at, places, then) || then(at, places);
            case plus:
                return again(in, at, places, then);
            default:
                return parts[0].match(in, at, places, then) || then(at, places);
        }
    }

private:
    bool again(const std::string& in, std::size_t at, const Places& places, const Then& then) const {
        return parts[0].match(in, at, places, [&](std::size_t to, const Places& inner) {
            return again(in, to, inner, then) || then(to, inner);
        });
    }
    bool matchFrom(std::size_t part, const std::string& in, std::size_t at, const Places& places,
                   const Then& then) const {
        if (part == parts.size()) return then(at, places);
        return parts[part].match(in, at, places, [&](std::size_t to, const Places& inner) {
            return matchFrom(part + 1, in, to, inner, then);
        });
    }
};

class RandomTrees {
public:
    explicit RandomTrees(unsigned seed) : _random(seed) {}

    Tree tree() {
        _groups = 0;
        return either(0);
    }
    std::string text() {
        std::string result(pick(12), 'a');
        for (auto& c : result) c = kAlphabet[pick(4)];
        return result;
    }

private:
    std::size_t pick(std::size_t below) { return _random() % below; }
    Tree either(int depth) {
        Tree result{Tree::either};
        for (auto n = 1 + pick(6) / 4; n > 0; --n) {
            Tree sequence{Tree::sequence};
            for (auto m = 1 + pick(4); m > 0; --m) {
                sequence.parts.push_back(piece(depth));
                sequence.written += sequence.parts.back().written;
            }
            result.written += (result.parts.empty() ? "" : "|") + sequence.written;
            result.parts.push_back(sequence);
        }
        return result;
    }
    Tree piece(int depth) {
        const auto piece = atom(depth);
        const auto how = pick(9);
        if (piece.kind == Tree::begin || piece.kind == Tree::end || how > 2) return piece;
        return {static_cast<Tree::Kind>(Tree::star + how), piece.written + "*+?" [how], {}, {piece}};
    }
    Tree atom(int depth) {
        const auto what = pick(9);
        if (what == 0) return {Tree::one, ".", kAlphabet};
        if (what == 1) return {Tree::one, "[ab]", "ab"};
        if (what == 2) return {Tree::one, "[^b.]", "ac"};
        if (what == 3 && pick(3) == 0) return pick(2) == 0 ? Tree{Tree::begin, "^"} : Tree{Tree::end, "$"};
        if (what == 4 && depth < 3 && _groups < 9) {
            const auto number = ++_groups;
            const auto inside = either(depth + 1);
            return {Tree::group, "(" + inside.written + ")", {}, {inside}, number};
        }
        const auto character = kAlphabet.substr(pick(4), 1);
        return {Tree::one, (character == "." ? "\\" : "") + std::string(character), character};
    }

    std::mt19937 _random;
    std::size_t _groups = 0;
};

std::string complaintOf(const std::string& expression) {
    std::string complaint;
    const auto compiled = _MOregcomp(expression.c_str(), &complaint);
    EXPECT_EQ(compiled == nullptr, !complaint.empty());
    return complaint;
}

TEST(RegularExpression, AgreesWithThePlainRulesAndWithPosixWhereThatSpeaksTheSame) {
    RandomTrees random(1);
    int matched = 0, refused = 0;
    for (int round = 0; round < 20'000; ++round) {
        const auto tree = random.tree();
        const auto written = tree.written, text = random.text();
        SCOPED_TRACE(written + "  in  " + text);
        auto expression = RegularExpression::regularExpressionWithString(written);
        if (!expression) {
            ASSERT_EQ(complaintOf(written), "*+ operand could be empty");
            ++refused;
            continue;
        }
        std::optional<Tree::Places> expected;
        for (std::size_t at = 0; at <= text.size() && !expected; ++at) {
            Tree::Places none;
            none.fill(Range::notFound());
            tree.match(text, at, none, [&](std::size_t to, Tree::Places places) {
                places[0] = {at, to - at};
                return expected = places, true;
            });
        }
        ASSERT_EQ(expression->matchesString(text), expected.has_value());
        for (std::size_t i = 0; expected && i < 10; ++i)
            ASSERT_EQ(expression->rangeForSubexpressionAtIndex(i, text), (*expected)[i]) << i;
        if (expected) ++matched;
        // POSIX takes the longest match, not the first one: whether and where one begins is the same.
        regex_t posix;
        ASSERT_EQ(::regcomp(&posix, written.c_str(), REG_EXTENDED), 0);
        regmatch_t place{};
        ASSERT_EQ(::regexec(&posix, text.c_str(), 1, &place, 0) == 0, expected.has_value());
        const auto begin = static_cast<std::size_t>(place.rm_so);
        ASSERT_EQ(expected ? begin : 0, expected ? (*expected)[0].location : 0);
        ::regfree(&posix);
    }
    EXPECT_GT(matched, 10'000);
    EXPECT_GT(refused, 100);
}

TEST(RegularExpression, RefusesWithAReason) {
    const std::pair<std::string, std::string> rows[] = {
        {"(((((((((a)))))))))", ""},
        {"((((((((((a))))))))))", "too many ()"},
        {"(a", "unmatched ()"},
        {"a)", "unmatched ()"},
        {"(a*)*", "*+ operand could be empty"},
        {"(a|)+", "*+ operand could be empty"},
        {"^*", "*+ operand could be empty"},
        {"(a*)?", ""},
        {"a**", "nested *?+"},
        {"a?+", "nested *?+"},
        {"[b-a]", "invalid [] range"},
        {"[a-a]", ""},
        {"[a", "unmatched []"},
        {"[]", "unmatched []"},
        {"[]]", ""},
        {"[^]a-]", ""},
        {"a\\", "trailing \\"},
        {"*a", "internal disaster"},
        {"a|*", "internal disaster"},
        {"", ""},
        {std::string(0x7FFF - 11, 'a'), "regexp too big"},  // a mark, three heads of nodes, a zero byte
        {std::string(0x7FFF - 12, 'a'), ""},
    };
    for (const auto& [expression, complaint] : rows)
        EXPECT_EQ(complaintOf(expression), complaint) << expression.substr(0, 20);
    std::string complaint;
    EXPECT_EQ(_MOregcomp(nullptr, &complaint), nullptr);
    EXPECT_EQ(complaint, "NULL argument");
    EXPECT_FALSE(RegularExpression::regularExpressionWithString("(a"));
}

TEST(RegularExpression, CountsCharactersAndKeepsTheLastMatch) {
    auto expression = *RegularExpression::regularExpressionWithString("(b+)(c)?[d-]");
    EXPECT_EQ(expression.rangeForSubexpressionAtIndex(1, "éàbbd"), (Range{2, 2}));
    EXPECT_EQ(expression.rangeForSubexpressionAtIndex(2, "éàbbd"), Range::notFound());
    EXPECT_EQ(expression.rangeForSubexpressionAtIndex(10, "éàbbd"), Range::notFound());
    EXPECT_THROW(expression.rangeForSubexpressionAtIndex(11, "éàbbd"), InvalidArgumentException);
    EXPECT_EQ(expression.substringForSubexpressionAtIndex(0, "bbc-"), "bbc-");
    EXPECT_EQ(expression.substringForSubexpressionAtIndex(0, "x"), std::nullopt);
    EXPECT_THAT(*expression.subexpressionsForString("bd"),
                ElementsAre("bd", "b", "", "", "", "", "", "", "", ""));
    EXPECT_EQ(regularExpressionFromPropertyList(toPropertyList(expression)), expression);
    EXPECT_FALSE(regularExpressionFromPropertyList(PropertyList::Dictionary{{"expression", "("}}));

    auto compiled = _MOTestAndCompileExpressionString("(a+)(b)?");
    ASSERT_TRUE(_MOregexec(*compiled, "xaay"));
    EXPECT_EQ(_MOregsub(*compiled, R"([&] \1\2\9 \& \\ \x)"), R"([aa] aa & \ \x)");
    compiled->program[0] = 'a';
    EXPECT_FALSE(_MOregexec(*compiled, "xaay"));
    EXPECT_EQ(_MOregsub(*compiled, "&"), std::nullopt);
}

TEST(RegularExpression, ThatWouldTakeForEverEndsWithALogLine) {
    LogCapture log;
    const auto matches = [](std::string_view expression, const std::string& text) {
        return RegularExpression::regularExpressionWithString(expression)->matchesString(text);
    };
    const std::string large(200'000, 'a');
    setRegularExpressionStepLimit(100'000);
    EXPECT_FALSE(matches("((a|a)+)+[bc]", std::string(40, 'a')));
    EXPECT_FALSE(matches("[a]*b[c]", large.substr(0, 10'000) + "b"));
    EXPECT_TRUE(matches("[a]*$", large));
    EXPECT_FALSE(matches("(a|b)*$", large));
    setRegularExpressionStepLimit(10'000'000);
    EXPECT_TRUE(matches("(a|b)*$", large));
    EXPECT_THAT(log.take(), ElementsAre(HasSubstr("too many steps on a text of 40 bytes"),
                                        HasSubstr("10001 bytes"), HasSubstr("200000 bytes")));
}

}  // namespace
}  // namespace lorvale
