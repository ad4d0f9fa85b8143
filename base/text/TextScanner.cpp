#include "base/text/TextScanner.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "base/text/Ascii.h"
#include "base/text/DataUtils.h"
#include "base/text/StringUtils.h"
#include "lorvale/values/text.h"

namespace lorvale {

const CharacterSet& CharacterSet::whitespaceAndNewlineSet() {
    static constexpr CharacterSet set(kAsciiWhite);
    return set;
}

const CharacterSet& CharacterSet::nonASCIISet() {
    static constexpr CharacterSet set(ByteSet(), true);
    return set;
}

CharacterSet CharacterSet::united(const CharacterSet& other) const {
    auto bits = _ascii.bitmap();
    for (std::size_t i = 0; i < bits.size(); ++i)
        bits[i] = static_cast<std::uint8_t>(bits[i] | other._ascii.bitmap()[i]);
    return CharacterSet(ByteSet(bits), _others || other._others);
}

std::size_t CharacterSet::find(std::string_view text, bool member) const {
    // All bytes of a character above 0x7F are alike, so no character need be put together.
    const auto is = [&](char c) {
        const auto byte = static_cast<std::uint8_t>(c);
        return (byte < 0x80 ? _ascii.byteIsMember(byte) : _others) == member;
    };
    return static_cast<std::size_t>(std::ranges::find_if(text, is) - text.begin());
}

TextScanner::TextScanner(std::string_view text) : _text(text), _skip(CharacterSet::whitespaceAndNewlineSet()) {}

void TextScanner::setScanLocation(std::size_t location) {
    _location = std::min(location, _text.size());
}

std::size_t TextScanner::afterSkipping() const {
    return _location + _skip.findNonMember(rest());
}

bool TextScanner::isAtEnd() const {
    return afterSkipping() == _text.size();
}

bool TextScanner::take(std::size_t start, std::size_t end, std::string_view* into) {
    if (into != nullptr) *into = _text.substr(start, end - start);
    _location = end;
    return true;
}

/// Where the pattern begins, or the end of the text.
std::size_t TextScanner::findFrom(std::size_t start, std::string_view pattern) const {
    const auto within = _text.substr(start);
    // Only letters have case; marks and digits have one form and nothing folds to them.
    if (_caseSensitive || (isAscii(pattern) && std::ranges::none_of(pattern, isAsciiLetter)))
        return start + std::min(findBytes(within, pattern), within.size());
    for (auto left = within; !left.empty(); nextCodePoint(left))
        if (hasCasePrefix(left, pattern)) return _text.size() - left.size();
    return _text.size();
}

// The plain scans -----------------------------------------------------------------------------------------

bool TextScanner::scanString(std::string_view pattern, std::string_view* into) {
    const auto start = afterSkipping();
    const auto here = _text.substr(start);
    if (pattern.empty()) return false;
    if (_caseSensitive) return here.starts_with(pattern) && take(start, start + pattern.size(), into);
    const auto length = casePrefixLength(here, pattern);
    return length && take(start, start + *length, into);
}

bool TextScanner::scanUpToString(std::string_view pattern, std::string_view* into) {
    const auto start = afterSkipping();
    const auto end = findFrom(start, pattern);
    return end > start && take(start, end, into);
}

bool TextScanner::scanCharactersFromSet(const CharacterSet& set, std::string_view* into) {
    const auto start = afterSkipping();
    const auto count = set.findNonMember(_text.substr(start));
    return count > 0 && take(start, start + count, into);
}

bool TextScanner::scanUpToCharactersFromSet(const CharacterSet& set, std::string_view* into) {
    const auto start = afterSkipping();
    const auto count = set.findMember(_text.substr(start));
    return count > 0 && take(start, start + count, into);
}

bool TextScanner::scanInt(int* value) {
    const auto start = afterSkipping();
    auto digits = start;
    const bool negative = digits < _text.size() && _text[digits] == '-';
    if (negative || (digits < _text.size() && _text[digits] == '+')) ++digits;
    unsigned long long number = 0;
    const auto* const from = _text.data() + digits;
    const auto [end, error] = std::from_chars(from, _text.data() + _text.size(), number);
    if (end == from) return false;
    constexpr unsigned long long kMost = std::numeric_limits<int>::max();
    const auto most = kMost + (negative ? 1 : 0);
    if (error == std::errc::result_out_of_range || number > most) number = most;
    if (value != nullptr)
        *value = static_cast<int>(negative ? -static_cast<long long>(number) : static_cast<long long>(number));
    return take(start, static_cast<std::size_t>(end - _text.data()), nullptr);
}

bool TextScanner::scanFloat(double* value) {
    const auto start = afterSkipping();
    auto digits = start;
    const bool negative = digits < _text.size() && _text[digits] == '-';
    if (negative || (digits < _text.size() && _text[digits] == '+')) ++digits;
    // from_chars knows "inf" and "nan" too, and another sign.
    if (digits == _text.size() || (_text[digits] != '.' && !isAsciiDigit(_text[digits]))) return false;
    double number = 0;
    const auto* const from = _text.data() + digits;
    const auto [end, error] = std::from_chars(from, _text.data() + _text.size(), number);
    if (end == from || error != std::errc()) return false;
    if (value != nullptr) *value = negative ? -number : number;
    return take(start, static_cast<std::size_t>(end - _text.data()), nullptr);
}

// The additions -------------------------------------------------------------------------------------------

bool TextScanner::scanStringOfLength(std::size_t length, std::string_view* into) {
    const auto start = afterSkipping();
    if (start == _text.size()) return false;
    return take(start, start + byteOffset(_text.substr(start), length), into);
}

bool TextScanner::scanCharacter(char32_t* character) {
    std::string_view taken;
    if (!scanStringOfLength(1, &taken)) return false;
    if (character != nullptr) *character = nextCodePoint(taken);
    return true;
}

bool TextScanner::betterScanUpToString(std::string_view pattern, std::string_view* into) {
    const auto start = afterSkipping();
    const auto end = findFrom(start, pattern);
    return start < _text.size() && take(start, end, into);
}

bool TextScanner::betterScanUpToCharactersFromSet(const CharacterSet& set, std::string_view* into) {
    const auto start = afterSkipping();
    return start < _text.size() && take(start, start + set.findMember(_text.substr(start)), into);
}

std::optional<std::string_view> TextScanner::scanTokenSeparatedByString(std::string_view separator) {
    std::string_view token;
    if (!betterScanUpToString(separator, &token)) return std::nullopt;
    const auto length = _caseSensitive ? separator.size() : casePrefixLength(rest(), separator).value_or(0);
    _location += std::min(length, _text.size() - _location);
    return token;
}

bool TextScanner::scanEndIntoString(std::string_view* into) {
    const auto start = afterSkipping();
    return start < _text.size() && take(start, _text.size(), into);
}

std::optional<std::string_view> TextScanner::nextTokenWithPunctuation(const CharacterSet& punctuation) {
    const auto start = afterSkipping();
    if (start == _text.size()) return std::nullopt;
    auto left = _text.substr(start);
    std::string_view token;
    if (punctuation.isMember(nextCodePoint(left))) {
        take(start, _text.size() - left.size(), &token);
    } else {
        take(start, start + punctuation.united(_skip).findMember(_text.substr(start)), &token);
    }
    return token;
}

}  // namespace lorvale
