#include "toolkit/storage/BTreeIterator.h"

#include <utility>

#include "lorvale/toolkit/storage/exception.h"
#include "lorvale/toolkit/storage/mutex.h"
#include "toolkit/storage/BTree.h"

namespace brindle {

BTreeIterator::BTreeIterator(BTree& tree, const IAOrderedStorable* from) : bTree(tree) {
    try {
        BuildStack(from);
    } catch (...) {
        UnlockAll();
        throw;
    }
}

BTreeIterator::~BTreeIterator() {
    const IALock lock(bTree.mutex.get());
    if (timeStamp == bTree.timeStamp)
        UnlockAll();
    else
        DropFrames();
}

std::unique_ptr<IAOrderedStorable> BTreeIterator::Next() {
    const IALock lock(bTree.mutex.get());
    FindPlaceAgain();
    if (next == nullptr) return nullptr;
    std::unique_ptr<IAOrderedStorable> result = std::move(next);
    Increment();
    next = CopyOfTop();
    // A damaged tree that led to the same pages over and over would never end.
    if (next != nullptr && !result->LessThan(next.get())) {
        next = nullptr;
        IAFail("btree pages out of order", StorageInvalid);
    }
    return result;
}

void BTreeIterator::ForEachStored(const StoredVisitor& visit) {
    const IALock lock(bTree.mutex.get());
    FindPlaceAgain();
    if (next == nullptr) return;
    next = nullptr;
    // A damaged tree that leads to the same pages over and over ends with the number of its members.
    for (std::uint32_t left = bTree.count; top != nullptr && !top->IsThrough(); Increment()) {
        IAAssertion(left-- > 0, "more members than the btree has", StorageInvalid);
        visit(top->page->Image().Object(top->entry));
    }
}

void ForEachStored(IAOrderedStorableIterator& members, const StoredVisitor& visit) {
    static_cast<BTreeIterator&>(members).ForEachStored(visit);  // the one kind of iterator there is
}

void BTreeIterator::FindPlaceAgain() {
    bTree.CheckOpen();
    if (timeStamp == bTree.timeStamp || next == nullptr) return;
    const std::unique_ptr<IAOrderedStorable> place = std::move(next);
    BuildStack(place.get());
}

std::unique_ptr<IAOrderedStorable> BTreeIterator::CopyOfTop() {
    return top != nullptr && !top->IsThrough() ? top->page->CopyObject(top->entry) : nullptr;
}

void BTreeIterator::BuildStack(const IAOrderedStorable* from) {
    timeStamp = bTree.timeStamp;
    DropFrames();
    if (from != nullptr)
        PushTo(*bTree.root, from);
    else
        PushForward(*bTree.root);
    next = CopyOfTop();
}

void BTreeIterator::PushFrame(Page& page, Page::Finger entry) {
    top = std::make_unique<IteratorFrame>(&page, entry, std::move(top));
}

Page& BTreeIterator::Descend(std::uint32_t id) {
    Page* const page = bTree.GetLockedPage(id, level, timeStamp);
    ++level;
    return *page;
}

void BTreeIterator::PushForward(Page& page) {
    PushFrame(page, 0);
    if (level != bTree.depth) PushForward(Descend(page.ChildId(0)));
}

void BTreeIterator::PushTo(Page& page, const IAOrderedStorable* key) {
    const Page::Found found = page.FingerEntry(key);
    PushFrame(page, found.at);
    if (page.IsLeaf()) {
        if (found.at == page.Count()) PopForward();
    } else if (!found.isEqual) {
        PushTo(Descend(page.ChildId(found.at)), key);
    }
}

void BTreeIterator::Increment() {
    ++top->entry;
    if (level != bTree.depth)
        PushForward(Descend(top->page->ChildId(top->entry)));
    else if (top->IsThrough())
        PopForward();
}

void BTreeIterator::PopForward() {
    do {
        const std::uint32_t left = top->page->Id();
        top = std::move(top->next);
        if (top != nullptr) bTree.UnlockPage(left, --level, timeStamp);
    } while (top != nullptr && top->IsThrough());
}

// Runs in destructors: a page that cannot be written now stays for the next to try.
void BTreeIterator::UnlockAll() {
    while (top != nullptr) {
        const std::uint32_t left = top->page->Id();
        top = std::move(top->next);
        if (top == nullptr) break;  // the root is in no cache
        try {
            bTree.UnlockPage(left, --level, timeStamp);
        } catch (const IAException&) {
        }
    }
}

void BTreeIterator::DropFrames() {
    while (top != nullptr) top = std::move(top->next);
    level = 0;
}

}  // namespace brindle
