#include "lorvale/toolkit/corpus/extent.h"

#include <random>

#include "lorvale/toolkit/corpus/string_corpus.h"
#include "toolkit/corpus/StoredText.h"

namespace brindle {

namespace {

/// An address does not fit 32 bits, and one of another process would be read without anybody noticing: what is
/// stored is a hash of the address and of a number that no other process has.
std::uint32_t wordFor(std::string_view buffer) {
    static const std::uint64_t ofThisProcess = [] {
        std::random_device random;
        return std::uint64_t{random()} << 32 | random();
    }();
    constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15;
    std::uint64_t hash = (reinterpret_cast<std::uintptr_t>(buffer.data()) ^ ofThisProcess) * kFactor;
    hash = (hash ^ hash >> 32) * kFactor;
    return static_cast<std::uint32_t>(hash >> 32);
}

}  // namespace

IAExtentDoc::IAExtentDoc(std::string_view ofBuffer, std::uint32_t from, std::uint32_t size,
                         std::uint32_t number, std::uint32_t group)
    : buffer(ofBuffer), offset(from), length(size), extentNumber(number), groupNumber(group) {
    IAAssertion(offset <= buffer.size() && length <= buffer.size() - offset, "extent beyond its buffer",
                InvalidDocument);
}

IAExtentDoc::~IAExtentDoc() = default;

std::unique_ptr<IAStorable> IAExtentDoc::DeepCopy() const {
    return std::make_unique<IAExtentDoc>(*this);
}

std::uint32_t IAExtentDoc::StoreSize() const {
    return 4 + VInt32Size(offset) + VInt32Size(length) + VInt32Size(extentNumber) + VInt32Size(groupNumber) +
           VInt32Size(rank);
}

void IAExtentDoc::Store(IAOutputBlock* output) const {
    output->WriteUInt32(wordFor(buffer));
    for (const std::uint32_t field : {offset, length, extentNumber, groupNumber, rank})
        VInt32Write(field, output);
}

std::unique_ptr<IAStorable> IAExtentDoc::Restore(IAInputBlock* input) const {
    IAAssertion(input->ReadUInt32() == wordFor(buffer), "extent of another buffer", InvalidDocument);
    const std::uint32_t from = VInt32Read(input);
    const std::uint32_t size = VInt32Read(input);
    const std::uint32_t number = VInt32Read(input);
    auto restored = std::make_unique<IAExtentDoc>(buffer, from, size, number, VInt32Read(input));
    restored->rank = VInt32Read(input);
    return restored;
}

bool IAExtentDoc::LessThan(const IAOrderedStorable* other) const {
    return extentNumber < static_cast<const IAExtentDoc*>(other)->extentNumber;
}

bool IAExtentDoc::Equal(const IAOrderedStorable* other) const {
    return extentNumber == static_cast<const IAExtentDoc*>(other)->extentNumber;
}

int IAExtentDoc::CompareStored(std::span<const std::uint8_t> stored, const IAOrderedStorable* key) const {
    IAAssertion(stored.size() >= 4, "document longer than its block", StorageInvalid);
    stored = stored.subspan(4);
    VInt32Read(stored);
    VInt32Read(stored);
    const std::uint32_t found = VInt32Read(stored);
    const std::uint32_t sought = static_cast<const IAExtentDoc*>(key)->extentNumber;
    return found < sought ? -1 : found > sought;
}

std::uint32_t IAExtentDoc::StoredSize(std::span<const std::uint8_t> stored) const {
    IAAssertion(stored.size() >= 4, "document longer than its block", StorageInvalid);
    auto rest = stored.subspan(4);
    for (int field = 0; field < 5; ++field) VInt32Read(rest);
    return static_cast<std::uint32_t>(stored.size() - rest.size());
}

IAExtentCorpus::~IAExtentCorpus() = default;

std::unique_ptr<IADoc> IAExtentCorpus::GetProtoDoc() const {
    return std::make_unique<IAExtentDoc>(buffer);
}

std::unique_ptr<IADocText> IAExtentCorpus::GetDocText(const IADoc* doc) const {
    const auto& extent = *static_cast<const IAExtentDoc*>(doc);
    return std::make_unique<StringDocText>(extent.GetExtent());
}

SentenceDoc::~SentenceDoc() = default;

std::unique_ptr<IAStorable> SentenceDoc::DeepCopy() const {
    return std::make_unique<SentenceDoc>(*this);
}

std::uint32_t SentenceDoc::StoreSize() const {
    return StoredTextSize(text) + VInt32Size(sentenceNumber) + VInt32Size(paragraphNumber) +
           VInt32Size(position);
}

void SentenceDoc::Store(IAOutputBlock* output) const {
    StoreText(text, output);
    for (const std::uint32_t field : {sentenceNumber, paragraphNumber, position}) VInt32Write(field, output);
}

std::unique_ptr<IAStorable> SentenceDoc::Restore(IAInputBlock* input) const {
    auto restored = std::make_unique<SentenceDoc>();
    restored->text = RestoreText(input);
    for (std::uint32_t* const field :
         {&restored->sentenceNumber, &restored->paragraphNumber, &restored->position})
        *field = VInt32Read(input);
    return restored;
}

bool SentenceDoc::LessThan(const IAOrderedStorable* other) const {
    return sentenceNumber < static_cast<const SentenceDoc*>(other)->sentenceNumber;
}

bool SentenceDoc::Equal(const IAOrderedStorable* other) const {
    return sentenceNumber == static_cast<const SentenceDoc*>(other)->sentenceNumber;
}

SentenceCorpus::~SentenceCorpus() = default;

std::unique_ptr<IADoc> SentenceCorpus::GetProtoDoc() const {
    return std::make_unique<SentenceDoc>();
}

std::unique_ptr<IADocText> SentenceCorpus::GetDocText(const IADoc* doc) const {
    return std::make_unique<StringDocText>(std::string(static_cast<const SentenceDoc*>(doc)->View()));
}

}  // namespace brindle
