// The inverted index: its root, its records and the bits of deleted documents.  InvertedIndexLists.cpp has what
// happens to lists of postings.
#include "lorvale/toolkit/index/inverted_index.h"

#include <algorithm>

#include "lorvale/toolkit/retrieval/progress.h"
#include "lorvale/toolkit/storage/block.h"
#include "toolkit/index/PostingStream.h"
#include "toolkit/index/Probes.h"

namespace brindle {

namespace {

const char kClassID = 0;

}  // namespace

InvertedIndex::InvertedIndex() : chainMutex(IANewMutex()), deletedDocs(std::make_shared<BitArray>()) {}

InvertedIndex::InvertedIndex(IAStorage* indexStorage, std::unique_ptr<IACorpus> indexCorpus,
                             std::unique_ptr<IAAnalysis> indexAnalysis, std::uint32_t type, std::uint32_t root)
    : InvertedIndex() {
    Constructing(indexStorage, std::move(indexCorpus), std::move(indexAnalysis), type, root);
}

InvertedIndex::~InvertedIndex() = default;

void InvertedIndex::Constructing(IAStorage* indexStorage, std::unique_ptr<IACorpus> indexCorpus,
                                 std::unique_ptr<IAAnalysis> indexAnalysis, std::uint32_t type,
                                 std::uint32_t root) {
    TermIndex::Constructing(indexStorage, std::move(indexCorpus), std::move(indexAnalysis), type, root);
}

void InvertedIndex::Initialize() {
    const OpeningScope scope(*this);
    IAAssertion(!IsOpen(), "index already open", IndexAlreadyOpen);
    deletedDocsBlock = GetStorage()->Allocate();
    TermIndex::Initialize();
}

void InvertedIndex::Initializing() {
    TermIndex::Initializing();
    IAOutputBlock output(GetStorage(), deletedDocsBlock, deletedDocs->StoreSize());
    deletedDocs->Store(&output);
}

void InvertedIndex::Open() {
    const OpeningScope scope(*this);
    TermIndex::Open();
    {
        IAInputBlock input(GetStorage(), deletedDocsBlock);
        deletedDocs->Restore(&input);
    }
    deletedCount = deletedDocs->Count();
    // A flush writes both, so a number of documents that the bits do not bear out is damage, and nobody may
    // size a table by it.
    IAAssertion(GetMaxDocID() <= std::max<std::uint32_t>(deletedDocs->Length(), 1), "invalid index",
                IndexInvalid);
}

std::uint32_t InvertedIndex::RootSize() {
    return TermIndex::RootSize() + 4;
}

void InvertedIndex::StoreRoot(IAOutputBlock* output) {
    TermIndex::StoreRoot(output);
    output->WriteUInt32(deletedDocsBlock);
}

void InvertedIndex::RestoreRoot(IAInputBlock* input) {
    TermIndex::RestoreRoot(input);
    deletedDocsBlock = input->ReadUInt32();
}

std::unique_ptr<TermInfo> InvertedIndex::MakeTermInfo(std::unique_ptr<IATerm> term,
                                                      std::uint32_t termID) const {
    return std::make_unique<InvertedTermInfo>(std::move(term), termID);
}

std::shared_ptr<const BitArray> InvertedIndex::SharedDeletedDocs() {
    if (deletedCount == 0) return nullptr;
    const IALock lock(chainMutex.get());
    deletedDocsShared = true;
    return deletedDocs;
}

BitArray& InvertedIndex::OwnDeletedDocs() {
    if (deletedDocsShared) deletedDocs = std::make_shared<BitArray>(*deletedDocs);
    deletedDocsShared = false;
    return *deletedDocs;
}

void InvertedIndex::SetDeletedBit(std::uint32_t docID) {
    const IALock lock(chainMutex.get());
    BitArray& bits = OwnDeletedDocs();
    if (bits.Length() <= docID) bits.SetLength(docID + 1);
    if (!bits.Get(docID)) ++deletedCount;
    bits.Set(docID);
}

std::uint32_t InvertedIndex::GetDeletedDocCount() {
    CheckOpen();
    return deletedCount;
}

bool InvertedIndex::IsDocDeleted(std::uint32_t docID) {
    CheckOpen();
    const auto deleted = SharedDeletedDocs();
    return deleted != nullptr && FreqPostingIsDeleted(*deleted, docID);
}

void InvertedIndex::ResetDeletedDoc(const DocInfo* info) {
    CheckOpen();
    const IALock lock(GetMutex());
    const IALock chainLock(chainMutex.get());
    BitArray& bits = OwnDeletedDocs();
    if (!FreqPostingIsDeleted(bits, info->GetDocID())) return;
    bits.Clear(info->GetDocID());
    --deletedCount;
}

void InvertedIndex::DeletingDoc(const DocInfo& info) {
    DeletingDocInternal(info);
    TermIndex::DeletingDoc(info);
}

void InvertedIndex::DeletingDocInternal(const DocInfo& info) {
    IAAssertion(info.GetDocID() < GetMaxDocID(), "invalid docID", InvalidDocID);
    SetDeletedBit(info.GetDocID());
}

// Postings go by the bit of their document.
void InvertedIndex::DeletingPostings(std::unique_ptr<IATerm>, std::uint32_t) {}

// The next numbers stay as they are: while a bit is set, its number must not be handed out again.
void InvertedIndex::FinishingUpdate() {
    const IALock lock(chainMutex.get());
    BitArray& bits = OwnDeletedDocs();
    bits.SetLength(GetMaxDocID());
    IAOutputBlock output(GetStorage(), deletedDocsBlock, bits.StoreSize());
    bits.Store(&output);
}

void InvertedIndex::MergeDocIDs(TermIndex& source, std::uint32_t base) {
    InvertedIndex* const inverted = IANarrow(&source);
    IAAssertion(inverted != nullptr, "invalid index", IndexInvalid);
    const auto bits = inverted->SharedDeletedDocs();
    if (bits == nullptr) return;
    for (std::uint32_t id = 0; id < std::min(inverted->GetMaxDocID(), bits->Length()); ++id)
        if (bits->Get(id)) SetDeletedBit(base + id);
}

std::unique_ptr<FreqPS> InvertedIndex::GetFreqPostings(const TermInfo* info) {
    CheckOpen();
    return std::make_unique<FreqPSImpl>(*this, IADeepCopyOf(static_cast<const InvertedTermInfo&>(*info)));
}

const void* InvertedIndex::IAClassID() {
    return &kClassID;
}

void* InvertedIndex::IANarrowInternal(const void* classID) {
    return classID == IAClassID() ? this : TermIndex::IANarrowInternal(classID);
}

InvertedIndex* InvertedIndex::IANarrow(IAIndex* index) {
    return index != nullptr ? static_cast<InvertedIndex*>(index->IANarrowInternal(IAClassID())) : nullptr;
}

}  // namespace brindle
