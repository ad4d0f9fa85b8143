#pragma once
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <typeinfo>
#include <utility>

#include "lorvale/toolkit/storage/storable.h"

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

/// One B-tree page as it stands in its block: the stored bytes, and where each object begins in them.  It alone
/// knows the layout.  Entries are numbered from 0, and a place is the number of the entry behind it.
///
/// The offsets are what makes an image worth keeping: an object's length is known only after asking its class,
/// and with them any object of the page is found without the others.
///
/// An image is one piece of memory, with the offsets and the bytes behind its fields, since most of what a
/// search costs is fetching what it looks at.  Its room is fixed: who adds something asks SharedPageImage for
/// it.
class PageImage : public IAStruct {
public:
    struct Room {
        std::size_t bytes = 0;
        std::size_t entries = 0;
        Room operator+(const Room& more) const { return {bytes + more.bytes, entries + more.entries}; }
    };

    /// An empty page.
    static std::unique_ptr<PageImage> Make(bool isLeaf, const std::type_info& typeOfObjects, Room room);
    PageImage(const PageImage&) = delete;
    PageImage& operator=(const PageImage&) = delete;
    ~PageImage() override;
    static void operator delete(void* image) noexcept { IAFree(image); }
    static void operator delete(void* image, Room) noexcept { IAFree(image); }

    bool IsLeaf() const { return overhead == 0; }
    std::size_t Count() const { return count; }
    std::size_t StoreSize() const { return size; }
    std::span<const std::uint8_t> Bytes() const { return {bytes, size}; }
    std::uint32_t RightChildId() const { return WordAt(kRightChildAt); }
    /// The child before the entry, or the right child behind the last one.
    std::uint32_t ChildId(std::size_t at) const {
        return at < count ? WordAt(offsets[at] - BTEntryOverhead) : RightChildId();
    }
    /// The object's stored form, until the image changes.
    std::span<const std::uint8_t> Object(std::size_t at) const {
        return {bytes + offsets[at], EntryStart(at + 1) - offsets[at]};
    }
    /// Has the processor fetch the beginning of an object that may be wanted soon.
    void Prefetch(std::size_t at) const {
        if (at < count) __builtin_prefetch(bytes + offsets[at]);
    }
    /// The same for the image itself and its first offsets, before the first look at any of them.
    void PrefetchBeginning() const {
        constexpr std::size_t kLine = 64, kLines = 8;
        const auto* const at = reinterpret_cast<const char*>(this);
        for (std::size_t line = 0; line < kLines; ++line) __builtin_prefetch(at + line * kLine);
    }
    /// The same for the places of all objects.
    void PrefetchOffsets() const {
        constexpr std::size_t kLine = 64 / sizeof *offsets;
        for (std::size_t at = 0; at < count; at += kLine) __builtin_prefetch(offsets + at);
    }
    /// Where the entry begins in the bytes; for the place behind the last one, their end.
    std::size_t EntryStart(std::size_t at) const { return at < count ? offsets[at] - overhead : size; }
    std::uint32_t LargestObject() const { return largestObject; }     ///< no object takes more bytes
    const std::type_info& ObjectType() const { return *objectType; }  ///< that the offsets were found with
    std::size_t MemorySize() const { return sizeof(PageImage) + SizeOf(room); }

    void SetRightChildId(std::uint32_t child) { SetWordAt(kRightChildAt, child); }
    /// Inserts an entry and answers where its object's bytes are to be written.  A leaf has no child.
    std::span<std::uint8_t> InsertEntry(std::size_t at, std::uint32_t child, std::size_t objectSize);
    /// Gives an entry an object of that size.
    std::span<std::uint8_t> ReplaceObject(std::size_t at, std::size_t objectSize);
    void EraseEntries(std::size_t begin, std::size_t end);
    /// Copies entries of another image of the same kind.
    void InsertEntries(std::size_t at, const PageImage& source, std::size_t begin, std::size_t end);
    /// What InsertEntries() needs.
    Room RoomOf(std::size_t begin, std::size_t end) const {
        return {EntryStart(end) - EntryStart(begin), end - begin};
    }

