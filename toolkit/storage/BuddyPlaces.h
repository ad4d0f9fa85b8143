#pragma once
#include <bit>
#include <cstddef>
#include <cstdint>

#include "lorvale/toolkit/storage/memory.h"

namespace brindle {

/// A set of places, which are numbers from 0, as a bitmap and a second one of its words that are not 0.  It
/// grows to the highest place it has held.  No locking.
class BuddyPlaces {
public:
    static constexpr std::uint32_t kNone = UINT32_MAX;

    std::uint32_t Count() const { return count; }
    bool Member(std::uint32_t place) const {
        return place / 64 < words.size() && (words[place / 64] >> place % 64 & 1) != 0;
    }
    void Put(std::uint32_t place) {
        if (Member(place)) return;
        const std::size_t word = place / 64;
        if (word >= words.size()) {
            words.resize(word + 1);
            used.resize(word / 64 + 1);
        }
        words[word] |= Bit(place);
        used[word / 64] |= Bit(word);
        ++count;
    }
    /// True if it was there.
    bool Remove(std::uint32_t place) {
        if (!Member(place)) return false;
        const std::size_t word = place / 64;
        words[word] &= ~Bit(place);
        if (words[word] == 0) used[word / 64] &= ~Bit(word);
        --count;
        return true;
    }
    void Clear() { *this = BuddyPlaces(); }

    /// The lowest place not below `from`, or kNone.
    std::uint32_t Next(std::uint32_t from) const {
        const std::size_t word = from / 64;
        if (count == 0 || word >= words.size()) return kNone;
        if (const std::uint64_t rest = words[word] >> from % 64; rest != 0)
            return from + static_cast<std::uint32_t>(std::countr_zero(rest));
        const std::size_t next = NextWord(word + 1);
        return next < words.size() ? PlaceIn(next, std::countr_zero(words[next])) : kNone;
    }
    /// The highest place, or kNone.
    std::uint32_t Last() const {
        for (std::size_t word = words.size(); word-- > 0;)
            if (words[word] != 0) return PlaceIn(word, 63 - std::countl_zero(words[word]));
        return kNone;
    }

private:
    static std::uint64_t Bit(std::size_t number) { return std::uint64_t{1} << number % 64; }
    static std::uint32_t PlaceIn(std::size_t word, int bit) {
        return static_cast<std::uint32_t>(word * 64) + static_cast<std::uint32_t>(bit);
    }
    /// The first word from `word` on that is not 0, or one behind the last.
    std::size_t NextWord(std::size_t word) const {
        std::size_t group = word / 64;
        if (group >= used.size()) return words.size();
        std::uint64_t rest = used[group] & ~std::uint64_t{0} << word % 64;
        while (rest == 0) {
            if (++group == used.size()) return words.size();
            rest = used[group];
        }
        return group * 64 + static_cast<std::size_t>(std::countr_zero(rest));
    }

    IAVector<std::uint64_t> words;
    IAVector<std::uint64_t> used;
    std::uint32_t count = 0;
};

}  // namespace brindle
