// What happens to lists of postings: appending, moving out of the record, taking out what is deleted, merging.
#include <algorithm>

#include "lorvale/toolkit/index/inverted_index.h"
#include "lorvale/toolkit/retrieval/progress.h"
#include "toolkit/index/PostingStream.h"
#include "toolkit/index/Probes.h"

namespace brindle {

namespace {

InvertedTermInfo& AsInverted(TermInfo& info) {
    return static_cast<InvertedTermInfo&>(info);
}

}  // namespace

// A deletion is a bit here, so delCount tells nothing.
std::unique_ptr<TermInfo> InvertedIndex::UpdateTermInfo(std::unique_ptr<TermInfo> info,
                                                        std::span<const FreqPosting> additions, std::uint32_t) {
    if (additions.empty()) return info;
    auto record = std::unique_ptr<InvertedTermInfo>(static_cast<InvertedTermInfo*>(info.release()));
    record->documentCount += static_cast<std::uint32_t>(additions.size());
    record->maxDocFreq =
        std::max(record->maxDocFreq, std::ranges::max_element(additions, {}, &FreqPosting::freq)->freq);
    if (record->PostingCount() + additions.size() < ImmediatePostingThreshold) {
        record->postings.Append(additions);
        return record;
    }
    if (record->FirstBlock() == 0) {
        auto moved = std::make_unique<InvertedBlockTermInfo>();
        moved->DeepCopying(record.get());
        record = std::move(moved);
    }
    UpdatePostingBlocks(static_cast<InvertedBlockTermInfo&>(*record), additions);
    return record;
}

/// The last block is read again and written again, full, with what follows it.
void InvertedIndex::UpdatePostingBlocks(InvertedBlockTermInfo& info, std::span<const FreqPosting> additions) {
    const IALock lock(chainMutex.get());
    std::vector<FreqPosting> postings;
    std::uint32_t block = info.lastBlock;
    if (block == 0)
        info.firstBlock = block = GetStorage()->Allocate();
    else
        IAAssertion(FreqPostingsRestoreBlock(GetStorage(), block, postings) == 0, "next block not zero",
                    IAAssertionFailure);
    for (const FreqPosting posting : info.postings.Decoded()) postings.push_back(posting);
    info.postings.Clear();
    postings.insert(postings.end(), additions.begin(), additions.end());
    IAAssertion(
        std::ranges::adjacent_find(postings, std::greater_equal(), &FreqPosting::docID) == postings.end(),
        "postings out of order", IAAssertionFailure);
    for (std::span<const FreqPosting> rest = postings; !rest.empty();) {
        const FreqPostingsPage page = FreqPostingsPaginate(rest);
        const std::uint32_t next = page.count < rest.size() ? GetStorage()->Allocate() : 0;
        FreqPostingsStoreBlock(GetStorage(), block, page.size, rest.first(page.count), next);
        info.lastBlock = block;
        block = next;
        rest = rest.subspan(page.count);
    }
}

void InvertedIndex::ForEachRun(const InvertedTermInfo& info, IAStorage* from, bool freeBlocks,
                               const std::function<void(std::vector<FreqPosting>&)>& use) {
    std::vector<FreqPosting> postings;
    std::uint32_t last = 0;
    for (std::uint32_t block = info.FirstBlock(); block != 0;) {
        postings.clear();
        const std::uint32_t next = FreqPostingsRestoreBlock(from, block, postings);
        IAAssertion(postings.front().docID > last, "postings damaged", IndexInvalid);
        last = postings.back().docID;
        if (freeBlocks) GetStorage()->Deallocate(block);
        use(postings);
        block = next;
    }
    postings = info.Postings().Decoded();
    if (!postings.empty()) use(postings);
}

bool InvertedIndex::HasDeletedPostings(const InvertedTermInfo& info, const BitArray& deleted) {
    bool found = false;
    ForEachRun(info, GetStorage(), false, [&](const std::vector<FreqPosting>& postings) {
        found = found || std::ranges::any_of(postings, [&](FreqPosting each) {
                    return FreqPostingIsDeleted(deleted, each.docID);
                });
    });
    return found;
}

std::unique_ptr<TermInfo> InvertedIndex::ExpungePostings(std::unique_ptr<TermInfo> info,
                                                         const BitArray& deleted) {
    const std::uint32_t id = info->GetTermID();
    std::unique_ptr<TermInfo> live = std::make_unique<InvertedTermInfo>(IADeepCopyOf(*info->GetTerm()), id);
    ++chainChanges;
    ForEachRun(AsInverted(*info), GetStorage(), true, [&](std::vector<FreqPosting>& postings) {
        FreqPostingsRemove(postings, deleted);
        live = InvertedIndex::UpdateTermInfo(std::move(live), postings, 0);
    });
    return live;
}

std::unique_ptr<TermInfo> InvertedIndex::LiveCopy(std::unique_ptr<TermInfo> info, const BitArray& deleted) {
    auto live = std::make_unique<InvertedTermInfo>(IADeepCopyOf(*info->GetTerm()), info->GetTermID());
    ForEachRun(AsInverted(*info), GetStorage(), false, [&](std::vector<FreqPosting>& postings) {
        FreqPostingsRemove(postings, deleted);
        live->postings.Append(postings);
        for (const FreqPosting posting : postings) live->maxDocFreq = std::max(live->maxDocFreq, posting.freq);
    });
    live->documentCount = live->postings.Count();
    if (live->documentCount == 0) return nullptr;
    return live;
}

std::unique_ptr<TermInfo> InvertedIndex::ExpungeTerm(std::unique_ptr<TermInfo> info, const BitArray& deleted,
                                                     std::uint32_t* goneID) {
    // A term that has lost nothing stays as it is, and so do the blocks that somebody may be reading.
    if (!HasDeletedPostings(AsInverted(*info), deleted)) return info;
    const IALock lock(chainMutex.get());
    info = ExpungePostings(std::move(info), deleted);
    if (info->GetDocumentCount() == 0) {
        IAAssertion(termInfoSet->Remove(info.get()), "unable to remove terminfo", IAAssertionFailure);
        ++chainChanges;
        *goneID = info->GetTermID();
        return nullptr;
    }
    termInfoSet->Put(IADeepCopyOf(*info));
    // Now nobody who has this number can come by the old record any more.
    AsInverted(*info).chainStamp = ++chainChanges;
    return info;
}

std::unique_ptr<TermInfo> InvertedIndex::GetTermInfo(const IATerm* term) {
    CheckOpen();
    if (deletedCount == 0) {
        const std::uint64_t stamp = chainChanges;
        std::unique_ptr<TermInfo> info = TermIndex::GetTermInfo(term);
        if (info != nullptr) AsInverted(*info).chainStamp = stamp;
        return info;
    }
    const IALock lock(GetMutex());
    const auto deleted = SharedDeletedDocs();
    std::unique_ptr<TermInfo> info = TermIndex::GetTermInfo(term);
    if (info == nullptr || deleted == nullptr) return info;
    AsInverted(*info).chainStamp = chainChanges;
    if (!GetStorage()->IsWritable()) return LiveCopy(std::move(info), *deleted);
    std::uint32_t goneID = 0;
    info = ExpungeTerm(std::move(info), *deleted, &goneID);
    if (info == nullptr) {
        const IDTerm key(goneID);
        IAAssertion(iDTermMap->Remove(&key), "cannot remove id term", IAAssertionFailure);
    }
    return info;
}

void InvertedIndex::ResetPostings(TermInfo* info) {
    GetTermInfo(info->GetTerm());
}

void InvertedIndex::Compact() {
    TermIndex::Compact();
    const IALock lock(GetMutex());
    if (deletedCount > 0) {
        const auto progress = MakeFlushProgress();
        {
            const Phase phase(GetTermCount(), *progress);
            ExpungeAll(*progress);
        }
        {
            const IALock chainLock(chainMutex.get());
            OwnDeletedDocs().ClearAll();
            deletedCount = 0;
        }
        TermIndex::FinishingUpdate();
        Commit();
        progress->Complete();
        return;
    }
    Commit();
}

void InvertedIndex::Commit() {
    Flush();
    GetStorage()->Commit();
}

void InvertedIndex::ExpungeAll(Progress& progress) {
    FlushUpdates();  // what waits is not in the lists yet, and its numbers are not those of deleted documents
    const auto deleted = SharedDeletedDocs();
    const std::uint32_t limit = GetTermCount() / (100 / ExpungeMaxPercentPerUpdate);
    std::vector<std::uint32_t> gone;
    const auto removeGone = [&] {
        for (const std::uint32_t id : gone) {
            const IDTerm key(id);
            IAAssertion(iDTermMap->Remove(&key), "cannot remove id term", IAAssertionFailure);
        }
        gone.clear();
    };
    std::uint32_t count = 0;
    const auto infos = GetTermInfoIterator();
    while (auto info = RecordOf<TermInfo>(infos->Next())) {
        std::uint32_t goneID = 0;
        if (ExpungeTerm(std::move(info), *deleted, &goneID) == nullptr) gone.push_back(goneID);
        progress.StepCheck(1);
        if (++count <= limit) continue;
        removeGone();
        Commit();
        count = 0;
    }
    removeGone();
}

std::unique_ptr<TermInfo> InvertedIndex::MergeTermInfo(std::unique_ptr<TermInfo> ours, const TermInfo& theirs,
                                                       TermIndex& source, std::uint32_t base) {
    ForEachRun(static_cast<const InvertedTermInfo&>(theirs), source.GetStorage(), false,
               [&](std::vector<FreqPosting>& postings) {
                   FreqPostingsRename(postings, base);
                   ours = UpdateTermInfo(std::move(ours), postings, 0);
               });
    return ours;
}

bool InvertedIndex::ValidateTermInfos(bool raise) {
    CheckOpen();
    const auto infos = GetTermInfoIterator();
    while (const auto info = RecordOf<TermInfo>(infos->Next())) {
        const IDTerm key(info->GetTermID());
        const bool found = iDTermMap->Get(&key) != nullptr;
        IAAssertion(found || !raise, "cannot map id to term", IAAssertionFailure);
        if (!found) return false;
    }
    return true;
}

}  // namespace brindle
