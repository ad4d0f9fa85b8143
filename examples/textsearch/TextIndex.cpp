#include "TextIndex.h"

#include <filesystem>
#include <stdexcept>

#include "IndexFile.h"

using brindle::StringDoc;

std::unique_ptr<brindle::IAAnalysis> analysisWith(const std::string& words) {
    if (words.empty()) return std::make_unique<brindle::EnglishAnalysis>();
    const std::string stopwords = words + "/EnglishStopwords", substitutions = words + "/EnglishSubstitutions";
    for (const std::string& list : {stopwords, substitutions})
        if (!std::filesystem::is_regular_file(list))
            throw std::runtime_error(list + ": is not there; --words names the folder of the word lists");
    return std::make_unique<brindle::EnglishAnalysis>(stopwords.c_str(), substitutions.c_str());
}

TextIndex::TextIndex(const std::string& path, const std::string& words, bool forWriting) {
    const bool opens = !forWriting || std::filesystem::exists(path);
    _storage = opens ? openIndexFile(path, forWriting) : makeIndexFile(path);
    auto texts = std::make_unique<AddedTexts>();
    _texts = texts.get();
    _index = std::make_unique<brindle::InvertedIndex>(_storage.get(), std::move(texts), analysisWith(words));
    _index->SetBytesForUpdate(16'000'000);
    withIndexFile(path, [&] { opens ? _index->Open() : _index->Initialize(); });
}

bool TextIndex::add(Item item) {
    auto doc = std::make_unique<StringDoc>(std::move(item.id));
    if (_index->IsDocIndexed(doc.get())) return false;
    _texts->text = std::move(item.text);
    _index->AddDoc(std::move(doc));
    return true;
}

void TextIndex::finish() {
    _index->Compact();
    _storage->Compact();
    _storage->Commit();
}

std::string nameOf(const brindle::RankedHit& hit) {
    return std::string(static_cast<const StringDoc*>(hit.GetDocument())->View());
}
