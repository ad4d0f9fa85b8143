#include "lorvale/toolkit/analysis/stemming_dictionary.h"

#include "toolkit/analysis/ListReader.h"
#include "toolkit/analysis/WordIndex.h"

namespace brindle {

StemmingDictionary::StemmingDictionary() : words(std::make_unique<WordIndex>()) {}
StemmingDictionary::~StemmingDictionary() = default;

std::optional<std::string_view> StemmingDictionary::Stem(std::string_view word) const {
    const std::uint32_t number = words->Find(word);
    if (number == WordIndex::None) return std::nullopt;
    return stems[stemOfWord[number]];
}

void StemmingDictionary::Add(std::string_view token) {
    if (token.starts_with(StemMark))
        AddStem(token.substr(1));
    else
        AddWord(token);
}

void StemmingDictionary::AddStem(std::string_view stem) {
    stems.emplace_back(stem.substr(0, MaxStemLength));
}

void StemmingDictionary::AddWord(std::string_view word) {
    // A lone mark is a slip in the list: its words would all become one empty term.
    if (stems.empty() || stems.back().empty()) return;
    const std::uint32_t number = words->Add(word);
    if (number == stemOfWord.size()) stemOfWord.push_back(0);
    stemOfWord[number] = static_cast<std::uint32_t>(stems.size() - 1);
}

void StemmingDictionary::LoadFromFile(const char* path) {
    LoadFromStream(OpenList(path));
}

void StemmingDictionary::LoadFromStream(std::unique_ptr<IACharStream> characters) {
    ReadList(std::move(characters), [this](std::string_view token) { Add(token); });
}

}  // namespace brindle
