#include "toolkit/storage/PageImageStore.h"

#include <utility>

namespace brindle {

PageImageStore::Image PageImageStore::Find(std::uint32_t id) {
    const std::lock_guard lock(mutex);
    Slot* const slot = SlotOf(id);
    if (slot == nullptr) return nullptr;
    slot->used = true;
    return slot->image;
}

void PageImageStore::Forget(std::uint32_t id) {
    const std::lock_guard lock(mutex);
    ++changes;
    if (Slot* const slot = SlotOf(id)) SetImage(*slot, nullptr);
}

std::uint64_t PageImageStore::Changes() const {
    const std::lock_guard lock(mutex);
    return changes;
}

void PageImageStore::EnterRead(std::uint32_t id, Image image, std::uint64_t changesBefore) {
    const std::lock_guard lock(mutex);
    if (changes == changesBefore) Enter(id, std::move(image));
}

void PageImageStore::EnterWritten(std::uint32_t id, Image image) {
    const std::lock_guard lock(mutex);
    ++changes;  // a read that began before the bytes were there must not replace this
    Enter(id, std::move(image));
}

std::size_t PageImageStore::MemorySize() const {
    const std::lock_guard lock(mutex);
    return memory;
}

PageImageStore::Slot* PageImageStore::SlotOf(std::uint32_t id) {
    const std::uint32_t place = id < places.size() ? places[id] : 0;
    return place != 0 ? &slots[place - 1] : nullptr;
}

PageImageStore::Slot& PageImageStore::NewSlot(std::uint32_t id) {
    if (freeSlots.empty()) {
        slots.emplace_back();
        freeSlots.push_back(static_cast<std::uint32_t>(slots.size() - 1));
    }
    const std::uint32_t place = freeSlots.back();
    if (id >= places.size()) places.resize(std::size_t{id} + 1);
    freeSlots.pop_back();
    places[id] = place + 1;
    slots[place].id = id;
    return slots[place];
}

void PageImageStore::Enter(std::uint32_t id, Image image) {
    Slot* const known = SlotOf(id);
    Slot& slot = known != nullptr ? *known : NewSlot(id);
    SetImage(slot, std::move(image));
    slot.used = true;
    MakeRoom();
}

void PageImageStore::SetImage(Slot& slot, Image image) {
    memory -= slot.cost;
    slot.image = std::move(image);
    slot.cost = sizeof(Slot) + (slot.image != nullptr ? slot.image->MemorySize() : 0);
    memory += slot.cost;
}

void PageImageStore::MakeRoom() {
    for (; memory > limit; hand = (hand + 1) % slots.size()) {
        Slot& slot = slots[hand];
        if (slot.id == 0 || std::exchange(slot.used, false)) continue;
        memory -= slot.cost;
        places[slot.id] = 0;
        slot = Slot{};
        freeSlots.push_back(static_cast<std::uint32_t>(hand));
    }
}

}  // namespace brindle
