#pragma once
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/values/range.h"

/// Helpers on text in UTF-8.  A character is a code point.  Text from outside may hold bytes that are not
/// UTF-8: each such byte counts as one character of its own, and no operation here loses or rejects it.

namespace lorvale {

/// A byte that is not UTF-8 comes out of nextCodePoint() as this plus the byte, a value in the range of the low
/// surrogates, which valid UTF-8 cannot hold; appendUtf8() turns it back into the byte.
inline constexpr char32_t kBadByte = 0xDC00;
constexpr bool isBadByte(char32_t c) {
    return c >= kBadByte + 0x80 && c <= kBadByte + 0xFF;
}

/// The first character of a text that is not empty, which is taken off.
LORVALE_EXPORT char32_t nextCodePoint(std::string_view& text);
/// The last character of a text that is not empty, which is taken off.
LORVALE_EXPORT char32_t lastCodePoint(std::string_view& text);
/// Appends one character; U+FFFD for a value that is neither a code point nor a bad byte.
LORVALE_EXPORT void appendUtf8(std::string& text, char32_t character);

LORVALE_EXPORT std::size_t characterCount(std::string_view text);
/// Where the character of that index begins, in bytes; text.size() for an index at or past the end.
LORVALE_EXPORT std::size_t byteOffset(std::string_view text, std::size_t characterIndex);
/// The part of a text that a range of characters names, cut off at the end of the text.
LORVALE_EXPORT std::string_view substring(std::string_view text, Range characters);

/// How many bytes below 0x80 the text begins with.  Runs at the speed of memchr.
LORVALE_EXPORT std::size_t asciiPrefixLength(std::string_view text);
inline bool isAscii(std::string_view text) {
    return asciiPrefixLength(text) == text.size();
}
LORVALE_EXPORT bool isValidUtf8(std::string_view text);

/// The text with full Unicode case folding, in which "STRASSE", "Strasse" and "Straße" are the same.
LORVALE_EXPORT std::string foldCase(std::string_view text);
/// Below, at or above 0 by the order of the folded code points.
LORVALE_EXPORT int compareIgnoringCase(std::string_view a, std::string_view b);
LORVALE_EXPORT bool equalIgnoringCase(std::string_view a, std::string_view b);
/// The text in lower case, character by character.
LORVALE_EXPORT std::string lowercased(std::string_view text);

// For the words of protocols and file formats only A to Z fold.

constexpr char asciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}
LORVALE_EXPORT std::string asciiLowered(std::string_view text);
LORVALE_EXPORT bool equalIgnoringAsciiCase(std::string_view a, std::string_view b);
LORVALE_EXPORT int compareIgnoringAsciiCase(std::string_view a, std::string_view b);

inline constexpr std::string_view kAsciiWhite = " \t\n\r\f\v";

/// The text without leading and trailing bytes of the set.  `set` holds ASCII characters.
LORVALE_EXPORT std::string_view trimmed(std::string_view text, std::string_view set = kAsciiWhite);

/// The pieces between the separators, at least one.  Views into `text`.
LORVALE_EXPORT std::vector<std::string_view> split(std::string_view text, char separator);
LORVALE_EXPORT std::vector<std::string_view> split(std::string_view text, std::string_view separator);

}  // namespace lorvale
