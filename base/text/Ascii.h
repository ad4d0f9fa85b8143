#pragma once
#include <array>
#include <cstddef>
#include <cstdint>

/// What an ASCII character is, looked up in one table.  No locale matters; bytes above 0x7F are of no kind.
/// asciiLower() stands in lorvale/values/text.h.

namespace lorvale {

/// A yes or no for each byte value, made at compile time: a set of its own for an inner loop.
template <class In>
constexpr std::array<bool, 256> byteTable(In in) {
    std::array<bool, 256> table{};
    for (std::size_t byte = 0; byte < table.size(); ++byte) table[byte] = in(static_cast<std::uint8_t>(byte));
    return table;
}

namespace ascii {

enum Kind : unsigned {
    digit = 1,
    upper = 2,
    lower = 4,
    hexLetter = 8,
    blank = 16,
    otherWhite = 32,
    control = 64,
    punctuation = 128,
};

/// The kinds of one byte, by the ranges of the ASCII table.
constexpr std::uint8_t kindsOf(std::uint8_t c) {
    unsigned kinds = 0;
    if (c >= '0' && c <= '9') kinds |= digit;
    if (c >= 'A' && c <= 'Z') kinds |= upper;
    if (c >= 'a' && c <= 'z') kinds |= lower;
    if ((c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f')) kinds |= hexLetter;
    if (c == ' ' || c == '\t') kinds |= blank;
    if (c >= '\n' && c <= '\r') kinds |= otherWhite;  // newline, vertical tab, form feed, carriage return
    if (c < ' ' || c == 0x7F) kinds |= control;
    if (c > ' ' && c < 0x7F && (kinds & (digit | upper | lower)) == 0) kinds |= punctuation;
    return static_cast<std::uint8_t>(kinds);
}

inline constexpr std::array<std::uint8_t, 256> kKinds = [] {
    std::array<std::uint8_t, 256> table{};
    for (std::size_t c = 0; c < table.size(); ++c) table[c] = kindsOf(static_cast<std::uint8_t>(c));
    return table;
}();

}  // namespace ascii

/// Whether a character is of one of some kinds.  A function object, so that an algorithm or a Cursor takes it
/// as it stands: `std::ranges::all_of(text, isAsciiDigit)`.
class AsciiPredicate {
public:
    constexpr explicit AsciiPredicate(unsigned kinds) : _kinds(kinds) {}
    constexpr bool operator()(std::uint8_t byte) const { return (ascii::kKinds[byte] & _kinds) != 0; }
    constexpr bool operator()(char c) const { return (*this)(static_cast<std::uint8_t>(c)); }
    constexpr bool operator()(char32_t c) const { return c < 0x80 && (*this)(static_cast<std::uint8_t>(c)); }

private:
    unsigned _kinds;
};

inline constexpr AsciiPredicate isAsciiDigit(ascii::digit);
inline constexpr AsciiPredicate isAsciiHexDigit(ascii::digit | ascii::hexLetter);
inline constexpr AsciiPredicate isAsciiUpper(ascii::upper);
inline constexpr AsciiPredicate isAsciiLower(ascii::lower);
inline constexpr AsciiPredicate isAsciiLetter(ascii::upper | ascii::lower);
inline constexpr AsciiPredicate isAsciiAlphanumeric(ascii::upper | ascii::lower | ascii::digit);
/// Blank and tab.
inline constexpr AsciiPredicate isAsciiBlank(ascii::blank);
/// The characters of kAsciiWhite: blank, tab, newline, vertical tab, form feed, carriage return.
inline constexpr AsciiPredicate isAsciiWhite(ascii::blank | ascii::otherWhite);
/// Below the blank, and DEL.
inline constexpr AsciiPredicate isAsciiControl(ascii::control);
/// What is printed and is neither a letter nor a digit nor the blank.
inline constexpr AsciiPredicate isAsciiPunctuation(ascii::punctuation);

/// Blank, tab, carriage return and newline: what a folded header line is cut at.
constexpr bool isFoldingWhite(char c) {
    return isAsciiBlank(c) || c == '\r' || c == '\n';
}

constexpr char asciiUpper(char c) {
    return isAsciiLower(c) ? static_cast<char>(c - ('a' - 'A')) : c;
}

/// 0 to 15; -1 for a character that is no hexadecimal digit.
constexpr int hexDigitValue(char c) {
    if (isAsciiDigit(c)) return c - '0';
    return isAsciiHexDigit(c) ? asciiUpper(c) - 'A' + 10 : -1;
}

}  // namespace lorvale
