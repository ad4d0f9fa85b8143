#pragma once
#include <cstdint>
#include <memory>
#include <span>

#include "lorvale/toolkit/retrieval/hits.h"
#include "lorvale/toolkit/retrieval/progress.h"
#include "lorvale/toolkit/retrieval/query.h"

namespace brindle {

/// The progress of one search, as its caller is told of it.
class SearchProgress {
public:
    SearchProgress(const RankedProgressFn& fn, std::uint32_t frequency)
        : progress(
              frequency, fn == nullptr ? Progress::Function() : [this, &fn](float percent) {
                  report.SetPercent(percent);
                  return fn(report);
              }) {}

    /// Looks the query's terms up.  True if the search is over: cancelled, or without any term.
    bool Initialize(IAQuery& query, std::span<TermIndex* const> indices, const Similarity& similarity) {
        query.SetIndices(indices);
        query.SetSimilarity(&similarity);
        query.SetProgress(&progress);
        query.SetTermReport([this](const IATerm& term) { report.SetTerm(&term); });
        const bool cancelled = query.Initialize();
        report.SetTerm(nullptr);  // it may have left the query
        return cancelled || progress.IsCancelled() || query.Count() == 0;
    }
    /// Tells of a document that became a hit.
    void SetDocument(IAIndex* index, std::unique_ptr<IADoc> found) {
        report.SetIndex(index);
        report.SetDocument(found.get());
        document = std::move(found);
    }
    const IADoc* GetDocument() const { return document.get(); }
    void Complete() { progress.Complete(); }
    Progress& Steps() { return progress; }

private:
    RankedProgress report;
    Progress progress;
    std::unique_ptr<IADoc> document;  // of the report
};

}  // namespace brindle
