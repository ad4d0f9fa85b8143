#include "toolkit/storage/PageImageStore.h"

#include <utility>

namespace brindle {

namespace {

// What the list node and the table entry of one image cost beside the image, roughly.
constexpr std::size_t kSlotOverhead = 128;

}  // namespace

PageImageStore::Image PageImageStore::Find(std::uint32_t id) {
    const std::lock_guard lock(mutex);
    const auto found = byId.find(id);
    if (found == byId.end()) return nullptr;
    slots.splice(slots.begin(), slots, found->second);
    return found->second->image;
}

void PageImageStore::Forget(std::uint32_t id) {
    const std::lock_guard lock(mutex);
    ++changes;
    Drop(id);
}

void PageImageStore::Clear() {
    const std::lock_guard lock(mutex);
    ++changes;
    byId.clear();
    slots.clear();
    memory = 0;
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

void PageImageStore::Enter(std::uint32_t id, Image image) {
    Drop(id);
    const std::size_t cost = image->MemorySize() + kSlotOverhead;
    if (cost > limit) return;
    slots.push_front({id, std::move(image), cost});
    byId[id] = slots.begin();
    memory += cost;
    while (memory > limit) Drop(slots.back().id);
}

void PageImageStore::Drop(std::uint32_t id) {
    const auto found = byId.find(id);
    if (found == byId.end()) return;
    memory -= found->second->cost;
    slots.erase(found->second);
    byId.erase(found);
}

}  // namespace brindle
