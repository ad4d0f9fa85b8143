#include "lorvale/toolkit/analysis/token_stream.h"

#include "lorvale/toolkit/analysis/char_stream.h"

namespace brindle {

IAToken::~IAToken() = default;

IATokenStream::IATokenStream() = default;
IATokenStream::~IATokenStream() = default;

bool IATokenStream::NextTerm(IATermView& next) {
    viewed = GetNextToken();
    if (viewed == nullptr) return false;
    IATerm& term = *viewed->GetTerm();
    next = {reinterpret_cast<char*>(term.GetData()), term.GetLength(), viewed->GetStartPosition(),
            viewed->GetEndPosition()};
    return true;
}

TokenSource::TokenSource() = default;
TokenSource::TokenSource(std::unique_ptr<IACharStream> characters) : charStream(std::move(characters)) {}
TokenSource::~TokenSource() = default;

void TokenSource::GetTextSpan(std::uint8_t* destination, std::uint32_t start, std::uint32_t end) {
    charStream->GetTextSpan(reinterpret_cast<char*>(destination), start, end);
}

IATokenFilter::IATokenFilter(std::unique_ptr<IATokenStream> input) : tokenStream(std::move(input)) {}
IATokenFilter::~IATokenFilter() = default;

void IATokenFilter::GetTextSpan(std::uint8_t* destination, std::uint32_t start, std::uint32_t end) {
    Input().GetTextSpan(destination, start, end);
}

IATokenStream& IATokenFilter::Input() const {
    IAAssertion(tokenStream != nullptr, "no input tokenizer", NoInputTokenizer);
    return *tokenStream;
}

}  // namespace brindle
