#include "toolkit/analysis/Stemmer.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "lorvale/toolkit/analysis/stemmers.h"
#include "toolkit/analysis/ByteClasses.h"
#include "toolkit/analysis/ShortBytes.h"
#include "toolkit/analysis/StemRules.h"

namespace brindle {

namespace {

template <class InClass>
constexpr std::array<bool, 256> tableOf(InClass inClass) {
    std::array<bool, 256> table{};
    for (int i = 0; i < 256; ++i) table[static_cast<std::size_t>(i)] = inClass(static_cast<char>(i));
    return table;
}
constexpr auto kVowel =
    tableOf([](char c) { return c == 'a' || c == 'e' || c == 'i' || c == 'o' || c == 'u'; });
constexpr auto kAlphanumeric = tableOf(IsAlphanumeric);

constexpr bool isVowel(char c) {
    return kVowel[static_cast<unsigned char>(c)];
}

/// Whether the measure of a word, the number of its changes from vowel to consonant, exceeds `limit`.
/// A "y" is a vowel behind a consonant, and a consonant elsewhere.
bool measureExceeds(std::string_view word, int limit) {
    if (limit < 0) return true;  // most words that lose an ending lose an "s", for which no measure is asked
    bool consonant = false;      // the letter before was one
    bool vowel = false;          // or it was one of these; at the start neither
    for (const char c : word) {
        const bool nowVowel = isVowel(c) || (c == 'y' && consonant);
        limit -= vowel && !nowVowel;
        vowel = nowVowel;
        consonant = !nowVowel;
    }
    return limit < 0;
}

bool containsVowel(std::string_view word) {
    if (word.empty()) return false;
    return isVowel(word[0]) ||
           std::ranges::any_of(word.substr(1), [](char c) { return isVowel(c) || c == 'y'; });
}

/// A word on its way through the steps.
class Stemming {
public:
    Stemming(char* ofWord, std::size_t ofLength) : word(ofWord), length(ofLength) { SetTail(); }

    void CutPossessive() { Replace(kStep0); }
    void CutSuffixes();
    std::size_t Length() const { return length; }

private:
    std::string_view Text() const { return {word, length}; }
    void SetTail() {
        tail = length >= 8   ? Bytes8(word + length - 8)
               : length == 0 ? 0
                             : BytesUpTo8(Text()) << (64 - 8 * length);
        steps = kStepsByEnding[PlaceByEnding(static_cast<char>(tail >> 56), static_cast<char>(tail >> 48))];
    }
    template <std::size_t N>
    std::uint16_t Replace(const StemStep<N>& step);
    bool Replace(const StemRule& rule);
    bool Holds(StemCondition condition, std::string_view rest);
    bool EndsWithCVC(std::string_view rest);
    bool RestoreAnE();

    char* const word;
    std::size_t length;
    std::uint64_t tail;  // the last bytes, the very last on top
    // Those that may have a rule for it; none for a settled word.  One that lost "ed" or "ing" and was not made
    // whole is left as it is: no later ending matches.  The same holds for a word that keeps its last "e".  So
    // "hurrying" gives "hurry", while "hurry" gives "hurri".  Every index holds stems made this way.
    std::uint16_t steps = 0;
};

/// Whether consonant, vowel and consonant stand at the end, the last being none of w, x and y.  Before a rest
/// of two letters a consonant is assumed.  A rest that has been looked at and left alone is settled.
bool Stemming::EndsWithCVC(std::string_view rest) {
    if (rest.size() < 2) return false;
    steps = 0;
    const char last = rest.back();
    const char middle = rest[rest.size() - 2];
    return !isVowel(last) && last != 'w' && last != 'x' && last != 'y' && (isVowel(middle) || middle == 'y') &&
           (rest.size() == 2 || !isVowel(rest[rest.size() - 3]));
}

bool Stemming::Holds(StemCondition condition, std::string_view rest) {
    switch (condition) {
        case StemCondition::none:
            return true;
        case StemCondition::containsVowel:
            return containsVowel(rest);
        case StemCondition::removeAnE:
            return !EndsWithCVC(rest);
    }
    return false;
}

bool Stemming::Replace(const StemRule& rule) {
    // An ending never takes the whole word.
    if (rule.oldEnding.size() >= length) return false;
    const std::string_view rest = Text().substr(0, length - rule.oldEnding.size());
    if (!measureExceeds(rest, rule.minimumRootMeasure) || !Holds(rule.condition, rest)) return false;
    std::copy(rule.newEnding.begin(), rule.newEnding.end(), word + rest.size());
    length = rest.size() + rule.newEnding.size();
    SetTail();
    return true;
}

/// Applies the first rule that fits and answers its number, or 0.
template <std::size_t N>
std::uint16_t Stemming::Replace(const StemStep<N>& step) {
    if ((steps & step.bit) == 0) return 0;
    for (auto i = step.first[tail >> 56]; i != step.None; i = step.next[i]) {
        const auto& entry = step.rules[i];
        if (((tail ^ entry.tail) & entry.mask) == 0 && Replace(entry.rule)) return entry.rule.id;
    }
    return 0;
}

/// Appends an "e" to what "ed" or "ing" were cut from, where it looks as if one had been there.
bool Stemming::RestoreAnE() {
    if (!EndsWithCVC(Text())) return false;
    word[length++] = 'e';
    SetTail();
    return true;
}

void Stemming::CutSuffixes() {
    Replace(kStep1a);
    const auto cut = Replace(kStep1b);
    bool restoredAnE = false;
    if (cut == kRuleEd || cut == kRuleIng) restoredAnE = Replace(kStep1b1) == 0 && RestoreAnE();
    Replace(kStep1c);
    Replace(kStep2);
    Replace(kStep3);
    Replace(kStep4);
    if (!restoredAnE) Replace(kStep5a);
    Replace(kStep5b);
}

/// Looks at all bytes, since nearly every word has no others: that is faster than to stop at the first one.
bool isAlphanumeric(std::string_view word) {
    bool all = true;
    for (const char c : word) all &= kAlphanumeric[static_cast<unsigned char>(c)];
    return all;
}

/// The two high forms of the apostrophe pass, so that possessives written with them are cut.
bool isGraphicOrApostrophe(char c) {
    return IsGraphic(c) || c == '\xD5' || c == '\xAB';
}

}  // namespace

StemmedWord StemInPlace(char* word, std::uint32_t length) {
    Stemming stemming(word, length);
    const auto view = [&] { return std::string_view(word, stemming.Length()); };
    if (!isAlphanumeric(view())) {
        if (const std::size_t zero = view().find('\0'); zero != std::string_view::npos)
            return StemInPlace(word, static_cast<std::uint32_t>(zero));
        if (!std::ranges::all_of(view(), isGraphicOrApostrophe)) return {length, false};
        stemming.CutPossessive();
        if (!isAlphanumeric(view())) return {static_cast<std::uint32_t>(stemming.Length()), false};
    }
    stemming.CutSuffixes();
    return {static_cast<std::uint32_t>(stemming.Length()), true};
}

bool Stem(char* word) {
    const StemmedWord stemmed = StemInPlace(word, static_cast<std::uint32_t>(std::strlen(word)));
    word[stemmed.length] = '\0';
    return stemmed.complete;
}

}  // namespace brindle
