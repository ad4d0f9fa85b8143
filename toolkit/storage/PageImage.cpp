#include "toolkit/storage/PageImage.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "lorvale/toolkit/storage/exception.h"

namespace brindle {

PageImage::PageImage(bool isLeaf, const std::type_info& typeOfObjects, Room imageRoom)
    : overhead(isLeaf ? 0 : BTEntryOverhead),
      room(imageRoom),
      objectType(&typeOfObjects),
      offsets(reinterpret_cast<std::uint32_t*>(this + 1)),
      bytes(reinterpret_cast<std::uint8_t*>(offsets + room.entries)) {}

PageImage::~PageImage() = default;

std::unique_ptr<PageImage> PageImage::Make(bool isLeaf, const std::type_info& typeOfObjects, Room room) {
    room.bytes += kEntriesAt;
    std::unique_ptr<PageImage> made(new (room) PageImage(isLeaf, typeOfObjects, room));
    made->size = kEntriesAt;
    made->SetWordAt(kRightChildAt, 0);
    made->SetWordAt(kCountAt, 0);
    return made;
}

std::unique_ptr<PageImage> PageImage::Copy(Room more) const {
    const Room wanted = Room{size, count} + more;
    const Room given = {wanted.bytes + wanted.bytes / 16, wanted.entries + wanted.entries / 16};
    std::unique_ptr<PageImage> copy(new (given) PageImage(IsLeaf(), *objectType, given));
    copy->largestObject = largestObject;
    copy->count = count;
    copy->size = size;
    std::memcpy(copy->offsets, offsets, count * sizeof *offsets);
    std::memcpy(copy->bytes, bytes, size);
    return copy;
}

/// Gives the bytes from `at` on another length.
void PageImage::ReplaceBytes(std::size_t at, std::size_t oldSize, std::size_t newSize) {
    const std::size_t behind = size - (at + oldSize);
    std::memmove(bytes + at + newSize, bytes + at + oldSize, behind);
    size = at + newSize + behind;
}

/// Gives the offsets from `at` on another number.
void PageImage::ReplaceOffsets(std::size_t at, std::size_t oldCount, std::size_t newCount) {
    const std::size_t behind = count - (at + oldCount);
    std::memmove(offsets + at + newCount, offsets + at + oldCount, behind * sizeof *offsets);
    count = static_cast<std::uint32_t>(at + newCount + behind);
    SetWordAt(kCountAt, count);
}

void PageImage::ShiftOffsets(std::size_t from, std::size_t by) {
    for (std::size_t i = from; i < count; ++i) offsets[i] += static_cast<std::uint32_t>(by);
}

std::span<std::uint8_t> PageImage::InsertEntry(std::size_t at, std::uint32_t child, std::size_t objectSize) {
    const std::size_t start = EntryStart(at);
    ReplaceBytes(start, 0, overhead + objectSize);
    ReplaceOffsets(at, 0, 1);
    offsets[at] = static_cast<std::uint32_t>(start + overhead);
    ShiftOffsets(at + 1, overhead + objectSize);
    if (!IsLeaf()) SetWordAt(start, child);
    largestObject = std::max(largestObject, static_cast<std::uint32_t>(objectSize));
    return {bytes + start + overhead, objectSize};
}

std::span<std::uint8_t> PageImage::ReplaceObject(std::size_t at, std::size_t objectSize) {
    const std::size_t oldSize = Object(at).size();
    if (objectSize != oldSize) {
        ReplaceBytes(offsets[at], oldSize, objectSize);
        ShiftOffsets(at + 1, objectSize - oldSize);  // modulo 2^32 when it shrinks
        largestObject = std::max(largestObject, static_cast<std::uint32_t>(objectSize));
    }
    return {bytes + offsets[at], objectSize};
}

void PageImage::EraseEntries(std::size_t begin, std::size_t end) {
    const std::size_t first = EntryStart(begin);
    const std::size_t erased = EntryStart(end) - first;
    ReplaceBytes(first, erased, 0);
    ReplaceOffsets(begin, end - begin, 0);
    ShiftOffsets(begin, std::size_t{0} - erased);
}

void PageImage::InsertEntries(std::size_t at, const PageImage& source, std::size_t begin, std::size_t end) {
    const std::size_t first = source.EntryStart(begin);
    const std::size_t added = source.EntryStart(end) - first;
    const std::size_t start = EntryStart(at);
    ReplaceBytes(start, 0, added);
    std::memcpy(bytes + start, source.bytes + first, added);
    ReplaceOffsets(at, 0, end - begin);
    for (std::size_t i = begin; i < end; ++i)
        offsets[at + i - begin] = static_cast<std::uint32_t>(source.offsets[i] - first + start);
    ShiftOffsets(at + end - begin, added);
    largestObject = std::max(largestObject, source.largestObject);
}

std::unique_ptr<PageImage> PageImage::Restore(std::span<const std::uint8_t> stored,
                                              const IAOrderedStorable& prototype) {
    IAAssertion(stored.size() >= kEntriesAt, "passed EOF", StorePastEOF);
    const std::uint32_t count = Word(stored.data() + kCountAt);
    const bool isLeaf = Word(stored.data() + kRightChildAt) == 0;
    const std::size_t overhead = isLeaf ? 0 : BTEntryOverhead;
    // Entries take a byte at the least, but for one object that is stored as nothing.
    IAAssertion(count <= (stored.size() - kEntriesAt) / std::max<std::size_t>(overhead, 1) + 1,
                "btree page entry count out of range", StorageInvalid);
    // Nearly all pages have so few entries that their places find room without asking for memory.
    std::array<std::uint32_t, 512> few;
    IAVector<std::uint32_t> many(count <= few.size() ? 0 : count);
    const auto found = many.empty() ? std::span(few).first(count) : std::span(many);
    std::size_t end = kEntriesAt;
    std::uint32_t largest = 0;
    for (std::uint32_t& offset : found) {
        IAAssertion(stored.size() - end >= overhead, "buffer position passed blockEnd", StorePastBlockEnd);
        // A child of 0 would make a place with no way down in the middle of the tree.
        IAAssertion(isLeaf || Word(stored.data() + end) != 0, "btree page without a child", StorageInvalid);
        offset = static_cast<std::uint32_t>(end + overhead);
        const std::uint32_t objectSize = prototype.StoredSize(stored.subspan(offset));
        IAAssertion(objectSize <= stored.size() - offset, "buffer position passed blockEnd", StorePastBlockEnd);
        largest = std::max(largest, objectSize);
        end = offset + objectSize;
    }
    auto image = Make(isLeaf, typeid(prototype), {end - kEntriesAt, count});
    image->largestObject = largest;
    image->count = count;
    image->size = end;
    std::memcpy(image->bytes, stored.data(), end);
    std::ranges::copy(found, image->offsets);
    return image;
}

}  // namespace brindle
