#include "toolkit/retrieval/VectorSearchRun.h"

#include <cmath>

#include "toolkit/index/VectorStream.h"

namespace brindle {

VectorScorer::VectorScorer(const VectorAccessor& ofAccessor, const IAQuery& query, std::uint32_t number)
    : accessor(ofAccessor), similarity(*ofAccessor.GetSimilarity()), indexNumber(number) {
    const std::size_t terms = accessor.GetTermScaleFactors(indexNumber).size();
    weights.resize(terms);
    entries.resize(terms);
    for (const auto& entry : query.GetEntries()) {
        const TermInfo* const info = entry->InfoIn(indexNumber);
        if (info == nullptr || info->GetTermID() >= terms) continue;  // it was added a moment ago
        weights[info->GetTermID()] = entry->weight;
        entries[info->GetTermID()] = entry.get();
    }
}

float VectorScorer::Score(std::span<const TFComponent> document) const {
    double dot = 0, squares = 0;
    for (const auto& [termID, freq] : document) {
        const double weight =
            double{similarity.TermWeight(accessor.TermScaleFactor(indexNumber, termID), freq)};
        squares += weight * weight;
        if (termID < weights.size()) dot += double{weights[termID]} * weight;
    }
    return squares == 0 ? 0 : static_cast<float>(dot / std::sqrt(squares));
}

RankedHit::Terms VectorScorer::TopTerms(std::span<const TFComponent> document, std::uint32_t most) const {
    WeightedTermQueue heaviest(most);
    for (const auto& [termID, freq] : document) {
        if (termID >= entries.size() || entries[termID] == nullptr) continue;
        const float weight = similarity.TermWeight(accessor.TermScaleFactor(indexNumber, termID), freq);
        heaviest.Update(*entries[termID]->term, entries[termID]->weight * weight);
    }
    return heaviest.TakeTerms();
}

bool VectorSearchRun::Search(const IAQuery& query, std::span<VectorIndex* const> indices) {
    std::uint32_t total = 0;
    for (VectorIndex* const index : indices) total += index->GetDocCount();
    const Phase phase(total, progress.Steps());
    for (std::size_t i = 0; i < indices.size(); ++i)
        if (SearchIndex(*indices[i], VectorScorer(accessor, query, static_cast<std::uint32_t>(i)))) return true;
    return false;
}

/// True if it was cancelled.
bool VectorSearchRun::SearchIndex(VectorIndex& index, const VectorScorer& scorer) {
    for (VectorStream documents(index); documents.Next();) {
        const float score = scorer.Score(documents.Components());
        if (progress.Steps().StepCheck(1)) return true;
        if (score > 0 && queue.Takes(score))
            Offer(index, documents.Document(), score, scorer, documents.Components());
    }
    return false;
}

void VectorSearchRun::Offer(VectorIndex& index, const IADoc& document, float score, const VectorScorer& scorer,
                            std::span<const TFComponent> components) {
    progress.SetDocument(&index, IADeepCopyOf(document));
    if (!accessor.IsHit(&index, &document)) return;
    queue.AddHit(std::make_unique<RankedHit>(&index, document, score, scorer.TopTerms(components, topTerms)));
}

RankedHits VectorSearchRun::TakeHits() {
    progress.Complete();
    return queue.TakeHits();
}

}  // namespace brindle
