#include "toolkit/storage/PageMemory.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "toolkit/storage/BuddyFormat.h"
#include "toolkit/storage/BuddyStorage.h"

namespace brindle {

namespace {

constexpr std::size_t kLongestRun = std::size_t{1} << 20;  // bytes written at once

/// What writing a page's block takes on the device: whole buffers, like any block.
std::size_t WrittenSize(const PageImage& image) {
    const std::size_t block = std::size_t{1} << SizeLogSize(static_cast<std::uint32_t>(image.StoreSize()));
    const std::size_t buffer = std::min<std::size_t>(block, IADiskBlockSize);
    return (image.StoreSize() + buffer - 1) / buffer * buffer;
}

}  // namespace

PageMemory* PageMemory::Of(IAStorage& storage) {
    auto* const buddy = dynamic_cast<BuddyStorage*>(&storage);
    return buddy != nullptr ? buddy->Pages() : nullptr;
}

PageMemory::Slot* PageMemory::SlotOf(std::uint32_t id) {
    return id < slots.size() && slots[id].image ? &slots[id] : nullptr;
}

const PageMemory::Slot* PageMemory::SlotOf(std::uint32_t id) const {
    return id < slots.size() && slots[id].image ? &slots[id] : nullptr;
}

SharedPageImage PageMemory::Find(std::uint32_t id) {
    const std::lock_guard lock(mutex);
    Slot* const slot = SlotOf(id);
    if (slot == nullptr) return {};
    slot->image->PrefetchBeginning();
    if (!slot->used) slot->used = true;
    return slot->image;
}

void PageMemory::Release(std::uint32_t id) {
    const std::lock_guard lock(mutex);
    Slot* const slot = SlotOf(id);
    if (slot != nullptr && slot->address == 0) Drop(*slot);
}

std::uint64_t PageMemory::Changes() const {
    const std::lock_guard lock(mutex);
    return changes;
}

void PageMemory::EnterRead(std::uint32_t id, SharedPageImage image, std::uint64_t changesBefore) {
    const std::lock_guard lock(mutex);
    if (changes != changesBefore) return;
    Enter(id, std::move(image));
    MakeRoom();
}

bool PageMemory::EnterUnwritten(std::uint32_t id, SharedPageImage image, std::uint32_t address) {
    const std::lock_guard lock(mutex);
    ++changes;  // a read that began before must not replace this
    if (const Slot* const known = SlotOf(id); known == nullptr || known->address == 0) waiting.push_back(id);
    Slot& slot = Enter(id, std::move(image));
    slot.address = address;
    unwrittenMemory += slot.cost;
    MakeRoom();
    return unwrittenMemory > limit / 4 * 3;
}

void PageMemory::Forget(std::uint32_t id) {
    const std::lock_guard lock(mutex);
    ++changes;
    if (Slot* const slot = SlotOf(id)) Drop(*slot);
}

bool PageMemory::IsUnwritten(std::uint32_t id) const {
    const std::lock_guard lock(mutex);
    const Slot* const slot = SlotOf(id);
    return slot != nullptr && slot->address != 0;
}

std::uint64_t PageMemory::UnwrittenEnd() const {
    const std::lock_guard lock(mutex);
    std::uint64_t end = 0;
    for (const std::uint32_t id : waiting)
        if (const Slot* const slot = SlotOf(id); slot != nullptr && slot->address != 0)
            end = std::max(end, slot->address + std::uint64_t{WrittenSize(*slot->image)});
    return end;
}

std::size_t PageMemory::MemorySize() const {
    const std::lock_guard lock(mutex);
    return memory;
}

PageMemory::Slot& PageMemory::Enter(std::uint32_t id, SharedPageImage image) {
    if (id >= slots.size()) slots.resize(std::max(std::size_t{id} + 1, slots.size() + slots.size() / 2));
    Slot& slot = slots[id];
    if (slot.image) Drop(slot);
    slot.cost = static_cast<std::uint32_t>(image->MemorySize());
    slot.image = std::move(image);
    slot.used = true;
    memory += slot.cost;
    return slot;
}

void PageMemory::Drop(Slot& slot) {
    SetWritten(slot);
    memory -= slot.cost;
    slot.image = {};
}

void PageMemory::SetWritten(Slot& slot) {
    if (slot.address == 0) return;
    slot.address = 0;
    unwrittenMemory -= slot.cost;
}

/// The CLOCK algorithm: the hand drops what was not used since it last came by.
void PageMemory::MakeRoom() {
    for (; memory > limit && memory > unwrittenMemory; hand = hand + 1 < slots.size() ? hand + 1 : 0) {
        Slot& slot = slots[hand];
        if (!slot.image || slot.address != 0 || std::exchange(slot.used, false)) continue;
        Drop(slot);
    }
}

PageMemory::UnwrittenList PageMemory::TakeUnwritten() {
    UnwrittenList list;
    const std::lock_guard lock(mutex);
    list.reserve(waiting.size());
    std::ranges::sort(waiting);
    waiting.erase(std::unique(waiting.begin(), waiting.end()), waiting.end());
    for (const std::uint32_t id : waiting)
        if (const Slot* const slot = SlotOf(id); slot != nullptr && slot->address != 0)
            list.push_back({slot->address, id, slot->image});
    std::ranges::sort(list, {}, &Unwritten::address);
    return list;
}

void PageMemory::WriteBack(IAStoreStream& stream) {
    const UnwrittenList list = TakeUnwritten();
    for (std::size_t begin = 0; begin < list.size();) {
        std::size_t end = begin;
        std::uint64_t at = list[begin].address;
        while (end < list.size() && list[end].address == at && at - list[begin].address < kLongestRun)
            at += WrittenSize(*list[end++].image);
        WriteRun(stream, list, begin, end);
        begin = end;
    }
    const std::lock_guard lock(mutex);
    waiting.clear();
    MakeRoom();
}

void PageMemory::WriteBack(IAStoreStream& stream, std::uint32_t id) {
    UnwrittenList list;
    {
        const std::lock_guard lock(mutex);
        const Slot* const slot = SlotOf(id);
        if (slot == nullptr || slot->address == 0) return;
        list.push_back({slot->address, id, slot->image});
    }
    WriteRun(stream, list, 0, 1);
}

/// Writes blocks that lie side by side.  What they do not fill is zero.
void PageMemory::WriteRun(IAStoreStream& stream, const UnwrittenList& list, std::size_t begin,
                          std::size_t end) {
    const std::size_t size = list[end - 1].address - list[begin].address + WrittenSize(*list[end - 1].image);
    IAVector<std::uint8_t> run(size);
    for (std::size_t i = begin; i < end; ++i) {
        const std::span<const std::uint8_t> bytes = list[i].image->Bytes();
        std::memcpy(run.data() + (list[i].address - list[begin].address), bytes.data(), bytes.size());
    }
    stream.Write(list[begin].address, run.data(), static_cast<std::uint32_t>(size));
    const std::lock_guard lock(mutex);
    for (std::size_t i = begin; i < end; ++i)
        if (Slot* const slot = SlotOf(list[i].id); slot != nullptr && slot->address == list[i].address)
            SetWritten(*slot);
}

}  // namespace brindle
