#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace brindle {

/// What is asked of the rest of a word before an ending is replaced, besides its measure.
enum class StemCondition : std::uint8_t { none, containsVowel, removeAnE };

struct StemRule {
    std::uint16_t id;
    std::string_view oldEnding;
    std::string_view newEnding = {};
    int minimumRootMeasure;  // the measure of the rest must exceed it
    StemCondition condition = StemCondition::none;

    /// The ending as the highest bytes of a number, the last letter on top, and a mask of these bytes.  Words
    /// are compared eight bytes at a time; no ending is longer.
    constexpr std::uint64_t Tail() const {
        std::uint64_t tail = 0;
        for (const char c : oldEnding) tail = tail >> 8 | std::uint64_t{static_cast<unsigned char>(c)} << 56;
        return tail;
    }
    constexpr std::uint64_t Mask() const { return ~std::uint64_t{0} << (64 - 8 * oldEnding.size()); }
};

/// The rules of one step, tried in their order.  Only those whose ending has the word's last letter can apply,
/// so they are chained by that letter.
template <std::size_t N>
struct StemStep {
    static constexpr std::uint8_t None = 0xFF;

    struct Entry {
        std::uint64_t tail, mask;
        StemRule rule;
    };
    std::uint16_t bit;  // of this step in kStepsByEnding
    std::array<Entry, N> rules;
    std::array<std::uint8_t, 256> first;  // by last letter
    std::array<std::uint8_t, N> next;

    consteval StemStep(std::uint16_t ownBit, const StemRule (&list)[N])
        : bit(ownBit), rules(), first(), next() {
        first.fill(None);
        next.fill(None);
        for (std::size_t i = 0; i < N; ++i) rules[i] = {list[i].Tail(), list[i].Mask(), list[i]};
        for (std::size_t i = N; i-- > 0;) {
            std::uint8_t& chain = first[static_cast<unsigned char>(list[i].oldEnding.back())];
            next[i] = chain;
            chain = static_cast<std::uint8_t>(i);
        }
    }
};

// Possessives, with the apostrophe in each of its forms.
inline constexpr StemStep kStep0(1 << 0, {
                                             {1, "'s", "", -1},
                                             {2, "\xD5s", "", -1},
                                             {3, "\xABs", "", -1},
                                             {4, "`s", "", -1},
                                         });

inline constexpr StemStep kStep1a(1 << 1, {
                                              {101, "sses", "ss", -1},
                                              {102, "ies", "i", -1},
                                              {103, "ss", "ss", -1},
                                              {104, "s", "", -1},
                                          });

inline constexpr std::uint16_t kRuleEd = 106;
inline constexpr std::uint16_t kRuleIng = 107;
inline constexpr StemStep kStep1b(1 << 2, {
                                              {105, "eed", "ee", 1},
                                              {kRuleEd, "ed", "", 0, StemCondition::containsVowel},
                                              {kRuleIng, "ing", "", -1, StemCondition::containsVowel},
                                          });

// What is left of a word that lost "ed" or "ing" is made whole again.  Where no rule does that, an "e" is
// tried.
inline constexpr StemStep kStep1b1(1 << 3, {
                                               {108, "at", "ate", -1},
                                               {109, "bl", "ble", -1},
                                               {110, "iz", "ize", -1},
                                               {111, "bb", "b", -1},
                                               {112, "dd", "d", -1},
                                               {113, "ff", "f", -1},
                                               {114, "gg", "g", -1},
                                               {115, "mm", "m", -1},
                                               {116, "nn", "n", -1},
                                               {117, "pp", "p", -1},
                                               {118, "rr", "r", -1},
                                               {119, "tt", "t", -1},
                                               {120, "ww", "w", -1},
                                               {121, "xx", "x", -1},
                                           });

inline constexpr StemStep kStep1c(1 << 4, {
                                              {123, "y", "i", 0, StemCondition::containsVowel},
                                          });

