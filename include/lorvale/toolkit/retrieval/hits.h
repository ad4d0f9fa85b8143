#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/index/index_base.h"

namespace brindle {

/// A document that was found, and where.
class LORVALE_EXPORT IAHit : public IAObject {
public:
    /// Copies the document; borrows the index.
    IAHit(IAIndex* inIndex, const IADoc& found) : index(inIndex), document(IADeepCopyOf(found)) {}
    ~IAHit() override;

    IAIndex* GetIndex() const { return index; }
    void SetIndex(IAIndex* inIndex) { index = inIndex; }
    const IADoc* GetDocument() const { return document.get(); }
    void SetDocument(std::unique_ptr<IADoc> found) { document = std::move(found); }

private:
    IAIndex* index;
    std::unique_ptr<IADoc> document;
};

/// A hit and how good it is.  Of the hits of one search the best has a score of 1; the others are relative to
/// it, so scores of different searches cannot be compared.
class LORVALE_EXPORT RankedHit : public IAHit {
public:
    using Terms = std::vector<std::unique_ptr<IATerm>>;

    RankedHit(IAIndex* inIndex, const IADoc& found, float hitScore, Terms terms = {})
        : IAHit(inIndex, found), score(hitScore), matchingTerms(std::move(terms)) {}
    ~RankedHit() override;

    float GetScore() const { return score; }
    void SetScore(float newScore) { score = newScore; }
    /// Terms of the query that stand in the document, the one that weighs most first; as many as were asked
    /// for.
    const Terms& GetMatchingTerms() const { return matchingTerms; }
    std::unique_ptr<RankedHit> DeepCopy() const;

private:
    float score;
    Terms matchingTerms;
};
using RankedHits = std::vector<std::unique_ptr<RankedHit>>;

/// How far a search is.
class LORVALE_EXPORT IAProgressReport : public IAObject {
public:
    ~IAProgressReport() override;
    float GetPercent() const { return percent; }
    void SetPercent(float newPercent) { percent = newPercent; }
    /// The document that became a hit last, and its index; null before the first.
    IAIndex* GetIndex() const { return index; }
    void SetIndex(IAIndex* newIndex) { index = newIndex; }
    const IADoc* GetDocument() const { return document; }
    void SetDocument(const IADoc* newDocument) { document = newDocument; }

private:
    float percent = 0;
    IAIndex* index = nullptr;
    const IADoc* document = nullptr;
};
class LORVALE_EXPORT RankedProgress : public IAProgressReport {
public:
    ~RankedProgress() override;
    /// The term that was looked up last; null before the first.
    const IATerm* GetTerm() const { return term; }
    void SetTerm(const IATerm* newTerm) { term = newTerm; }

private:
    const IATerm* term = nullptr;
};

/// Is told how far a search is; true cancels it, and the search then answers nothing.  May be null.
using RankedProgressFn = std::function<bool(const RankedProgress&)>;

}  // namespace brindle
