#pragma once
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/toolkit/retrieval/accessor.h"
#include "lorvale/toolkit/retrieval/hits.h"
#include "lorvale/toolkit/retrieval/query.h"
#include "lorvale/toolkit/retrieval/similarity.h"

namespace brindle {

/// An accessor that answers queries with the best documents.
class LORVALE_EXPORT RankedAccessor : public IAAccessor {
public:
    ~RankedAccessor() override;

    /// The best documents for a text, for documents like the examples, or for both; the best one first.  Each
    /// hit names up to `topTerms` of the terms that it matches.  `fn` is told of progress at most every
    /// `frequency` ticks of clock().
    virtual RankedHits RankedSearch(std::string_view text, std::span<const RankedQueryDoc> docs,
                                    std::uint32_t maxHits, std::uint32_t topTerms = 0,
                                    const RankedProgressFn& fn = nullptr, std::uint32_t frequency = 0);
    /// The same for a text of any kind; null for none.
    virtual RankedHits RankedSearch(const IADocText* text, std::span<const RankedQueryDoc> docs,
                                    std::uint32_t maxHits, std::uint32_t topTerms = 0,
                                    const RankedProgressFn& fn = nullptr, std::uint32_t frequency = 0);
    /// The terms that weigh most in a document.
    virtual RankedHit::Terms GetDocTopic(const RankedQueryDoc& doc, std::uint32_t maxTerms,
                                         const RankedProgressFn& fn = nullptr, std::uint32_t frequency = 0);
    /// The terms that weigh most in the best three documents with a term, that term left out.
    virtual RankedHit::Terms GetTermsRelated(std::string_view term, std::uint32_t maxTerms,
                                             const RankedProgressFn& fn = nullptr, std::uint32_t frequency = 0);

    /// Whether a document may be a hit.  A subclass filters here; it is asked for each hit, in the order of
    /// document numbers, and must answer the same for one document each time.
    virtual bool IsHit(IAIndex* index, const IADoc* document);
    // The order and the identity of hits of equal scores.
    virtual bool HitLessThan(IAIndex* indexA, const IADoc* a, IAIndex* indexB, const IADoc* b);
    virtual bool HitEqual(IAIndex* indexA, const IADoc* a, IAIndex* indexB, const IADoc* b);
    /// One hit of two for one document: by default a copy of the one with the higher score, or else of the
    /// second.
    virtual std::unique_ptr<RankedHit> MergeHits(const RankedHit& first, const RankedHit& second);

    const Similarity* GetSimilarity() const { return similarity.get(); }
    /// Whether documents that match more of the query's terms are given more; true at the start.
    void SetRankedCoordination(bool coordinated) { rankedCoordination = coordinated; }
    bool IsRankedCoordinated() const { return rankedCoordination; }
    /// 0.5 at the start.
    void SetRankedCoordinationDegree(float degree);
    float GetRankedCoordinationDegree() const;

protected:
    RankedAccessor() = default;
    /// What each kind of accessor does its own way: fills the query from its sources, and answers with the best
    /// documents.
    virtual RankedHits Search(IAQuery& query, std::uint32_t maxHits, std::uint32_t topTerms,
                              const RankedProgressFn& fn, std::uint32_t frequency) = 0;
    /// The indexes are open.
    void Constructing(std::span<TermIndex* const> ofIndices, std::uint32_t type);
    std::span<TermIndex* const> TermIndices() const { return termIndices; }

private:
    std::vector<TermIndex*> termIndices;  // borrowed
    std::unique_ptr<Similarity> similarity;
    bool rankedCoordination = true;
};

}  // namespace brindle
