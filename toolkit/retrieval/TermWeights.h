#pragma once
#include <array>
#include <cstdint>

#include "lorvale/toolkit/retrieval/query.h"

namespace brindle {

/// What a term of a query adds to the score of a document that holds it, by how often it does.
class TermWeights {
public:
    /// Borrows both.
    TermWeights(const RQEntry& ofEntry, const Similarity& ofSimilarity)
        : entry(ofEntry), similarity(ofSimilarity) {
        for (std::uint32_t freq = 0; freq < table.size(); ++freq) table[freq] = Compute(freq);
    }
    double Of(std::uint32_t freq) const { return freq < table.size() ? table[freq] : Compute(freq); }

private:
    double Compute(std::uint32_t freq) const {
        return double{similarity.TermWeight(entry.scaleFactor, freq)} * entry.weight;
    }

    const RQEntry& entry;
    const Similarity& similarity;
    std::array<double, 10> table;
};

}  // namespace brindle
