#include "lorvale/toolkit/corpus/string_corpus.h"

#include <algorithm>
#include <cstring>

#include "lorvale/toolkit/storage/block.h"

namespace brindle {

StringDoc::~StringDoc() = default;

std::unique_ptr<IAStorable> StringDoc::DeepCopy() const {
    return std::make_unique<StringDoc>(text);
}

std::uint32_t StringDoc::StoreSize() const {
    return VInt32Size(GetLength()) + GetLength();
}

void StringDoc::Store(IAOutputBlock* output) const {
    VInt32Write(GetLength(), output);
    output->WriteBuffer(text.data(), GetLength());
}

std::unique_ptr<IAStorable> StringDoc::Restore(IAInputBlock* input) const {
    const std::uint32_t length = VInt32Read(input);
    IAAssertion(length <= input->Remaining(), "document longer than its block", StorageInvalid);
    std::string bytes(length, '\0');
    input->ReadBuffer(bytes.data(), length);
    return std::make_unique<StringDoc>(std::move(bytes));
}

bool StringDoc::LessThan(const IAOrderedStorable* other) const {
    return text < static_cast<const StringDoc*>(other)->text;
}

bool StringDoc::Equal(const IAOrderedStorable* other) const {
    return text == static_cast<const StringDoc*>(other)->text;
}

std::uint32_t StringDoc::StoredSize(std::span<const std::uint8_t> stored) const {
    auto rest = stored;
    const std::uint32_t length = VInt32Read(rest);
    IAAssertion(length <= rest.size(), "document longer than its block", StorageInvalid);
    return static_cast<std::uint32_t>(stored.size() - rest.size()) + length;
}

int StringDoc::CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* key) const {
    const std::uint32_t length = VInt32Read(stored);
    IAAssertion(length <= stored.size(), "document longer than its block", StorageInvalid);
    const std::string_view found(reinterpret_cast<const char*>(stored.data()), length);
    return found.compare(static_cast<const StringDoc*>(key)->text);
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
