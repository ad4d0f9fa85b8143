#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

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
    std::uint32_t Find(std::string_view word) const;
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

    static Key KeyOf(std::string_view word);
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
