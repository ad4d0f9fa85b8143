// Arbitrary bytes as a text.  Delivered in any pieces it gives the same terms, as tokens and as views; their
// positions ascend and lie inside; words and stems are those of the plain versions.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "lorvale/toolkit/analysis.h"
#include "lorvale/toolkit/corpus.h"
#include "tests/support/PiecewiseText.h"
#include "tests/support/PlainAnalysis.h"

namespace {

using namespace brindle;
using brindle::testing::PiecewiseText;
using brindle::testing::PlainStemmer;
using brindle::testing::PlainToken;

void require(bool truth) {
    if (!truth) std::abort();
}

std::vector<PlainToken> tokensOf(IATokenStream& stream) {
    std::vector<PlainToken> tokens;
    while (const auto token = stream.GetNextToken())
        tokens.push_back(
            {std::string(token->GetTerm()->View()), token->GetStartPosition(), token->GetEndPosition()});
    return tokens;
}

std::vector<PlainToken> viewsOf(IATokenStream& stream) {
    std::vector<PlainToken> tokens;
    for (IATermView next; stream.NextTerm(next);) {
        std::string term(next.View());
        std::fill_n(next.text, next.length, '#');  // as whoever asked may
        tokens.push_back({std::move(term), next.startPosition, next.endPosition});
    }
    return tokens;
}

void checkPositions(const std::vector<PlainToken>& tokens, std::size_t size) {
    std::size_t before = 0;
    for (const PlainToken& token : tokens) {
        require(before <= token.start && token.start <= token.end && token.end <= size);
        before = token.start + 1;
    }
}

void checkStems(const std::vector<PlainToken>& words) {
    for (const PlainToken& word : words) {
        std::string stem = word.term;
        Stem(stem.data());
        require(stem.c_str() == PlainStemmer(word.term).Stem());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    // The text also serves as the lists.
    const auto list = [&] { return std::make_unique<StringDocText>(text.substr(0, size / 3)); };
    const SimpleAnalysis simple;
    const OneByteAnalysis oneByte;
    const EnglishAnalysis plain, english(list(), list());
    for (const IAAnalysis* const analysis :
         {static_cast<const IAAnalysis*>(&simple), static_cast<const IAAnalysis*>(&oneByte),
          static_cast<const IAAnalysis*>(&plain), static_cast<const IAAnalysis*>(&english)}) {
        const auto tokens = tokensOf(*analysis->MakeTokenStream(std::make_unique<StringDocText>(text)));
        require(viewsOf(*analysis->MakeTokenStream(std::make_unique<PiecewiseText>(text))) == tokens);
        checkPositions(tokens, size);
    }
    const auto words = tokensOf(*oneByte.MakeTokenStream(std::make_unique<StringDocText>(text)));
    require(words == brindle::testing::plainWords(text, ".,"));
    checkStems(words);
    return 0;
}
