// What keeps the pages of a tree between half full and full.  The rules decide the exact shape of every tree,
// so that the same changes always give the same file.

#include <utility>

#include "lorvale/toolkit/storage/exception.h"
#include "toolkit/storage/BTree.h"
#include "toolkit/storage/Scroll.h"

namespace brindle {

void BTree::Rebalance(Page& page, const ParentEntry& from, std::uint32_t level) {
    if (page.StoreSize() <= pageSize && page.StoreSize() >= minSize) return;
    if (level == 0)
        RebalanceRoot();
    else
        RebalanceNonRoot(page, *from.parent, from.entry, level - 1);  // from here on the level of its cache
}

// A root may be as small as it likes.
void BTree::RebalanceRoot() {
    if (!root->IsLeaf() && root->Count() == 0)
        ShrinkTree();
    else if (root->StoreSize() > pageSize)
        GrowTree();
}

void BTree::GrowTree() {
    caches.insert(caches.begin(), NewCache(WritableCacheSize));
    ++depth;
    Page* const oldRoot = caches.front()->Put(std::move(*root), timeStamp, false);
    *root = NewPage(false);
    root->SetRightChildId(oldRoot->Id());
    SplitOne(*oldRoot, *root, 0, 0);
}

void BTree::ShrinkTree() {
    RemovePage(root->Id());
    *root = caches.front()->Remove(root->RightChildId());
    caches.erase(caches.begin());
    --depth;
}

void BTree::RebalanceNonRoot(Page& page, Page& parent, Page::Finger parentEntry, std::uint32_t level) {
    IAAssertion(parentEntry < parent.Count() || parent.RightChildId() == page.Id(), "page not the right child",
                IAAssertionFailure);
    if (parentEntry > 0) {
        Page* const left = GetPage(parent.ChildId(parentEntry - 1), level);
        if (RebalanceTwo(*left, parentEntry - 1, page, parent, level)) return;
    }
    if (parentEntry < parent.Count()) {
        Page* const right = GetPage(parent.ChildId(parentEntry + 1), level);
        if (RebalanceTwo(page, parentEntry, *right, parent, level)) return;
    }
    SplitOne(page, parent, parentEntry, level);
}

bool BTree::RebalanceTwo(Page& left, Page::Finger separator, Page& right, Page& parent, std::uint32_t level) {
    // In a sound tree no two children are one page; moving entries from a page to itself would lose them.
    IAAssertion(&left != &right, "btree page met twice", StorageInvalid);
    const Scroll scroll(left.Image(), parent.Image(), separator, right.Image());
    if (scroll.IntervalSize(0, scroll.Count()) <= pageSize) {
        MergeTwo(left, separator, right, parent, level);
        return true;
    }
    const std::size_t newSeparator = scroll.BestTwoPagination(pageSize, minSize, maxEntrySize);
    if (newSeparator == 0) return false;
    PaginateTwo(left, separator, right, parent, newSeparator);
    return true;
}

void BTree::PaginateTwo(Page& left, Page::Finger separator, Page& right, Page& parent,
                        std::size_t newSeparator) {
    const std::size_t oldSeparator = left.Count();
    if (newSeparator < oldSeparator)
        left.ShiftContentsRight(right, separator, parent, newSeparator);
    else if (newSeparator > oldSeparator)
        right.ShiftContentsLeft(left, separator, parent, newSeparator - oldSeparator - 1);
}

void BTree::MergeTwo(Page& left, Page::Finger separator, Page& right, Page& parent, std::uint32_t level) {
    // All of the left page but its first object goes right; that one is the separator then.
    if (left.Count() > 0) left.ShiftContentsRight(right, separator, parent, 0);
    right.InsertEntry(0, left.RightChildId(), parent, separator);
    parent.RemoveEntry(separator);
    RemovePage(left.Id());
    caches[level]->Delete(left.Id());
}

void BTree::SplitOne(Page& page, Page& parent, Page::Finger parentEntry, std::uint32_t level) {
    Page* const added = caches[level]->Put(NewPage(page.IsLeaf()), timeStamp, false);
    added->SetRightChildId(page.IsLeaf() ? 0 : page.ChildId(0));
    parent.InsertEntry(parentEntry, added->Id(), page, 0);
    page.RemoveEntry(0);
    RebalanceTwo(*added, parentEntry, page, parent, level);
}

}  // namespace brindle
