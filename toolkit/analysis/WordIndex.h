#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "toolkit/analysis/ShortBytes.h"

namespace brindle {

/// Numbers words in the order in which they come, and finds them fast: every word of every text is looked for,
/// and most are not there.
///
/// Open addressing.  A slot holds a word's hash and number, and no more: a process that asks for a few words
/// only, as a search does, spends more on the memory of the table than on anything else in it.  In front stands
/// a small table of bits, one for each hash that occurs, which answers most questions without touching the
/// slots.
class WordIndex {
public:
    static constexpr std::uint32_t None = 0xFFFFFFFF;

    WordIndex();

    /// The word's number, a new one if it was not there.
    std::uint32_t Add(std::string_view word);
    /// Its number, or None.
    std::uint32_t Find(std::string_view word) const {
        const std::uint32_t hash = HashOf(word);
        const std::size_t bit = BitOf(hash);
        return (bits[bit / 8] >> bit % 8 & 1) != 0 ? slots[SlotFor(hash, word)].number : None;
    }
    std::uint32_t Count() const { return static_cast<std::uint32_t>(ends.size()); }

private:
    struct Slot {
        std::uint32_t hash = 0, number = None;
    };
    static constexpr std::size_t BitsPerSlot = 8;

    // Here, so that a look-up that ends at the bits is no call.
    static std::uint32_t HashOf(std::string_view word) {
        const std::size_t n = word.size();
        const std::uint64_t head = n > 8 ? Bytes8(word.data()) : BytesUpTo8(word);
        const std::uint64_t tail = n > 8 ? Bytes8(word.data() + n - 8) : 0;
        const std::uint64_t mixed = (head + n) * 0x9E3779B97F4A7C15u;
        return static_cast<std::uint32_t>(((mixed ^ mixed >> 32 ^ tail) * 0xD6E8FEB86659FD93u) >> 32);
    }
    std::size_t SlotFor(std::uint32_t hash, std::string_view word) const;
    std::size_t BitOf(std::uint32_t hash) const { return hash & (slots.size() * BitsPerSlot - 1); }
    std::string_view WordOf(std::uint32_t number) const;
    void Enter(std::uint32_t hash, std::uint32_t number, std::string_view word);
    void Grow();

    std::vector<Slot> slots;          // a power of two of them, at most half in use
    std::vector<std::uint8_t> bits;   // BitsPerSlot for each slot
    std::string texts;                // of all words, one behind the other
    std::vector<std::uint32_t> ends;  // of each word in `texts`
};

}  // namespace brindle
