#include "lorvale/toolkit/retrieval/ranked_accessor.h"

#include <map>
#include <string>

#include "toolkit/retrieval/HitQueue.h"
#include "toolkit/retrieval/SearchProgress.h"

namespace brindle {

IAHit::~IAHit() = default;
RankedHit::~RankedHit() = default;
IAProgressReport::~IAProgressReport() = default;
RankedProgress::~RankedProgress() = default;
RankedAccessor::~RankedAccessor() = default;

std::unique_ptr<RankedHit> RankedHit::DeepCopy() const {
    Terms terms;
    for (const auto& term : matchingTerms) terms.push_back(IADeepCopyOf(*term));
    return std::make_unique<RankedHit>(GetIndex(), *GetDocument(), score, std::move(terms));
}

void RankedAccessor::Constructing(std::span<TermIndex* const> ofIndices, std::uint32_t type) {
    if (similarity != nullptr) return;
    termIndices.assign(ofIndices.begin(), ofIndices.end());
    IAAccessor::Constructing(std::vector<IAIndex*>(ofIndices.begin(), ofIndices.end()), type);
    similarity = std::make_unique<Similarity>(termIndices);
}

RankedHits RankedAccessor::RankedSearch(std::string_view text, std::span<const RankedQueryDoc> docs,
                                        std::uint32_t maxHits, std::uint32_t topTerms,
                                        const RankedProgressFn& fn, std::uint32_t frequency) {
    IARankedQuery query;
    query.SetTextQuery(text);
    query.SetQueryDoc(docs);
    return Search(query, maxHits, topTerms, fn, frequency);
}

RankedHits RankedAccessor::RankedSearch(const IADocText* text, std::span<const RankedQueryDoc> docs,
                                        std::uint32_t maxHits, std::uint32_t topTerms,
                                        const RankedProgressFn& fn, std::uint32_t frequency) {
    IADocTextQuery query;
    query.SetDocTextQuery(text);
    query.SetQueryDoc(docs);
    return Search(query, maxHits, topTerms, fn, frequency);
}

bool RankedAccessor::IsHit(IAIndex*, const IADoc*) {
    return true;
}

bool RankedAccessor::HitLessThan(IAIndex*, const IADoc* a, IAIndex*, const IADoc* b) {
    return a->LessThan(b);
}

bool RankedAccessor::HitEqual(IAIndex*, const IADoc* a, IAIndex*, const IADoc* b) {
    return a->Equal(b);
}

std::unique_ptr<RankedHit> RankedAccessor::MergeHits(const RankedHit& first, const RankedHit& second) {
    return first.GetScore() > second.GetScore() ? first.DeepCopy() : second.DeepCopy();
}

void RankedAccessor::SetRankedCoordinationDegree(float degree) {
    IAAssertion(similarity != nullptr, "accessor not initialized", IAAccessorNotInitialized);
    similarity->SetRankedCoordinationDegree(degree);
}

float RankedAccessor::GetRankedCoordinationDegree() const {
    IAAssertion(similarity != nullptr, "accessor not initialized", IAAccessorNotInitialized);
    return similarity->GetRankedCoordinationDegree();
}

RankedHit::Terms RankedAccessor::GetDocTopic(const RankedQueryDoc& doc, std::uint32_t maxTerms,
                                             const RankedProgressFn& fn, std::uint32_t frequency) {
    CheckInitialized();
    if (maxTerms == 0) return {};
    SearchProgress progress(fn, frequency);
    IARankedQuery query;
    query.SetQueryDoc(std::span(&doc, 1));
    if (progress.Initialize(query, TermIndices(), *GetSimilarity())) return {};
    WeightedTermQueue queue(maxTerms);
    for (const auto& entry : query.GetEntries()) queue.Update(*entry->term, entry->weight);
    progress.Complete();
    return queue.TakeTerms();
}

RankedHit::Terms RankedAccessor::GetTermsRelated(std::string_view term, std::uint32_t maxTerms,
                                                 const RankedProgressFn& fn, std::uint32_t frequency) {
    CheckInitialized();
    std::map<std::string, float, std::less<>> weights;
    for (const auto& hit : RankedSearch(term, {}, 3, 1, fn, frequency)) {
        SearchProgress progress(fn, frequency);
        const RankedQueryDoc doc{hit->GetDocument(), TermIndex::IANarrow(hit->GetIndex())};
        IARankedQuery query;
        query.SetQueryDoc(std::span(&doc, 1));
        if (progress.Initialize(query, TermIndices(), *GetSimilarity())) return {};
        for (const auto& entry : query.GetEntries()) weights[std::string(entry->term->View())] += entry->weight;
    }
    WeightedTermQueue queue(maxTerms);
    for (const auto& [related, weight] : weights)
        if (related != term) queue.Update(IATerm(related), weight);
    return queue.TakeTerms();
}

}  // namespace brindle
