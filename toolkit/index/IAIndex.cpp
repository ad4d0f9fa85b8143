// What all indexes share: the root block, and the life from made or opened to flushed.
#include <chrono>
#include <exception>

#include "lorvale/toolkit/index/index_base.h"
#include "lorvale/toolkit/storage/block.h"

namespace brindle {

// Root block, big-endian 32-bit fields:
//   offset
//        0  storage type, 4 corpus type, 8 analysis type, 12 index type
//       16  updateTime, seconds since 1970; an index type of one version before has no such field
//       20  corpusRoot, 24 analysisRoot
//       28  what subclasses add
namespace {

constexpr std::uint32_t kRootSize = 32;

const char kClassID = 0;

std::uint32_t SecondsNow() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::seconds>(now).count());
}

}  // namespace

void IAIndexTypes::Store(IAOutputBlock* output) const {
    for (const std::uint32_t tag : {storageType, corpusType, analysisType, indexType}) output->WriteUInt32(tag);
}

void IAIndexTypes::Restore(IAInputBlock* input) {
    for (std::uint32_t* const tag : {&storageType, &corpusType, &analysisType, &indexType})
        *tag = input->ReadUInt32();
}

bool IAIndexTypes::Equal(const IAIndexTypes& stored) const {
    const auto same = [](std::uint32_t here, std::uint32_t there) { return here != 0 && here == there; };
    const bool olderStorage = storageType == IATag("Bud1") && stored.storageType == IATag("Bud0");
    return (olderStorage || same(storageType, stored.storageType)) && same(corpusType, stored.corpusType) &&
           same(analysisType, stored.analysisType) && same(indexType, stored.indexType);
}

void IAReadIndexTypes(IAStorage* storage, std::uint32_t rootBlock, IAIndexTypes* types) {
    IAInputBlock input(storage, rootBlock);
    types->Restore(&input);
}

IAIndex::IAIndex() : mutex(IANewMutex()) {}

IAIndex::IAIndex(IAStorage* indexStorage, std::unique_ptr<IACorpus> indexCorpus,
                 std::unique_ptr<IAAnalysis> indexAnalysis, std::uint32_t type, std::uint32_t root)
    : IAIndex() {
    Constructing(indexStorage, std::move(indexCorpus), std::move(indexAnalysis), type, root);
}

IAIndex::~IAIndex() = default;

void IAIndex::Constructing(IAStorage* indexStorage, std::unique_ptr<IACorpus> indexCorpus,
                           std::unique_ptr<IAAnalysis> indexAnalysis, std::uint32_t type, std::uint32_t root) {
    if (constructed) return;
    IAAssertion(indexStorage != nullptr && indexCorpus != nullptr && indexAnalysis != nullptr,
                "index without a storage, a corpus or an analysis", IAAssertionFailure);
    constructed = true;
    storage = indexStorage;
    corpus = std::move(indexCorpus);
    analysis = std::move(indexAnalysis);
    indexType = type;
    indexRoot = root;
}

IAIndex::OpeningScope::OpeningScope(IAIndex& ofIndex)
    : lock(ofIndex.mutex.get()),
      index(ofIndex),
      wasOpen(ofIndex.isOpen),
      exceptions(std::uncaught_exceptions()) {}

IAIndex::OpeningScope::~OpeningScope() {
    if (std::uncaught_exceptions() > exceptions) index.isOpen = wasOpen;
}

void IAIndex::Initialize() {
    const OpeningScope scope(*this);
    IAAssertion(!isOpen, "index already open", IndexAlreadyOpen);
    isOpen = true;
    if (indexRoot == 0) indexRoot = storage->AllocateNamedBlock(IADefaultIndexName);
    corpusRoot = storage->Allocate();
    analysisRoot = storage->Allocate();
    WriteRoot();
    Initializing();
    corpus->Open(storage, corpusRoot);
    analysis->Open(storage, analysisRoot);
}

void IAIndex::Initializing() {
    corpus->Initialize(storage, corpusRoot);
    analysis->Initialize(storage, analysisRoot);
}

