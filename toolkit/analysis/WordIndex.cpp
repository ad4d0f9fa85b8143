#include "toolkit/analysis/WordIndex.h"

namespace brindle {

namespace {

constexpr std::size_t kFirstSlots = 64;

}  // namespace

WordIndex::WordIndex() : slots(kFirstSlots), bits(kFirstSlots) {}

std::string_view WordIndex::WordOf(std::uint32_t number) const {
    const std::size_t start = number > 0 ? ends[number - 1] : 0;
    return std::string_view(texts).substr(start, ends[number] - start);
}

/// Where the word is, or where it would go.
std::size_t WordIndex::SlotFor(std::uint32_t hash, std::string_view word) const {
    for (std::size_t i = hash / BitsPerSlot & (slots.size() - 1);; i = (i + 1) & (slots.size() - 1)) {
        const Slot& slot = slots[i];
        if (slot.number == None || (slot.hash == hash && WordOf(slot.number) == word)) return i;
    }
}

std::uint32_t WordIndex::Add(std::string_view word) {
    if ((ends.size() + 1) * 2 > slots.size()) Grow();
    const std::uint32_t hash = HashOf(word);
    const std::uint32_t found = slots[SlotFor(hash, word)].number;
    if (found != None) return found;
    Enter(hash, Count(), word);
    texts += word;
    ends.push_back(static_cast<std::uint32_t>(texts.size()));
    return Count() - 1;
}

void WordIndex::Enter(std::uint32_t hash, std::uint32_t number, std::string_view word) {
    slots[SlotFor(hash, word)] = {hash, number};
    const std::size_t bit = BitOf(hash);
    bits[bit / 8] |= static_cast<std::uint8_t>(1u << bit % 8);
}

void WordIndex::Grow() {
    std::vector<Slot> old(slots.size() * 2);
    old.swap(slots);
    bits.assign(slots.size() * BitsPerSlot / 8, 0);
    for (const Slot& slot : old)
        if (slot.number != None) Enter(slot.hash, slot.number, WordOf(slot.number));
}

}  // namespace brindle
