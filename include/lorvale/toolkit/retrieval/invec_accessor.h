#pragma once
#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/retrieval/inverted_accessor.h"
#include "lorvale/toolkit/retrieval/vector_accessor.h"

namespace brindle {

/// Searches indexes that have lists and vectors, by their lists.  A search by example documents alone takes its
/// query from their vectors: no text is analysed, and what little a long query can gain from most of its terms
/// is known beforehand.
///
/// Its tables are those of both accessors, and one byte more for each term ID: the most that the term weighs in
/// any document.
class LORVALE_EXPORT InVecAccessor : public InvertedAccessor, public VectorAccessor {
public:
    static constexpr std::uint32_t Type = IATag("I&V0");

    /// The indexes are open and borrowed for life.
    explicit InVecAccessor(std::span<InVecIndex* const> indices, std::uint32_t type = Type);
    explicit InVecAccessor(InVecIndex* index, std::uint32_t type = Type)
        : InVecAccessor(std::span(&index, 1), type) {}
    ~InVecAccessor() override;

    RankedHit::Terms GetDocTopic(const RankedQueryDoc& doc, std::uint32_t maxTerms,
                                 const RankedProgressFn& fn = nullptr, std::uint32_t frequency = 0) override;
    RankedHit::Terms GetTermsRelated(std::string_view term, std::uint32_t maxTerms,
                                     const RankedProgressFn& fn = nullptr,
                                     std::uint32_t frequency = 0) override;

    /// The bytes of one index, by term ID.
    const std::vector<std::uint8_t>& GetTermMaxWeights(std::uint32_t index) const {
        return termMaxWeights[index];
    }
    const std::array<float, 256>& GetMaxWeightDecoder() const { return maxWeightDecoder; }
    float GetMaxWeightEncodingFactor() const { return maxWeightEncodingFactor; }
    /// Keeps the terms of a query that can add most to a score, as many as a query of that size keeps.
    void TrimQueryVector(TWVector& vector, std::uint32_t indexNumber) const;

protected:
    /// By the vectors of the examples, if there is no text and all of them stand in one index; else as
    /// InvertedAccessor does.  Raises "index offset equal count" (IAAssertionFailure) for another index.
    RankedHits Search(IAQuery& query, std::uint32_t maxHits, std::uint32_t topTerms, const RankedProgressFn& fn,
                      std::uint32_t frequency) override;
    void CacheTermStats(std::span<const TermInfo* const> termInfos) override;
    void Initializing() override;
    std::uint32_t InitsSize() override;
    void StoringInits(IAOutputBlock* output) override;
    void RestoringInits(IAInputBlock* input) override;
    void UpdatingInits(IAInputBlock* input) override;
    void ExtendingInits() override;

private:
    void MakeMaxWeightCodec();
    void CacheMaxWeight(std::span<const TermInfo* const> termInfos);
    RankedHits SearchByVectors(std::span<const RankedQueryDoc> docs, std::uint32_t maxHits,
                               std::uint32_t topTerms, const RankedProgressFn& fn, std::uint32_t frequency);
    TWVector SumOf(std::span<const RankedQueryDoc> docs, std::uint32_t indexNumber) const;

    ByteTables termMaxWeights;
    std::array<float, 256> maxWeightDecoder{};
    float maxWeightEncodingFactor = 0;
};

}  // namespace brindle
