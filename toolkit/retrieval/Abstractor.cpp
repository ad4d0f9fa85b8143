#include "lorvale/toolkit/retrieval/abstractor.h"

#include <algorithm>

#include "lorvale/toolkit/storage/storage.h"

namespace brindle {

namespace {

constexpr std::uint32_t kTopTerms = 8;

/// An index owns its analysis; this one is somebody else's.
class BorrowedAnalysis : public IAAnalysis {
public:
    explicit BorrowedAnalysis(const IAAnalysis& original)
        : IAAnalysis(original.GetAnalysisType()), borrowed(original) {}
    std::unique_ptr<IATokenStream> MakeTokenStream(std::unique_ptr<IADocText> text) const override {
        return borrowed.MakeTokenStream(std::move(text));
    }
    std::unique_ptr<IATerm> GetProtoTerm() const override { return borrowed.GetProtoTerm(); }
    bool HasUnicodeWords() const override { return borrowed.HasUnicodeWords(); }

private:
    const IAAnalysis& borrowed;
};

}  // namespace

IADocumentAbstractor::~IADocumentAbstractor() = default;

void IADocumentAbstractor::Summarize(const Progress::Function& fn, std::uint32_t frequency,
                                     TermIndex* background) {
    extents.clear();
    hits.clear();
    if (parser == nullptr) return;
    std::unique_ptr<IAAnalysis> indexAnalysis;
    if (analysis != nullptr)
        indexAnalysis = std::make_unique<BorrowedAnalysis>(*analysis);
    else
        indexAnalysis = std::make_unique<SimpleAnalysis>();
    storage->Initialize();
    VectorIndex index(storage, std::make_unique<IAExtentCorpus>(parser->View()), std::move(indexAnalysis));
    index.Initialize();
    if (!AddExtents(index, fn, frequency)) return;
    index.Flush();
    storage->Commit();
    FindAbstracts(index, background);
}

/// False if it was cancelled.
bool IADocumentAbstractor::AddExtents(VectorIndex& index, const Progress::Function& fn,
                                      std::uint32_t frequency) {
    while (auto extent = parser->GetNextExtent(fn, frequency)) {
        if (parser->IsCancelled()) return false;
        index.AddDoc(std::move(extent));
    }
    return !parser->IsCancelled();
}

void IADocumentAbstractor::FindAbstracts(VectorIndex& index, TermIndex* background) {
    const auto accessor = background != nullptr ? std::make_unique<VectorAccessor>(&index, background)
                                                : std::make_unique<VectorAccessor>(&index);
    if (background == nullptr) accessor->InitializeAnew();
    hits = accessor->RankedSearch(parser->View(), {}, MostHits, kTopTerms);
    const std::uint32_t count = index.GetDocCount();
    IAAssertion(hits.size() <= count, "number of hits larger than number of sentences",
                OutOfRangeSentenceNumber);
    extents.resize(count);
    for (std::size_t rank = 0; rank < hits.size(); ++rank) {
        RankedHit& hit = *hits[rank];
        auto extent = IADeepCopyOf(*static_cast<const IAExtentDoc*>(hit.GetDocument()));
        const std::uint32_t number = extent->GetExtentNumber() - 1;
        IAAssertion(number < count, "extent number greater than number of extents", OutOfRangeSentenceNumber);
        extent->SetRank(static_cast<std::uint32_t>(rank));
        extent->SetRankedHit(&hit);
        hit.SetIndex(nullptr);  // it goes with this call
        extents[number] = std::move(extent);
    }
}

std::vector<const IAExtentDoc*> BestExtents(const IADocumentAbstractor& abstractor, std::uint32_t most) {
    std::vector<const IAExtentDoc*> best;
    for (const auto& extent : abstractor.GetExtents())
        if (extent != nullptr && extent->GetRank() < most) best.push_back(extent.get());
    return best;
}

}  // namespace brindle
