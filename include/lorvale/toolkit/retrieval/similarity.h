#pragma once
#include <array>
#include <cmath>
#include <cstdint>
#include <span>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/index/term_index.h"

namespace brindle {

/// The term statistics of a set of indexes, and the formulas that make scores of them.  Logarithms are natural.
/// Each expression is computed in double, each result is a float.  The statistics are those of the moment it
/// was made.
class LORVALE_EXPORT Similarity : public IAObject {
public:
    /// The indexes are borrowed for life and open.
    explicit Similarity(std::span<TermIndex* const> indices);
    ~Similarity() override;

    std::span<TermIndex* const> GetIndices() const { return indices; }
    float GetTotalDocs() const { return totalDocs; }
    float GetRankedCoordinationDegree() const { return rankedCoordinationDegree; }
    void SetRankedCoordinationDegree(float degree) { rankedCoordinationDegree = degree; }

    /// 1 + ln(all documents / documents with the term): how much a term tells.  `documentCount` is not 0.
    float TermScaleFactor(std::uint32_t documentCount) const {
        return documentCount < TableSize ? scaleTable[documentCount] : SlowScale(documentCount);
    }
    /// The same for a term by its records, one an index, of which some may be null.
    float TermScaleFactor(std::span<const TermInfo* const> termInfos) const {
        return TermScaleFactor(TotalDocCount(termInfos));
    }
    static std::uint32_t TotalDocCount(std::span<const TermInfo* const> termInfos);
    float MaxTermScaleFactor() const { return TermScaleFactor(1); }

    /// ln(frequency + 1)
    float FastLog(std::uint32_t frequency) const {
        return frequency < TableSize ? logTable[frequency] : SlowLog(frequency);
    }
    float SlowScale(std::uint32_t documentCount) const;
    static float SlowLog(std::uint32_t frequency);

    float TermWeight(float scale, std::uint32_t frequency) const { return scale * FastLog(frequency); }
    float TermScorePower(float weight, float scale, std::uint32_t frequency) const {
        return weight * TermWeight(scale, frequency);
    }
    static float DocNorm(const DocInfo& info);

    /// What each further term of a query of `queryTerms` adds to a score.
    float CoordinationFactor(std::uint32_t queryTerms) const;
    static float CoordinationScore(float score, std::uint32_t matchingTerms, float factor) {
        return static_cast<float>((matchingTerms - 1.0) * double{factor} + double{score});
    }

private:
    static constexpr std::uint32_t TableSize = 10;

    const std::vector<TermIndex*> indices;
    float totalDocs = 0;
    std::array<float, TableSize> scaleTable{};  // entry 0 is of no use
    std::array<float, TableSize> logTable{};
    float rankedCoordinationDegree = 0.5f;
};

}  // namespace brindle
