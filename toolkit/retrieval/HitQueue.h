#pragma once
#include <cstdint>
#include <memory>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "lorvale/toolkit/retrieval/ranked_accessor.h"

namespace brindle {

/// Keeps the best hits, one for each document.
///
/// Hits are ordered by score, those of one score as the accessor orders their documents.  A hit that meets a
/// full queue has to have a higher score than the lowest one there: of equals the one that came first stays.
class RankedHitQueue {
public:
    RankedHitQueue(RankedAccessor& forAccessor, std::uint32_t most)
        : accessor(forAccessor),
          capacity(most),
          byScore(ScoreOrder{&forAccessor}),
          byDoc(DocOrder{&forAccessor}) {}

    std::uint32_t Count() const { return static_cast<std::uint32_t>(byScore.size()); }
    /// 0 while it is empty.
    float LowScore() const { return byScore.empty() ? 0 : (*byScore.begin())->GetScore(); }
    /// Whether it has room for a hit of that score.
    bool Takes(float score) const { return Count() < capacity || LowScore() < score; }
    void AddHit(std::unique_ptr<RankedHit> hit);
    /// All hits, the best one first; their scores become relative to it.
    RankedHits TakeHits();

private:
    using Hit = std::unique_ptr<RankedHit>;
    struct DocOrder {
        using is_transparent = void;
        RankedAccessor* accessor;
        bool operator()(const RankedHit* a, const RankedHit* b) const {
            return accessor->HitLessThan(a->GetIndex(), a->GetDocument(), b->GetIndex(), b->GetDocument());
        }
    };
    struct ScoreOrder {
        RankedAccessor* accessor;
        bool operator()(const Hit& a, const Hit& b) const {
            if (a->GetScore() != b->GetScore()) return a->GetScore() < b->GetScore();
            return DocOrder{accessor}(a.get(), b.get());
        }
    };
    Hit Take(std::set<Hit, ScoreOrder>::iterator at);

    RankedAccessor& accessor;
    const std::uint32_t capacity;
    std::set<Hit, ScoreOrder> byScore;     // the worst one first
    std::set<RankedHit*, DocOrder> byDoc;  // the same
};

/// Keeps the heaviest terms; of equal weights the greater term counts as heavier, and a full queue keeps the
/// one that came first.
class WeightedTermQueue {
public:
    explicit WeightedTermQueue(std::uint32_t most) : capacity(most) {}
    void Update(const IATerm& term, float weight);
    /// The heaviest first.
    RankedHit::Terms TakeTerms();

private:
    const std::uint32_t capacity;
    std::set<std::pair<float, std::string>> terms;  // the lightest first
};

}  // namespace brindle
