// Arbitrary bytes as a text.  Delivered in any pieces it gives the same terms, as tokens and as views; their
// positions ascend and lie inside; words and stems are those of the plain versions.
#include <cctype>

#include "fuzz/FuzzTarget.h"
#include "lorvale/toolkit/analysis.h"
#include "lorvale/toolkit/corpus.h"
#include "tests/support/PiecewiseText.h"
#include "toolkit/analysis/StemRules.h"

namespace {

using lorvale::fuzz::require;
using namespace brindle;
using namespace brindle::testing;

// The stemmer and the tokenizer of words as they are told: one rule, one byte after the other.

bool plainVowel(char c) {
    return std::string_view("aeiou").find(c) != std::string_view::npos;
}

int plainMeasure(std::string_view word) {
    int state = 0, measure = 0;
    for (const char c : word) {
        const bool toVowel = plainVowel(c) || (state == 2 && c == 'y');
        if (state == 1 && !toVowel) ++measure;
        state = toVowel ? 1 : 2;
    }
    return measure;
}

/// Walks all rules of each step.  `end` is the last letter, and a test that fails leaves it too low: then what
/// is compared is longer than any ending.
class PlainStemmer {
public:
    explicit PlainStemmer(std::string_view ofWord) : word(ofWord) { Reset(); }

    std::string Stem() {
        Replace(kStep0);
        for (const char c : word)
            if (!std::isalnum(static_cast<unsigned char>(c))) return word;
        Reset();
        Replace(kStep1a);
        const int cut = Replace(kStep1b);
        bool addedAnE = false;
        if (cut == 106 || cut == 107) addedAnE = Replace(kStep1b1) == 0 && EndsWithCVC(word);
        if (addedAnE) word += 'e', Reset();
        Replace(kStep1c);
        Replace(kStep2);
        Replace(kStep3);
        Replace(kStep4);
        if (!addedAnE) Replace(kStep5a);
        Replace(kStep5b);
        return word;
    }

private:
    void Reset() { end = static_cast<int>(word.size()) - 1; }

    bool EndsWithCVC(std::string_view rest) {
        if (rest.size() < 2) return false;
        const auto last = static_cast<int>(rest.size()) - 1;
        const auto at = [&](int i) { return i < 0 ? 'b' : rest[static_cast<std::size_t>(i)]; };
        end = last - 1;
        if (plainVowel(at(last)) || at(last) == 'w' || at(last) == 'x' || at(last) == 'y') return false;
        end = last - 2;
        return (plainVowel(at(last - 1)) || at(last - 1) == 'y') && !plainVowel(at(last - 2));
    }

    bool Holds(StemCondition condition, std::string_view rest) {
        if (condition == StemCondition::removeAnE) return !EndsWithCVC(rest);
        if (condition == StemCondition::none) return true;
        for (std::size_t i = 0; i < rest.size(); ++i)
            if (plainVowel(rest[i]) || (i > 0 && rest[i] == 'y')) return true;
        return false;
    }

    template <class Step>
    int Replace(const Step& step) {
        for (const auto& entry : step.rules) {
            const StemRule& rule = entry.rule;
            const int ending = end - static_cast<int>(rule.oldEnding.size()) + 1;
            if (ending <= 0 || word.substr(static_cast<std::size_t>(ending)) != rule.oldEnding) continue;
            const std::string rest = word.substr(0, static_cast<std::size_t>(ending));
            if (plainMeasure(rest) <= rule.minimumRootMeasure || !Holds(rule.condition, rest)) continue;
            word = rest + std::string(rule.newEnding);
            Reset();
            return rule.id;
        }
        return 0;
    }

    std::string word;
    int end = 0;
};

/// Words of letters, digits and `extras`, as OneByteASCIITokenizer cuts them.
std::vector<PlainToken> plainWords(const std::string& text, std::string_view extras) {
    const auto begins = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) && !(c & 0x80); };
    const auto goesOn = [&](char c) { return begins(c) || c == '\0' || extras.find(c) != extras.npos; };
    std::vector<PlainToken> tokens;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t start = at;
        if (!begins(text[at++])) continue;
        while (at < text.size() && goesOn(text[at])) ++at;
        const std::size_t held = std::min<std::size_t>(at - start, 129);
        // A run that is too long and ends the text is the one whose end is its last byte.
        const std::size_t end = at - start > held && at == text.size() ? at - 1 : at;
        std::string term = text.substr(start, held);
        while (!begins(term.back())) term.pop_back();
        for (char& c : term) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        tokens.push_back({term.c_str(), start, end});
        if (at < text.size()) ++at;
    }
    return tokens;
}

std::vector<PlainToken> tokensOf(IATokenStream& stream) {
    std::vector<PlainToken> tokens;
    while (const auto token = stream.GetNextToken())
        tokens.push_back(
            {std::string(token->GetTerm()->View()), token->GetStartPosition(), token->GetEndPosition()});
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

LORVALE_FUZZ_TARGET(input) {
    const std::string text(input);
    // The text also serves as the lists.
    const auto list = [&] { return std::make_unique<StringDocText>(text.substr(0, input.size() / 3)); };
    const SimpleAnalysis simple;
    const OneByteAnalysis oneByte;
    const EnglishAnalysis plain, english(list(), list());
    for (const IAAnalysis* const analysis :
         {static_cast<const IAAnalysis*>(&simple), static_cast<const IAAnalysis*>(&oneByte),
          static_cast<const IAAnalysis*>(&plain), static_cast<const IAAnalysis*>(&english)}) {
        const auto tokens = tokensOf(*analysis->MakeTokenStream(std::make_unique<StringDocText>(text)));
        require(viewsOf(*analysis->MakeTokenStream(std::make_unique<PiecewiseText>(text))) == tokens);
        checkPositions(tokens, input.size());
    }
    const auto words = tokensOf(*oneByte.MakeTokenStream(std::make_unique<StringDocText>(text)));
    require(words == plainWords(text, ".,"));
    checkStems(words);
}
