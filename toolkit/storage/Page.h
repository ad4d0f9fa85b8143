#pragma once
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "lorvale/toolkit/storage/block.h"
#include "lorvale/toolkit/storage/storable.h"
#include "toolkit/storage/PageImage.h"

namespace brindle {

// A page block: big-endian 32-bit fields.
//   offset  size
//        0     4  rightChildId   the child holding everything above the last entry; 0 makes the page a leaf
//        4     4  the number of entries
//        8        the entries, ascending: in a leaf the object's stored form; in an interior page before it
//                 four bytes of childId, the child holding everything between the entry before and this one
// A leaf with one entry whose object is stored as 41:  00 00 00 00  00 00 00 01  41

/// What a page costs beyond its entries, and an entry of an interior page beyond its object, in stored bytes.
inline constexpr std::uint32_t BTPageOverhead = 8;
inline constexpr std::uint32_t BTEntryOverhead = 4;

/// The most that an entry may take: two of them fit a page, which rebalancing rests on.
constexpr std::uint32_t MaxEntrySizeFor(std::uint32_t pageSize) {
    return pageSize > BTPageOverhead ? (pageSize - BTPageOverhead) / 2 : 0;
}

/// Whether an object may be an entry.  Any entry can become a separator, so a child is always reckoned in.
constexpr bool ObjectFits(std::uint32_t objectStoreSize, std::uint32_t pageSize) {
    return std::uint64_t{objectStoreSize} + BTEntryOverhead <= MaxEntrySizeFor(pageSize);
}

/// One entry of a page.  An entry that was read or written is there as stored bytes, in the page's image, and as
/// an object only while somebody has asked for it; a new one is there as an object alone.
struct PageEntry {
    PageEntry() = default;
    explicit PageEntry(std::unique_ptr<IAOrderedStorable> newObject) : PageEntry(0, std::move(newObject)) {}
    PageEntry(std::uint32_t child, std::unique_ptr<IAOrderedStorable> newObject)
        : childId(child), objectStoreSize(newObject->StoreSize()), object(std::move(newObject)) {}
    PageEntry(std::uint32_t child, std::uint32_t size, const std::uint8_t* bytes)
        : childId(child), objectStoreSize(size), stored(bytes) {}

    std::uint32_t childId = 0;          ///< the child with all between the entry before and this one; 0 in a leaf
    std::uint32_t objectStoreSize = 0;  ///< the object's StoreSize(), not to be asked for again
    std::unique_ptr<IAOrderedStorable> object;
    const std::uint8_t* stored = nullptr;  ///< in the page's image; null while the object is newer than that
};

/// A node of the tree: its entries in ascending order, and the child that holds everything above the last one.
/// This class is an interior page, Leaf the other kind.  Used under the tree's mutex only.
///
/// The entries are one sorted array and not a list of nodes: a page of the usual size has one or two hundred, so
/// inserting moves a few kilobytes at most, a search touches few cache lines, and a page is made from its image
/// with one allocation.  An object is restored from the image when a search or a caller gets to it.
class Page : public IAObject {
public:
    /// The place before the entry of that index.
    using Finger = std::size_t;

    /// An empty page.  The prototype, which restores its objects, is borrowed for life.
    Page(std::uint32_t pageId, const IAOrderedStorable* pagePrototype);
    Page(const Page&) = delete;
    Page& operator=(const Page&) = delete;
    ~Page() override;

    virtual bool IsLeaf() const;
    /// The entry's share of the page, in bytes.
    virtual std::uint32_t EntryStoreSize(const PageEntry& entry) const;
    virtual void EntryStore(const PageEntry& entry, IAOutputBlock* output) const;
    /// Reads all but `stored`.
    virtual void EntryRestore(PageEntry& entry, const IAOrderedStorable* from, IAInputBlock* input) const;

    std::uint32_t Id() const { return id; }
    std::uint32_t RightChildId() const { return rightChildId; }
    void SetRightChildId(std::uint32_t child) { rightChildId = child, dirty = true; }
    /// What the page takes in its block: at all times 8 and the EntryStoreSize() of all entries.
    std::size_t StoreSize() const { return storeSize; }
    bool IsDirty() const { return dirty; }
    std::size_t Count() const { return entries.size(); }
    /// The bytes of the last read or write; null before.
    const std::shared_ptr<const PageImage>& Image() const { return image; }

