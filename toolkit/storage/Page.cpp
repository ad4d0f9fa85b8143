#include "toolkit/storage/Page.h"

#include <algorithm>
#include <iterator>
#include <span>

#include "lorvale/toolkit/storage/exception.h"
#include "lorvale/toolkit/storage/storage.h"
#include "toolkit/storage/MemoryBlock.h"
#include "toolkit/storage/PageImageStore.h"

namespace brindle {

Page::Page(std::uint32_t pageId, const IAOrderedStorable* pagePrototype) : id(pageId), prototype(pagePrototype) {}

Page::~Page() = default;

bool Page::IsLeaf() const {
    return false;
}

std::uint32_t Page::EntryStoreSize(const PageEntry& entry) const {
    return entry.objectStoreSize + BTEntryOverhead;
}

void Page::EntryStore(const PageEntry& entry, IAOutputBlock* output) const {
    output->WriteUInt32(entry.childId);
    if (entry.stored != nullptr)
        output->WriteBuffer(entry.stored, entry.objectStoreSize);
    else
        entry.object->Store(output);
}

void Page::EntryRestore(PageEntry& entry, const IAOrderedStorable* from, IAInputBlock* input) const {
    entry.childId = input->ReadUInt32();
    // A child of 0 would make a place with no way down in the middle of the tree.
    IAAssertion(entry.childId != 0, "btree page without a child", StorageInvalid);
    const std::uint32_t start = input->GetPosition();
    entry.object = IARestoreFrom(*from, input);
    entry.objectStoreSize = input->GetPosition() - start;
}

bool Leaf::IsLeaf() const {
    return true;
}

std::uint32_t Leaf::EntryStoreSize(const PageEntry& entry) const {
    return entry.objectStoreSize;
}

void Leaf::EntryStore(const PageEntry& entry, IAOutputBlock* output) const {
    if (entry.stored != nullptr)
        output->WriteBuffer(entry.stored, entry.objectStoreSize);
    else
        entry.object->Store(output);
}

void Leaf::EntryRestore(PageEntry& entry, const IAOrderedStorable* from, IAInputBlock* input) const {
    const std::uint32_t start = input->GetPosition();
    entry.object = IARestoreFrom(*from, input);
    entry.objectStoreSize = input->GetPosition() - start;
}

void Page::ReadEntries(IAInputBlock* input, const IAOrderedStorable* from) {
    const std::uint32_t count = input->ReadUInt32();
    // Entries take a byte at the least, but for one object that is stored as nothing.
    const std::uint32_t least = IsLeaf() ? 1 : BTEntryOverhead;
    IAAssertion(count <= input->Remaining() / least + 1, "btree page entry count out of range", StorageInvalid);
    entries.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        PageEntry entry;
        EntryRestore(entry, from, input);
        // Searches and iterators rest on the order, and a walk over ascending entries comes to an end.
        IAAssertion(i == 0 || entries.back().object->LessThan(entry.object.get()),
                    "btree page entries out of order", StorageInvalid);
        storeSize += EntryStoreSize(entry);
        entries.push_back(std::move(entry));
    }
    dirty = false;
}

PageEntry* Page::PreviousNode(const PageEntry* entry) {
    const std::size_t index = entry == nullptr ? entries.size() : IndexOf(entry);
    return index > 0 ? &entries[index - 1] : nullptr;
}

std::unique_ptr<IAOrderedStorable> Page::RestoreObject(const PageEntry& entry) const {
    MemoryStream memory(std::span(entry.stored, entry.objectStoreSize), entry.objectStoreSize);
    IAInputBlock input(&memory);
    return IARestoreFrom(*prototype, &input);
}

const IAOrderedStorable& Page::Object(PageEntry& entry) {
    if (entry.object == nullptr) entry.object = RestoreObject(entry);
    return *entry.object;
}

std::unique_ptr<IAOrderedStorable> Page::CopyObject(PageEntry& entry) {
    if (entry.stored == nullptr) return IADeepCopyOf(*entry.object);
    return entry.object != nullptr ? std::move(entry.object) : RestoreObject(entry);
}

PageEntry* Page::FingerEntry(const IAOrderedStorable* key, Finger& finger) {
    std::size_t low = 0;
    std::size_t high = entries.size();
    while (low < high) {
        const std::size_t middle = low + (high - low) / 2;
        if (Object(entries[middle]).LessThan(key))
            low = middle + 1;
        else
            high = middle;
    }
    finger = low;
    return At(low);
}

void Page::InsertEntry(PageEntry entry) {
    Finger finger;
    FingerEntry(entry.object.get(), finger);
    InsertEntryAtFinger(std::move(entry), finger);
}

void Page::InsertEntryAtFinger(PageEntry entry, Finger& finger) {
    storeSize += EntryStoreSize(entry);
    dirty = true;
    entries.insert(entries.begin() + static_cast<std::ptrdiff_t>(finger), std::move(entry));
    ++finger;
}

