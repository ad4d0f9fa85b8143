#include "toolkit/analysis/WordIndex.h"

#include "toolkit/analysis/ShortBytes.h"

namespace brindle {

namespace {

constexpr std::size_t kFirstSlots = 64;
constexpr std::uint32_t kWholeInKey = 16;

}  // namespace

WordIndex::WordIndex() : slots(kFirstSlots), bits(kFirstSlots) {}

WordIndex::Key WordIndex::KeyOf(std::string_view word) {
    const std::size_t n = word.size();
    Key key{n > 8 ? Bytes8(word.data()) : BytesUpTo8(word), n > 8 ? Bytes8(word.data() + n - 8) : 0,
            static_cast<std::uint32_t>(n), 0};
    const std::uint64_t mixed = (key.head + n) * 0x9E3779B97F4A7C15u;
    key.hash = static_cast<std::uint32_t>(((mixed ^ mixed >> 32 ^ key.tail) * 0xD6E8FEB86659FD93u) >> 32);
    return key;
}

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

std::uint32_t WordIndex::Find(std::string_view word) const {
    const Key key = KeyOf(word);
    const std::size_t bit = BitOf(key);
    if ((bits[bit / 8] >> bit % 8 & 1) == 0) return None;
    return slots[SlotFor(key, word)].number;
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
