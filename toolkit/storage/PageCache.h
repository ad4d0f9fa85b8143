#pragma once
#include <cstdint>
#include <memory>

#include "lorvale/toolkit/storage/skip_list.h"
#include "lorvale/toolkit/storage/storage.h"
#include "toolkit/storage/Page.h"

namespace brindle {

/// A page in a cache, with its place in the order of use and the locks on it.
struct PageCacheEntry : IAStruct {
    explicit PageCacheEntry(std::unique_ptr<Page> cached, std::uint32_t stamp)
        : id(cached->Id()), page(std::move(cached)), timeStamp(stamp) {}

    const std::uint32_t id;
    std::unique_ptr<Page> page;
    PageCacheEntry* next = nullptr;      ///< towards the least recently used end
    PageCacheEntry* previous = nullptr;  ///< towards the most recently used end
    std::uint32_t lockCount = 0;
    std::uint32_t timeStamp;  ///< of the locks: those of an earlier one no longer hold
};

struct PageCacheOrder {
    static bool LessThan(const PageCacheEntry* a, std::uint32_t id) { return a->id < id; }
    static bool LessThan(const PageCacheEntry* a, const PageCacheEntry* b) { return a->id < b->id; }
    static bool Equal(const PageCacheEntry* a, std::uint32_t id) { return a->id == id; }
    static bool Equal(const PageCacheEntry* a, const PageCacheEntry* b) { return a->id == b->id; }
};

/// The pages of one level of a tree below its root: a few of them, the least recently used one leaving first.
/// Here pages are read, and dirty ones written when they leave.  Used under the tree's mutex.
///
/// Iterators lock the pages on their path.  A lock counts as long as the tree does not change, which the time
/// stamp tells, and each lock in force lets the cache hold one page more, so that iterators never take the room
/// that a change of the tree needs: the page, its neighbours and a new one.
///
/// A page that is handed out stays until it is evicted, by the fourth other page at the earliest in a writable
/// tree, or by the next one in a readable one.  Deleting the cache writes nothing.
class PageCache : public SkipList<PageCacheEntry*, PageCacheOrder> {
public:
    /// All but the sizes is borrowed from the tree.
    PageCache(IAStorage* pageStorage, IAStoreStream* pageStream, const IAOrderedStorable* pagePrototype,
              std::uint32_t treePageSize, std::uint32_t maxPages);
    ~PageCache() override;

    /// The page, read if need be.
    Page* Get(std::uint32_t id, std::uint32_t timeStamp, bool lock);
    /// Enters a page that is not in the cache.
    Page* Put(std::unique_ptr<Page> page, std::uint32_t timeStamp, bool lock);
    /// Takes one lock away.  With `purge`, the page leaves with the last one.
    void Unlock(std::uint32_t id, std::uint32_t timeStamp, bool purge);
    /// Takes a page out without writing it.
    std::unique_ptr<Page> Remove(std::uint32_t id);
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
    /// Takes the entry over: into the list and the order, at the most recently used end.
    PageCacheEntry* AddMru(std::unique_ptr<PageCacheEntry> entry);
    void AddMruEntry(PageCacheEntry* entry);
    void RemoveEntry(PageCacheEntry* entry);
    void ClearLocks(PageCacheEntry* entry);
    void AddLock(PageCacheEntry* entry);
    /// Out of the list and the order, its locks with it.
    std::unique_ptr<PageCacheEntry> Unlink(PageCacheEntry* entry, const char* failure);

    IAStorage* const storage;
    IAStoreStream* const storeStream;
    const IAOrderedStorable* const prototype;
    const std::uint32_t pageSize;
    std::uint32_t maxCount;  // the size it was made with and all locks in force
    PageCacheEntry* mru = nullptr;
    PageCacheEntry* lru = nullptr;
    std::uint32_t hits = 0;
    std::uint32_t misses = 0;
};

}  // namespace brindle
