#include "toolkit/storage/Page.h"

#include <algorithm>
#include <atomic>

#include "lorvale/toolkit/storage/exception.h"
#include "lorvale/toolkit/storage/storage.h"
#include "toolkit/storage/MemoryBlock.h"
#include "toolkit/storage/PageImageStore.h"

namespace brindle {

namespace {

std::ptrdiff_t Offset(std::size_t at) {
    return static_cast<std::ptrdiff_t>(at);
}

}  // namespace

Page::Page(std::uint32_t pageId, const IAOrderedStorable* pagePrototype)
    : Page(pageId, pagePrototype, BTEntryOverhead, nullptr) {}

Page::Page(std::uint32_t pageId, const IAOrderedStorable* pagePrototype,
           std::shared_ptr<const PageImage> stored)
    : Page(pageId, pagePrototype, BTEntryOverhead, std::move(stored)) {}

Leaf::Leaf(std::uint32_t pageId, const IAOrderedStorable* pagePrototype,
           std::shared_ptr<const PageImage> stored)
    : Page(pageId, pagePrototype, 0, std::move(stored)) {}

Page::Page(std::uint32_t pageId, const IAOrderedStorable* pagePrototype, std::uint32_t entryOverhead,
           std::shared_ptr<const PageImage> stored)
    : id(pageId),
      overhead(entryOverhead),
      prototype(pagePrototype),
      image(std::move(stored)),
      dirty(image == nullptr) {
    if (image != nullptr) return;
    auto empty = std::make_shared<PageImage>();
    empty->bytes.resize(BTPageOverhead);
    empty->objectType = &typeid(*prototype);
    owned = empty.get();
    image = std::move(empty);
}

Page::~Page() = default;

// ---- The two kinds -----------------------------------------------------------------------------------------

bool Page::IsLeaf() const {
    return false;
}

std::uint32_t Page::EntryStoreSize(const PageEntry& entry) const {
    return entry.objectStoreSize + BTEntryOverhead;
}

void Page::EntryStore(const PageEntry& entry, IAOutputBlock* output) const {
    output->WriteUInt32(entry.childId);
    entry.object->Store(output);
}

PageEntry Page::EntryRestore(const IAOrderedStorable* from, IAInputBlock* input) const {
    PageEntry entry;
    entry.childId = input->ReadUInt32();
    // A child of 0 would make a place with no way down in the middle of the tree.
    IAAssertion(entry.childId != 0, "btree page without a child", StorageInvalid);
    const std::uint32_t start = input->GetPosition();
    entry.object = IARestoreFrom(*from, input);
    entry.objectStoreSize = input->GetPosition() - start;
    return entry;
}

bool Leaf::IsLeaf() const {
    return true;
}

std::uint32_t Leaf::EntryStoreSize(const PageEntry& entry) const {
    return entry.objectStoreSize;
}

void Leaf::EntryStore(const PageEntry& entry, IAOutputBlock* output) const {
    entry.object->Store(output);
}

PageEntry Leaf::EntryRestore(const IAOrderedStorable* from, IAInputBlock* input) const {
    PageEntry entry;
    const std::uint32_t start = input->GetPosition();
    entry.object = IARestoreFrom(*from, input);
    entry.objectStoreSize = input->GetPosition() - start;
    return entry;
}

// ---- Objects -----------------------------------------------------------------------------------------------

std::unique_ptr<IAOrderedStorable> Page::CopyObject(Finger at) const {
    const std::uint32_t size = ObjectStoreSize(at);
    MemoryStream memory(std::span<const std::uint8_t>(image->bytes.data() + image->objectOffsets[at], size),
                        size);
    IAInputBlock input(&memory);
    return IARestoreFrom(*prototype, &input);
}

const IAOrderedStorable& Page::Object(Finger at) {
    if (objects.empty()) objects.resize(Count());
    if (objects[at] == nullptr) objects[at] = CopyObject(at);
    return *objects[at];
}

Page::Found Page::FingerEntry(const IAOrderedStorable* key) {
    const bool keep = searched;  // a page that is visited once more will be so again
    searched = true;
    Found found{Count(), nullptr, nullptr};
    for (std::size_t low = 0; low < found.at;) {
        const std::size_t middle = low + (found.at - low) / 2;
        std::unique_ptr<IAOrderedStorable> own = keep ? nullptr : CopyObject(middle);
        const IAOrderedStorable& object = keep ? Object(middle) : *own;
        if (object.LessThan(key))
            low = middle + 1;
        else
            found = {middle, &object, std::move(own)};
    }
    return found;
}

// ---- Changes -----------------------------------------------------------------------------------------------

/// A page that is about to change leaves the store, where it is of no more use, and seldom has to be copied
/// then.
bool Page::TakeImageOver() {
    if (images == nullptr) return false;
    images->Forget(id);
    // Another tree of this storage, in another thread, may have had the image.  Its use of it comes before
    // this. ThreadSanitizer does not know fences, so there an image that was shared is copied all the same.
#ifdef __SANITIZE_THREAD__
    return false;
#else
    if (image.use_count() != 1) return false;
    std::atomic_thread_fence(std::memory_order_acquire);
    owned = const_cast<PageImage*>(image.get());  // made by this class, and never as a constant
    return true;
#endif
}

PageImage& Page::OwnImage(std::size_t room) {
    if (owned == nullptr && !TakeImageOver()) {
        auto copy = std::make_shared<PageImage>();
        copy->bytes.reserve(image->bytes.size() + room);
        copy->bytes = image->bytes;
        copy->objectOffsets.reserve(image->objectOffsets.size() + 1);
        copy->objectOffsets = image->objectOffsets;
        copy->largestObject = image->largestObject;
        copy->objectType = image->objectType;
        owned = copy.get();
        image = std::move(copy);
    }
    dirty = true;
    return *owned;
}

void Page::AddSizes(std::vector<std::size_t>& sums) const {
    if (Count() == 0) return;
    const std::size_t before = sums.back() - BTPageOverhead;
    for (Finger at = 1; at < Count(); ++at) sums.push_back(before + image->objectOffsets[at] - overhead);
    sums.push_back(before + image->bytes.size());
}

void Page::CountChanged() {
    owned->SetWordAt(4, static_cast<std::uint32_t>(Count()));
}

void Page::SetRightChildId(std::uint32_t child) {
    OwnImage().SetWordAt(0, child);
}

/// Makes room for an entry of that size, whose bytes are still to be written.
void Page::InsertGap(Finger at, std::size_t size) {
    PageImage& own = OwnImage(size);
    const std::size_t start = EntryStart(at);
    if (own.bytes.capacity() < own.bytes.size() + size) {
        own.bytes.reserve(own.bytes.size() + own.bytes.size() / 8 + size);
    }
    own.bytes.insert(own.bytes.begin() + Offset(start), size, 0);
    own.objectOffsets.insert(own.objectOffsets.begin() + Offset(at),
                             static_cast<std::uint32_t>(start + overhead));
    for (std::size_t i = at + 1; i < Count(); ++i) own.objectOffsets[i] += static_cast<std::uint32_t>(size);
    if (!objects.empty()) objects.insert(objects.begin() + Offset(at), nullptr);
    CountChanged();
}

void Page::EraseRange(Finger begin, Finger end) {
    PageImage& own = OwnImage();
    const std::size_t first = EntryStart(begin);
    const std::size_t last = EntryStart(end);
    own.bytes.erase(own.bytes.begin() + Offset(first), own.bytes.begin() + Offset(last));
    own.objectOffsets.erase(own.objectOffsets.begin() + Offset(begin), own.objectOffsets.begin() + Offset(end));
    for (std::size_t i = begin; i < Count(); ++i)
        own.objectOffsets[i] -= static_cast<std::uint32_t>(last - first);
    if (!objects.empty()) objects.erase(objects.begin() + Offset(begin), objects.begin() + Offset(end));
    CountChanged();
}

/// Copies entries of another page of the same kind.
void Page::InsertRange(Finger at, const Page& source, Finger begin, Finger end) {
    const std::size_t first = source.EntryStart(begin);
    const std::size_t size = source.EntryStart(end) - first;
    PageImage& own = OwnImage(size);
    const std::size_t start = EntryStart(at);
    const auto from = source.image->bytes.begin();
    own.bytes.insert(own.bytes.begin() + Offset(start), from + Offset(first), from + Offset(first + size));
    const auto offsets = source.image->objectOffsets.begin();
    own.objectOffsets.insert(own.objectOffsets.begin() + Offset(at), offsets + Offset(begin),
                             offsets + Offset(end));
    const Finger behind = at + (end - begin);
    for (Finger i = at; i < behind; ++i)
        own.objectOffsets[i] = static_cast<std::uint32_t>(own.objectOffsets[i] - first + start);
    for (Finger i = behind; i < Count(); ++i) own.objectOffsets[i] += static_cast<std::uint32_t>(size);
    own.largestObject = std::max(own.largestObject, source.image->largestObject);
    objects.clear();
    CountChanged();
}

void Page::InsertEntry(PageEntry entry) {
    Finger finger = FingerEntry(entry.object.get()).at;
    InsertEntryAtFinger(std::move(entry), finger);
}

void Page::InsertEntryAtFinger(PageEntry entry, Finger& finger) {
    const std::uint32_t size = EntryStoreSize(entry);
    InsertGap(finger, size);
    try {
        MemoryStream memory(std::span(owned->bytes).subspan(EntryStart(finger), size));
        IAOutputBlock output(&memory);
        EntryStore(entry, &output);
        // An object whose Store() and StoreSize() disagree would make a page that cannot be read.
        IAAssertion(output.GetPosition() == size, "page entry stored at another size", IAAssertionFailure);
    } catch (...) {
        EraseRange(finger, finger + 1);
        throw;
    }
    owned->largestObject = std::max(owned->largestObject, entry.objectStoreSize);
    if (!objects.empty()) objects[finger] = std::move(entry.object);
    ++finger;
}

PageEntry Page::RemoveEntryAtFinger(Finger finger) {
    IAAssertion(finger < Count(), "entry at finger is null", IAAssertionFailure);
    PageEntry removed(IsLeaf() ? 0 : ChildId(finger), CopyObject(finger));
    EraseRange(finger, finger + 1);
    return removed;
}

void Page::ReplaceObj(Finger at, std::unique_ptr<IAOrderedStorable> object) {
    PageEntry replacement(IsLeaf() ? 0 : ChildId(at), std::move(object));
    Finger front = at;
    InsertEntryAtFinger(std::move(replacement), front);
    EraseRange(front, front + 1);
}

void Page::PushEntry(PageEntry entry) {
    Finger front = 0;
    InsertEntryAtFinger(std::move(entry), front);
}

void Page::ShiftContentsRight(Page& destination, Finger separator, Page& parent, Finger pivot) {
    destination.PushEntry(PageEntry(RightChildId(), parent.CopyObject(separator)));
    destination.InsertRange(0, *this, pivot + 1, Count());
    EraseRange(pivot + 1, Count());
    PageEntry middle = RemoveEntryAtFinger(pivot);
    SetRightChildId(middle.childId);
    parent.ReplaceObj(separator, std::move(middle.object));
}

void Page::ShiftContentsLeft(Page& destination, Finger separator, Page& parent, Finger pivot) {
    Finger end = destination.Count();
    destination.InsertEntryAtFinger(PageEntry(destination.RightChildId(), parent.CopyObject(separator)), end);
    destination.InsertRange(end, *this, 0, pivot);
    EraseRange(0, pivot);
    PageEntry middle = PopEntry();
    destination.SetRightChildId(middle.childId);
    parent.ReplaceObj(separator, std::move(middle.object));
}

// ---- Blocks ------------------------------------------------------------------------------------------------

void Page::ReadEntries(IAInputBlock* input, std::span<const std::uint8_t> stored) {
    const std::uint32_t count = input->ReadUInt32();
    // Entries take a byte at the least, but for one object that is stored as nothing.
    const std::uint32_t least = IsLeaf() ? 1 : BTEntryOverhead;
    IAAssertion(count <= input->Remaining() / least + 1, "btree page entry count out of range", StorageInvalid);
    PageImage& own = OwnImage();
    own.objectOffsets.reserve(count);
    std::unique_ptr<IAOrderedStorable> before;
    for (std::uint32_t i = 0; i < count; ++i) {
        PageEntry entry = EntryRestore(prototype, input);
        // Searches and iterators rest on the order, and a walk over ascending entries comes to an end.
        IAAssertion(i == 0 || before->LessThan(entry.object.get()), "btree page entries out of order",
                    StorageInvalid);
        own.objectOffsets.push_back(input->GetPosition() - entry.objectStoreSize);
        own.largestObject = std::max(own.largestObject, entry.objectStoreSize);
        before = std::move(entry.object);
    }
    own.bytes.assign(stored.begin(), stored.begin() + input->GetPosition());
    dirty = false;
}

void Page::Write(IAStorage* storage, IAStoreStream* stream) {
    const auto size = static_cast<std::uint32_t>(StoreSize());
    {
        IAOutputBlock output(storage, id, size, stream);
        output.WriteBuffer(image->bytes.data(), size);
    }
    dirty = false;
    PageImageStore* const store = storage->PageImages();
    if (store == nullptr) return;
    if (owned != nullptr && owned->bytes.capacity() > size + size / 4) owned->bytes.shrink_to_fit();
    ShareImage(store);
    store->EnterWritten(id, image);
}

}  // namespace brindle
