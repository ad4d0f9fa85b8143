#include "lorvale/toolkit/analysis/filters.h"

#include <algorithm>
#include <utility>

#include "lorvale/toolkit/analysis/char_stream.h"
#include "lorvale/toolkit/corpus/doc.h"
#include "toolkit/analysis/ByteClasses.h"

namespace brindle {

namespace {

void downcase(char* text, std::uint32_t length) {
    std::transform(text, text + length, text, ToLower);
}

}  // namespace

IASieve::~IASieve() = default;

std::unique_ptr<IAToken> IASieve::GetNextToken() {
    auto token = Input().GetNextToken();
    while (token != nullptr && !Passes(token->GetTerm()->View())) token = Input().GetNextToken();
    return token;
}

bool IASieve::NextTerm(IATermView& next) {
    IATokenStream& input = Input();
    while (input.NextTerm(next))
        if (Passes(next.View())) return true;
    return false;
}

ShortWordFilter::ShortWordFilter(std::unique_ptr<IATokenStream> input, std::uint32_t minimum)
    : IASieve(std::move(input)), minimumLength(minimum) {}
ShortWordFilter::~ShortWordFilter() = default;

bool ShortWordFilter::Passes(std::string_view term) const {
    return term.size() >= minimumLength || !std::ranges::all_of(term.substr(0, term.find('\0')), IsLetter);
}

StopwordFilter::StopwordFilter(std::unique_ptr<IATokenStream> input, std::unique_ptr<IADocText> list)
    : IASieve(std::move(input)), stopwords(&ownList) {
    if (list != nullptr) ownList.LoadFromStream(std::make_unique<DocTextCharStream>(std::move(list)));
}

StopwordFilter::StopwordFilter(std::unique_ptr<IATokenStream> input, const char* path)
    : IASieve(std::move(input)), stopwords(&ownList) {
    if (path != nullptr && *path != '\0') ownList.LoadFromFile(path);
}

StopwordFilter::StopwordFilter(std::unique_ptr<IATokenStream> input, const LetterTree* list)
    : IASieve(std::move(input)), stopwords(list != nullptr ? list : &ownList) {}

StopwordFilter::~StopwordFilter() = default;

bool StopwordFilter::Passes(std::string_view term) const {
    return !stopwords->Contains(term);
}

DowncaseFilter::DowncaseFilter(std::unique_ptr<IATokenStream> input) : IATokenFilter(std::move(input)) {}
DowncaseFilter::~DowncaseFilter() = default;

std::unique_ptr<IAToken> DowncaseFilter::GetNextToken() {
    auto token = Input().GetNextToken();
    if (token != nullptr)
        downcase(reinterpret_cast<char*>(token->GetTerm()->GetData()), token->GetTerm()->GetLength());
    return token;
}

bool DowncaseFilter::NextTerm(IATermView& next) {
    if (!Input().NextTerm(next)) return false;
    downcase(next.text, next.length);
    return true;
}

}  // namespace brindle
