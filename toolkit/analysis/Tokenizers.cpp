#include "lorvale/toolkit/analysis/tokenizers.h"

#include <algorithm>
#include <cstring>

#include "lorvale/toolkit/analysis/char_stream.h"
#include "toolkit/analysis/ByteClasses.h"

namespace brindle {

namespace {

std::size_t indexOf(char c) {
    return static_cast<unsigned char>(c);
}

std::unique_ptr<IAToken> tokenOf(const IATermView& view) {
    return std::make_unique<IAToken>(std::make_unique<StringTerm>(view.View()), view.startPosition,
                                     view.endPosition);
}

template <class InClass>
IARunBytes runsOf(InClass inClass) {
    IARunBytes bytes;
    for (int i = 0; i < 256; ++i) {
        const char c = static_cast<char>(i);
        bytes.begins[indexOf(c)] = inClass(c);
        bytes.folded[indexOf(c)] = inClass(c) ? ToLower(c) : '\0';
    }
    return bytes;
}

IARunBytes graphicRuns(std::string_view alsoGraphic) {
    return runsOf([alsoGraphic](char c) { return IsGraphic(c) || alsoGraphic.find(c) != alsoGraphic.npos; });
}

IARunBytes wordRuns(std::string_view extraChars) {
    static const IARunBytes words = runsOf(IsAlphanumeric);
    IARunBytes bytes = words;
    for (const char c : extraChars.substr(0, OneByteASCIITokenizer::MaxExtraChars))
        bytes.folded[indexOf(c)] = ToLower(c);
    bytes.zeroGoesOn = true;
    return bytes;
}

}  // namespace

void CanonizeWordToLowercase(char* word, std::int16_t limit) {
    for (; limit > 0 && *word != '\0'; --limit, ++word) *word = ToLower(*word);
}

void CanonizeWordToUppercase(char* word, std::int16_t limit) {
    for (; limit > 0 && *word != '\0'; --limit, ++word) *word = ToUpper(*word);
}

AlphaTokenizer::AlphaTokenizer(std::unique_ptr<IACharStream> characters) : TokenSource(std::move(characters)) {}
AlphaTokenizer::~AlphaTokenizer() = default;

std::unique_ptr<IAToken> AlphaTokenizer::GetNextToken() {
    IATermView next;
    return NextTerm(next) ? tokenOf(next) : nullptr;
}

bool AlphaTokenizer::NextTerm(IATermView& next) {
    IACharStream& characters = *GetCharStream();
    bool eos = false;
    char c = characters.GetNextChar(&eos);
    while (!eos && !IsLetter(c)) c = characters.GetNextChar(&eos);
    if (eos) return false;
    next = {word.data(), 0, characters.CurrentPos() - 1, 0};
    for (;;) {
        word[next.length++] = c;
        if (next.length == MaxLength) break;
        c = characters.GetNextChar(&eos);
        if (eos || !IsLetter(c)) break;
    }
    next.endPosition = characters.CurrentPos() - 1;
    return true;
}

IARunTokenizer::IARunTokenizer(std::unique_ptr<IACharStream> characters, const IARunBytes& ofRuns,
                               bool trimming)
    : TokenSource(std::move(characters)), bytes(ofRuns), trims(trimming) {}
IARunTokenizer::~IARunTokenizer() = default;

std::unique_ptr<IAToken> IARunTokenizer::GetNextToken() {
    IATermView next;
    return NextTerm(next) ? tokenOf(next) : nullptr;
}

bool IARunTokenizer::NextTerm(IATermView& next) {
    do {
        if (!FindStart()) return false;
        if (ReadRun(next)) PassOverRest(next);
        if (holdsZero || (trims && !bytes.begins[indexOf(word[next.length - 1])])) CutTerm(next);
    } while (next.length == 0);
    return true;
}

/// Goes to the first byte that begins a run; false at the end of the text.
bool IARunTokenizer::FindStart() {
    IACharStream& characters = *GetCharStream();
    do {
        char* const end = characters.GetEndChar();
        char* at = characters.GetNextCharInBuffer();
        while (at != end && !bytes.begins[indexOf(*at)]) ++at;
        characters.SetNextCharInBuffer(at);
        if (at != end) return true;
    } while (characters.ReadPastEndOfBuffer());
    return false;
}

/// Takes up to 129 bytes of a run and the byte behind them.  True if the run goes on with that one.
bool IARunTokenizer::ReadRun(IATermView& next) {
    IACharStream& characters = *GetCharStream();
    next = {word.data(), 0, characters.CurrentPos(), 0};
    holdsZero = false;
    char* out = word.data();
    char* const full = out + MaxLength;
    bool goesOn = false;
    do {
        char* at = characters.GetNextCharInBuffer();
        char* const end = characters.GetEndChar();
        for (;;) {
            char* const stop = at + std::min(end - at, full - out);
            while (at != stop && bytes.folded[indexOf(*at)] != '\0') *out++ = bytes.folded[indexOf(*at++)];
            // A zero byte that goes on is rare, and folds to what ends a run.
            if (at == stop || !GoesOn(*at)) break;
            *out++ = *at++;
            holdsZero = true;
        }
        const bool stopped = at != end;
        goesOn = stopped && GoesOn(*at);
        characters.SetNextCharInBuffer(at + stopped);  // what stopped the run is used up
        if (stopped) break;
    } while (characters.ReadPastEndOfBuffer());
    next.length = static_cast<std::uint32_t>(out - word.data());
    next.endPosition = next.startPosition + next.length;
    return goesOn;
}

void IARunTokenizer::PassOverRest(IATermView& next) {
    IACharStream& characters = *GetCharStream();
    bool eos = false;
    char c;
    do c = characters.GetNextChar(&eos);
    while (!eos && GoesOn(c));
    next.endPosition = characters.CurrentPos() - 1;
}

void IARunTokenizer::CutTerm(IATermView& next) const {
    if (trims)
        while (next.length != 0 && !bytes.begins[indexOf(word[next.length - 1])]) --next.length;
    if (holdsZero)
        next.length = static_cast<std::uint32_t>(next.View().substr(0, next.View().find('\0')).size());
}

WhiteSpaceTokenizer::WhiteSpaceTokenizer(std::unique_ptr<IACharStream> characters, std::string_view alsoGraphic)
    : IARunTokenizer(std::move(characters), graphicRuns(alsoGraphic), false) {}
WhiteSpaceTokenizer::~WhiteSpaceTokenizer() = default;

OneByteASCIITokenizer::OneByteASCIITokenizer(std::unique_ptr<IACharStream> characters,
                                             std::string_view extraChars)
    : IARunTokenizer(std::move(characters), wordRuns(extraChars), true) {}
OneByteASCIITokenizer::~OneByteASCIITokenizer() = default;

}  // namespace brindle
