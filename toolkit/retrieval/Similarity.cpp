#include "lorvale/toolkit/retrieval/similarity.h"

namespace brindle {

Similarity::Similarity(std::span<TermIndex* const> ofIndices) : indices(ofIndices.begin(), ofIndices.end()) {
    for (TermIndex* const index : indices) totalDocs += static_cast<float>(index->GetDocCount());
    for (std::uint32_t i = 0; i < TableSize; ++i) {
        if (i > 0) scaleTable[i] = SlowScale(i);
        logTable[i] = SlowLog(i);
    }
}

Similarity::~Similarity() = default;

float Similarity::SlowScale(std::uint32_t documentCount) const {
    return static_cast<float>(1 + std::log(double{totalDocs} / documentCount));
}

float Similarity::SlowLog(std::uint32_t frequency) {
    return static_cast<float>(std::log(static_cast<double>(frequency) + 1));
}

std::uint32_t Similarity::TotalDocCount(std::span<const TermInfo* const> termInfos) {
    std::uint32_t total = 0;
    for (const TermInfo* const info : termInfos)
        if (info != nullptr) total += info->GetDocumentCount();
    return total;
}

float Similarity::DocNorm(const DocInfo& info) {
    return static_cast<float>(std::sqrt(static_cast<double>(info.GetDocumentLength())));
}

float Similarity::CoordinationFactor(std::uint32_t queryTerms) const {
    const double beyond = queryTerms - double{rankedCoordinationDegree};
    return static_cast<float>(1 / (beyond * beyond));
}

}  // namespace brindle
