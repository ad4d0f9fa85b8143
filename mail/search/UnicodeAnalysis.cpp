#include "lorvale/search/unicode_analysis.h"

#include <utility>

#include "lorvale/toolkit/analysis/char_stream.h"
#include "mail/search/UnicodeTokenizer.h"

namespace lorvale {

UnicodeAnalysis::UnicodeAnalysis() : IAAnalysis(Type) {}

UnicodeAnalysis::UnicodeAnalysis(std::unique_ptr<brindle::IADocText> stopwordList,
                                 std::unique_ptr<brindle::IADocText> substitutionList)
    : IAAnalysis(Type), _english(std::move(stopwordList), std::move(substitutionList)) {}

UnicodeAnalysis::UnicodeAnalysis(const char* stopwordPath, const char* substitutionPath)
    : IAAnalysis(Type), _english(stopwordPath, substitutionPath) {}

UnicodeAnalysis::~UnicodeAnalysis() = default;

std::unique_ptr<brindle::IATokenStream> UnicodeAnalysis::MakeTokenStream(
    std::unique_ptr<brindle::IADocText> text) const {
    return _english.FilterWords(
        std::make_unique<UnicodeTokenizer>(std::make_unique<brindle::DocTextCharStream>(std::move(text))));
}

std::unique_ptr<brindle::IATerm> UnicodeAnalysis::GetProtoTerm() const {
    return std::make_unique<brindle::StringTerm>();
}

}  // namespace lorvale
