#include "lorvale/search/unicode_analysis.h"

#include <utility>

#include "lorvale/toolkit/analysis/char_stream.h"
#include "mail/search/RememberedWords.h"
#include "mail/search/UnicodeTokenizer.h"

namespace lorvale {

UnicodeAnalysis::UnicodeAnalysis() : IAAnalysis(Type), _memories(std::make_unique<WordMemories>()) {}

UnicodeAnalysis::UnicodeAnalysis(std::unique_ptr<brindle::IADocText> stopwordList,
                                 std::unique_ptr<brindle::IADocText> substitutionList)
    : IAAnalysis(Type),
      _english(std::move(stopwordList), std::move(substitutionList)),
      _memories(std::make_unique<WordMemories>()) {}

UnicodeAnalysis::UnicodeAnalysis(const char* stopwordPath, const char* substitutionPath)
    : IAAnalysis(Type), _english(stopwordPath, substitutionPath), _memories(std::make_unique<WordMemories>()) {}

UnicodeAnalysis::~UnicodeAnalysis() = default;

std::unique_ptr<brindle::IATokenStream> UnicodeAnalysis::MakeTokenStream(
    std::unique_ptr<brindle::IADocText> text) const {
    return std::make_unique<RememberedWords>(
        std::make_unique<UnicodeTokenizer>(std::make_unique<brindle::DocTextCharStream>(std::move(text))),
        [this](auto words) { return _english.FilterWords(std::move(words)); }, *_memories);
}

std::unique_ptr<brindle::IATerm> UnicodeAnalysis::GetProtoTerm() const {
    return std::make_unique<brindle::StringTerm>();
}

}  // namespace lorvale
