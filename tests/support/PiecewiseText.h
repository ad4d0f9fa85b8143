#pragma once
#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "lorvale/toolkit/analysis.h"
#include "lorvale/toolkit/corpus.h"

namespace brindle::testing {

/// Delivers pieces whose sizes the text itself chooses.
class PiecewiseText : public IADocText {
public:
    explicit PiecewiseText(std::string ofText) : text(std::move(ofText)) {}
    std::uint32_t GetNextBuffer(std::uint8_t* buffer, std::uint32_t size) override {
        if (at == text.size()) return 0;
        const std::size_t wanted = 1 + static_cast<unsigned char>(text[at]) % 7;
        const std::size_t count = std::min({wanted, text.size() - at, std::size_t{size}});
        std::copy_n(text.data() + at, count, buffer);
        at += count;
        return static_cast<std::uint32_t>(count);
    }
    std::unique_ptr<IADocText> DeepCopy() const override { return std::make_unique<PiecewiseText>(text); }

private:
    const std::string text;
    std::size_t at = 0;
};

struct PlainToken {
    std::string term;
    std::size_t start, end;
    bool operator==(const PlainToken&) const = default;
};

/// All that a stream gives as views, each of which is overwritten at once, as whoever asked may.
inline std::vector<PlainToken> viewsOf(IATokenStream& stream) {
    std::vector<PlainToken> tokens;
    for (IATermView next; stream.NextTerm(next);) {
        tokens.push_back({std::string(next.View()), next.startPosition, next.endPosition});
        std::fill_n(next.text, next.length, '#');
    }
    return tokens;
}

}  // namespace brindle::testing
