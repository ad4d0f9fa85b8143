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
/// Open addressing.  A slot holds a word's first and last bytes as two numbers, which with the length tell
/// words of up to 16 bytes apart without a look at their text.  In front stands a small table of bits, one for
/// each hash that occurs, which answers most questions without touching the slots.
class WordIndex {
public:
    static constexpr std::uint32_t None = 0xFFFFFFFF;

    WordIndex();

    /// The word's number, a new one if it was not there.
    std::uint32_t Add(std::string_view word);
    /// Its number, or None.
    std::uint32_t Find(std::string_view word) const {
        const Key key = KeyOf(word);
        const std::size_t bit = BitOf(key);
        return (bits[bit / 8] >> bit % 8 & 1) != 0 ? slots[SlotFor(key, word)].number : None;
    }
    std::uint32_t Count() const { return static_cast<std::uint32_t>(starts.size()); }

private:
    struct Key {
        std::uint64_t head, tail;
        std::uint32_t length, hash;
    };
    struct Slot {
        Key key{};
        std::uint32_t number = None;
    };
    static constexpr std::size_t BitsPerSlot = 8;

    // Here, so that a look-up that ends at the bits is no call.
    static Key KeyOf(std::string_view word) {
        const std::size_t n = word.size();
        Key key{n > 8 ? Bytes8(word.data()) : BytesUpTo8(word), n > 8 ? Bytes8(word.data() + n - 8) : 0,
                static_cast<std::uint32_t>(n), 0};
        const std::uint64_t mixed = (key.head + n) * 0x9E3779B97F4A7C15u;
        key.hash = static_cast<std::uint32_t>(((mixed ^ mixed >> 32 ^ key.tail) * 0xD6E8FEB86659FD93u) >> 32);
        return key;
    }
    std::size_t SlotFor(const Key& key, std::string_view word) const;
    std::size_t BitOf(const Key& key) const { return key.hash & (slots.size() * BitsPerSlot - 1); }
    void Enter(const Slot& slot, std::string_view word);
    void Grow();

    std::vector<Slot> slots;          // a power of two of them, at most half in use
    std::vector<std::uint8_t> bits;   // BitsPerSlot for each slot
    std::string texts;                // of all words, one behind the other
    std::vector<std::size_t> starts;  // of each word in `texts`
};

}  // namespace brindle
