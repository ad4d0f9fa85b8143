#include "lorvale/toolkit/index/vector_index.h"

#include <algorithm>
#include <array>
#include <vector>

#include "lorvale/toolkit/retrieval/progress.h"
#include "lorvale/toolkit/retrieval/tf_map.h"
#include "lorvale/toolkit/storage/block.h"
#include "toolkit/index/PostingCoding.h"
#include "toolkit/index/Probes.h"
#include "toolkit/index/StoredReader.h"
#include "toolkit/index/VectorStream.h"

namespace brindle {

namespace {

const char kClassID = 0;

/// IDs as a source of a merge knows them become those of this index.
void Rename(std::vector<TFComponent>& components,
            const std::vector<std::pair<std::uint32_t, std::uint32_t>>& termMap) {
    for (TFComponent& component : components) {
        const auto known = std::ranges::lower_bound(termMap, component.termID, {},
                                                    &std::pair<std::uint32_t, std::uint32_t>::first);
        IAAssertion(known != termMap.end() && known->first == component.termID, "term vector damaged",
                    IndexInvalid);
        component.termID = known->second;
    }
    std::ranges::sort(components, {}, &TFComponent::termID);
}

}  // namespace

std::uint32_t TFVector::ComponentsSize() const {
    std::uint32_t size = 0, previous = 0;
    for (const auto& [termID, freq] : components) {
        size += PairSize(termID, freq, previous);
        previous = termID;
    }
    return size;
}

void TFVector::ComponentsWrite(IAOutputBlock* output) const {
    std::array<std::uint8_t, kMaxPostingSize> bytes;
    std::uint32_t previous = 0;
    for (const auto& [termID, freq] : components) {
        const std::uint8_t* const end = PutPair(termID, freq, previous, bytes.data());
        output->WriteBuffer(bytes.data(), static_cast<std::uint32_t>(end - bytes.data()));
        previous = termID;
    }
}

void TFVector::ComponentsRead(std::uint32_t count, IAInputBlock* input) {
    VectorBuffer buffer;
    const auto read = buffer.Read(count, input);
    *this = TFVector(std::vector<TFComponent>(read.begin(), read.end()));
}

bool TFVector::Validate(bool raise) const {
    const bool rises = std::ranges::adjacent_find(components, std::greater_equal(), &TFComponent::termID) ==
                           components.end() &&
                       (components.empty() || components.front().termID > 0);
    IAAssertion(rises || !raise, "duplicate id in the term freq. vector", IAAssertionFailure);
    return rises;
}

VectorDocInfo::~VectorDocInfo() = default;

std::unique_ptr<IAStorable> VectorDocInfo::DeepCopy() const {
    auto copy = std::make_unique<VectorDocInfo>();
    copy->DeepCopying(this);
    return copy;
}

std::uint32_t VectorDocInfo::StoreSize() const {
    return DocInfo::StoreSize() + VInt32Size(vectorBlockID);
}

void VectorDocInfo::Store(IAOutputBlock* output) const {
    DocInfo::Store(output);
    VInt32Write(vectorBlockID, output);
}

std::unique_ptr<IAStorable> VectorDocInfo::Restore(IAInputBlock* input) const {
    auto restored = std::make_unique<VectorDocInfo>();
    restored->Restoring(input, this);
    return restored;
}

void VectorDocInfo::DeepCopying(const IAStorable* source) {
    DocInfo::DeepCopying(source);
    vectorBlockID = static_cast<const VectorDocInfo*>(source)->vectorBlockID;
}

void VectorDocInfo::Restoring(IAInputBlock* input, const IAStorable* prototype) {
    DocInfo::Restoring(input, prototype);
    vectorBlockID = VInt32Read(input);
}

std::uint32_t VectorDocInfo::StoredSize(std::span<const std::uint8_t> stored) const {
    const std::uint32_t base = DocInfo::StoredSize(stored);
    StoredReader reader(stored.subspan(base));
    reader.VInt32();
    return base + reader.Taken();
}

VectorIndex::VectorIndex() : vectorMutex(IANewMutex()) {}

VectorIndex::VectorIndex(IAStorage* indexStorage, std::unique_ptr<IACorpus> indexCorpus,
                         std::unique_ptr<IAAnalysis> indexAnalysis, std::uint32_t type, std::uint32_t root)
    : VectorIndex() {
    Constructing(indexStorage, std::move(indexCorpus), std::move(indexAnalysis), type, root);
}

VectorIndex::~VectorIndex() = default;

void VectorIndex::Constructing(IAStorage* indexStorage, std::unique_ptr<IACorpus> indexCorpus,
                               std::unique_ptr<IAAnalysis> indexAnalysis, std::uint32_t type,
                               std::uint32_t root) {
    TermIndex::Constructing(indexStorage, std::move(indexCorpus), std::move(indexAnalysis), type, root);
}

std::unique_ptr<DocInfo> VectorIndex::MakeDocInfo(std::unique_ptr<IADoc> document, std::uint32_t docID) const {
    return std::make_unique<VectorDocInfo>(std::move(document), docID);
}

std::unique_ptr<TFVector> VectorIndex::ReadTFVector(std::uint32_t block) {
    return ReadTFVector(GetStorage(), block);
}

std::unique_ptr<TFVector> VectorIndex::ReadTFVector(IAStorage* storage, std::uint32_t block) {
    auto vector = std::make_unique<TFVector>();
    IAInputBlock input(storage, block);
    const std::uint32_t count = VInt32Read(&input);
    vector->ComponentsRead(count, &input);
    return vector;
}

void VectorIndex::WriteTFVector(const TFVector& vector, std::uint32_t block) {
    const std::uint32_t count = vector.GetDocumentLength();
    IAOutputBlock output(GetStorage(), block, VInt32Size(count) + vector.ComponentsSize());
    VInt32Write(count, &output);
    vector.ComponentsWrite(&output);
}

void VectorIndex::StoreVector(DocInfo& info, const TFVector& vector) {
    auto& record = static_cast<VectorDocInfo&>(info);
    IAAssertion(record.GetVectorBlockID() == 0, "vector block allocated", IAAssertionFailure);
    record.SetVectorBlockID(GetStorage()->Allocate());
    WriteTFVector(vector, record.GetVectorBlockID());
}

void VectorIndex::UpdateDocInfo(DocInfo& info, TFVector& vector) {
    TermIndex::UpdateDocInfo(info, vector);
    StoreVector(info, vector);
}

void VectorIndex::MergeDocInfo(DocInfo& made, const DocInfo& old, TermIndex& source, const TermMap& termMap) {
    IAAssertion(IANarrow(&source) != nullptr, "invalid index", IndexInvalid);
    TermIndex::MergeDocInfo(made, old, source, termMap);
    const std::uint32_t block = static_cast<const VectorDocInfo&>(old).GetVectorBlockID();
    const auto vector = ReadTFVector(source.GetStorage(), block);
    Rename(vector->GetComponents(), termMap);
    StoreVector(made, *vector);
}

std::unique_ptr<TFVector> VectorIndex::GetTFVector(const IADoc* doc) {
    CheckOpen();
    const IALock lock(vectorMutex.get());
    const auto info = GetDocInfo(doc, false);
    return ReadTFVector(static_cast<const VectorDocInfo&>(*info).GetVectorBlockID());
}

void VectorIndex::DeletingDoc(const DocInfo& info) {
    const IALock lock(vectorMutex.get());
    const std::uint32_t block = static_cast<const VectorDocInfo&>(info).GetVectorBlockID();
    const auto vector = ReadTFVector(block);
    for (const TFComponent& component : vector->GetComponents()) ++termIdUpdates[component.termID];
    CountUpdates(vector->GetDocumentLength());
    GetStorage()->Deallocate(block);
    TermIndex::DeletingDoc(info);
    ++vectorsGone;  // last: whoever has this number can no longer come by the record
}

void VectorIndex::FlushUpdates() {
    FlushTermIdUpdates();
    TermIndex::FlushUpdates();
}

/// Null for a term that has left the index: where there are postings, too, looking a term up may be enough for
/// that.
std::unique_ptr<IATerm> VectorIndex::FindIDTerm(std::uint32_t termID) {
    const IDTerm key(termID);
    const auto found = RecordOf<IDTerm>(iDTermMap->Get(&key));
    return found != nullptr ? found->TakeValue() : nullptr;
}

void VectorIndex::FlushTermIdUpdates() {
    for (; !termIdUpdates.empty(); termIdUpdates.erase(termIdUpdates.begin())) {
        const auto& [termID, count] = *termIdUpdates.begin();
        if (auto term = FindIDTerm(termID)) DeletingPostings(std::move(term), count);
    }
}

void VectorIndex::ExpungeTermPostings() {
    CheckOpen();
    const IALock lock(GetMutex());
    for (; !termIdUpdates.empty(); termIdUpdates.erase(termIdUpdates.begin())) {
        const auto term = FindIDTerm(termIdUpdates.begin()->first);
        const auto info = term != nullptr ? TermIndex::GetTermInfo(term.get()) : nullptr;
        if (info != nullptr) ResetPostings(info.get());
    }
}

bool VectorIndex::GetTFMaps(std::span<const IADoc* const> documents, std::span<TFMap> maps,
                            Progress* progress) {
    CheckOpen();
    IAAssertion(documents.size() == maps.size(), "not one map a document", IAAssertionFailure);
    std::vector<std::unique_ptr<TFVector>> vectors;
    std::map<std::uint32_t, std::unique_ptr<IATerm>> terms;
    for (const IADoc* const document : documents) {
        vectors.push_back(GetTFVector(document));
        for (const TFComponent& component : vectors.back()->GetComponents())
            terms.try_emplace(component.termID);
    }
    std::unique_ptr<Phase> phase;
    if (progress != nullptr)
        phase = std::make_unique<Phase>(static_cast<std::uint32_t>(terms.size()), *progress);
    for (auto& [termID, term] : terms) {
        term = GetIDTerm(termID);
        if (progress != nullptr && progress->StepCheck(1)) return true;
    }
    for (std::size_t i = 0; i < maps.size(); ++i)
        for (const auto& [termID, freq] : vectors[i]->GetComponents()) maps[i].Add(terms[termID]->View(), freq);
    return false;
}

bool VectorIndex::ValidateDocInfos(bool raise) {
    CheckOpen();
    const auto infos = GetDocInfoIterator();
    while (const auto info = RecordOf<VectorDocInfo>(infos->Next())) {
        const auto vector = ReadTFVector(info->GetVectorBlockID());
        const bool isEmpty = vector->GetDocumentLength() == 0;
        IAAssertion(!isEmpty || !raise, "term vector with length of zero", IAAssertionFailure);
        if (isEmpty || !vector->Validate(raise)) return false;
    }
    return true;
}

const void* VectorIndex::IAClassID() {
    return &kClassID;
}

void* VectorIndex::IANarrowInternal(const void* classID) {
    return classID == IAClassID() ? this : TermIndex::IANarrowInternal(classID);
}

VectorIndex* VectorIndex::IANarrow(IAIndex* index) {
    return index != nullptr ? static_cast<VectorIndex*>(index->IANarrowInternal(IAClassID())) : nullptr;
}

}  // namespace brindle
