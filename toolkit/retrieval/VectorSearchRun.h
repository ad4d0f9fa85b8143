#pragma once
#include <cstdint>
#include <span>
#include <vector>

#include "lorvale/toolkit/retrieval/vector_accessor.h"
#include "toolkit/retrieval/HitQueue.h"
#include "toolkit/retrieval/SearchProgress.h"

namespace brindle {

/// What a query weighs in one index, by term ID, and the scores that this gives to its documents.
class VectorScorer {
public:
    VectorScorer(const VectorAccessor& ofAccessor, const IAQuery& query, std::uint32_t number);

    /// The cosine of the angle between the document and the query, as far as the latter has length 1; 0 for a
    /// document that shares nothing with it.
    float Score(std::span<const TFComponent> document) const;
    /// The terms of the query that weigh most in the document.
    RankedHit::Terms TopTerms(std::span<const TFComponent> document, std::uint32_t most) const;

private:
    const VectorAccessor& accessor;
    const Similarity& similarity;
    const std::uint32_t indexNumber;
    std::vector<float> weights;           // 0 for what is not in the query
    std::vector<const RQEntry*> entries;  // null likewise
};

/// One search of an accessor, from an initialized query to the best hits.
class VectorSearchRun {
public:
    VectorSearchRun(VectorAccessor& forAccessor, std::uint32_t most, std::uint32_t terms,
                    const RankedProgressFn& fn, std::uint32_t frequency)
        : accessor(forAccessor), topTerms(terms), progress(fn, frequency), queue(accessor, most) {}

    SearchProgress& Report() { return progress; }
    /// All documents of all indexes.  True if it was cancelled.
    bool Search(const IAQuery& query, std::span<VectorIndex* const> indices);
    /// After a search that was not cancelled.
    RankedHits TakeHits();

private:
    bool SearchIndex(VectorIndex& index, const VectorScorer& scorer);
    void Offer(VectorIndex& index, const IADoc& document, float score, const VectorScorer& scorer,
               std::span<const TFComponent> components);

    VectorAccessor& accessor;
    const std::uint32_t topTerms;
    SearchProgress progress;
    RankedHitQueue queue;
};

}  // namespace brindle