void IAIndex::Open() {
    const OpeningScope scope(*this);
    IAAssertion(!isOpen, "index already open", IndexAlreadyOpen);
    isOpen = true;
    if (indexRoot == 0) indexRoot = storage->TOC_Get(IADefaultIndexName);
    IAAssertion(indexRoot != 0, "index root is null", IAAssertionFailure);
    {
        IAInputBlock input(storage, indexRoot);
        RestoreRoot(&input);
    }
    corpus->Open(storage, corpusRoot);
    analysis->Open(storage, analysisRoot);
}

void IAIndex::GetIndexTypes(IAIndexTypes* types) const {
    *types = IAIndexTypes(storage->GetStorageType(), corpus->GetCorpusType(), analysis->GetAnalysisType(),
                          indexType);
}

std::uint32_t IAIndex::RootSize() {
    return kRootSize;
}

void IAIndex::StoreRoot(IAOutputBlock* output) {
    IAIndexTypes types;
    GetIndexTypes(&types);
    types.Store(output);
    updateTime = SecondsNow();
    output->WriteUInt32(updateTime);
    output->WriteUInt32(corpusRoot);
    output->WriteUInt32(analysisRoot);
}

void IAIndex::RestoreRoot(IAInputBlock* input) {
    IAIndexTypes stored;
    stored.Restore(input);
    updateTime = 0;
    if (stored.indexType == indexType - 1)
        stored.indexType = indexType;  // the version before, which kept no time
    else
        updateTime = input->ReadUInt32();
    IAIndexTypes here;
    GetIndexTypes(&here);
    IAAssertion(here.Equal(stored), "invalid index", IndexInvalid);
    corpusRoot = input->ReadUInt32();
    analysisRoot = input->ReadUInt32();
}

void IAIndex::WriteRoot() {
    IAOutputBlock output(storage, indexRoot, RootSize());
    StoreRoot(&output);
}

void IAIndex::Flush() {
    CheckOpen();
    const IALock lock(mutex.get());
    WriteRoot();
    corpus->Update(storage, corpusRoot);
}

void IAIndex::Compact() {
    CheckOpen();
}

void IAIndex::Update() {
    Flush();  // the iterator does not see what waits
    const std::unique_ptr<IADocIterator> there = corpus->GetDocIterator();
    const std::unique_ptr<IADocIterator> here = GetDocIterator();
    const auto next = [](IADocIterator* from) { return from != nullptr ? from->GetNextDoc() : nullptr; };
    std::unique_ptr<IADoc> corpusDoc = next(there.get());
    std::unique_ptr<IADoc> indexDoc = next(here.get());
    while (corpusDoc != nullptr || indexDoc != nullptr) {
        if (corpusDoc != nullptr && indexDoc != nullptr && corpusDoc->Equal(indexDoc.get())) {
            corpusDoc = next(there.get());
            indexDoc = next(here.get());
        } else if (indexDoc == nullptr || (corpusDoc != nullptr && corpusDoc->LessThan(indexDoc.get()))) {
            AddDoc(std::move(corpusDoc));
            corpusDoc = next(there.get());
        } else {
            IAAssertion(corpusDoc == nullptr || indexDoc->LessThan(corpusDoc.get()),
                        "doc index greather than corpusdoc", IAAssertionFailure);
            DeleteDoc(indexDoc.get());
            indexDoc = next(here.get());
        }
    }
    Flush();
}

std::uint32_t IAIndex::UpdateTime() const {
    const IALock lock(mutex.get());
    return updateTime;
}

void IAIndex::SetPreferredAnalysis(const IAAnalysis* preferred) {
    CheckOpen();
    preferredAnalysis = preferred;
}

const IAAnalysis* IAIndex::GetQueryAnalysis() const {
    return preferredAnalysis != nullptr ? preferredAnalysis : analysis.get();
}

void IAIndex::CheckOpen() const {
    IAAssertion(isOpen, "index not open", IndexNotOpen);
}

const void* IAIndex::IAClassID() {
    return &kClassID;
}

void* IAIndex::IANarrowInternal(const void* classID) {
    return classID == IAClassID() ? this : nullptr;
}

IAIndex* IAIndex::IANarrow(IAIndex* index) {
    return index != nullptr ? static_cast<IAIndex*>(index->IANarrowInternal(IAClassID())) : nullptr;
}

}  // namespace brindle
