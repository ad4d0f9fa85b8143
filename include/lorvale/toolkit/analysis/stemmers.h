#pragma once
#include <array>
#include <cstdint>
#include <memory>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/toolkit/analysis/stemming_dictionary.h"
#include "lorvale/toolkit/analysis/token_stream.h"

namespace brindle {

/// Cuts English suffixes in place, down to a stem that is never longer than the word and need not be a word
/// itself. False if it stopped early, at a byte that is neither letter nor digit; the word then stays as it is
/// by then. Works on lower-case letters.  Any thread.
LORVALE_EXPORT bool Stem(char* word);

/// Replaces each term by its stem.
class LORVALE_EXPORT EnglishStemmer : public IATokenFilter {
public:
    /// Of a longer term, or one with a zero byte in it, only what stands before is stemmed and kept.
    static constexpr std::uint32_t MaxLength = 1023;

    explicit EnglishStemmer(std::unique_ptr<IATokenStream> input);
    ~EnglishStemmer() override;

    std::unique_ptr<IAToken> GetNextToken() override;
    bool NextTerm(IATermView& next) override;
};

/// Replaces each term that a dictionary knows.
class LORVALE_EXPORT DictionaryStemmer : public IATokenFilter {
public:
    /// Borrows the dictionary for life.
    DictionaryStemmer(std::unique_ptr<IATokenStream> input, const StemmingDictionary* stems);
    ~DictionaryStemmer() override;

    std::unique_ptr<IAToken> GetNextToken() override;
    bool NextTerm(IATermView& next) override;

private:
    const StemmingDictionary* const dictionary;
    std::array<char, StemmingDictionary::MaxStemLength> stem;
};

}  // namespace brindle
