// Changes of the index: what waits, what a flush does, deleting, renaming.
#include <algorithm>

#include "lorvale/toolkit/index/term_index.h"
#include "lorvale/toolkit/retrieval/progress.h"
#include "toolkit/index/DocInversion.h"
#include "toolkit/index/Probes.h"
#include "toolkit/index/RecordLimits.h"
#include "toolkit/index/UpdateBatch.h"

namespace brindle {

void TermIndex::AddDoc(std::unique_ptr<IADoc> doc, std::uint32_t* docID) {
    CheckOpen();
    {
        const IALock lock(GetMutex());
        MaybeFlushUpdates();
        CheckNewDoc(*doc);
    }
    // The costly step, for which nobody else has to wait.
    DocInversion inversion;
    inversion.Invert(*doc, *this);
    const IALock lock(GetMutex());
    CheckNewDoc(*doc);
    Enter(std::move(doc), inversion, docID);
}

void TermIndex::CheckNewDoc(const IADoc& doc) {
    IAAssertion(doc.StoreSize() <= kMaxDocumentStoreSize, "document too long for an index",
                OrderedStorableSetEntryTooBig);
    IAAssertion(!updates->HasDoc(doc) && FindDocInfo(&doc) == nullptr, "index document already indexed",
                IndexDocAlreadyIndexed);
    IAAssertion(maxDocID < kDocIDLimit, "too many documents", IAAssertionFailure);
}

void TermIndex::Enter(std::unique_ptr<IADoc> doc, DocInversion& inversion, std::uint32_t* docID) {
    const std::uint32_t id = maxDocID;
    iDDocMap->Put(std::make_unique<IDDoc>(id, IADeepCopyOf(*doc)));
    updates->AddDoc(std::move(doc), id, inversion, KeepsVectors());
    updateCount += inversion.terms.Count();
    maxDocID = id + 1;
    if (docID != nullptr) *docID = id;
}

void TermIndex::MaybeFlushUpdates() {
    if (std::uint64_t{updateCount} * MemBytesPerPosting > bytesForUpdate) FlushUpdates();
}

std::unique_ptr<Progress> TermIndex::MakeFlushProgress() const {
    Progress::Function report;
    if (flushProgressFn != nullptr)
        report = [this](float percent) {
            flushProgressFn(percent);
            return false;
        };
    return std::make_unique<Progress>(flushProgressFreq, std::move(report));
}

void TermIndex::FlushUpdates() {
    const auto progress = MakeFlushProgress();
    {
        const Phase phase(updates->TermCount() + updates->DocCount(), *progress);
        iDDocMap->Purge();
        FlushTermUpdates(*progress);
        FlushDocUpdates(*progress);
        updates->Clear();
    }
    progress->Complete();
    updateCount = 0;
}

void TermIndex::FlushTermUpdates(Progress& progress) {
    std::vector<std::uint32_t> emptied;
    for (const std::uint32_t number : updates->TermsInOrder()) {
        auto& update = (*updates)[number];
        auto term = std::make_unique<IATerm>(updates->TermOf(number));
        std::unique_ptr<TermInfo> info = TermIndex::GetTermInfo(term.get());
        if (info == nullptr) {
            const std::uint32_t id = maxTermID++;
            iDTermMap->Put(std::make_unique<IDTerm>(id, IADeepCopyOf(*term)));
            info = MakeTermInfo(std::move(term), id);
        }
        update.termID = info->GetTermID();
        info = UpdateTermInfo(std::move(info), updates->AdditionsTo(update), update.delCount);
        if (info->GetDocumentCount() == 0) {
            IAAssertion(termInfoSet->Remove(info.get()), "unable to remove terminfo", IAAssertionFailure);
            emptied.push_back(info->GetTermID());
        } else {
            termInfoSet->Put(std::move(info));
        }
        progress.StepCheck(1);
    }
    termInfoSet->Purge();
    RemoveIDTerms(emptied);
    iDTermMap->Purge();
}

void TermIndex::RemoveIDTerms(const std::vector<std::uint32_t>& termIDs) {
    for (const std::uint32_t id : termIDs) {
        const IDTerm key(id);
        IAAssertion(iDTermMap->Remove(&key), "unable to remove term id from map", IAAssertionFailure);
    }
}

void TermIndex::FlushDocUpdates(Progress& progress) {
    auto& docs = updates->Docs();
    while (!docs.empty()) {
        DocUpdate update = std::move(docs.extract(docs.begin()).value());
        std::vector<TFComponent> components;
        for (const auto& [number, freq] : update.vector)
            components.push_back({(*updates)[number].termID, freq});
        std::ranges::sort(components, {}, &TFComponent::termID);
        TFVector vector = KeepsVectors() ? TFVector(std::move(components)) : TFVector(update.total);
        std::unique_ptr<DocInfo> info = MakeDocInfo(std::move(update.document), update.docID);
        UpdateDocInfo(*info, vector);
        IAAssertion(!docInfoSet->Put(std::move(info)), "index document already indexed",
                    IndexDocAlreadyIndexed);
        progress.StepCheck(1);
    }
    docInfoSet->Purge();
}

std::unique_ptr<TermInfo> TermIndex::UpdateTermInfo(std::unique_ptr<TermInfo> info,
                                                    std::span<const FreqPosting> additions,
                                                    std::uint32_t delCount) {
    const auto added = static_cast<std::uint32_t>(additions.size());
    info->SetDocumentCount(info->GetDocumentCount() + added - delCount);
    return info;
}

void TermIndex::UpdateDocInfo(DocInfo& info, TFVector& vector) {
    info.SetDocumentLength(vector.TotalFrequency());
}

void TermIndex::Flush() {
    CheckOpen();
    const IALock lock(GetMutex());
    FlushUpdates();
    FinishingUpdate();
    for (auto* const set : {termInfoSet.get(), iDTermMap.get(), docInfoSet.get(), iDDocMap.get()}) set->Flush();
    for (const auto& map : mergeMaps)
        if (map != nullptr) map->Flush();
    IAIndex::Flush();
}

void TermIndex::FinishingUpdate() {
    const auto firstTerm = RecordOf<IDTerm>(iDTermMap->MakeIterator()->Next());
    maxTermID = firstTerm != nullptr ? firstTerm->GetID() + 1 : 1;
    const auto firstDoc = RecordOf<IDDoc>(iDDocMap->MakeIterator()->Next());
    maxDocID = firstDoc != nullptr ? firstDoc->GetID() + 1 : 1;
}

void TermIndex::DeleteDoc(const IADoc* doc) {
    CheckOpen();
    const IALock lock(GetMutex());
    MaybeFlushUpdates();
    DeletingDoc(*GetDocInfo(doc, false));
}

void TermIndex::DeletingDoc(const DocInfo& info) {
    docInfoSet->Remove(&info);
    const IDDoc key(info.GetDocID());
    iDDocMap->Remove(&key);
}

void TermIndex::DeletingPostings(std::unique_ptr<IATerm> term, std::uint32_t count) {
    auto& update = updates->UpdateOf(term->View());
    IAAssertion(update.delCount == 0, "term has non-zero delete count", IAAssertionFailure);
    update.delCount = count;
}

void TermIndex::RenameDoc(const IADoc* oldDoc, const IADoc* newDoc) {
    CheckOpen();
    const IALock lock(GetMutex());
    IAAssertion(FindDocInfo(newDoc) == nullptr && !updates->HasDoc(*newDoc),
                "Index Contains New Document Already", IndexDocAlreadyIndexed);
    IAAssertion(newDoc->StoreSize() <= kMaxDocumentStoreSize, "document too long for an index",
                OrderedStorableSetEntryTooBig);
    std::unique_ptr<DocInfo> info = GetDocInfo(oldDoc, false);
    IAAssertion(iDDocMap->Put(std::make_unique<IDDoc>(info->GetDocID(), IADeepCopyOf(*newDoc))),
                "cannot add a new iddoc to docmap", IAAssertionFailure);
    IAAssertion(docInfoSet->Remove(info.get()), "cannot remove docinfo", IAAssertionFailure);
    info->SetDocument(IADeepCopyOf(*newDoc));
    IAAssertion(!docInfoSet->Put(std::move(info)), "Index Document Already Indexed", IndexDocAlreadyIndexed);
}

void TermIndex::ResetPostings(TermInfo*) {
    IAFail("invalid call, virtual subcalss needs to override", IAAssertionFailure);
}

void TermIndex::RaiseMaxDocID(std::uint32_t atLeast) {
    if (maxDocID < atLeast) maxDocID = atLeast;
}

std::uint32_t TermIndex::GetUpdateCount() {
    CheckOpen();
    const IALock lock(GetMutex());
    return updateCount;
}

void TermIndex::SetUpdateCount(std::uint32_t count) {
    CheckOpen();
    const IALock lock(GetMutex());
    updateCount = count;
}

}  // namespace brindle
