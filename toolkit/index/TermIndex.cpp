// The tables of the index: making and opening them, and what is read from them.  TermIndexUpdate.cpp has the
// changes, TermIndexMerge.cpp the folding in of other indexes.
#include "lorvale/toolkit/index/term_index.h"

#include <algorithm>
#include <cmath>

#include "lorvale/toolkit/retrieval/progress.h"
#include "lorvale/toolkit/retrieval/tf_map.h"
#include "lorvale/toolkit/storage/block.h"
#include "toolkit/index/DocLengths.h"
#include "toolkit/index/Probes.h"
#include "toolkit/index/StoredReader.h"
#include "toolkit/index/UpdateBatch.h"
#include "toolkit/storage/StoredMembers.h"

namespace brindle {

namespace {

const char kClassID = 0;

/// Takes the documents out of their records.
class TIDocIterator : public IADocIterator {
public:
    explicit TIDocIterator(std::unique_ptr<IAOrderedStorableIterator> docInfos) : infos(std::move(docInfos)) {}
    std::unique_ptr<IADoc> GetNextDoc() override {
        const auto info = RecordOf<DocInfo>(infos->Next());
        return info != nullptr ? info->TakeDocument() : nullptr;
    }

private:
    const std::unique_ptr<IAOrderedStorableIterator> infos;
};

}  // namespace

TermIndex::TermIndex() : updates(std::make_unique<UpdateBatch>()) {}

TermIndex::TermIndex(IAStorage* indexStorage, std::unique_ptr<IACorpus> indexCorpus,
                     std::unique_ptr<IAAnalysis> indexAnalysis, std::uint32_t type, std::uint32_t root)
    : TermIndex() {
    Constructing(indexStorage, std::move(indexCorpus), std::move(indexAnalysis), type, root);
}

TermIndex::~TermIndex() = default;

void TermIndex::Constructing(IAStorage* indexStorage, std::unique_ptr<IACorpus> indexCorpus,
                             std::unique_ptr<IAAnalysis> indexAnalysis, std::uint32_t type,
                             std::uint32_t root) {
    IAIndex::Constructing(indexStorage, std::move(indexCorpus), std::move(indexAnalysis), type, root);
}

void TermIndex::Initialize() {
    const OpeningScope scope(*this);
    IAAssertion(!IsOpen(), "index already open", IndexAlreadyOpen);
    for (std::uint32_t* const root : {&docInfoSetRoot, &iDDocMapRoot, &termInfoSetRoot, &iDTermMapRoot})
        *root = GetStorage()->Allocate();
    maxDocID = 1;
    maxTermID = 1;
    IAIndex::Initialize();
}

void TermIndex::MakeSets() {
    docInfoSet = IAMakeOrderedStorableSet(MakeDocInfo(GetCorpus()->GetProtoDoc(), 0));
    iDDocMap = IAMakeOrderedStorableSet(std::make_unique<IDDoc>(0, GetCorpus()->GetProtoDoc()));
    termInfoSet = IAMakeOrderedStorableSet(MakeTermInfo(GetAnalysis()->GetProtoTerm(), 0));
    iDTermMap = IAMakeOrderedStorableSet(std::make_unique<IDTerm>(0, GetAnalysis()->GetProtoTerm()));
}

void TermIndex::Initializing() {
    IAIndex::Initializing();
    MakeSets();
    docInfoSet->Initialize(GetStorage(), docInfoSetRoot, IACloneOSSetStoreStreams);
    iDDocMap->Initialize(GetStorage(), iDDocMapRoot, IACloneOSSetStoreStreams);
    termInfoSet->Initialize(GetStorage(), termInfoSetRoot, IACloneOSSetStoreStreams);
    iDTermMap->Initialize(GetStorage(), iDTermMapRoot, IACloneOSSetStoreStreams);
}

void TermIndex::Open() {
    const OpeningScope scope(*this);
    IAIndex::Open();
    MakeSets();
    const bool writable = GetStorage()->IsWritable();
    docInfoSet->Open(GetStorage(), docInfoSetRoot, writable, IACloneOSSetStoreStreams);
    iDDocMap->Open(GetStorage(), iDDocMapRoot, writable, IACloneOSSetStoreStreams);
    termInfoSet->Open(GetStorage(), termInfoSetRoot, writable, IACloneOSSetStoreStreams);
    iDTermMap->Open(GetStorage(), iDTermMapRoot, writable, IACloneOSSetStoreStreams);
    mergeMaps.clear();
    for (const std::uint32_t root : mergeMapRoots) {
        mergeMaps.push_back(root != 0 ? MakeMergeMap() : nullptr);
        if (root != 0) mergeMaps.back()->Open(GetStorage(), root, writable, IACloneOSSetStoreStreams);
    }
}

// Behind the base's: docInfoSetRoot, iDDocMapRoot, termInfoSetRoot, iDTermMapRoot, maxDocID, maxTermID, the
// number of merge maps, the root of each.  Big-endian, 32 bits wide.
std::uint32_t TermIndex::RootSize() {
    return IAIndex::RootSize() + 28 + 4 * static_cast<std::uint32_t>(mergeMapRoots.size());
}

void TermIndex::StoreRoot(IAOutputBlock* output) {
    IAIndex::StoreRoot(output);
    for (const std::uint32_t field :
         {docInfoSetRoot, iDDocMapRoot, termInfoSetRoot, iDTermMapRoot, maxDocID.load(), maxTermID.load()})
        output->WriteUInt32(field);
    output->WriteUInt32(static_cast<std::uint32_t>(mergeMapRoots.size()));
    for (const std::uint32_t root : mergeMapRoots) output->WriteUInt32(root);
}

void TermIndex::RestoreRoot(IAInputBlock* input) {
    IAIndex::RestoreRoot(input);
    for (std::uint32_t* const root : {&docInfoSetRoot, &iDDocMapRoot, &termInfoSetRoot, &iDTermMapRoot})
        *root = input->ReadUInt32();
    maxDocID = input->ReadUInt32();
    maxTermID = input->ReadUInt32();
    const std::uint32_t count = input->ReadUInt32();
    IAAssertion(count <= input->Remaining() / 4 && maxDocID >= 1 && maxTermID >= 1, "invalid index",
                IndexInvalid);
    mergeMapRoots.clear();
    for (std::uint32_t i = 0; i < count; ++i) mergeMapRoots.push_back(input->ReadUInt32());
}

void TermIndex::Purge() {
    CheckOpen();
    for (auto* const set : {docInfoSet.get(), iDDocMap.get(), termInfoSet.get(), iDTermMap.get()}) set->Purge();
}

std::unique_ptr<TermInfo> TermIndex::GetTermInfo(const IATerm* term) {
    CheckOpen();
    const TermProbe probe(term);
    return RecordOf<TermInfo>(termInfoSet->Get(&probe));
}

std::unique_ptr<DocInfo> TermIndex::FindDocInfo(const IADoc* doc) {
    const DocProbe probe(doc);
    return RecordOf<DocInfo>(docInfoSet->Get(&probe));
}

std::unique_ptr<DocInfo> TermIndex::GetDocInfo(const IADoc* doc, bool missingAllowed) {
    CheckOpen();
    std::unique_ptr<DocInfo> info = FindDocInfo(doc);
    IAAssertion(info != nullptr || missingAllowed, "invalid document", InvalidDocument);
    return info;
}

bool TermIndex::IsDocIndexed(const IADoc* doc) {
    CheckOpen();
    return FindDocInfo(doc) != nullptr;
}

std::uint32_t TermIndex::GetDocCount() {
    CheckOpen();
    return docInfoSet->Count();
}

std::uint32_t TermIndex::GetTermCount() {
    CheckOpen();
    return termInfoSet->Count();
}

std::uint32_t TermIndex::GetMaxDocID() {
    CheckOpen();
    return maxDocID;
}

std::uint32_t TermIndex::GetMaxTermID() {
    CheckOpen();
    return maxTermID;
}

std::unique_ptr<IATerm> TermIndex::GetIDTerm(std::uint32_t termID) {
    CheckOpen();
    const IDTerm key(termID);
    const auto found = RecordOf<IDTerm>(iDTermMap->Get(&key));
    IAAssertion(found != nullptr, "invalid termID", InvalidTermID);
    return found->TakeValue();
}

std::unique_ptr<IADoc> TermIndex::FindIDDoc(std::uint32_t docID) {
    CheckOpen();
    const IDDoc key(docID);
    const auto found = RecordOf<IDDoc>(iDDocMap->Get(&key));
    return found != nullptr ? found->TakeValue() : nullptr;
}

std::unique_ptr<IADoc> TermIndex::GetIDDoc(std::uint32_t docID) {
    std::unique_ptr<IADoc> doc = FindIDDoc(docID);
    IAAssertion(doc != nullptr, "invalid docID", InvalidDocID);
    return doc;
}

std::unique_ptr<IAOrderedStorableIterator> TermIndex::GetTermInfoIterator() {
    CheckOpen();
    return termInfoSet->MakeIterator();
}

std::unique_ptr<IAOrderedStorableIterator> TermIndex::GetTermInfoIterator(const IATerm* from) {
    CheckOpen();
    const TermProbe probe(from);
    return termInfoSet->MakeIterator(&probe);
}

std::unique_ptr<IAOrderedStorableIterator> TermIndex::GetDocInfoIterator() {
    CheckOpen();
    return docInfoSet->MakeIterator();
}

std::unique_ptr<IAOrderedStorableIterator> TermIndex::GetDocInfoIterator(const IADoc* from) {
    CheckOpen();
    const DocProbe probe(from);
    return docInfoSet->MakeIterator(&probe);
}

void ForEachDocLength(TermIndex& index, const std::function<void(std::uint32_t, std::uint32_t)>& use) {
    const auto infos = index.GetDocInfoIterator();
    const auto document = index.GetCorpus()->GetProtoDoc();
    ForEachStored(*infos, [&](std::span<const std::uint8_t> stored) {
        StoredReader reader(stored);  // of a DocInfo, whatever follows it
        reader.Skip(document->StoredSize(stored));
        const std::uint32_t docID = reader.VInt32();
        use(docID, reader.VInt32());
    });
}

std::unique_ptr<IAOrderedStorableIterator> TermIndex::GetIDDocIterator() {
    CheckOpen();
    return iDDocMap->MakeIterator();
}

std::unique_ptr<IADocIterator> TermIndex::GetDocIterator() {
    return std::make_unique<TIDocIterator>(GetDocInfoIterator());
}

std::unique_ptr<IADocIterator> TermIndex::GetDocIterator(const IADoc* from) {
    return std::make_unique<TIDocIterator>(GetDocInfoIterator(from));
}

bool TermIndex::Validate(bool raise, bool docsOnly) {
    const bool docsValid = ValidateDocInfos(raise);
    if (docsValid && !docsOnly) ValidateTermInfos(raise);
    return docsValid;
}

bool TermIndex::ValidateTermInfos(bool) {
    CheckOpen();
    return true;
}

bool TermIndex::ValidateDocInfos(bool) {
    CheckOpen();
    return true;
}

std::uint32_t TermIndex::GetNorm() {
    std::uint32_t sum = 0;
    ForEachDocLength(*this, [&sum](std::uint32_t, std::uint32_t length) {
        sum += static_cast<std::uint32_t>(std::sqrt(4.0 * length)) + 1;
    });
    return sum;
}

bool TermIndex::GetTFMaps(std::span<const IADoc* const> documents, std::span<TFMap> maps, Progress* progress) {
    CheckOpen();
    IAAssertion(documents.size() == maps.size(), "not one map a document", IAAssertionFailure);
    const auto phaseOf = [progress](std::size_t total) {
        auto phase = std::unique_ptr<Phase>();
        if (progress != nullptr) phase = std::make_unique<Phase>(static_cast<std::uint32_t>(total), *progress);
        return phase;
    };
    const auto all = phaseOf(documents.size());
    for (std::size_t i = 0; i < documents.size(); ++i) {
        const auto one = phaseOf(GetMaxDocumentSize());
        if (maps[i].AddDocText(*this, GetCorpus()->GetDocText(documents[i]), progress)) return true;
    }
    return false;
}

std::unique_ptr<TermInfo> TermIndex::MakeTermInfo(std::unique_ptr<IATerm> term, std::uint32_t termID) const {
    return std::make_unique<TermInfo>(std::move(term), termID);
}

std::unique_ptr<DocInfo> TermIndex::MakeDocInfo(std::unique_ptr<IADoc> document, std::uint32_t docID) const {
    return std::make_unique<DocInfo>(std::move(document), docID);
}

const void* TermIndex::IAClassID() {
    return &kClassID;
}

void* TermIndex::IANarrowInternal(const void* classID) {
    return classID == IAClassID() ? this : IAIndex::IANarrowInternal(classID);
}

TermIndex* TermIndex::IANarrow(IAIndex* index) {
    return index != nullptr ? static_cast<TermIndex*>(index->IANarrowInternal(IAClassID())) : nullptr;
}

std::vector<FreqTerm> GetHighFreqTerms(TermIndex* index, std::uint32_t most) {
    // The lowest one first.  Of equal frequencies the lesser term is the lower one.
    const auto higher = [](const FreqTerm& a, const FreqTerm& b) {
        if (a.frequency != b.frequency) return a.frequency > b.frequency;
        return b.term->IATerm::LessThan(a.term.get());
    };
    std::vector<FreqTerm> heap;
    const auto infos = index->GetTermInfoIterator();
    while (const auto info = RecordOf<TermInfo>(infos->Next())) {
        const std::uint32_t frequency = info->GetDocumentCount();
        if (heap.size() == most) {
            if (most == 0 || frequency <= heap.front().frequency) continue;
            std::ranges::pop_heap(heap, higher);
            heap.pop_back();
        }
        heap.push_back({frequency, info->TakeTerm()});
        std::ranges::push_heap(heap, higher);
    }
    std::ranges::sort(heap, higher);
    return heap;
}

}  // namespace brindle
