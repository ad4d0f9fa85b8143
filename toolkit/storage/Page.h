#pragma once
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "lorvale/toolkit/storage/block.h"
#include "lorvale/toolkit/storage/storable.h"
#include "toolkit/storage/PageImage.h"

namespace brindle {

class PageImageStore;

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

/// An entry on its way into a page or out of it.
struct PageEntry {
    PageEntry() = default;
    explicit PageEntry(std::unique_ptr<IAOrderedStorable> newObject) : PageEntry(0, std::move(newObject)) {}
    PageEntry(std::uint32_t child, std::unique_ptr<IAOrderedStorable> newObject)
        : childId(child), object(std::move(newObject)), objectStoreSize(object->StoreSize()) {}

    std::uint32_t childId = 0;  ///< the child with all between the entry before and this one; 0 in a leaf
    std::unique_ptr<IAOrderedStorable> object;
    std::uint32_t objectStoreSize = 0;  ///< the object's StoreSize(), not to be asked for again
};

/// A node of the tree: its entries in ascending order, and the child that holds everything above the last one.
/// This class is an interior page, Leaf the other kind.  Used under the tree's mutex only.
///
/// A page in memory is its stored bytes and a table of where the objects begin.  Entries are numbered from 0. A
/// search halves the table and restores the objects it meets; the page keeps those only when it is searched
/// again, since most pages leave their small cache after one visit.  Changing a page moves bytes: nothing is
/// allocated for an entry, and writing the page is one copy.
class Page : public IAObject {
public:
    /// The place before the entry of that number; Count() is the place behind the last one.
    using Finger = std::size_t;

    /// The first entry that is not less than a key.
    struct Found {
        Finger at;
        const IAOrderedStorable* object;         ///< null behind the last entry
        std::unique_ptr<IAOrderedStorable> own;  ///< the same, where the page does not keep it
    };

    /// An empty page.  The prototype, which restores its objects, is borrowed for life.
    Page(std::uint32_t pageId, const IAOrderedStorable* pagePrototype);
    /// A page as it stands in its block.
    Page(std::uint32_t pageId, const IAOrderedStorable* pagePrototype, std::shared_ptr<const PageImage> stored);
    Page(const Page&) = delete;
    Page& operator=(const Page&) = delete;
    ~Page() override;

    virtual bool IsLeaf() const;
    /// The entry's share of the page, in bytes.
    virtual std::uint32_t EntryStoreSize(const PageEntry& entry) const;
    virtual void EntryStore(const PageEntry& entry, IAOutputBlock* output) const;
    virtual PageEntry EntryRestore(const IAOrderedStorable* from, IAInputBlock* input) const;

    std::uint32_t Id() const { return id; }
    std::size_t Count() const { return image->objectOffsets.size(); }
    bool IsDirty() const { return dirty; }
    /// What the page takes in its block: 8 and all entries.
    std::size_t StoreSize() const { return image->bytes.size(); }
    std::uint32_t RightChildId() const { return image->WordAt(0); }
    void SetRightChildId(std::uint32_t child);
    /// The child before the entry, or the right child behind the last one.
    std::uint32_t ChildId(Finger at) const {
        return at < Count() ? image->WordAt(image->objectOffsets[at] - BTEntryOverhead) : RightChildId();
    }
    std::uint32_t ObjectStoreSize(Finger at) const {
        return static_cast<std::uint32_t>(EntryStart(at + 1) - image->objectOffsets[at]);
    }

    /// Writes the page into its block, which may move for that.
    void Write(IAStorage* storage, IAStoreStream* stream);
    /// Reads the count and the entries behind the right child, to the end of the page, whose bytes are
    /// `stored`. Raises StorageInvalid for what no page holds.
    void ReadEntries(IAInputBlock* input, std::span<const std::uint8_t> stored);
    const std::shared_ptr<const PageImage>& Image() const { return image; }
    /// The image is in the store too from now on, or comes from there.
    void ShareImage(PageImageStore* with) { owned = nullptr, images = with; }
    /// Adds the running sums of the entries' sizes to those that are there, one at the least.
    void AddSizes(std::vector<std::size_t>& sums) const;

