#pragma once
#include <cstdint>
#include <memory>

#include "lorvale/toolkit/storage/skip_list.h"
#include "toolkit/storage/PageBlocks.h"

namespace brindle {

/// A page in a cache, with its place in the order of use and the locks on it.
struct PageCacheEntry : IAStruct {
    std::uint32_t id = 0;
    Page page;
    PageCacheEntry* next = nullptr;  ///< towards the least recently used end; of a spare entry, the next spare
    PageCacheEntry* previous = nullptr;  ///< towards the most recently used end
    std::uint32_t lockCount = 0;
    std::uint32_t timeStamp = 0;  ///< of the locks: those of an earlier one no longer hold
};

struct PageCacheOrder {
    static bool LessThan(const PageCacheEntry* a, std::uint32_t id) { return a->id < id; }
    static bool LessThan(const PageCacheEntry* a, const PageCacheEntry* b) { return a->id < b->id; }
    static bool Equal(const PageCacheEntry* a, std::uint32_t id) { return a->id == id; }
    static bool Equal(const PageCacheEntry* a, const PageCacheEntry* b) { return a->id == b->id; }
};

/// An LRU list of pages and an index over it by page ID: a few pages of one level of a tree below its root.
/// Here pages are read, and dirty ones written when they leave.  Used under the tree's mutex.
///
/// Iterators lock the pages on their path.  A lock counts as long as the tree does not change, which the time
/// stamp tells, and each lock in force lets the cache hold one page more, so that iterators never take the room
/// that a change of the tree needs: the page, its neighbours and a new one.
///
/// A page that is handed out stays until it is evicted, by the fourth other page at the earliest in a writable
/// tree, or by the next one in a readable one.  Deleting the cache writes nothing.
class PageCache : private SkipList<PageCacheEntry*, PageCacheOrder> {
public:
    /// The blocks are borrowed from the tree.
    PageCache(const PageBlocks& pageBlocks, std::uint32_t treePageSize, std::uint32_t maxPages);
    ~PageCache() override;

    using SkipList::Count;
    using IAStruct::operator new;
    using IAStruct::operator delete;
    /// The page, read if need be.
    Page* Get(std::uint32_t id, std::uint32_t timeStamp, bool lock);
    /// Enters a page that is not in the cache.
    Page* Put(Page page, std::uint32_t timeStamp, bool lock);
    /// Takes one lock away.  With `purge`, the page leaves with the last one.
    void Unlock(std::uint32_t id, std::uint32_t timeStamp, bool purge);
    /// Takes a page out without writing it.
    Page Remove(std::uint32_t id);
    void Delete(std::uint32_t id) { Remove(id); }
    /// Writes what is dirty, in the order of the IDs, and keeps all.
    void WriteDirtyPages();
    /// Empties the cache, writing what is dirty.
    void Purge();

    /// The page if it is here.  Not a use of it: the order of eviction stays as it is.
    Page* Peek(std::uint32_t id) const;
    std::uint32_t MaxCount() const { return maxCount; }
    std::uint32_t Hits() const { return hits; }
    std::uint32_t Misses() const { return misses; }

private:
    void PurgeLru(std::uint32_t timeStamp);
    void PurgeEntry(PageCacheEntry* entry);
    void MaybeWritePage(PageCacheEntry* entry);
    PageCacheEntry* NewEntry(Page page, std::uint32_t timeStamp);
    /// Into the list and the index, at the most recently used end.
    void AddMru(PageCacheEntry* entry);
    void AddMruEntry(PageCacheEntry* entry);
    void RemoveEntry(PageCacheEntry* entry);
    void ClearLocks(PageCacheEntry* entry);
    void AddLock(PageCacheEntry* entry);
    /// Out of the list and the index, its locks with it.  The entry is a spare one then.
    Page Unlink(PageCacheEntry* entry, const char* failure);

    const PageBlocks& blocks;
    const std::uint32_t pageSize;
    std::uint32_t maxCount;  // the size it was made with and all locks in force
    PageCacheEntry* mru = nullptr;
    PageCacheEntry* lru = nullptr;
    PageCacheEntry* spare = nullptr;
    IAVector<std::unique_ptr<PageCacheEntry>> entries;  // all that there are, spare ones too
    std::uint32_t hits = 0;
    std::uint32_t misses = 0;
};

}  // namespace brindle