    /// A page that was read, with the bytes that stand behind it in its block.  The prototype is asked for the
    /// size of every object, which finds where the next one begins.  Raises StorageInvalid for what no page
    /// holds, what reading behind the block raises, and what the prototype does.
    static std::unique_ptr<PageImage> Restore(std::span<const std::uint8_t> stored,
                                              const IAOrderedStorable& prototype);

private:
    friend class SharedPageImage;
    static constexpr std::size_t kRightChildAt = 0;
    static constexpr std::size_t kCountAt = 4;
    static constexpr std::size_t kEntriesAt = BTPageOverhead;

    PageImage(bool isLeaf, const std::type_info& typeOfObjects, Room imageRoom);
    static std::size_t SizeOf(Room room) { return room.entries * sizeof(std::uint32_t) + room.bytes; }
    static void* operator new(std::size_t fields, Room room) { return IAMalloc(fields + SizeOf(room)); }

    bool Has(Room more) const {
        return size + more.bytes <= room.bytes && count + more.entries <= room.entries;
    }
    /// A copy with room for some more, and for a little beyond that.
    std::unique_ptr<PageImage> Copy(Room more) const;

    static std::uint32_t Word(const std::uint8_t* at) {
        return std::uint32_t{at[0]} << 24 | std::uint32_t{at[1]} << 16 | std::uint32_t{at[2]} << 8 | at[3];
    }
    std::uint32_t WordAt(std::size_t at) const { return Word(bytes + at); }
    void SetWordAt(std::size_t at, std::uint32_t value) {
        for (std::size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
    }
    void ReplaceBytes(std::size_t at, std::size_t oldSize, std::size_t newSize);
    void ReplaceOffsets(std::size_t at, std::size_t oldCount, std::size_t newCount);
    void ShiftOffsets(std::size_t from, std::size_t by);

    std::atomic<std::uint32_t> users{0};
    const std::uint32_t overhead;  // of an entry beyond its object
    std::uint32_t largestObject = 0;
    std::uint32_t count = 0;
    std::size_t size = 0;
    const Room room;
    const std::type_info* const objectType;
    std::uint32_t* const offsets;  // of each entry's object, ascending
    std::uint8_t* const bytes;     // the page's header and entries, at their true size
};

/// A share in an image, which is copied when it is to be changed while others have one too.  Shares in one
/// image may be held and dropped by several threads.
class SharedPageImage {
public:
    SharedPageImage() = default;
    explicit SharedPageImage(std::unique_ptr<PageImage> made) : image(made.release()) { image->users = 1; }
    SharedPageImage(const SharedPageImage& other) : image(other.image) {
        if (image != nullptr) image->users.fetch_add(1, std::memory_order_relaxed);
    }
    SharedPageImage(SharedPageImage&& other) noexcept : image(std::exchange(other.image, nullptr)) {}
    SharedPageImage& operator=(SharedPageImage other) noexcept {
        std::swap(image, other.image);
        return *this;
    }
    ~SharedPageImage() {
        if (image != nullptr && image->users.fetch_sub(1, std::memory_order_acq_rel) == 1) delete image;
    }

    explicit operator bool() const { return image != nullptr; }
    const PageImage& operator*() const { return *image; }
    const PageImage* operator->() const { return image; }
    /// The image, to be changed, with room for something more: a copy of it if others have a share.
    PageImage& Own(PageImage::Room more = {}) {
        // What the others did with it comes before they gave their shares up.
        if (image->users.load(std::memory_order_acquire) != 1 || !image->Has(more))
            *this = SharedPageImage(image->Copy(more));
        return *image;
    }

private:
    PageImage* image = nullptr;
};

}  // namespace brindle
