#include "toolkit/analysis/WordIndex.h"

namespace brindle {

namespace {

constexpr std::size_t kFirstSlots = 64;
constexpr std::uint32_t kWholeInKey = 16;

}  // namespace

WordIndex::WordIndex() : slots(kFirstSlots), bits(kFirstSlots) {}

/// Where the word is, or where it would go.
std::size_t WordIndex::SlotFor(const Key& key, std::string_view word) const {
    for (std::size_t i = key.hash / BitsPerSlot & (slots.size() - 1);; i = (i + 1) & (slots.size() - 1)) {
        const Slot& slot = slots[i];
        if (slot.number == None) return i;
        if (slot.key.head != key.head || slot.key.tail != key.tail || slot.key.length != key.length) continue;
        if (key.length <= kWholeInKey ||
            word == std::string_view(texts).substr(starts[slot.number], key.length))
            return i;
    }
}

std::uint32_t WordIndex::Add(std::string_view word) {
    if ((starts.size() + 1) * 2 > slots.size()) Grow();
    const Key key = KeyOf(word);
    const std::uint32_t found = slots[SlotFor(key, word)].number;
    if (found != None) return found;
    Enter({key, Count()}, word);
    starts.push_back(texts.size());
    texts += word;
    return Count() - 1;
}

void WordIndex::Enter(const Slot& slot, std::string_view word) {
    slots[SlotFor(slot.key, word)] = slot;
    const std::size_t bit = BitOf(slot.key);
    bits[bit / 8] |= static_cast<std::uint8_t>(1u << bit % 8);
}

void WordIndex::Grow() {
    std::vector<Slot> old(slots.size() * 2);
    old.swap(slots);
    bits.assign(slots.size() * BitsPerSlot / 8, 0);
    for (const Slot& slot : old)
        if (slot.number != None)
            Enter(slot, std::string_view(texts).substr(starts[slot.number], slot.key.length));
}

}  // namespace brindle
