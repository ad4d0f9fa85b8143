#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_set>
#include <vector>

#include "lorvale/toolkit/storage/storable.h"
#include "lorvale/toolkit/storage/storage.h"
#include "toolkit/storage/BTreeCheck.h"
#include "toolkit/storage/BTreeHeader.h"
#include "toolkit/storage/PageBlocks.h"
#include "toolkit/storage/PageCache.h"

namespace brindle {

/// Pages in each level's cache.  Four is what one step of rebalancing needs: the page, both its neighbours and
/// a new one.  A reader walks one path.
inline constexpr std::uint32_t WritableCacheSize = 4;
inline constexpr std::uint32_t ReadableCacheSize = 1;

/// The ordered set: a B-tree with objects in the interior pages too.  Its pages are limited in bytes and not in
/// entries, and each is stored in a block of its true size.
///
/// Every public operation locks the tree's mutex for its whole length.  Blocks are written by Flush(), Purge()
/// and when a page leaves its cache; the destructor writes nothing.  A change that raises midway leaves a tree
/// that is good for nothing but to be deleted, together with what its storage has not committed.
///
/// BTree.cpp has the set's operations, BTreeRebalance.cpp what keeps pages between half full and full,
/// BTreeIterator.cpp the iteration, BTreeCheck.cpp the checker.
class BTree final : public IAOrderedStorableSet {
public:
    /// Open() replaces the page size by the stored one.
    BTree(std::unique_ptr<IAOrderedStorable> memberPrototype, std::uint32_t newPageSize);
    ~BTree() override;

    void Initialize(IAStorage* treeStorage, std::uint32_t header, bool cloneStream) override;
    void Flush() override;
    void Purge() override;
    void Open(IAStorage* treeStorage, std::uint32_t header, bool writable, bool cloneStream) override;
    void Destroy() override;
    bool Put(std::unique_ptr<IAOrderedStorable> object) override;
    std::unique_ptr<IAOrderedStorable> Get(const IAOrderedStorable* key) override;
    bool Remove(const IAOrderedStorable* key) override;
    std::uint32_t Count() override;
    std::uint32_t TotalSize() override;
    std::unique_ptr<IAOrderedStorableIterator> MakeIterator() override;
    std::unique_ptr<IAOrderedStorableIterator> MakeIterator(const IAOrderedStorable* from) override;
    float PositionEstimate(const IAOrderedStorable* key) override;
    void ReportStats() override;
    IAMutex* GetMutex() override { return mutex.get(); }

    /// Changes with every Put, Remove and Purge, which tells iterators to find their place again.
    std::uint32_t TimeStamp();

    /// Checks every rule on the tree as it stands in memory.  Reads all of it, past the caches, so that nothing
    /// of their state changes.
    BTreeReport Check();

private:
    friend class BTreeIterator;

    /// Where a walk came down: an entry of the parent, or the place behind the last one for its right child.
    /// The root has no parent.
    struct ParentEntry {
        Page* parent;
        Page::Finger entry;
    };

    // BTree.cpp
    void SetSizes(std::uint32_t size);
    void CheckOpen() const;
    void CheckWritable() const;
    void AttachTo(IAStorage* treeStorage, std::uint32_t header, bool cloneStream);
    std::unique_ptr<PageCache> NewCache(std::uint32_t pages) const;
    Page NewPage(bool isLeaf);
    void RemovePage(std::uint32_t id);
    /// The child page `id` of a page at `level`, the root's being 0.  Raises StorageInvalid when it is of the
    /// wrong kind for its level, so no walk down is longer than the tree is deep.
    Page* GetPage(std::uint32_t id, std::uint32_t level);
    void CheckKind(const Page& page, std::uint32_t level) const;
    bool PutInternal(Page& page, const ParentEntry& from, const IAOrderedStorable& object, std::uint32_t level);
    bool RemoveInternal(Page& page, const ParentEntry& from, const IAOrderedStorable* key, std::uint32_t level);
    void ReplaceWithPrevObj(Page& page, const ParentEntry& from, const ParentEntry& target,
                            std::uint32_t level);
    std::vector<std::uint32_t> PageIdsForDestroy();
    void CollectPageIds(Page& page, std::uint32_t level, std::vector<std::uint32_t>& ids,
                        std::unordered_set<std::uint32_t>& visited);

    // BTreeRebalance.cpp
    void Rebalance(Page& page, const ParentEntry& from, std::uint32_t level);
    void RebalanceRoot();
    void GrowTree();
    void ShrinkTree();
    void RebalanceNonRoot(Page& page, Page& parent, Page::Finger parentEntry, std::uint32_t level);
    bool RebalanceTwo(Page& left, Page::Finger separator, Page& right, Page& parent, std::uint32_t level);
    void PaginateTwo(Page& left, Page::Finger separator, Page& right, Page& parent, std::size_t newSeparator);
    void MergeTwo(Page& left, Page::Finger separator, Page& right, Page& parent, std::uint32_t level);
    void SplitOne(Page& page, Page& parent, Page::Finger parentEntry, std::uint32_t level);

    // For iterators: pages taken with a lock.
    Page* GetLockedPage(std::uint32_t id, std::uint32_t level, std::uint32_t stamp);
    void UnlockPage(std::uint32_t id, std::uint32_t level, std::uint32_t stamp);

    /// Looks at a page without using it, as far as its cache can tell.
    PageGlance Peek(std::uint32_t id, std::uint32_t level);

    const std::unique_ptr<IAOrderedStorable> prototype;
    IAStorage* storage = nullptr;  // borrowed
    std::unique_ptr<IAStoreStream> ownStream;
    IAStoreStream* storeStream = nullptr;  // ownStream, or borrowed from the storage
    const std::unique_ptr<IAMutex> mutex;
    std::uint32_t headerBlock = 0;
    bool forWriting = false;
    std::optional<PageBlocks> blocks;
    std::unique_ptr<Page> root;                      // outside of all caches
    std::uint32_t depth = 0;                         // levels below the root
    std::vector<std::unique_ptr<PageCache>> caches;  // `depth` of them; the first is the level below the root
    std::uint32_t count = 0;
    std::uint32_t pageCount = 0;
    std::uint32_t pageSize = 0;
    std::uint32_t minSize = 0;
    std::uint32_t maxEntrySize = 0;
    std::uint32_t timeStamp = 0;
};

}  // namespace brindle