inline constexpr StemStep kStep2(1 << 5,
                                 {
                                     {203, "ational", "ate", 0},
                                     {204, "tional", "tion", 0},
                                     {205, "enci", "ence", 0},
                                     {206, "anci", "ance", 0},
                                     {207, "izer", "ize", 0},
                                     {208, "abli", "able", 0},
                                     {209, "alli", "al", 0},
                                     {210, "entli", "ent", 0},
                                     {211, "eli", "e", 0},
                                     {213, "ousli", "ous", 0},
                                     {214, "ization", "ize", 0},
                                     {215, "ation", "ate", 0},
                                     {216, "ator", "ate", 0},
                                     {217, "alism", "al", 0},
                                     {218, "iveness", "ive", 0},
                                     {219, "fulnes", "ful", 0},  // in this spelling; "fulness" meets "ness"
                                                                 // below, and indexes hold what that gives
                                     {220, "ousness", "ous", 0},
                                     {221, "aliti", "al", 0},
                                     {222, "iviti", "ive", 0},
                                     {223, "biliti", "ble", 0},
                                     {224, "tionship", "t", 0},
                                     {225, "sionship", "s", 0},
                                     {226, "ship", "", 0},
                                 });

inline constexpr StemStep kStep3(1 << 6, {
                                             {301, "icate", "ic", 0},
                                             {302, "ative", "", 0},
                                             {303, "alize", "al", 0},
                                             {304, "iciti", "ic", 0},
                                             {305, "ical", "ic", 0},
                                             {308, "ful", "", 0},
                                             {309, "ness", "", 0},
                                         });

// "ement" has no rule of its own, so "replacement" gives "replace".
inline constexpr StemStep kStep4(1 << 7, {
                                             {401, "al", "", 1},    {402, "ance", "", 1}, {403, "ence", "", 1},
                                             {404, "or", "", 0},    {405, "er", "", 1},   {406, "ic", "", 1},
                                             {407, "able", "", 1},  {408, "ible", "", 1}, {409, "ant", "", 1},
                                             {411, "ment", "", 1},  {412, "ent", "", 1},  {423, "sion", "s", 1},
                                             {424, "tion", "t", 1}, {415, "ou", "", 1},   {416, "ism", "", 1},
                                             {417, "ate", "", 1},   {418, "iti", "", 1},  {419, "ous", "", 1},
                                             {420, "ive", "", 1},   {421, "ize", "", 1},
                                         });

inline constexpr StemStep kStep5a(1 << 8, {
                                              {502, "e", "", 0, StemCondition::removeAnE},
                                          });

inline constexpr StemStep kStep5b(1 << 9, {
                                              {503, "ll", "l", 1},
                                          });

/// The steps that have a rule for a word's last two letters, as bits: one look shows that most words are done.
/// Other bytes meet the entries of letters, so a bit says no more than "perhaps".
inline constexpr std::size_t kLetters = 32;
constexpr std::size_t PlaceByEnding(char last, char previous) {
    return static_cast<unsigned char>(last) % kLetters * kLetters +
           static_cast<unsigned char>(previous) % kLetters;
}
inline constexpr auto kStepsByEnding = [] {
    std::array<std::uint16_t, kLetters * kLetters> steps{};
    const auto enter = [&steps](const auto&... step) {
        const auto enterEnding = [&steps](std::uint16_t bit, std::string_view ending) {
            for (std::size_t previous = 0; previous < kLetters; ++previous) {
                const auto place = PlaceByEnding(ending.back(), static_cast<char>(previous));
                if (ending.size() == 1 || place == PlaceByEnding(ending.back(), ending[ending.size() - 2]))
                    steps[place] = static_cast<std::uint16_t>(steps[place] | bit);
            }
        };
        const auto enterStep = [&](const auto& each) {
            for (const auto& entry : each.rules) enterEnding(each.bit, entry.rule.oldEnding);
        };
        (enterStep(step), ...);
    };
    enter(kStep0, kStep1a, kStep1b, kStep1b1, kStep1c, kStep2, kStep3, kStep4, kStep5a, kStep5b);
    return steps;
}();

}  // namespace brindle
