#pragma once
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/toolkit/analysis/token_stream.h"

namespace brindle {

// The classes of bytes are those of the C locale: a byte from 0x80 on is in none of them.

/// Folds at most `limit` characters of a terminated word in place.
LORVALE_EXPORT void CanonizeWordToLowercase(char* word, std::int16_t limit);
LORVALE_EXPORT void CanonizeWordToUppercase(char* word, std::int16_t limit);

/// Runs of letters in the case they have.  A run longer than 63 letters becomes several tokens.
///
/// A token ends one past its last letter if a byte that is no letter follows; else, at the end of the text or
/// of its 63 letters, on that last letter itself.  Positions are kept with indexes, so this stays.
class LORVALE_EXPORT AlphaTokenizer : public TokenSource {
public:
    static constexpr std::uint32_t MaxLength = 63;

    explicit AlphaTokenizer(std::unique_ptr<IACharStream> characters);
    ~AlphaTokenizer() override;

    std::unique_ptr<IAToken> GetNextToken() override;
    bool NextTerm(IATermView& next) override;

private:
    std::array<char, MaxLength> word;
};

/// Which bytes make a run: one that begins() starts it, and it goes on while folded[] of a byte is not 0 and
/// gives the byte in its term.
struct IARunBytes {
    std::array<bool, 256> begins{};
    std::array<char, 256> folded{};
    bool zeroGoesOn = false;  // a zero byte goes on, too
};

/// What the two tokenizers of runs share.  A term has at most 129 bytes; the rest of a longer run is passed
/// over and belongs to the token's span, as do the marks that are cut from its end.
class LORVALE_EXPORT IARunTokenizer : public TokenSource {
public:
    static constexpr std::uint32_t MaxLength = 129;
    ~IARunTokenizer() override;

    std::unique_ptr<IAToken> GetNextToken() override;
    bool NextTerm(IATermView& next) override;

protected:
    /// With `trimming`, bytes that do not begin a run are cut from the end of its term.
    IARunTokenizer(std::unique_ptr<IACharStream> characters, const IARunBytes& ofRuns, bool trimming);

private:
    bool GoesOn(char c) const {
        return bytes.folded[static_cast<unsigned char>(c)] != '\0' || (c == '\0' && bytes.zeroGoesOn);
    }
    bool FindStart();
    bool ReadRun(IATermView& next);
    void PassOverRest(IATermView& next);
    void CutTerm(IATermView& next) const;

    const IARunBytes bytes;
    const bool trims;
    bool holdsZero = false;  // the run in `word`
    std::array<char, MaxLength> word;
};

/// Runs of graphic bytes in lower case.
class LORVALE_EXPORT WhiteSpaceTokenizer : public IARunTokenizer {
public:
    /// `alsoGraphic` are bytes that count as graphic besides.
    explicit WhiteSpaceTokenizer(std::unique_ptr<IACharStream> characters, std::string_view alsoGraphic = {});
    ~WhiteSpaceTokenizer() override;
};

/// Words in lower case: each begins with a letter or digit, goes on with these and the extra characters, and
/// ends with a letter or digit again.  With ",." for extra characters "1,000.50" is one word.
///
/// A zero byte inside a run goes on, too, and ends the term there: what follows is in the token's span only.
/// Texts with zero bytes have always been cut that way, so that stays.
class LORVALE_EXPORT OneByteASCIITokenizer : public IARunTokenizer {
public:
    static constexpr std::size_t MaxExtraChars = 63;
    /// Of the extra characters the first 63 count.
    explicit OneByteASCIITokenizer(std::unique_ptr<IACharStream> characters, std::string_view extraChars = {});
    ~OneByteASCIITokenizer() override;
};

}  // namespace brindle