    /// Writes the page into its block, which may move for that.
    void Write(IAStorage* storage, IAStoreStream* stream);
    /// Reads the count and the entries behind the right child, which the caller has read.  Keeps no image.
    /// Raises StorageInvalid for what no page holds.
    void ReadEntries(IAInputBlock* input, const IAOrderedStorable* from);

    // The entries in order; null is the place behind the last one.  Pointers to entries are good until an entry
    // is inserted into or removed from the page.
    PageEntry* First() { return At(0); }
    PageEntry* Next(const PageEntry* entry) { return At(IndexOf(entry) + 1); }
    PageEntry* LastNode() { return entries.empty() ? nullptr : &entries.back(); }
    /// Null before the first one; a null entry stands behind the last one.
    PageEntry* PreviousNode(const PageEntry* entry);
    PageEntry* At(std::size_t index) { return index < entries.size() ? &entries[index] : nullptr; }
    std::size_t IndexOf(const PageEntry* entry) const {
        return static_cast<std::size_t>(entry - entries.data());
    }

    /// The entry's object, which the page keeps, restored if need be.
    const IAOrderedStorable& Object(PageEntry& entry);
    /// A copy for the caller.  Where the stored bytes can give the object again, the page's own goes out.
    std::unique_ptr<IAOrderedStorable> CopyObject(PageEntry& entry);

    /// Puts the finger before the first entry not less than the key, and returns that entry or null.
    PageEntry* FingerEntry(const IAOrderedStorable* key, Finger& finger);
    PageEntry* FingeredEntry(Finger finger) { return At(finger); }
    /// Inserts where its order wants it.
    void InsertEntry(PageEntry entry);
    /// Inserts at the finger and moves it behind the new entry: a run of inserts keeps its order.
    void InsertEntryAtFinger(PageEntry entry, Finger& finger);
    /// Takes the entry out, its object restored, and hands it over.
    PageEntry RemoveEntry(PageEntry* entry);
    PageEntry RemoveEntryAtFinger(Finger finger);
    void ReplaceObj(PageEntry* entry, std::unique_ptr<IAOrderedStorable> object);
    /// At the front.
    void PushEntry(PageEntry entry);
    PageEntry PopEntry();

    /// Moves what is behind the pivot to the front of `destination`, the page to the right, by way of the
    /// separator of the two, an entry of `parent`: its object goes there too, and the pivot's takes its place.
    void ShiftContentsRight(Page& destination, PageEntry* separator, Page& parent, std::size_t pivot);
    /// The mirror: moves what is before the pivot to the end of `destination`, the page to the left.
    void ShiftContentsLeft(Page& destination, PageEntry* separator, Page& parent, std::size_t pivot);

private:
    friend class PageLoader;  // makes pages out of bytes

    void TakeImage(std::shared_ptr<const PageImage> newImage);
    std::shared_ptr<PageImage> Encode() const;
    std::unique_ptr<IAOrderedStorable> RestoreObject(const PageEntry& entry) const;
    std::vector<PageEntry> TakeRange(std::size_t begin, std::size_t end);
    void InsertRange(std::size_t at, std::vector<PageEntry> range);

    const std::uint32_t id;
    std::uint32_t rightChildId = 0;
    std::size_t storeSize = BTPageOverhead;
    bool dirty = true;
    const IAOrderedStorable* const prototype;  // borrowed from the tree
    std::shared_ptr<const PageImage> image;    // of the last read or write; entries point into it
    std::vector<PageEntry> entries;
};

/// A page without children.
class Leaf final : public Page {
public:
    using Page::Page;
    bool IsLeaf() const override;
    std::uint32_t EntryStoreSize(const PageEntry& entry) const override;
    void EntryStore(const PageEntry& entry, IAOutputBlock* output) const override;
    void EntryRestore(PageEntry& entry, const IAOrderedStorable* from, IAInputBlock* input) const override;
};

/// Reads the page in the block `id`, unless the storage remembers it: a Leaf if it has no right child.  The
/// prototype is borrowed for the page's life.  Raises StorageInvalid for a block that holds no page, or one too
/// large for the page size if that is given, and what reading beyond the block or the store raises.
std::unique_ptr<Page> ReadPage(std::uint32_t id, IAStorage* storage, IAStoreStream* stream,
                               const IAOrderedStorable* prototype,
                               std::uint32_t pageSize = std::numeric_limits<std::uint32_t>::max());

}  // namespace brindle
