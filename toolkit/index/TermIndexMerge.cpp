// Folding other indexes into this one.  Documents of a source are numbered behind all numbers that there have
// been here, at one distance; terms get the number that they have here, and sets in the storage remember which.
#include <algorithm>

#include "lorvale/toolkit/index/term_index.h"
#include "lorvale/toolkit/retrieval/progress.h"
#include "toolkit/index/Probes.h"
#include "toolkit/index/RecordLimits.h"
#include "toolkit/index/TermHeads.h"

namespace brindle {

void TermIndex::Merge(std::span<IAIndex* const> sources) {
    CheckOpen();
    const IALock lock(GetMutex());
    std::vector<TermIndex*> indices;
    for (IAIndex* const source : sources) {
        indices.push_back(IANarrow(source));
        IAAssertion(indices.back() != nullptr && indices.back() != this, "invalid index", IndexInvalid);
        indices.back()->CheckOpen();
    }
    FlushUpdates();  // postings go on rising: what waits here has the lower numbers
    StartMerge(indices.size());
    const std::vector<std::uint32_t> bases = BasesFor(indices);
    const auto progress = MakeFlushProgress();
    {
        std::uint64_t total = 0;
        for (TermIndex* const source : indices)
            total += std::uint64_t{source->GetTermCount()} * (MergeTermCost() + 1) +
                     std::uint64_t{source->GetDocCount()} * MergeDocCost();
        const Phase phase(static_cast<std::uint32_t>(std::min<std::uint64_t>(total, 0xFFFFFFFF)), *progress);
        MergeTermInfos(indices, bases, *progress);
        for (std::size_t i = 0; i < indices.size(); ++i) MergeDocInfos(*indices[i], i, bases[i], *progress);
    }
    progress->Complete();
    mergeMaps.clear();
    mergeMapRoots.clear();
    Flush();
}

std::unique_ptr<IAOrderedStorableSet> TermIndex::MakeMergeMap() const {
    return IAMakeOrderedStorableSet(std::make_unique<TIDRename>());
}

/// A merge that was broken off, and stored by a flush, begins again with the sets that it has.
void TermIndex::StartMerge(std::size_t count) {
    IAAssertion(mergeMapRoots.empty() || mergeMapRoots.size() == count,
                "merge map count not same as number of indecies", IAAssertionFailure);
    mergeMapRoots.resize(count);
    mergeMaps.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        if (mergeMaps[i] != nullptr) continue;
        mergeMapRoots[i] = GetStorage()->Allocate();
        mergeMaps[i] = MakeMergeMap();
        mergeMaps[i]->Initialize(GetStorage(), mergeMapRoots[i], IACloneOSSetStoreStreams);
    }
}

std::vector<std::uint32_t> TermIndex::BasesFor(std::span<TermIndex* const> sources) {
    std::vector<std::uint32_t> bases;
    std::uint32_t next = maxDocID;
    for (TermIndex* const source : sources) {
        bases.push_back(next);
        IAAssertion(source->maxDocID < kDocIDLimit - next, "too many documents", IAAssertionFailure);
        next += source->maxDocID;
    }
    return bases;
}

void TermIndex::MergeTermInfos(std::span<TermIndex* const> sources, std::span<const std::uint32_t> bases,
                               Progress& progress) {
    TermHeads heads(sources);
    while (const TermHead* const head = heads.Least()) {
        MergeTerm(*head->info, *sources[head->source], head->source, bases[head->source]);
        heads.Advance(head->source);
        progress.StepCheck(MergeTermCost());
    }
    for (const auto& map : mergeMaps)
        if (map != nullptr) map->Purge();
    iDTermMap->Purge();
    termInfoSet->Purge();
}

void TermIndex::MergeTerm(const TermInfo& theirs, TermIndex& source, std::size_t number, std::uint32_t base) {
    std::unique_ptr<TermInfo> ours = TermIndex::GetTermInfo(theirs.GetTerm());
    if (ours == nullptr) {
        ours = MakeTermInfo(IADeepCopyOf(*theirs.GetTerm()), maxTermID++);
        iDTermMap->Put(std::make_unique<IDTerm>(ours->GetTermID(), IADeepCopyOf(*theirs.GetTerm())));
    }
    mergeMaps[number]->Put(std::make_unique<TIDRename>(ours->GetTermID(), theirs.GetTermID()));
    termInfoSet->Put(MergeTermInfo(std::move(ours), theirs, source, base));
}

std::unique_ptr<TermInfo> TermIndex::MergeTermInfo(std::unique_ptr<TermInfo> ours, const TermInfo& theirs,
                                                   TermIndex&, std::uint32_t) {
    ours->SetDocumentCount(ours->GetDocumentCount() + theirs.GetDocumentCount());
    return ours;
}

void TermIndex::MergeDocInfos(TermIndex& source, std::size_t number, std::uint32_t base, Progress& progress) {
    MergeDocIDs(source, base);
    const TermMap termMap = TakeTermMap(number, progress);
    MergeDocs(source, base, termMap, progress);
    // The source's deleted documents, too: their postings came along.
    RaiseMaxDocID(base + source.maxDocID);
    source.docInfoSet->Purge();
    source.iDDocMap->Purge();
}

/// The rename set as a map from old to new.  The set goes.
TermIndex::TermMap TermIndex::TakeTermMap(std::size_t number, Progress& progress) {
    TermMap termMap;
    {
        const auto renames = mergeMaps[number]->MakeIterator();
        while (const auto rename = RecordOf<TIDRename>(renames->Next())) {
            if (KeepsVectors()) termMap.emplace_back(rename->GetOldID(), rename->GetNewID());
            progress.StepCheck(1);
        }
    }
    std::ranges::sort(termMap);
    mergeMaps[number]->Destroy();
    mergeMaps[number] = nullptr;
    mergeMapRoots[number] = 0;
    return termMap;
}

void TermIndex::MergeDocs(TermIndex& source, std::uint32_t base, const TermMap& termMap, Progress& progress) {
    // Two orders over one set of documents, not pairs.
    const auto infos = source.GetDocInfoIterator();
    const auto idDocs = source.iDDocMap->MakeIterator();
    while (const auto old = RecordOf<DocInfo>(infos->Next())) {
        auto made = MakeDocInfo(IADeepCopyOf(*old->GetDocument()), base + old->GetDocID());
        MergeDocInfo(*made, *old, source, termMap);
        IAAssertion(!docInfoSet->Put(std::move(made)), "index document already indexed",
                    IndexDocAlreadyIndexed);
        const auto idDoc = RecordOf<IDDoc>(idDocs->Next());
        IAAssertion(idDoc != nullptr, "got a doc with null id", IAAssertionFailure);
        IAAssertion(!iDDocMap->Put(std::make_unique<IDDoc>(base + idDoc->GetID(), idDoc->TakeValue())),
                    "cannot add iddoc to iddicmap!", IAAssertionFailure);
        progress.StepCheck(MergeDocCost());
    }
    IAAssertion(idDocs->Next() == nullptr, "didn't consume all idDocs", IAAssertionFailure);
}

void TermIndex::MergeDocIDs(TermIndex&, std::uint32_t) {}

void TermIndex::MergeDocInfo(DocInfo& made, const DocInfo& old, TermIndex&, const TermMap&) {
    made.SetDocumentLength(old.GetDocumentLength());
}

}  // namespace brindle
