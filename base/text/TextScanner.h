#pragma once
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/text/ByteSet.h"

namespace lorvale {

/// A set of characters: ASCII by bits, the others all in or all out.
class CharacterSet {
public:
    constexpr CharacterSet() = default;
    /// The ASCII characters of the text.
    constexpr explicit CharacterSet(std::string_view ascii) : _ascii(ascii) {}
    constexpr CharacterSet(const ByteSet& ascii, bool othersToo) : _ascii(ascii), _others(othersToo) {}

    /// Blank, tab, newline, vertical tab, form feed, carriage return.  Not the no-break space: it is text.
    static const CharacterSet& whitespaceAndNewlineSet();
    static const CharacterSet& nonASCIISet();

    bool isMember(char32_t c) const {
        return c < 0x80 ? _ascii.byteIsMember(static_cast<std::uint8_t>(c)) : _others;
    }
    CharacterSet inverted() const { return CharacterSet(_ascii.invertedSet(), !_others); }
    CharacterSet united(const CharacterSet& other) const;

    /// Where the first member begins, or the first character that is none, in bytes; text.size() without one.
    std::size_t findMember(std::string_view text) const { return find(text, true); }
    std::size_t findNonMember(std::string_view text) const { return find(text, false); }

private:
    std::size_t find(std::string_view text, bool member) const;

    ByteSet _ascii;
    bool _others = false;  // whether the characters above 0x7F are members
};

/// A position in a text, with a set of characters that are passed over before each scan.  Borrows the text,
/// which must outlive it and the views it hands out.  An operation that answers false leaves the location and
/// the output as they were.  Each "into" may be null.  One thread at a time.
class TextScanner {
public:
    /// The skip set is white space and newlines, and case does not matter, until they are set.
    explicit TextScanner(std::string_view text);

    void setCharactersToBeSkipped(CharacterSet set) { _skip = std::move(set); }
    const CharacterSet& charactersToBeSkipped() const { return _skip; }
    void setCaseSensitive(bool sensitive) { _caseSensitive = sensitive; }
    bool caseSensitive() const { return _caseSensitive; }

    std::string_view string() const { return _text; }
    /// In bytes, always at the start of a character.
    std::size_t scanLocation() const { return _location; }
    void setScanLocation(std::size_t location);
    /// Whether nothing but characters to be skipped is left.
    bool isAtEnd() const;
    std::string_view rest() const { return _text.substr(_location); }

    // The plain scans.  Each skips first; a scan that would take nothing fails.
    bool scanString(std::string_view pattern, std::string_view* into = nullptr);
    bool scanUpToString(std::string_view pattern, std::string_view* into = nullptr);
    bool scanCharactersFromSet(const CharacterSet& set, std::string_view* into = nullptr);
    bool scanUpToCharactersFromSet(const CharacterSet& set, std::string_view* into = nullptr);
    /// A decimal number with an optional sign; one that is too large becomes the nearest that fits.
    bool scanInt(int* value);
    /// The same with fraction and exponent; false for one that no double holds.
    bool scanFloat(double* value);

    /// Up to `length` characters; false when none remain.
    bool scanStringOfLength(std::size_t length, std::string_view* into = nullptr);
    bool scanCharacter(char32_t* character);
    /// As the plain scans, but true with an empty result when the target stands right here.
    bool betterScanUpToString(std::string_view pattern, std::string_view* into = nullptr);
    bool betterScanUpToCharactersFromSet(const CharacterSet& set, std::string_view* into = nullptr);
    /// The text up to the separator, which is taken too; at the last token, the rest.  Nullopt at the end.
    std::optional<std::string_view> scanTokenSeparatedByString(std::string_view separator);
    /// Everything that is left; false at the end.
    bool scanEndIntoString(std::string_view* into = nullptr);
    /// One character when it is punctuation, else everything up to a character of either set; nullopt at the
    /// end.
    std::optional<std::string_view> nextTokenWithPunctuation(const CharacterSet& punctuation);

private:
    std::size_t afterSkipping() const;
    std::size_t findFrom(std::size_t start, std::string_view pattern) const;
    bool take(std::size_t start, std::size_t end, std::string_view* into);

    std::string_view _text;
    std::size_t _location = 0;
    CharacterSet _skip;
    bool _caseSensitive = false;
};

}  // namespace lorvale
