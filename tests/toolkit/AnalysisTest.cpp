#include <gtest/gtest.h>

#include <string>

#include "lorvale/toolkit/analysis.h"
#include "lorvale/toolkit/corpus.h"

namespace brindle::testing {
namespace {

std::unique_ptr<IACharStream> over(std::string_view text) {
    return std::make_unique<StringCharStream>(text.data(), static_cast<std::uint32_t>(text.size()));
}

std::unique_ptr<IADocText> docText(std::string text) {
    return std::make_unique<StringDocText>(std::move(text));
}

/// "term start end" of each token.
std::string tokensOf(IATokenStream& stream) {
    std::string tokens;
    while (const auto token = stream.GetNextToken())
        tokens += (tokens.empty() ? "" : ", ") + std::string(token->GetTerm()->View()) + " " +
                  std::to_string(token->GetStartPosition()) + " " + std::to_string(token->GetEndPosition());
    return tokens;
}

TEST(Tokenizers, CutTextIntoRuns) {
    const std::string letters(200, 'x'), alpha(63, 'x'), longest(129, 'x');
    using namespace std::string_literals;
    enum Kind { alphabetic, graphic, word };
    const struct {
        const char* why;
        Kind kind;
        std::string text, tokens;
    } rows[] = {
        {"letters only, case untouched", alphabetic, "1Ab c2 ", "Ab 1 3, c 4 5"},
        {"the last letter is the end at the end of the text", alphabetic, "ab cd", "ab 0 2, cd 3 4"},
        {"63 letters at most", alphabetic, letters,
         alpha + " 0 62, " + alpha + " 63 125, " + alpha + " 126 188, xxxxxxxxxxx 189 199"},
        {"graphic bytes in lower case", graphic,
         " A-b!\t\x80"
         "C ",
         "a-b! 1 5, c 7 8"},
        {"a long run loses its rest", graphic, letters + " y", longest + " 0 200, y 201 202"},
        {"a run of exactly the limit", graphic, longest + " y", longest + " 0 129, y 130 131"},
        {"a run of exactly the limit at the end", graphic, longest, longest + " 0 129"},
        {"one byte more", graphic, longest + "x", longest + " 0 129"},
        {"extras go on inside", word, "1,000.50 end.", "1,000.50 0 8, end 9 13"},
        {"extras do not begin", word, ",,, a,,, 'b'", "a 4 8, b 10 12"},
        {"other marks end", word, "Mail-Box semi;colon", "mail 0 4, box 5 8, semi 9 13, colon 14 19"},
        {"high apostrophes", word, "dog\xD5s \xC9t\xE9", "dog\xD5s 0 5, t 7 8"},
        {"a zero byte ends the term and not the run", word, "ab\0cd e"s, "ab 0 5, e 6 7"},
        {"nothing", word, "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        std::unique_ptr<IATokenStream> stream;
        if (row.kind == alphabetic) stream = std::make_unique<AlphaTokenizer>(over(row.text));
        if (row.kind == graphic) stream = std::make_unique<WhiteSpaceTokenizer>(over(row.text));
        if (row.kind == word) stream = std::make_unique<OneByteASCIITokenizer>(over(row.text), ",.'\xD5\xAB`");
        EXPECT_EQ(tokensOf(*stream), row.tokens);
        EXPECT_EQ(stream->GetNextToken(), nullptr);
    }
}

TEST(Analyses, ChainTheirSteps) {
    const auto english = [](const char* stopwords, const char* substitutions) {
        return std::make_unique<EnglishAnalysis>(docText(stopwords), docText(substitutions));
    };
    const struct {
        const char* why;
        std::unique_ptr<IAAnalysis> analysis;
        const char* text;
        std::string tokens;
    } rows[] = {
        {"simple", std::make_unique<SimpleAnalysis>(), "One of THREE, an", "one 0 3, three 7 12"},
        {"one byte", std::make_unique<OneByteAnalysis>(), "It's 3.14", "it 0 2, s 3 4, 3.14 5 9"},
        {"english", std::make_unique<EnglishAnalysis>(nullptr, nullptr), "Dog's cats", "dog 0 5, cat 6 10"},
        {"stopwords are looked for before stemming", english("cat The", ""), "the cats", "cat 4 8"},
        {"a substitute is stemmed again", english("", "\xA5ponies went"), "Went", "poni 0 4"},
        {"words before the first stem have none", english("", "went \xA5go gone \xA5 goes"), "went gone goes",
         "went 0 4, go 5 9, goe 10 14"},
        {"the last stem of a word counts", english("", "\xA5go went \xA5wend went"), "went", "wend 0 4"},
        {"stems are cut", english("", ("\xA5" + std::string(70, '1') + " x").c_str()), "x",
         std::string(63, '1') + " 0 1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(tokensOf(*row.analysis->MakeTokenStream(docText(row.text))), row.tokens);
    }
    EXPECT_EQ(SimpleAnalysis().GetAnalysisType(), 0x53696D31u);
    EXPECT_EQ(OneByteAnalysis().GetAnalysisType(), 0x31427431u);
    EXPECT_EQ(EnglishAnalysis().GetAnalysisType(), 0x456E6731u);
}

TEST(ShortWordFilter, DropsShortWordsAndKeepsNumbers) {
    ShortWordFilter filter(std::make_unique<WhiteSpaceTokenizer>(over("of of1 42 one a- a")), 3);
    EXPECT_EQ(tokensOf(filter), "of1 3 6, 42 7 9, one 10 13, a- 14 16");
}

}  // namespace
}  // namespace brindle::testing
