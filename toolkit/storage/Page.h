#pragma once
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>

#include "lorvale/toolkit/storage/storable.h"
#include "toolkit/storage/PageImage.h"

namespace brindle {

class PageMemory;

/// A node of the tree: its entries in ascending order, and the child that holds everything above the last one.
/// Either all nodes below are its children, or it is a leaf and has none.  Used under the tree's mutex only.
///
/// A page is an image, which it may share with the storage's memory of pages, and whether that has changed.  A
/// search halves the table of the objects' places and compares their stored forms; changing a page moves bytes.
class Page : public IAObject {
public:
    /// The place before the entry of that number; Count() is the place behind the last one.
    using Finger = std::size_t;

    /// The first entry that is not less than a key.
    struct Found {
        Finger at;
        bool isEqual;
    };

    /// None at all: for a place that a page will take.
    Page() = default;
    /// An empty page.  The prototype, which knows its objects' stored form, is borrowed for life.
    Page(std::uint32_t pageId, bool isLeaf, const IAOrderedStorable* pagePrototype);
    /// A page as it stands in its block; `sharedWith` has the image too, if it is not null.
    Page(std::uint32_t pageId, const IAOrderedStorable* pagePrototype, SharedPageImage stored,
         PageMemory* sharedWith);
    Page(Page&&) noexcept = default;
    Page& operator=(Page&&) noexcept = default;
    ~Page() override;

    std::uint32_t Id() const { return id; }
    bool IsLeaf() const { return image->IsLeaf(); }
    bool IsDirty() const { return dirty; }
    std::size_t Count() const { return image->Count(); }
    const PageImage& Image() const { return *image; }
    /// What the page takes in its block: 8 and all entries.
    std::size_t StoreSize() const { return image->StoreSize(); }
    std::uint32_t RightChildId() const { return image->RightChildId(); }
    std::uint32_t ChildId(Finger at) const { return image->ChildId(at); }
    std::uint32_t ObjectStoreSize(Finger at) const {
        return static_cast<std::uint32_t>(image->Object(at).size());
    }

    /// A copy for the caller.
    std::unique_ptr<IAOrderedStorable> CopyObject(Finger at) const;
    Found FingerEntry(const IAOrderedStorable* key) const;

    void SetRightChildId(std::uint32_t child) { OwnImage().SetRightChildId(child); }
    void InsertEntry(Finger at, std::uint32_t child, const IAOrderedStorable& object);
    void ReplaceObject(Finger at, const IAOrderedStorable& object);
    /// The same with an object of another page.
    void InsertEntry(Finger at, std::uint32_t child, const Page& source, Finger sourceAt);
    void ReplaceObject(Finger at, const Page& source, Finger sourceAt);
    void RemoveEntry(Finger at);

    /// Moves what is behind the pivot to the front of `destination`, the page to the right, by way of the
    /// separator of the two, an entry of `parent`: its object goes there too, and the pivot's takes its place.
    void ShiftContentsRight(Page& destination, Finger separator, Page& parent, Finger pivot);
    /// The mirror: moves what is before the pivot to the end of `destination`, the page to the left.
    void ShiftContentsLeft(Page& destination, Finger separator, Page& parent, Finger pivot);

    SharedPageImage ShareImage() const { return image; }
    /// The image is in its block, or on the way there; `sharedWith` has it too, if it is not null.
    void SetWritten(PageMemory* sharedWith) { dirty = false, memory = sharedWith; }

private:
    /// The image, to be changed: a copy of it if others share it.
    PageImage& OwnImage(PageImage::Room more = {});

    std::uint32_t id = 0;
    bool dirty = false;
    const IAOrderedStorable* prototype = nullptr;
    SharedPageImage image;
    PageMemory* memory = nullptr;  // which has a share in the image, as far as the page knows
};

}  // namespace brindle
