#include <algorithm>
#include <cstring>

#include "lorvale/toolkit/analysis/stemmers.h"
#include "toolkit/analysis/Stemmer.h"

namespace brindle {

namespace {

template <class Term>
std::unique_ptr<IAToken> withTerm(const IAToken& token, std::string_view text) {
    return std::make_unique<IAToken>(std::make_unique<Term>(text), token.GetStartPosition(),
                                     token.GetEndPosition());
}

}  // namespace

EnglishStemmer::EnglishStemmer(std::unique_ptr<IATokenStream> input) : IATokenFilter(std::move(input)) {}
EnglishStemmer::~EnglishStemmer() = default;

bool EnglishStemmer::NextTerm(IATermView& next) {
    if (!Input().NextTerm(next)) return false;
    next.length = StemInPlace(next.text, std::min(next.length, MaxLength)).length;
    return true;
}

std::unique_ptr<IAToken> EnglishStemmer::GetNextToken() {
    IATermView next;
    if (!NextTerm(next)) return nullptr;
    return std::make_unique<IAToken>(std::make_unique<IATerm>(next.View()), next.startPosition,
                                     next.endPosition);
}

DictionaryStemmer::DictionaryStemmer(std::unique_ptr<IATokenStream> input, const StemmingDictionary* stems)
    : IATokenFilter(std::move(input)), dictionary(stems) {}
DictionaryStemmer::~DictionaryStemmer() = default;

bool DictionaryStemmer::NextTerm(IATermView& next) {
    if (!Input().NextTerm(next)) return false;
    if (const auto found = dictionary->Stem(next.View())) {
        next.text = stem.data();
        next.length = static_cast<std::uint32_t>(found->copy(stem.data(), stem.size()));
    }
    return true;
}

std::unique_ptr<IAToken> DictionaryStemmer::GetNextToken() {
    auto token = Input().GetNextToken();
    if (token == nullptr) return nullptr;
    const auto found = dictionary->Stem(token->GetTerm()->View());
    return found ? withTerm<StringTerm>(*token, *found) : std::move(token);
}

}  // namespace brindle
