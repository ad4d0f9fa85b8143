#include "lorvale/toolkit/index/inverted_index.h"
#include "lorvale/toolkit/storage/block.h"
#include "toolkit/index/StoredReader.h"

namespace brindle {

InvertedTermInfo::~InvertedTermInfo() = default;

std::unique_ptr<IAStorable> InvertedTermInfo::DeepCopy() const {
    auto copy = std::make_unique<InvertedTermInfo>();
    copy->DeepCopying(this);
    return copy;
}

std::uint32_t InvertedTermInfo::StoreSize() const {
    return TermInfo::StoreSize() + VInt32Size(maxDocFreq) + postings.StoreSize();
}

void InvertedTermInfo::Store(IAOutputBlock* output) const {
    TermInfo::Store(output);
    VInt32Write(maxDocFreq, output);
    postings.Store(output);
}

std::unique_ptr<IAStorable> InvertedTermInfo::Restore(IAInputBlock* input) const {
    TermInfo head;
    head.Restoring(input, this);
    std::unique_ptr<InvertedTermInfo> restored;
    if (head.GetDocumentCount() < ImmediatePostingThreshold)
        restored = std::make_unique<InvertedTermInfo>(head.TakeTerm(), head.GetTermID());
    else
        restored = std::make_unique<InvertedBlockTermInfo>(head.TakeTerm(), head.GetTermID());
    restored->documentCount = head.GetDocumentCount();
    restored->RestoringPostings(input);
    return restored;
}

std::uint32_t InvertedTermInfo::StoredSize(std::span<const std::uint8_t> stored) const {
    StoredReader reader(stored);
    reader.Skip(reader.VInt32());
    reader.VInt32();  // the ID
    std::uint32_t count = reader.VInt32();
    if (count >= ImmediatePostingThreshold) {
        count = reader.VInt32();
        reader.VInt32();  // the chain
        reader.VInt32();
    }
    reader.VInt32();  // the highest frequency
    for (; count > 0; --count)
        if ((reader.VInt32() & 1) == 0) reader.VInt32();
    return reader.Taken();
}

void InvertedTermInfo::RestoringPostings(IAInputBlock* input) {
    maxDocFreq = VInt32Read(input);
    postings.Restore(documentCount, input);
}

void InvertedTermInfo::DeepCopying(const IAStorable* source) {
    TermInfo::DeepCopying(source);
    const auto* const from = static_cast<const InvertedTermInfo*>(source);
    maxDocFreq = from->maxDocFreq;
    postings = from->postings;
}

InvertedBlockTermInfo::~InvertedBlockTermInfo() = default;

std::unique_ptr<IAStorable> InvertedBlockTermInfo::DeepCopy() const {
    auto copy = std::make_unique<InvertedBlockTermInfo>();
    copy->DeepCopying(this);
    return copy;
}

std::uint32_t InvertedBlockTermInfo::StoreSize() const {
    return InvertedTermInfo::StoreSize() + VInt32Size(postings.Count()) + VInt32Size(firstBlock) +
           VInt32Size(lastBlock);
}

void InvertedBlockTermInfo::Store(IAOutputBlock* output) const {
    TermInfo::Store(output);
    for (const std::uint32_t field : {postings.Count(), firstBlock, lastBlock, maxDocFreq})
        VInt32Write(field, output);
    postings.Store(output);
}

void InvertedBlockTermInfo::RestoringPostings(IAInputBlock* input) {
    const std::uint32_t count = VInt32Read(input);
    firstBlock = VInt32Read(input);
    lastBlock = VInt32Read(input);
    maxDocFreq = VInt32Read(input);
    IAAssertion(count < documentCount && firstBlock != 0 && lastBlock != 0, "postings damaged", IndexInvalid);
    postings.Restore(count, input);
}

// The source may be of the class above: that is how a list moves out of its record.
void InvertedBlockTermInfo::DeepCopying(const IAStorable* source) {
    InvertedTermInfo::DeepCopying(source);
    if (const auto* const from = dynamic_cast<const InvertedBlockTermInfo*>(source)) {
        firstBlock = from->firstBlock;
        lastBlock = from->lastBlock;
    }
}

}  // namespace brindle
