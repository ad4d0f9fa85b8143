#include "toolkit/storage/BTree.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "lorvale/toolkit/storage/exception.h"
#include "toolkit/storage/BTreeIterator.h"

namespace brindle {

std::unique_ptr<IAOrderedStorableSet> IAMakeOrderedStorableSet(std::unique_ptr<IAOrderedStorable> prototype) {
    return std::make_unique<BTree>(std::move(prototype), IADiskBlockSize);
}

BTree::BTree(std::unique_ptr<IAOrderedStorable> memberPrototype, std::uint32_t newPageSize)
    : prototype(std::move(memberPrototype)), mutex(IANewMutex()) {
    SetSizes(newPageSize);
}

BTree::~BTree() = default;

void BTree::SetSizes(std::uint32_t size) {
    pageSize = size;
    minSize = size / 2;
    maxEntrySize = MaxEntrySizeFor(size);
}

void BTree::AttachTo(IAStorage* treeStorage, std::uint32_t header, bool cloneStream) {
    storage = treeStorage;
    headerBlock = header;
    ownStream = cloneStream ? treeStorage->GetStoreStream()->Clone() : nullptr;
    storeStream = cloneStream ? ownStream.get() : treeStorage->GetStoreStream();
}

void BTree::Initialize(IAStorage* treeStorage, std::uint32_t header, bool cloneStream) {
    const IALock lock(mutex.get());
    IAAssertion(root == nullptr && depth == 0, "invalid btree!", IAAssertionFailure);
    AttachTo(treeStorage, header, cloneStream);
    count = 0;
    pageCount = 0;
    forWriting = true;
    blocks.emplace(*storage, storeStream, *prototype, pageSize);
    root = std::make_unique<Page>(NewPage(true));
    Flush();
}

void BTree::Open(IAStorage* treeStorage, std::uint32_t header, bool writable, bool cloneStream) {
    const IALock lock(mutex.get());
    IAAssertion(root == nullptr, "root not null!", IAAssertionFailure);
    AttachTo(treeStorage, header, cloneStream);
    IAAssertion(!writable || storeStream->IsWritable(), "store stream not writable", IAAssertionFailure);

    const BTreeHeader stored = BTreeHeader::Read(storage, headerBlock, storeStream);
    IAAssertion(stored.depth <= BTreeHeader::MaxDepth, "btree header out of range", StorageInvalid);
    blocks.emplace(*storage, storeStream, *prototype, stored.pageSize);
    Page page = blocks->Read(stored.rootId);
    IAAssertion(page.IsLeaf() == (stored.depth == 0) && (page.IsLeaf() || page.Count() > 0),
                "btree root of the wrong kind", StorageInvalid);

    forWriting = writable;
    depth = stored.depth;
    count = stored.count;
    pageCount = stored.pageCount;
    SetSizes(stored.pageSize);
    for (std::uint32_t level = 0; level < depth; ++level)
        caches.push_back(NewCache(writable ? WritableCacheSize : ReadableCacheSize));
    root = std::make_unique<Page>(std::move(page));
}

void BTree::Flush() {
    const IALock lock(mutex.get());
    CheckOpen();
    for (const auto& cache : caches) cache->WriteDirtyPages();
    if (root->IsDirty()) blocks->Write(*root);
    BTreeHeader{root->Id(), depth, count, pageCount, pageSize}.Write(storage, headerBlock, storeStream);
}

void BTree::Purge() {
    const IALock lock(mutex.get());
    ++timeStamp;
    for (const auto& cache : caches) cache->Purge();
}

std::uint32_t BTree::Count() {
    const IALock lock(mutex.get());
    return count;
}

std::uint32_t BTree::TotalSize() {
    const IALock lock(mutex.get());
    return pageSize * pageCount + BTreeHeader::StoreSize;
}

std::uint32_t BTree::TimeStamp() {
    const IALock lock(mutex.get());
    return timeStamp;
}

void BTree::ReportStats() {}

// A tree that was not opened, or was destroyed, has no root to begin at.
void BTree::CheckOpen() const {
    IAAssertion(root != nullptr, "invalid btree!", IAAssertionFailure);
}

// A reader's caches hold one page a level: rebalancing two would lose the first under its hands.
void BTree::CheckWritable() const {
    CheckOpen();
    IAAssertion(forWriting, "btree not open for writing", StorageNotWritable);
}

std::unique_ptr<PageCache> BTree::NewCache(std::uint32_t pages) const {
    return std::make_unique<PageCache>(*blocks, pageSize, pages);
}

Page BTree::NewPage(bool isLeaf) {
    const std::uint32_t id = storage->Allocate();
    ++pageCount;
    return {id, isLeaf, prototype.get()};
}

void BTree::RemovePage(std::uint32_t id) {
    storage->Deallocate(id);
    --pageCount;
}

void BTree::CheckKind(const Page& page, std::uint32_t level) const {
    IAAssertion(page.IsLeaf() == (level + 1 == depth), "btree page at the wrong level", StorageInvalid);
}

Page* BTree::GetPage(std::uint32_t id, std::uint32_t level) {
    IAAssertion(level < depth, "level greater than the depth", IAAssertionFailure);
    Page* const page = caches[level]->Get(id, timeStamp, false);
    CheckKind(*page, level);
    return page;
}

std::unique_ptr<IAOrderedStorable> BTree::Get(const IAOrderedStorable* key) {
    const IALock lock(mutex.get());
    CheckOpen();
    Page* page = root.get();
    for (std::uint32_t level = 0;; ++level) {
        const Page::Found found = page->FingerEntry(key);
        if (found.isEqual) return page->CopyObject(found.at);
        if (level == depth) return nullptr;
        page = GetPage(page->ChildId(found.at), level);
    }
}

bool BTree::Put(std::unique_ptr<IAOrderedStorable> object) {
    const IALock lock(mutex.get());
    CheckWritable();
    IAAssertion(ObjectFits(object->StoreSize(), pageSize), "Ordered Storable Set Entry Too Big",
                OrderedStorableSetEntryTooBig);
    ++timeStamp;
    return PutInternal(*root, {nullptr, 0}, *object, 0);
}

bool BTree::PutInternal(Page& page, const ParentEntry& from, const IAOrderedStorable& object,
                        std::uint32_t level) {
    const Page::Found found = page.FingerEntry(&object);
    bool replaced = found.isEqual;
    if (found.isEqual) {
        page.ReplaceObject(found.at, object);
    } else if (page.IsLeaf()) {
        page.InsertEntry(found.at, 0, object);
        ++count;
    } else {
        Page* const child = GetPage(page.ChildId(found.at), level);
        replaced = PutInternal(*child, {&page, found.at}, object, level + 1);
    }
    Rebalance(page, from, level);
    return replaced;
}

bool BTree::Remove(const IAOrderedStorable* key) {
    const IALock lock(mutex.get());
    CheckWritable();
    ++timeStamp;
    return RemoveInternal(*root, {nullptr, 0}, key, 0);
}

bool BTree::RemoveInternal(Page& page, const ParentEntry& from, const IAOrderedStorable* key,
                           std::uint32_t level) {
    const Page::Found found = page.FingerEntry(key);
    if (page.IsLeaf()) {
        if (!found.isEqual) return false;
        page.RemoveEntry(found.at);
        --count;
    } else {
        const ParentEntry here = {&page, found.at};
        Page* const child = GetPage(page.ChildId(found.at), level);
        if (found.isEqual) {
            ReplaceWithPrevObj(*child, here, here, level + 1);
            --count;
        } else if (!RemoveInternal(*child, here, key, level + 1)) {
            return false;
        }
    }
    Rebalance(page, from, level);
    return true;
}

// An object of an interior page gives way to the one before it, which is the last of a leaf.
void BTree::ReplaceWithPrevObj(Page& page, const ParentEntry& from, const ParentEntry& target,
                               std::uint32_t level) {
    if (page.IsLeaf()) {
        target.parent->ReplaceObject(target.entry, page, page.Count() - 1);
        page.RemoveEntry(page.Count() - 1);
    } else {
        Page* const child = GetPage(page.RightChildId(), level);
        ReplaceWithPrevObj(*child, {&page, page.Count()}, target, level + 1);
    }
    Rebalance(page, from, level);
}

std::unique_ptr<IAOrderedStorableIterator> BTree::MakeIterator() {
    return MakeIterator(nullptr);
}

std::unique_ptr<IAOrderedStorableIterator> BTree::MakeIterator(const IAOrderedStorable* from) {
    const IALock lock(mutex.get());
    CheckOpen();
    return std::make_unique<BTreeIterator>(*this, from);
}

Page* BTree::GetLockedPage(std::uint32_t id, std::uint32_t level, std::uint32_t stamp) {
    IAAssertion(level < depth, "level greater than the depth", IAAssertionFailure);
    Page* const page = caches[level]->Get(id, stamp, true);
    const bool rightKind = page->IsLeaf() == (level + 1 == depth);
    if (!rightKind) UnlockPage(id, level, stamp);  // which may delete it
    IAAssertion(rightKind, "btree page at the wrong level", StorageInvalid);
    return page;
}

// A reader's cache does not keep what the iterator has left behind.
void BTree::UnlockPage(std::uint32_t id, std::uint32_t level, std::uint32_t stamp) {
    caches[level]->Unlock(id, stamp, !storeStream->IsWritable());
}

float BTree::PositionEstimate(const IAOrderedStorable* key) {
    const IALock lock(mutex.get());
    CheckOpen();
    const float step = 1.0F / static_cast<float>(root->Count() + 1);
    float sum = 0;
    for (Page::Finger at = 0; at < root->Count() && !key->LessThan(root->CopyObject(at).get()); ++at)
        sum += step;
    return sum + step / 2;
}

PageGlance BTree::Peek(std::uint32_t id, std::uint32_t level) {
    if (Page* const cached = caches[level]->Peek(id)) return {cached, nullptr};
    auto page = std::make_unique<Page>(blocks->Read(id));
    Page* const read = page.get();
    return {read, std::move(page)};
}

void BTree::Destroy() {
    const IALock lock(mutex.get());
    CheckOpen();
    const std::vector<std::uint32_t> ids = PageIdsForDestroy();
    // From here on the tree is no more, whatever happens: no cache may write into a block that is given back.
    ++timeStamp;
    caches.clear();
    root.reset();
    depth = 0;
    for (const std::uint32_t id : ids) RemovePage(id);
    count = 0;
    storage->Deallocate(headerBlock);
}

// All pages in the order in which they go.  Nothing is given back before all are known to be different: a block
// given back twice would be handed out twice.
std::vector<std::uint32_t> BTree::PageIdsForDestroy() {
    std::vector<std::uint32_t> ids;
    std::unordered_set<std::uint32_t> visited;
    CollectPageIds(*root, 0, ids, visited);
    std::vector<std::uint32_t> sorted = ids;
    sorted.push_back(headerBlock);
    std::ranges::sort(sorted);
    IAAssertion(std::ranges::adjacent_find(sorted) == sorted.end(), "btree page met twice", StorageInvalid);
    return ids;
}

void BTree::CollectPageIds(Page& page, std::uint32_t level, std::vector<std::uint32_t>& ids,
                           std::unordered_set<std::uint32_t>& visited) {
    // Interior pages that lead to each other could be walked in more ways than there is time for.
    IAAssertion(visited.insert(page.Id()).second, "btree page met twice", StorageInvalid);
    const auto collect = [this, level, &ids, &visited](std::uint32_t child) {
        if (level + 1 == depth) {
            ids.push_back(child);  // a leaf, which need not be read
            return;
        }
        const PageGlance glance = Peek(child, level);
        CheckKind(*glance.page, level);
        CollectPageIds(*glance.page, level + 1, ids, visited);
    };
    if (!page.IsLeaf()) {
        collect(page.RightChildId());
        for (Page::Finger at = 0; at < page.Count(); ++at) collect(page.ChildId(at));
    }
    ids.push_back(page.Id());
}

}  // namespace brindle
