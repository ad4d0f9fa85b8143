#include "toolkit/retrieval/HitQueue.h"

#include <algorithm>

namespace brindle {

RankedHitQueue::Hit RankedHitQueue::Take(std::set<Hit, ScoreOrder>::iterator at) {
    IAAssertion(byDoc.erase(at->get()) == 1, "unable to remove from by-doc index", IAAssertionFailure);
    return std::move(byScore.extract(at).value());
}

void RankedHitQueue::AddHit(std::unique_ptr<RankedHit> hit) {
    const auto known = byDoc.find(hit.get());
    if (known == byDoc.end()) {
        if (Count() == capacity) Take(byScore.begin());
    } else {
        hit = accessor.MergeHits(**known, *hit);
        const auto at = std::ranges::find(byScore, *known, &Hit::get);
        Take(at);
    }
    IAAssertion(byDoc.insert(hit.get()).second, "unable to add by-doc index", IAAssertionFailure);
    IAAssertion(byScore.insert(std::move(hit)).second, "unable to add by-score index", IAAssertionFailure);
}

RankedHits RankedHitQueue::TakeHits() {
    byDoc.clear();
    RankedHits hits;
    while (!byScore.empty()) hits.push_back(std::move(byScore.extract(std::prev(byScore.end())).value()));
    const float best = hits.empty() ? 0 : hits.front()->GetScore();
    if (best != 0)
        for (const auto& hit : hits) hit->SetScore(hit->GetScore() / best);
    return hits;
}

void WeightedTermQueue::Update(const IATerm& term, float weight) {
    if (terms.size() == capacity) {
        if (capacity == 0 || weight <= terms.begin()->first) return;
        terms.erase(terms.begin());
    }
    IAAssertion(terms.emplace(weight, term.View()).second, "unable to add weigthed term", IAAssertionFailure);
}

RankedHit::Terms WeightedTermQueue::TakeTerms() {
    RankedHit::Terms heaviest;
    for (auto at = terms.rbegin(); at != terms.rend(); ++at)
        heaviest.push_back(std::make_unique<IATerm>(at->second));
    terms.clear();
    return heaviest;
}

}  // namespace brindle
