#include "lorvale/toolkit/retrieval/router.h"

#include "lorvale/toolkit/corpus/ufs_corpus.h"
#include "lorvale/toolkit/storage/block.h"
#include "lorvale/toolkit/storage/exception.h"

namespace brindle {

namespace {

/// Below all that two vectors can have in common.
constexpr float kNoSimilarity = -666.6f;

}  // namespace

IACluster::~IACluster() = default;

std::unique_ptr<IADoc> IACluster::GetNextDoc() {
    return nullptr;
}

void IACluster::Reset() {}

UFSCluster::UFSCluster(const IAIndex* index, std::string directoryPath)
    : IACluster(index),
      directory(std::move(directoryPath)),
      iterator(std::make_unique<UFSIterator>(directory.c_str())) {}

UFSCluster::~UFSCluster() = default;

std::unique_ptr<IADoc> UFSCluster::GetNextDoc() {
    return iterator->Increment() ? std::make_unique<UFSDoc>(iterator->GetFullPath()) : nullptr;
}

void UFSCluster::Reset() {
    iterator = std::make_unique<UFSIterator>(directory.c_str());
}

IARouter::~IARouter() = default;

bool IARouter::InitializeClusters(std::span<IACluster* const> clusters) {
    IAAssertion(clusterVectors.empty(), "Can't reset # of clusters in SetClusterCount", IAAssertionFailure);
    IAAssertion(index != nullptr, "Can't reset # of clusters in SetClusterCount", IAAssertionFailure);
    Progress progress(progressFreq, progressFn);
    accessor = nullptr;
    {
        const Phase phase(static_cast<std::uint32_t>(clusters.size()), progress);
        const bool cancelled = AddExamples(clusters, progress);
        index->Flush();
        if (cancelled) return true;
    }
    for (IACluster* const cluster : clusters) clusterVectors.push_back(CentroidOf(*cluster));
    progress.Complete();
    return false;
}

/// True if it was cancelled.
bool IARouter::AddExamples(std::span<IACluster* const> clusters, Progress& progress) {
    for (IACluster* const cluster : clusters) {
        while (auto document = cluster->GetNextDoc()) {
            if (progress.Check()) return true;
            if (index->IsDocIndexed(document.get())) continue;
            try {
                index->AddDoc(std::move(document));
            } catch (const IAException& failure) {
                // An example of two clusters is there already, and waits.
                if (failure.GetCode() != IndexDocAlreadyIndexed) throw;
            }
        }
        cluster->Reset();
        progress.Step(1);
    }
    return progress.Check();
}

TWVector IARouter::CentroidOf(IACluster& cluster) {
    TWVector accumulator;
    while (const auto document = cluster.GetNextDoc()) {
        if (!index->IsDocIndexed(document.get())) continue;  // it came a moment ago
        accumulator = accumulator.Sum(*Accessor().GetTWVector(document.get()));
    }
    cluster.Reset();
    return accumulator;
}

const VectorAccessor& IARouter::Accessor() {
    if (accessor == nullptr) {
        accessor = std::make_unique<VectorAccessor>(index);
        // Tables that somebody has stored in the same place are another accessor's, or older.
        accessor->InitializeAnew();
    }
    return *accessor;
}

std::int32_t IARouter::BestCluster(const TWVector& vector) {
    lastSimilarity = kNoSimilarity;
    std::int32_t best = -1;
    for (std::size_t i = 0; i < clusterVectors.size(); ++i) {
        const float similarity = clusterVectors[i].Similarity(vector);
        if (similarity <= lastSimilarity) continue;
        lastSimilarity = similarity;
        best = static_cast<std::int32_t>(i);
    }
    return best;
}

std::int32_t IARouter::WhichCluster(const IADoc* document, bool addToCluster) {
    IAAssertion(index != nullptr, "router not initialized", IARouterNotInitialized);
    const bool wasIndexed = index->IsDocIndexed(document);
    if (!wasIndexed) {
        index->AddDoc(IADeepCopyOf(*document));
        index->Flush();
        accessor = nullptr;
    }
    const auto vector = Accessor().GetTWVector(document);
    const std::int32_t best = BestCluster(*vector);
    if (!wasIndexed && !addToCluster) {
        index->DeleteDoc(document);
        index->Flush();
        accessor = nullptr;
    }
    if (addToCluster && best >= 0) {
        TWVector& centroid = clusterVectors[static_cast<std::size_t>(best)];
        centroid = centroid.Sum(*vector);
    }
    return best;
}

std::uint32_t IARouter::StoreSize() const {
    std::uint32_t size = 4;
    for (const TWVector& vector : clusterVectors) size += vector.StoreSize();
    return size;
}

void IARouter::Store(IAStorage* storage, std::uint32_t block) {
    IAAssertion(!clusterVectors.empty(), "router not initialized", IARouterNotInitialized);
    if (storage == nullptr) storage = index->GetStorage();
    if (block == 0) block = storage->GetNamedBlock(IADefaultRouterName);
    IAOutputBlock output(storage, block, StoreSize());
    output.WriteUInt32(GetClusterCount());
    for (const TWVector& vector : clusterVectors) vector.Store(&output);
}

void IARouter::Restore(IAStorage* storage, std::uint32_t block) {
    IAAssertion(clusterVectors.empty(), "router already initialized", IARouterAlreadyInitialized);
    if (storage == nullptr) storage = index->GetStorage();
    if (block == 0) block = storage->TOC_Get(IADefaultRouterName);
    if (block == 0) return;
    IAInputBlock input(storage, block);
    const std::uint32_t count = input.ReadUInt32();
    IAAssertion(count <= input.Remaining(), "router damaged", IndexInvalid);  // each takes a byte at least
    std::vector<TWVector> read(count);
    for (TWVector& vector : read) vector.Restore(&input);
    clusterVectors = std::move(read);
}

}  // namespace brindle