    /// The entry's object, which the page keeps until it changes.
    const IAOrderedStorable& Object(Finger at);
    /// A copy for the caller.
    std::unique_ptr<IAOrderedStorable> CopyObject(Finger at) const;
    std::unique_ptr<IAOrderedStorable> CopyObject(Found found) const {
        return found.own != nullptr ? std::move(found.own) : CopyObject(found.at);
    }
    Found FingerEntry(const IAOrderedStorable* key);

    /// Inserts where its order wants it.
    void InsertEntry(PageEntry entry);
    /// Inserts at the finger and moves it behind the new entry: a run of inserts keeps its order.
    void InsertEntryAtFinger(PageEntry entry, Finger& finger);
    /// Takes an entry out and hands it over.
    PageEntry RemoveEntryAtFinger(Finger finger);
    void ReplaceObj(Finger at, std::unique_ptr<IAOrderedStorable> object);
    /// At the front.
    void PushEntry(PageEntry entry);
    PageEntry PopEntry() { return RemoveEntryAtFinger(0); }

    /// Moves what is behind the pivot to the front of `destination`, the page to the right, by way of the
    /// separator of the two, an entry of `parent`: its object goes there too, and the pivot's takes its place.
    void ShiftContentsRight(Page& destination, Finger separator, Page& parent, Finger pivot);
    /// The mirror: moves what is before the pivot to the end of `destination`, the page to the left.
    void ShiftContentsLeft(Page& destination, Finger separator, Page& parent, Finger pivot);

protected:
    /// A null image makes an empty page.
    Page(std::uint32_t pageId, const IAOrderedStorable* pagePrototype, std::uint32_t entryOverhead,
         std::shared_ptr<const PageImage> stored);

private:
    std::size_t EntryStart(Finger at) const {
        return at < Count() ? image->objectOffsets[at] - overhead : image->bytes.size();
    }
    /// The image, to be changed: a copy of it, with room for some bytes more, if others share it.
    PageImage& OwnImage(std::size_t room = 0);
    bool TakeImageOver();
    void CountChanged();
    void InsertGap(Finger at, std::size_t size);
    void EraseRange(Finger begin, Finger end);
    void InsertRange(Finger at, const Page& source, Finger begin, Finger end);

    const std::uint32_t id;
    const std::uint32_t overhead;  // of an entry beyond its object
    const IAOrderedStorable* const prototype;
    std::shared_ptr<const PageImage> image;
    PageImage* owned = nullptr;                               // the same, while nobody shares it
    PageImageStore* images = nullptr;                         // who shares it
    std::vector<std::unique_ptr<IAOrderedStorable>> objects;  // kept ones by number; empty while none is
    bool searched = false;
    bool dirty;
};

/// A page without children.
class Leaf final : public Page {
public:
    Leaf(std::uint32_t pageId, const IAOrderedStorable* pagePrototype,
         std::shared_ptr<const PageImage> stored = nullptr);
    bool IsLeaf() const override;
    std::uint32_t EntryStoreSize(const PageEntry& entry) const override;
    void EntryStore(const PageEntry& entry, IAOutputBlock* output) const override;
    PageEntry EntryRestore(const IAOrderedStorable* from, IAInputBlock* input) const override;
};

/// Reads the page in the block `id`, unless the storage remembers it: a Leaf if it has no right child.  The
/// prototype is borrowed for the page's life.  Raises StorageInvalid for a block that holds no page, or one too
/// large for the page size if that is given, and what reading beyond the block or the store raises.
std::unique_ptr<Page> ReadPage(std::uint32_t id, IAStorage* storage, IAStoreStream* stream,
                               const IAOrderedStorable* prototype,
                               std::uint32_t pageSize = std::numeric_limits<std::uint32_t>::max());

}  // namespace brindle