PageEntry Page::RemoveEntry(PageEntry* entry) {
    return RemoveEntryAtFinger(IndexOf(entry));
}

PageEntry Page::RemoveEntryAtFinger(Finger finger) {
    IAAssertion(finger < entries.size(), "entry at finger is null", IAAssertionFailure);
    Object(entries[finger]);
    PageEntry removed = std::move(entries[finger]);
    removed.stored = nullptr;
    storeSize -= EntryStoreSize(removed);
    dirty = true;
    entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(finger));
    return removed;
}

void Page::ReplaceObj(PageEntry* entry, std::unique_ptr<IAOrderedStorable> object) {
    storeSize -= entry->objectStoreSize;
    entry->objectStoreSize = object->StoreSize();
    storeSize += entry->objectStoreSize;
    entry->object = std::move(object);
    entry->stored = nullptr;
    dirty = true;
}

void Page::PushEntry(PageEntry entry) {
    Finger front = 0;
    InsertEntryAtFinger(std::move(entry), front);
}

PageEntry Page::PopEntry() {
    return RemoveEntryAtFinger(0);
}

std::vector<PageEntry> Page::TakeRange(std::size_t begin, std::size_t end) {
    const auto first = entries.begin() + static_cast<std::ptrdiff_t>(begin);
    const auto last = entries.begin() + static_cast<std::ptrdiff_t>(end);
    for (auto entry = first; entry != last; ++entry) {
        Object(*entry);
        storeSize -= EntryStoreSize(*entry);
    }
    std::vector<PageEntry> range(std::make_move_iterator(first), std::make_move_iterator(last));
    for (PageEntry& entry : range) entry.stored = nullptr;  // the image stays behind
    entries.erase(first, last);
    dirty = true;
    return range;
}

void Page::InsertRange(std::size_t at, std::vector<PageEntry> range) {
    for (const PageEntry& entry : range) storeSize += EntryStoreSize(entry);
    entries.insert(entries.begin() + static_cast<std::ptrdiff_t>(at), std::make_move_iterator(range.begin()),
                   std::make_move_iterator(range.end()));
    dirty = true;
}

void Page::ShiftContentsRight(Page& destination, PageEntry* separator, Page& parent, std::size_t pivot) {
    std::vector<PageEntry> moved = TakeRange(pivot + 1, Count());
    PageEntry middle = RemoveEntryAtFinger(pivot);
    moved.emplace_back(rightChildId, parent.CopyObject(*separator));
    destination.InsertRange(0, std::move(moved));
    SetRightChildId(middle.childId);
    parent.ReplaceObj(separator, std::move(middle.object));
}

void Page::ShiftContentsLeft(Page& destination, PageEntry* separator, Page& parent, std::size_t pivot) {
    std::vector<PageEntry> moved = TakeRange(0, pivot);
    PageEntry middle = PopEntry();
    moved.emplace(moved.begin(), destination.rightChildId, parent.CopyObject(*separator));
    destination.InsertRange(destination.Count(), std::move(moved));
    destination.SetRightChildId(middle.childId);
    parent.ReplaceObj(separator, std::move(middle.object));
}

std::shared_ptr<PageImage> Page::Encode() const {
    const auto made = std::make_shared<PageImage>();
    made->bytes.resize(storeSize);
    made->objectOffsets.reserve(entries.size());
    made->objectType = &typeid(*prototype);
    MemoryStream memory{std::span(made->bytes)};
    IAOutputBlock output(&memory);
    output.WriteUInt32(rightChildId);
    output.WriteUInt32(static_cast<std::uint32_t>(entries.size()));
    for (const PageEntry& entry : entries) {
        const std::uint32_t end = output.GetPosition() + EntryStoreSize(entry);
        EntryStore(entry, &output);
        // An object whose Store() and StoreSize() disagree would make a page that cannot be read.
        IAAssertion(output.GetPosition() == end, "page entry stored at another size", IAAssertionFailure);
        made->objectOffsets.push_back(end - entry.objectStoreSize);
        made->largestObject = std::max(made->largestObject, entry.objectStoreSize);
    }
    return made;
}

void Page::Write(IAStorage* storage, IAStoreStream* stream) {
    const std::shared_ptr<PageImage> made = Encode();
    {
        IAOutputBlock output(storage, id, static_cast<std::uint32_t>(storeSize), stream);
        output.WriteBuffer(made->bytes.data(), static_cast<std::uint32_t>(storeSize));
    }
    for (std::size_t i = 0; i < entries.size(); ++i)
        entries[i].stored = made->bytes.data() + made->objectOffsets[i];
    image = made;
    dirty = false;
    if (PageImageStore* const images = storage->PageImages()) images->EnterWritten(id, made);
}

}  // namespace brindle
