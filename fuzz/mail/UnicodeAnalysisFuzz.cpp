// Arbitrary bytes as a text in any language.  Delivered in any pieces it gives the same words, which are those
// that a look at each run as a whole finds; their positions ascend and lie inside; a text in ASCII gives the
// terms of English.

#include "base/text/Words.h"
#include "fuzz/FuzzTarget.h"
#include "lorvale/search/unicode_analysis.h"
#include "lorvale/toolkit/analysis.h"
#include "lorvale/toolkit/corpus.h"
#include "lorvale/values/text.h"
#include "mail/search/UnicodeTokenizer.h"
#include "tests/support/PiecewiseText.h"

namespace {

using lorvale::UnicodeTokenizer;
using Token = brindle::testing::PlainToken;
using lorvale::fuzz::require;

template <class Text>
std::vector<Token> wordsOf(const std::string& text) {
    UnicodeTokenizer tokenizer(std::make_unique<brindle::DocTextCharStream>(std::make_unique<Text>(text)));
    return brindle::testing::viewsOf(tokenizer);
}

std::vector<std::string> termsOf(const brindle::IAAnalysis& analysis, const std::string& text) {
    std::vector<std::string> terms;
    for (const Token& token :
         brindle::testing::viewsOf(*analysis.MakeTokenStream(std::make_unique<brindle::StringDocText>(text))))
        terms.push_back(token.term);
    return terms;
}

bool isInRun(char c) {
    return lorvale::isLetterOrNumber(static_cast<unsigned char>(c)) || (c & 0x80) != 0 ||
           std::string_view(",.'`").find(c) != std::string_view::npos;
}

/// The words of a run as one piece.
class PlainRun {
public:
    explicit PlainRun(std::string ofText, std::size_t position) : text(std::move(ofText)), start(position) {
        for (std::string_view rest = text; !rest.empty();) {
            const auto at = text.size() - rest.size();
            if (lorvale::isBadByte(lorvale::nextCodePoint(rest))) text[at] = ' ';
        }
        std::vector<char> marks(text.size());
        lorvale::markWordStarts(text, marks);
        for (std::size_t begin = 0, end = 0; begin < text.size(); begin = end) {
            for (end = begin + 1; end < text.size() && marks[end] == 0; ++end) continue;
            longest = std::max(longest, end - begin);
            AddWord(begin, end);
        }
        AddPairs();
    }
    std::vector<Token> tokens;
    std::size_t longest = 0;

private:
    static char32_t First(std::string_view word) { return lorvale::nextCodePoint(word); }
    static std::size_t CharacterEnd(std::string_view word, std::size_t begin) {
        auto rest = word.substr(begin);
        lorvale::nextCodePoint(rest);
        while (!rest.empty() && lorvale::joinsCharacterBefore(First(rest))) lorvale::nextCodePoint(rest);
        return word.size() - rest.size();
    }
    void AddWord(std::size_t begin, std::size_t end) {
        const std::string_view word = std::string_view(text).substr(begin, end - begin);
        const bool inPairs = lorvale::isWrittenWithoutBlanks(First(word));
        if (!inPairs) AddPairs();
        if (!inPairs && !lorvale::isLetterOrNumber(First(word))) return;
        for (std::size_t at = 0, next = 0; at < word.size(); at = next) {
            next = inPairs ? CharacterEnd(word, at) : word.size();
            std::string folded;
            lorvale::appendFoldedForSearch(folded, word.substr(at, next - at));
            const Token token{"", start + begin + at, start + begin + next};
            if (!inPairs) Add({folded, token.start, token.end});
            for (std::size_t part = 0, after = 0; inPairs && part < folded.size(); part = after) {
                after = CharacterEnd(folded, part);
                characters.push_back({folded.substr(part, after - part), token.start, token.end});
            }
        }
    }
    void AddPairs() {
        if (characters.size() == 1) Add(characters[0]);
        for (std::size_t i = 1; i < characters.size(); ++i)
            Add({characters[i - 1].term + characters[i].term, characters[i - 1].start, characters[i].end});
        characters.clear();
    }
    void Add(Token token) {
        if (!token.term.empty()) tokens.push_back(std::move(token));
    }
    std::string text;
    const std::size_t start;
    std::vector<Token> characters;
};

/// The words of a text, unless some of it is longer than the tokenizer looks at once.
bool plainWords(const std::string& text, std::vector<Token>& words) {
    for (std::size_t begin = 0, end = 0; begin < text.size(); begin = std::max(end, begin + 1)) {
        end = begin;
        if (!isInRun(text[begin]) || std::string_view(",.'`").find(text[begin]) != std::string_view::npos)
            continue;
        while (end < text.size() && isInRun(text[end])) ++end;
        std::string run = lorvale::asciiLowered(text.substr(begin, end - begin));
        if (lorvale::isAscii(run)) {
            if (run.size() > UnicodeTokenizer::kMaxLength) return false;
            run.resize(run.find_last_not_of(",.'`") + 1);
            words.push_back({run, begin, end});
            continue;
        }
        const PlainRun plain(std::move(run), begin);
        if (plain.longest > UnicodeTokenizer::kWindow / 4) return false;
        words.insert(words.end(), plain.tokens.begin(), plain.tokens.end());
    }
    return std::ranges::all_of(
        words, [](const Token& word) { return word.term.size() <= UnicodeTokenizer::kMaxLength; });
}

void checkPositions(const std::vector<Token>& tokens, std::size_t size) {
    std::size_t before = 0;
    for (const Token& token : tokens) {
        require(!token.term.empty() && token.term.size() <= UnicodeTokenizer::kMaxLength);
        require(before <= token.start && token.start < token.end && token.end <= size);
        before = token.start;
    }
}

}  // namespace

LORVALE_FUZZ_TARGET(input) {
    const std::string text(input);
    const auto words = wordsOf<brindle::StringDocText>(text);
    require(wordsOf<brindle::testing::PiecewiseText>(text) == words);
    checkPositions(words, input.size());
    if (std::vector<Token> plain; plainWords(text, plain)) require(plain == words);
    std::string ascii = text;
    for (char& c : ascii) c = static_cast<char>(c & 0x7F) == 0 ? ' ' : static_cast<char>(c & 0x7F);
    require(termsOf(lorvale::UnicodeAnalysis(), ascii) == termsOf(brindle::EnglishAnalysis(), ascii));
}
