#include "lorvale/toolkit/corpus/string_corpus.h"

#include <algorithm>
#include <cstring>

#include "toolkit/corpus/StoredText.h"

namespace brindle {

StringDoc::~StringDoc() = default;

std::unique_ptr<IAStorable> StringDoc::DeepCopy() const {
    return std::make_unique<StringDoc>(text);
}

std::uint32_t StringDoc::StoreSize() const {
    return StoredTextSize(text);
}

void StringDoc::Store(IAOutputBlock* output) const {
    StoreText(text, output);
}

std::unique_ptr<IAStorable> StringDoc::Restore(IAInputBlock* input) const {
    return std::make_unique<StringDoc>(RestoreText(input));
}

bool StringDoc::LessThan(const IAOrderedStorable* other) const {
    return text < static_cast<const StringDoc*>(other)->text;
}

bool StringDoc::Equal(const IAOrderedStorable* other) const {
    return text == static_cast<const StringDoc*>(other)->text;
}

std::uint32_t StringDoc::StoredSize(std::span<const std::uint8_t> stored) const {
    auto rest = stored;
    TakeText(rest);
    return static_cast<std::uint32_t>(stored.size() - rest.size());
}

int StringDoc::CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* key) const {
    return TakeText(stored).compare(static_cast<const StringDoc*>(key)->text);
}

StringDocText::~StringDocText() = default;

std::uint32_t StringDocText::GetNextBuffer(std::uint8_t* buffer, std::uint32_t size) {
    const std::size_t count = std::min<std::size_t>(size, text.size() - position);
    if (count != 0) std::memcpy(buffer, text.data() + position, count);
    position += count;
    return static_cast<std::uint32_t>(count);
}

std::unique_ptr<IADocText> StringDocText::DeepCopy() const {
    return std::make_unique<StringDocText>(text);
}

StringCorpus::~StringCorpus() = default;

std::unique_ptr<IADoc> StringCorpus::GetProtoDoc() const {
    return std::make_unique<StringDoc>();
}

std::unique_ptr<IADocText> StringCorpus::GetDocText(const IADoc* doc) const {
    return std::make_unique<StringDocText>(std::string(static_cast<const StringDoc*>(doc)->View()));
}

}  // namespace brindle
