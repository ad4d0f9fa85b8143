#include "toolkit/storage/Page.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "lorvale/toolkit/storage/block.h"
#include "lorvale/toolkit/storage/exception.h"
#include "toolkit/storage/MemoryBlock.h"
#include "toolkit/storage/PageMemory.h"

namespace brindle {

namespace {

/// Stores an object into all of some bytes.
void StoreInto(std::span<std::uint8_t> place, const IAOrderedStorable& object) {
    MemoryStream memory(place);
    IAOutputBlock output(&memory);
    object.Store(&output);
    // An object whose Store() and StoreSize() disagree would make a page that cannot be read.
    IAAssertion(output.GetPosition() == place.size(), "page entry stored at another size", IAAssertionFailure);
}

void CopyInto(std::span<std::uint8_t> place, std::span<const std::uint8_t> object) {
    if (!object.empty()) std::memcpy(place.data(), object.data(), object.size());
}

}  // namespace

Page::Page(std::uint32_t pageId, bool isLeaf, const IAOrderedStorable* pagePrototype)
    : id(pageId),
      dirty(true),
      prototype(pagePrototype),
      image(PageImage::Make(isLeaf, typeid(*pagePrototype), {})) {}

Page::Page(std::uint32_t pageId, const IAOrderedStorable* pagePrototype, SharedPageImage stored,
           PageMemory* sharedWith)
    : id(pageId), prototype(pagePrototype), image(std::move(stored)), memory(sharedWith) {}

Page::~Page() = default;

std::unique_ptr<IAOrderedStorable> Page::CopyObject(Finger at) const {
    const std::span<const std::uint8_t> stored = image->Object(at);
    MemoryStream from(stored, static_cast<std::uint32_t>(stored.size()));
    IAInputBlock input(&from);
    return IARestoreFrom(*prototype, &input);
}

Page::Found Page::FingerEntry(const IAOrderedStorable* key) const {
    const PageImage& entries = *image;
    entries.PrefetchOffsets();
    std::size_t low = 0;
    for (std::size_t high = entries.Count(); low < high;) {
        const std::size_t middle = low + (high - low) / 2;
        // Most of the time goes into waiting for the object that is looked at next, whichever of the two it is.
        entries.Prefetch(low + (middle - low) / 2);
        entries.Prefetch(middle + 1 + (high - middle - 1) / 2);
        const int order = prototype->CompareStored(entries.Object(middle), key);
        if (order == 0) return {middle, true};
        if (order < 0)
            low = middle + 1;
        else
            high = middle;
    }
    return {low, false};
}

PageImage& Page::OwnImage(PageImage::Room more) {
    // The memory has no more use for an image that is about to change, which then need not be copied.
    if (!dirty && memory != nullptr) memory->Release(id);
    PageImage& own = image.Own(more);
    dirty = true;
    return own;
}

void Page::InsertEntry(Finger at, std::uint32_t child, const IAOrderedStorable& object) {
    const std::uint32_t size = object.StoreSize();
    PageImage& own = OwnImage({BTEntryOverhead + size, 1});
    const std::span<std::uint8_t> place = own.InsertEntry(at, child, size);
    try {
        StoreInto(place, object);
    } catch (...) {
        own.EraseEntries(at, at + 1);
        throw;
    }
}

void Page::ReplaceObject(Finger at, const IAOrderedStorable& object) {
    // Beside the page first: an object that cannot be stored leaves it as it is.
    IAVector<std::uint8_t> stored(object.StoreSize());
    StoreInto(stored, object);
    CopyInto(OwnImage({stored.size(), 0}).ReplaceObject(at, stored.size()), stored);
}

void Page::InsertEntry(Finger at, std::uint32_t child, const Page& source, Finger sourceAt) {
    const std::span<const std::uint8_t> object = source.image->Object(sourceAt);
    CopyInto(OwnImage({BTEntryOverhead + object.size(), 1}).InsertEntry(at, child, object.size()), object);
}

void Page::ReplaceObject(Finger at, const Page& source, Finger sourceAt) {
    const std::span<const std::uint8_t> object = source.image->Object(sourceAt);
    CopyInto(OwnImage({object.size(), 0}).ReplaceObject(at, object.size()), object);
}

void Page::RemoveEntry(Finger at) {
    IAAssertion(at < Count(), "entry at finger is null", IAAssertionFailure);
    OwnImage().EraseEntries(at, at + 1);
}

void Page::ShiftContentsRight(Page& destination, Finger separator, Page& parent, Finger pivot) {
    const PageImage::Room moved = image->RoomOf(pivot + 1, Count());
    destination.InsertEntry(0, RightChildId(), parent, separator);
    destination.OwnImage(moved).InsertEntries(0, *image, pivot + 1, Count());
    parent.ReplaceObject(separator, *this, pivot);
    const std::uint32_t child = IsLeaf() ? 0 : ChildId(pivot);
    PageImage& own = OwnImage();
    own.SetRightChildId(child);
    own.EraseEntries(pivot, Count());
}

void Page::ShiftContentsLeft(Page& destination, Finger separator, Page& parent, Finger pivot) {
    const PageImage::Room moved = image->RoomOf(0, pivot);
    destination.InsertEntry(destination.Count(), destination.RightChildId(), parent, separator);
    PageImage& left = destination.OwnImage(moved);
    left.InsertEntries(left.Count(), *image, 0, pivot);
    left.SetRightChildId(IsLeaf() ? 0 : ChildId(pivot));
    parent.ReplaceObject(separator, *this, pivot);
    OwnImage().EraseEntries(0, pivot + 1);
}

}  // namespace brindle
