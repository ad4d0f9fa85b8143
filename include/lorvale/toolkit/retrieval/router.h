#pragma once
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/corpus/ufs_iterator.h"
#include "lorvale/toolkit/retrieval/progress.h"
#include "lorvale/toolkit/retrieval/vector_accessor.h"

namespace brindle {

/// The documents that say by example what belongs together.  This one has none.
class LORVALE_EXPORT IACluster : public IAObject {
public:
    /// Of documents in the corpus of the index; null for none.
    explicit IACluster(const IAIndex* index = nullptr)
        : corpus(index != nullptr ? index->GetCorpus() : nullptr) {}
    ~IACluster() override;

    IACorpus* GetCorpus() const { return corpus; }
    /// The next document; null at the end.
    virtual std::unique_ptr<IADoc> GetNextDoc();
    /// Begins anew.
    virtual void Reset();

private:
    IACorpus* const corpus;  // borrowed
};

/// The files below a directory, as documents of a UFSCorpus.
class LORVALE_EXPORT UFSCluster : public IACluster {
public:
    /// Raises UFSError for what is no directory that can be read.
    UFSCluster(const IAIndex* index, std::string directoryPath);
    ~UFSCluster() override;

    std::unique_ptr<IADoc> GetNextDoc() override;
    void Reset() override;

private:
    const std::string directory;
    std::unique_ptr<UFSIterator> iterator;
};

/// The block in which a router is kept, unless another is named.
inline constexpr const char* IADefaultRouterName = "IADefaultRouter";

/// Sorts documents into clusters by example: a document belongs where the centroid of the examples is nearest.
///
/// The examples and what is sorted are documents of one vector index, which is borrowed for life and changed.
/// A centroid is the sum of the examples' vectors one after the other, of length 1 after each step: an example
/// weighs as much as all before it together.
///
/// Stored form: the number of clusters in 32 bits, then the centroid of each as TWVector stores it.  One
/// thread.
class LORVALE_EXPORT IARouter : public IAObject {
public:
    /// `fn` is told how far InitializeClusters() is, at most every `frequency` ticks of clock(); true cancels.
    explicit IARouter(VectorIndex* ofIndex, Progress::Function fn = nullptr, std::uint32_t frequency = 0)
        : index(ofIndex), progressFn(std::move(fn)), progressFreq(frequency) {}
    IARouter(const IARouter&) = delete;
    IARouter& operator=(const IARouter&) = delete;
    ~IARouter() override;

    /// Once: reads all clusters, adds their documents to the index where they are missing, and flushes it.  One
    /// of several clusters at a time is borrowed for the call.  True if it was cancelled: there are no clusters
    /// then, but documents may have been added.
    bool InitializeClusters(std::span<IACluster* const> clusters);
    /// The number of the cluster to which a document belongs, the lower one of two at the same distance; -1
    /// without clusters.  A document that is not indexed is indexed for that, and taken out again unless it is
    /// added to its cluster: then its vector counts there from now on.
    std::int32_t WhichCluster(const IADoc* document, bool addToCluster);
    /// The cosine between the document and the centroid of its cluster, found by the last WhichCluster().
    float LastSimilarity() const { return lastSimilarity; }

    std::uint32_t GetClusterCount() const { return static_cast<std::uint32_t>(clusterVectors.size()); }
    const TWVector& GetClusterVector(std::uint32_t number) const { return clusterVectors[number]; }
    VectorIndex* GetIndex() const { return index; }
    const Progress::Function& GetProgressFn() const { return progressFn; }
    std::uint32_t GetProgressFreq() const { return progressFreq; }

    std::uint32_t StoreSize() const;
    /// Into the block, or the one named IADefaultRouterName; a null storage stands for the index's.  Raises
    /// "router not initialized" (IARouterNotInitialized) without clusters.
    void Store(IAStorage* storage = nullptr, std::uint32_t block = 0);
    /// Without such a block there will be no clusters.  Raises "router already initialized"
    /// (IARouterAlreadyInitialized) if there are some.
    void Restore(IAStorage* storage = nullptr, std::uint32_t block = 0);

private:
    bool AddExamples(std::span<IACluster* const> clusters, Progress& progress);
    TWVector CentroidOf(IACluster& cluster);
    const VectorAccessor& Accessor();
    std::int32_t BestCluster(const TWVector& vector);

    VectorIndex* const index;
    const Progress::Function progressFn;
    const std::uint32_t progressFreq;
    std::vector<TWVector> clusterVectors;
    std::unique_ptr<VectorAccessor> accessor;  // of the index as it is; null until it is needed
    float lastSimilarity = 0;
};

}  // namespace brindle
