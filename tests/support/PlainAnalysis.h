#pragma once
/// The stemmer and the tokenizer of words as they are told: one rule, one byte after the other.
#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>
#include <vector>

#include "toolkit/analysis/StemRules.h"

namespace brindle::testing {

inline bool plainVowel(char c) {
    return std::string_view("aeiou").find(c) != std::string_view::npos;
}

inline int plainMeasure(std::string_view word) {
    int state = 0, measure = 0;
    for (const char c : word) {
        const bool toVowel = plainVowel(c) || (state == 2 && c == 'y');
        if (state == 1 && !toVowel) ++measure;
        state = toVowel ? 1 : 2;
    }
    return measure;
}

/// Walks all rules of each step.  `end` is the last letter, and a test that fails leaves it too low: then what
/// is compared is longer than any ending.
class PlainStemmer {
public:
    explicit PlainStemmer(std::string_view ofWord) : word(ofWord) { Reset(); }

    std::string Stem() {
        Replace(kStep0);
        for (const char c : word)
            if (!std::isalnum(static_cast<unsigned char>(c))) return word;
        Reset();
        Replace(kStep1a);
        const int cut = Replace(kStep1b);
        bool addedAnE = false;
        if (cut == 106 || cut == 107) addedAnE = Replace(kStep1b1) == 0 && EndsWithCVC(word);
        if (addedAnE) word += 'e', Reset();
        Replace(kStep1c);
        Replace(kStep2);
        Replace(kStep3);
        Replace(kStep4);
        if (!addedAnE) Replace(kStep5a);
        Replace(kStep5b);
        return word;
    }

private:
    void Reset() { end = static_cast<int>(word.size()) - 1; }

    bool EndsWithCVC(std::string_view rest) {
        if (rest.size() < 2) return false;
        const auto last = static_cast<int>(rest.size()) - 1;
        const auto at = [&](int i) { return i < 0 ? 'b' : rest[static_cast<std::size_t>(i)]; };
        end = last - 1;
        if (plainVowel(at(last)) || at(last) == 'w' || at(last) == 'x' || at(last) == 'y') return false;
        end = last - 2;
        return (plainVowel(at(last - 1)) || at(last - 1) == 'y') && !plainVowel(at(last - 2));
    }

    bool Holds(StemCondition condition, std::string_view rest) {
        if (condition == StemCondition::removeAnE) return !EndsWithCVC(rest);
        if (condition == StemCondition::none) return true;
        for (std::size_t i = 0; i < rest.size(); ++i)
            if (plainVowel(rest[i]) || (i > 0 && rest[i] == 'y')) return true;
        return false;
    }

    template <class Step>
    int Replace(const Step& step) {
        for (const auto& entry : step.rules) {
            const StemRule& rule = entry.rule;
            const int ending = end - static_cast<int>(rule.oldEnding.size()) + 1;
            if (ending <= 0 || word.substr(static_cast<std::size_t>(ending)) != rule.oldEnding) continue;
            const std::string rest = word.substr(0, static_cast<std::size_t>(ending));
            if (plainMeasure(rest) <= rule.minimumRootMeasure || !Holds(rule.condition, rest)) continue;
            word = rest + std::string(rule.newEnding);
            Reset();
            return rule.id;
        }
        return 0;
    }

    std::string word;
    int end = 0;
};

struct PlainToken {
    std::string term;
    std::size_t start, end;
    bool operator==(const PlainToken&) const = default;
};

/// Words of letters, digits and `extras`, as OneByteASCIITokenizer cuts them.
inline std::vector<PlainToken> plainWords(const std::string& text, std::string_view extras) {
    const auto begins = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) && !(c & 0x80); };
    const auto goesOn = [&](char c) { return begins(c) || c == '\0' || extras.find(c) != extras.npos; };
    std::vector<PlainToken> tokens;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t start = at;
        if (!begins(text[at++])) continue;
        while (at < text.size() && goesOn(text[at])) ++at;
        const std::size_t held = std::min<std::size_t>(at - start, 129);
        // A run that is too long and ends the text is the one whose end is its last byte.
        const std::size_t end = at - start > held && at == text.size() ? at - 1 : at;
        std::string term = text.substr(start, held);
        while (!begins(term.back())) term.pop_back();
        for (char& c : term) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        tokens.push_back({term.c_str(), start, end});
        if (at < text.size()) ++at;
    }
    return tokens;
}

}  // namespace brindle::testing
