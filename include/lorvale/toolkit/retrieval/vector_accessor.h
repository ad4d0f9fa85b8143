#pragma once
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/index/vector_index.h"
#include "lorvale/toolkit/retrieval/ranked_accessor.h"
#include "lorvale/toolkit/retrieval/tw_vector.h"

namespace brindle {

/// Answers queries from the vectors of documents: every document is scored, by the cosine of the angle between
/// it and the query.  docs/search.md has the formulas.
///
/// Its tables are one byte for each term ID of each index: how much the term tells.  Numbers that belong to no
/// term hold 0.
class LORVALE_EXPORT VectorAccessor : public virtual RankedAccessor {
public:
    static constexpr std::uint32_t Type = IATag("Vec0");
    static constexpr std::uint32_t BackgroundType = IATag("Vec4");

    /// The indexes are open and borrowed for life.
    explicit VectorAccessor(std::span<VectorIndex* const> indices, std::uint32_t type = Type);
    explicit VectorAccessor(VectorIndex* index, std::uint32_t type = Type)
        : VectorAccessor(std::span(&index, 1), type) {}
    /// Weighs the terms of the index's documents by how many documents of another index hold them, where any
    /// does: a few texts by the statistics of many.  It is initialized.
    VectorAccessor(VectorIndex* index, TermIndex* background);
    ~VectorAccessor() override;

    /// From its vector.  Raises "term weight vector is null" (IAAssertionFailure) for a document of another
    /// index.
    RankedHit::Terms GetDocTopic(const RankedQueryDoc& doc, std::uint32_t maxTerms,
                                 const RankedProgressFn& fn = nullptr, std::uint32_t frequency = 0) override;
    /// From the vectors of the best three documents with the term.  With several indexes its results mean
    /// nothing but for hits in the index of the first one, by which terms are named.
    RankedHit::Terms GetTermsRelated(std::string_view term, std::uint32_t maxTerms,
                                     const RankedProgressFn& fn = nullptr,
                                     std::uint32_t frequency = 0) override;

    /// What the terms of a document weigh, as a vector of length 1; without components if it has no terms.
    std::unique_ptr<TWVector> GetTWVector(const IADoc* document, std::uint32_t indexNumber = 0) const;
    /// The weights of a query's terms, in the order of the index's term IDs.
    TWVector MakeTWVector(const IAQuery& query, std::uint32_t indexNumber) const;
    /// How much a term tells, to the rounding of a byte.
    float TermScaleFactor(std::uint32_t indexNumber, std::uint32_t termID) const {
        const auto& factors = termScaleFactors[indexNumber];
        return scaleFactorDecoder[termID < factors.size() ? factors[termID] : 0];
    }
    /// The bytes of one index, by term ID.
    const std::vector<std::uint8_t>& GetTermScaleFactors(std::uint32_t index) const {
        return termScaleFactors[index];
    }

protected:
    /// Told of each term: its records, one an index, of which some are null.
    virtual void CacheTermStats(std::span<const TermInfo* const> termInfos);
    /// The same for a term that came later.
    void UpdateCacheTermStats(std::span<const TermInfo* const> termInfos);

    RankedHits Search(IAQuery& query, std::uint32_t maxHits, std::uint32_t topTerms, const RankedProgressFn& fn,
                      std::uint32_t frequency) override;
    void Initializing() override;
    std::uint32_t InitsSize() override;
    void StoringInits(IAOutputBlock* output) override;
    void RestoringInits(IAInputBlock* input) override;
    void UpdatingInits(IAInputBlock* input) override;
    void ExtendingInits() override;

    // Tables of one byte for each term ID of each index, which a subclass keeps, too.  Stored form: for each
    // index the number of bytes in 32 bits, and these.

    using ByteTables = std::vector<std::vector<std::uint8_t>>;
    static std::uint32_t TablesSize(const ByteTables& tables);
    static void StoreTables(const ByteTables& tables, IAOutputBlock* output);
    /// Raises "accessor init invalid" (IAAccessorInitInvalid) for tables of other sizes.
    ByteTables RestoreTables(IAInputBlock* input) const;
    /// They may be shorter than the indexes have terms by now.
    ByteTables RestoreOldTables(IAInputBlock* input) const;
    /// For as many terms as the indexes have now.
    void GiveRoom(ByteTables& tables) const;
    ByteTables MakeTables() const;
    static void SetByte(ByteTables& tables, std::span<const TermInfo* const> termInfos, std::uint8_t value);

    /// Calls `use` with the records of each term that came since the tables were stored.
    void ForEachNewTerm(const std::function<void(std::span<const TermInfo* const>)>& use) const;

private:
    void MakeScaleFactorCodec(const Similarity& statistics);
    std::uint8_t EncodeScaleFactor(std::uint32_t documentCount, const Similarity& statistics) const;
    /// Raises for an index that is not searched here.
    std::uint32_t NumberOf(const IAIndex* index) const;

    std::vector<VectorIndex*> vectorIndices;   // borrowed
    ByteTables termScaleFactors;               // empty before it is initialized
    std::vector<std::uint32_t> oldTermCounts;  // of tables that are being extended
    std::array<float, 256> scaleFactorDecoder{};
    float scaleFactorEncodingFactor = 0;
};

}  // namespace brindle
