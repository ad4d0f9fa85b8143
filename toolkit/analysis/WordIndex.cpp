#include "toolkit/analysis/WordIndex.h"

#include <algorithm>
#include <cstring>

namespace brindle {

namespace {

constexpr std::size_t kFirstSlots = 64;
constexpr std::uint32_t kWholeInKey = 16;

template <class Number>
std::uint64_t bytesAt(const char* at) {
    Number number;
    std::memcpy(&number, at, sizeof number);
    return number;
}

std::uint64_t byteAt(const char* at) {
    return static_cast<unsigned char>(*at);
}

}  // namespace

WordIndex::WordIndex() : slots(kFirstSlots) {}

WordIndex::Key WordIndex::KeyOf(std::string_view word) {
    const char* const at = word.data();
    const std::size_t n = word.size();
    const auto length = static_cast<std::uint32_t>(n);
    if (n > 8) return {bytesAt<std::uint64_t>(at), bytesAt<std::uint64_t>(at + n - 8), length};
    if (n >= 4) return {bytesAt<std::uint32_t>(at), bytesAt<std::uint32_t>(at + n - 4), length};
    if (n == 0) return {0, 0, 0};
    return {byteAt(at) | byteAt(at + n / 2) << 8, byteAt(at + n - 1), length};
}

std::size_t WordIndex::FirstSlot(const Key& key) const {
    std::uint64_t mixed = (key.head + key.length) * 0x9E3779B97F4A7C15u;
    mixed = (mixed ^ mixed >> 32 ^ key.tail) * 0xD6E8FEB86659FD93u;
    return static_cast<std::size_t>(mixed >> 32) & (slots.size() - 1);
}

/// Where the word is, or where it would go.
std::size_t WordIndex::SlotFor(const Key& key, std::string_view word) const {
    for (std::size_t i = FirstSlot(key);; i = (i + 1) & (slots.size() - 1)) {
        const Slot& slot = slots[i];
        if (slot.number == None) return i;
        if (slot.key.head != key.head || slot.key.tail != key.tail || slot.key.length != key.length) continue;
        if (key.length <= kWholeInKey ||
            word == std::string_view(texts).substr(starts[slot.number], key.length))
            return i;
    }
}

std::uint32_t WordIndex::Find(std::string_view word) const {
    if (word.size() > longest) return None;
    return slots[SlotFor(KeyOf(word), word)].number;
}

std::uint32_t WordIndex::Add(std::string_view word) {
    if ((starts.size() + 1) * 2 > slots.size()) Grow();
    const Key key = KeyOf(word);
    Slot& slot = slots[SlotFor(key, word)];
    if (slot.number != None) return slot.number;
    slot = {key, Count()};
    starts.push_back(texts.size());
    texts += word;
    longest = std::max(longest, key.length);
    return slot.number;
}

void WordIndex::Grow() {
    std::vector<Slot> old(slots.size() * 2);
    old.swap(slots);
    for (const Slot& slot : old)
        if (slot.number != None)
            slots[SlotFor(slot.key, std::string_view(texts).substr(starts[slot.number], slot.key.length))] =
                slot;
}

}  // namespace brindle
