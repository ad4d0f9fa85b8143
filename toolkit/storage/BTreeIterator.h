#pragma once
#include <cstdint>
#include <memory>

#include "lorvale/toolkit/storage/storable.h"
#include "toolkit/storage/Page.h"
#include "toolkit/storage/StoredMembers.h"

namespace brindle {

class BTree;

/// One level of an iterator's path.  Its page is locked in its cache, but for the root.
struct IteratorFrame : IAStruct {
    IteratorFrame(Page* framePage, Page::Finger nextEntry, std::unique_ptr<IteratorFrame> above)
        : entry(nextEntry), page(framePage), next(std::move(above)) {}
    bool IsThrough() const { return entry == page->Count(); }

    Page::Finger entry;  ///< what this level yields next, after all to the left of it
    Page* page;
    std::unique_ptr<IteratorFrame> next;  ///< the level above
};

/// Walks the members of a tree in order, while the tree may change: it then finds its place again by the object
/// that it would have returned next, or the first one behind where that was.  Its frames point into the tree
/// and hold only as long as the time stamp is the tree's.  The tree must outlive it, and its mutex guards all.
///
/// The path has at most one frame a level and a failure ends the iteration, so no damaged tree keeps it going.
class BTreeIterator final : public IAOrderedStorableIterator {
public:
    /// From the first member not less than the key, or from the first of all.  Under the tree's mutex.
    BTreeIterator(BTree& tree, const IAOrderedStorable* from);
    ~BTreeIterator() override;

    std::unique_ptr<IAOrderedStorable> Next() override;
    void ForEachStored(const StoredVisitor& visit);

private:
    void FindPlaceAgain();
    void BuildStack(const IAOrderedStorable* from);
    void PushForward(Page& page);
    void PushTo(Page& page, const IAOrderedStorable* key);
    void Increment();
    void PopForward();
    void PushFrame(Page& page, Page::Finger entry);
    /// The page below, locked; the level goes down with it.
    Page& Descend(std::uint32_t id);
    void UnlockAll();
    void DropFrames();
    std::unique_ptr<IAOrderedStorable> CopyOfTop();

    std::unique_ptr<IteratorFrame> top;
    std::unique_ptr<IAOrderedStorable> next;
    BTree& bTree;
    std::uint32_t level = 0;  // of the top frame, the root's being 0
    std::uint32_t timeStamp = 0;
};

}  // namespace brindle
