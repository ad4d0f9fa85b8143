#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "lorvale/values/data.h"
#include "lorvale/values/range.h"

namespace lorvale {

class MutableByteSet;

/// A set of byte values, as a map of 256 bits.  Immutable, so that several threads may share one.
class ByteSet {
public:
    using Bitmap = std::array<std::uint8_t, 32>;  ///< byte b is bit (b & 7) of entry b / 8

    constexpr ByteSet() = default;
    /// The bytes of the text.
    constexpr explicit ByteSet(std::string_view bytes) {
        for (const char c : bytes) add(static_cast<std::uint8_t>(c));
    }
    constexpr explicit ByteSet(const Bitmap& set) : mySet(set) {}
    /// The bytes from range.location on; throws InvalidArgumentException when the range leaves 0..255.
    explicit ByteSet(Range range);

    /// Tab, newline, form feed, carriage return, blank.
    static const ByteSet& asciiWhitespaceSet();
    static const ByteSet& ASCIIByteSet();
    static const ByteSet& nonASCIIByteSet();
    /// 0x80 to 0x9E: printable in code page 1252, control characters in ISO Latin 1.
    static ByteSet suspiciousCodepage1252ByteSet();

    constexpr bool byteIsMember(std::uint8_t byte) const { return (mySet[byte / 8] >> (byte & 7) & 1) != 0; }
    ByteSet invertedSet() const;
    MutableByteSet mutableCopy() const;
    const Bitmap& bitmap() const { return mySet; }

    /// The index of the first member, or of the first byte that is none; text.size() without one.
    std::size_t findMember(std::string_view text) const;
    std::size_t findNonMember(std::string_view text) const;

    friend bool operator==(const ByteSet&, const ByteSet&) = default;

protected:
    constexpr void add(std::uint8_t byte) {
        mySet[byte / 8] = static_cast<std::uint8_t>(mySet[byte / 8] | 1u << (byte & 7));
    }
    Bitmap mySet{};
};

/// A set under construction.  One thread at a time.
class MutableByteSet : public ByteSet {
public:
    using ByteSet::ByteSet;
    explicit MutableByteSet(const ByteSet& set) : ByteSet(set) {}

    /// Both throw InvalidArgumentException when the range leaves 0..255.
    void addBytesInRange(Range range);
    void removeBytesInRange(Range range);
    void invert();
    ByteSet copy() const { return *this; }
};

/// The first byte of the set in the data or in the range, which is cut off at the end of the data; not found
/// without one.  The options are accepted for likeness with the other searches and have no effect: callers
/// that ask for a backward search have always been given the first match.
Range rangeOfByteFromSet(const Data& data, const ByteSet& set);
Range rangeOfByteFromSet(const Data& data, const ByteSet& set, unsigned options);
Range rangeOfByteFromSet(const Data& data, const ByteSet& set, unsigned options, Range range);

}  // namespace lorvale
