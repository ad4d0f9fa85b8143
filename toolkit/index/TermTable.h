#pragma once
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace brindle {

/// A hash of a term's bytes, good for tables of powers of two.
inline std::uint32_t TermHash(std::string_view term) {
    constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15;
    std::uint64_t hash = term.size() * kFactor;
    const char* at = term.data();
    std::size_t left = term.size();
    std::uint64_t word = 0;
    for (; left >= 8; at += 8, left -= 8) {
        std::memcpy(&word, at, 8);
        hash = (hash ^ word) * kFactor;
        hash ^= hash >> 32;
    }
    word = 0;
    std::memcpy(&word, at, left);
    hash = (hash ^ word) * kFactor;
    return static_cast<std::uint32_t>(hash >> 32);
}

/// Terms with something about each, numbered from 0 as they come, and found by their bytes.  Made for many
/// short terms: the bytes lie in one buffer, the entries in another, and emptying it keeps the memory.
template <class About>
class TermTable {
public:
    struct Entry {
        std::size_t offset;
        std::uint32_t length;
        std::uint32_t hash;
        About about;
    };

    std::uint32_t Count() const { return static_cast<std::uint32_t>(entries.size()); }
    std::string_view TermOf(const Entry& entry) const { return {bytes.data() + entry.offset, entry.length}; }
    std::string_view TermOf(std::uint32_t number) const { return TermOf(entries[number]); }
    About& operator[](std::uint32_t number) { return entries[number].about; }
    std::vector<Entry>& Entries() { return entries; }

    /// The number of the term, which is entered if it is new.
    std::uint32_t Number(std::string_view term) { return Number(term, TermHash(term)); }
    std::uint32_t Number(std::string_view term, std::uint32_t hash) {
        if (Count() >= slots.size() / 2) Grow();
        std::uint32_t& slot = SlotFor(term, hash);
        if (slot == 0) {
            entries.push_back({bytes.size(), static_cast<std::uint32_t>(term.size()), hash, About{}});
            bytes.insert(bytes.end(), term.begin(), term.end());
            slot = Count();
        }
        return slot - 1;
    }

    void Clear() {
        slots.assign(slots.size(), 0);
        entries.clear();
        bytes.clear();
    }

    std::size_t MemoryUsed() const {
        return bytes.capacity() + entries.capacity() * sizeof(Entry) + slots.capacity() * sizeof(std::uint32_t);
    }

private:
    std::uint32_t& SlotFor(std::string_view term, std::uint32_t hash) {
        const std::size_t mask = slots.size() - 1;
        for (std::size_t at = hash & mask;; at = (at + 1) & mask) {
            std::uint32_t& slot = slots[at];
            if (slot == 0) return slot;
            const Entry& entry = entries[slot - 1];
            if (entry.hash == hash && TermOf(entry) == term) return slot;
        }
    }

    void Grow() {
        slots.assign(slots.empty() ? 64 : slots.size() * 2, 0);
        const std::size_t mask = slots.size() - 1;
        for (std::uint32_t number = 0; number < Count(); ++number) {
            std::size_t at = entries[number].hash & mask;
            while (slots[at] != 0) at = (at + 1) & mask;
            slots[at] = number + 1;
        }
    }

    std::vector<char> bytes;
    std::vector<Entry> entries;
    std::vector<std::uint32_t> slots;  // number + 1, or 0; open addressing, at most half of them in use
};

}  // namespace brindle
