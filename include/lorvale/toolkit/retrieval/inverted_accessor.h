#pragma once
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/index/inverted_index.h"
#include "lorvale/toolkit/retrieval/boolean_query.h"
#include "lorvale/toolkit/retrieval/ranked_accessor.h"

namespace brindle {

class RankedSearchRun;

/// How a document's score is made of the query's terms in it.  docs/search.md has the formulas.
enum class RankedWeighting : std::uint8_t {
    pivoted,  ///< logarithms of frequencies, divided by a norm of the document's length; the default
    bm25,     ///< the usual constants: k1 1.2, b 0.75
};

/// Answers queries from the lists of inverted indexes.
///
/// It sees the documents that were flushed when it was initialized, less those that were deleted since.  Its
/// tables are one byte for each document number: trunc(sqrt(4 * length)) + 1, at most 255.
class LORVALE_EXPORT InvertedAccessor : public virtual RankedAccessor {
public:
    static constexpr std::uint32_t Type = IATag("Inv1");

    /// The indexes are open and borrowed for life.
    explicit InvertedAccessor(std::span<InvertedIndex* const> indices, std::uint32_t type = Type);
    explicit InvertedAccessor(InvertedIndex* index, std::uint32_t type = Type)
        : InvertedAccessor(std::span(&index, 1), type) {}
    ~InvertedAccessor() override;

    /// Another way to initialize: takes copies of the tables of others, one index after the other, instead of
    /// walking the documents.  The indexes have not changed since those were initialized.
    void InitializeFrom(std::span<const InvertedAccessor* const> others);

    /// The best of the documents that fulfil a query in the language of IAParser.  Raises
    /// IAAccessorInvalidQuery for what is no query.  The hits name no terms.
    RankedHits RankedSearchBoolean(std::string_view text, std::uint32_t maxHits,
                                   const RankedProgressFn& fn = nullptr, std::uint32_t frequency = 0);

    // A query of more terms than the first limit is trimmed, to the second one at the most.
    std::uint32_t GetInvertedRankedQueryMinTerms() const { return minTerms; }
    void SetInvertedRankedQueryMinTerms(std::uint32_t terms) { minTerms = terms; }
    std::uint32_t GetInvertedRankedQueryMaxTerms() const { return maxTerms; }
    void SetInvertedRankedQueryMaxTerms(std::uint32_t terms) { maxTerms = terms; }
    /// How many terms a query of so many keeps.
    std::uint32_t TrimmedQuerySize(std::uint32_t terms) const;
    /// Keeps the terms that can add most to a score; of equal ones those that come first in the order of terms.
    void TrimRankedQuery(IAQuery& query) const;

    RankedWeighting GetWeighting() const { return weighting; }
    void SetWeighting(RankedWeighting newWeighting) { weighting = newWeighting; }

    // The signs of the query language, one byte each.
    void SetBooleanAndOperator(std::uint16_t c) { booleanQuery.GetParser().SetAndOperator(c); }
    std::uint16_t GetBooleanAndOperator() { return booleanQuery.GetParser().GetAndOperator(); }
    void SetBooleanOrOperator(std::uint16_t c) { booleanQuery.GetParser().SetOrOperator(c); }
    std::uint16_t GetBooleanOrOperator() { return booleanQuery.GetParser().GetOrOperator(); }
    void SetBooleanNotOperator(std::uint16_t c) { booleanQuery.GetParser().SetNotOperator(c); }
    std::uint16_t GetBooleanNotOperator() { return booleanQuery.GetParser().GetNotOperator(); }
    void SetBooleanLeftFence(std::uint16_t c) { booleanQuery.GetParser().SetLeftFence(c); }
    std::uint16_t GetBooleanLeftFence() { return booleanQuery.GetParser().GetLeftFence(); }
    void SetBooleanRightFence(std::uint16_t c) { booleanQuery.GetParser().SetRightFence(c); }
    std::uint16_t GetBooleanRightFence() { return booleanQuery.GetParser().GetRightFence(); }

    /// The norms of one index, by document number; 0 for a number without a document.
    const std::vector<std::uint8_t>& GetDocNorms(std::uint32_t index) const { return docNorms[index]; }
    float GetAverageNorm() const { return averageNorm; }
    static std::uint8_t DocNormByte(std::uint32_t documentLength);

protected:
    RankedHits Search(IAQuery& query, std::uint32_t maxHits, std::uint32_t topTerms, const RankedProgressFn& fn,
                      std::uint32_t frequency) override;
    void Initializing() override;
    std::uint32_t InitsSize() override;
    void StoringInits(IAOutputBlock* output) override;
    void RestoringInits(IAInputBlock* input) override;
    void UpdatingInits(IAInputBlock* input) override;
    void ExtendingInits() override;

private:
    friend class RankedSearchRun;

    bool SetUpBoolean(Progress& progress);
    using Norms = std::vector<std::vector<std::uint8_t>>;
    static std::vector<std::uint8_t> ReadNorms(IAInputBlock* input, std::uint32_t stored, std::uint32_t room);
    void TakeTables(Norms norms, IAInputBlock* input);
    void ComputeAverage();

    std::vector<InvertedIndex*> invertedIndices;  // borrowed
    Norms docNorms;                               // one for each index; empty before it is initialized
    float averageNorm = 0;
    std::uint32_t normCount = 0;
    std::uint32_t normSum = 0;
    std::uint32_t minTerms = 10;
    std::uint32_t maxTerms = 50;
    RankedWeighting weighting = RankedWeighting::pivoted;
    bool hitsAreFiltered = false;  // IsHit() has answered false
    IABooleanQuery booleanQuery;
};

}  // namespace brindle
