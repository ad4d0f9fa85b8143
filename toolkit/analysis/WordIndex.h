#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace brindle {

/// Numbers words in the order in which they come, and finds them fast: every word of every text is looked for.
///
/// Open addressing.  A slot holds a word's first and last bytes as two numbers, which with the length tell
/// words of up to 16 bytes apart without a look at their text.
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
        std::uint32_t length;
    };
    struct Slot {
        Key key;
        std::uint32_t number = None;
    };

    static Key KeyOf(std::string_view word);
    std::size_t FirstSlot(const Key& key) const;
    std::size_t SlotFor(const Key& key, std::string_view word) const;
    void Grow();

    std::vector<Slot> slots;          // a power of two of them, at most half in use
    std::string texts;                // of all words, one behind the other
    std::vector<std::size_t> starts;  // of each word in `texts`
    std::uint32_t longest = 0;
};

}  // namespace brindle
