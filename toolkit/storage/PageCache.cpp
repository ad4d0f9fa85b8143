#include "toolkit/storage/PageCache.h"

#include <utility>

#include "lorvale/toolkit/storage/exception.h"

namespace brindle {

PageCache::PageCache(const PageBlocks& pageBlocks, std::uint32_t treePageSize, std::uint32_t maxPages)
    : blocks(pageBlocks), pageSize(treePageSize), maxCount(maxPages) {}

PageCache::~PageCache() = default;

Page* PageCache::Get(std::uint32_t id, std::uint32_t timeStamp, bool lock) {
    const Node* const found = Find(id);
    if (found == nullptr) {
        Page page = blocks.Read(id);
        // Only a root may be empty.
        IAAssertion(page.Count() > 0, "btree page without entries", StorageInvalid);
        Page* const entered = Put(std::move(page), timeStamp, lock);
        ++misses;
        return entered;
    }
    PageCacheEntry* const entry = found->record;
    RemoveEntry(entry);
    AddMruEntry(entry);
    ++hits;
    if (lock) {
        if (entry->lockCount > 0 && entry->timeStamp != timeStamp) ClearLocks(entry);
        entry->timeStamp = timeStamp;
        AddLock(entry);
    }
    return &entry->page;
}

Page* PageCache::Put(Page page, std::uint32_t timeStamp, bool lock) {
    PurgeLru(timeStamp);
    PageCacheEntry* const entry = NewEntry(std::move(page), timeStamp);
    AddMru(entry);
    if (lock) AddLock(entry);
    return &entry->page;
}

void PageCache::Unlock(std::uint32_t id, std::uint32_t timeStamp, bool purge) {
    const Node* const found = Find(id);
    IAAssertion(found != nullptr, "cannot get page cache entry", IAAssertionFailure);
    PageCacheEntry* const entry = found->record;
    IAAssertion(entry->lockCount > 0, "pageentry is not locked", IAAssertionFailure);
    --entry->lockCount;
    --maxCount;
    if (purge && entry->lockCount == 0)
        PurgeEntry(entry);
    else
        PurgeLru(timeStamp);
}

Page PageCache::Remove(std::uint32_t id) {
    const Node* const found = Find(id);
    IAAssertion(found != nullptr, "cannot remove page cache entry", IAAssertionFailure);
    return Unlink(found->record, "cannot remove page cache entry");
}

void PageCache::WriteDirtyPages() {
    for (const Node* node = First(); node != nullptr; node = Next(node)) MaybeWritePage(node->record);
}

void PageCache::Purge() {
    while (const Node* const first = First()) {
        PageCacheEntry* const entry = first->record;
        MaybeWritePage(entry);
        Unlink(entry, "cannot remove");
    }
}

Page* PageCache::Peek(std::uint32_t id) const {
    const Node* const found = Find(id);
    return found != nullptr ? &found->record->page : nullptr;
}

void PageCache::PurgeLru(std::uint32_t timeStamp) {
    while (Count() >= maxCount) {
        PageCacheEntry* victim = lru;
        while (victim != nullptr && victim->lockCount > 0 && victim->timeStamp == timeStamp)
            victim = victim->previous;
        if (victim == nullptr) return;  // all are locked: AddMru() says so
        ClearLocks(victim);
        PurgeEntry(victim);
    }
}

// The page is written before it leaves, so that one which can't be written is not lost for the tree.
void PageCache::PurgeEntry(PageCacheEntry* entry) {
    MaybeWritePage(entry);
    Unlink(entry, "cannot remove page cache entry from skiplist");
}

void PageCache::MaybeWritePage(PageCacheEntry* entry) {
    Page& page = entry->page;
    if (!page.IsDirty()) return;
    IAAssertion(page.StoreSize() <= pageSize && page.Count() > 0, "page cache entry size invalid",
                IAAssertionFailure);
    blocks.Write(page);
}

PageCacheEntry* PageCache::NewEntry(Page page, std::uint32_t timeStamp) {
    if (spare == nullptr) {
        entries.push_back(std::make_unique<PageCacheEntry>());
        spare = entries.back().get();
    }
    PageCacheEntry* const entry = std::exchange(spare, spare->next);
    entry->id = page.Id();
    entry->page = std::move(page);
    entry->timeStamp = timeStamp;
    return entry;
}

void PageCache::AddMru(PageCacheEntry* entry) {
    Finger finger;
    const Node* const at = SetFinger(entry->id, finger);
    IAAssertion(at == nullptr || at->record->id != entry->id, "unable to put entry in skiplist",
                IAAssertionFailure);
    IAAssertion(Count() < maxCount, "too many entries", IAAssertionFailure);
    Insert(entry, finger);
    AddMruEntry(entry);
}

void PageCache::AddMruEntry(PageCacheEntry* entry) {
    entry->previous = nullptr;
    entry->next = mru;
    (mru != nullptr ? mru->previous : lru) = entry;
    mru = entry;
}

void PageCache::RemoveEntry(PageCacheEntry* entry) {
    (entry->previous != nullptr ? entry->previous->next : mru) = entry->next;
    (entry->next != nullptr ? entry->next->previous : lru) = entry->previous;
}

void PageCache::AddLock(PageCacheEntry* entry) {
    ++entry->lockCount;
    ++maxCount;
}

void PageCache::ClearLocks(PageCacheEntry* entry) {
    maxCount -= entry->lockCount;
    entry->lockCount = 0;
}

Page PageCache::Unlink(PageCacheEntry* entry, const char* failure) {
    const bool removed = SkipList::Remove(entry->id);
    IAAssertion(removed, failure, IAAssertionFailure);
    RemoveEntry(entry);
    ClearLocks(entry);
    entry->next = std::exchange(spare, entry);
    return std::move(entry->page);
}

}  // namespace brindle
