#include "lorvale/values/text.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "base/text/CaseFolding.h"

namespace lorvale {

namespace {

constexpr std::uint8_t byteAt(std::string_view text, std::size_t i) {
    return static_cast<std::uint8_t>(text[i]);
}

/// The length of the sequence that starts the text, 0 when it does not start with a valid one.  Surrogates,
/// forms longer than needed and values above U+10FFFF are not valid.
std::size_t sequenceLength(std::string_view text) {
    const auto lead = byteAt(text, 0);
    if (lead < 0x80) return 1;
    if (lead < 0xC2 || lead > 0xF4) return 0;
    const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (text.size() < length) return 0;
    // Only the second byte has bounds that depend on the first.
    const std::uint8_t low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const std::uint8_t high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (byteAt(text, 1) < low || byteAt(text, 1) > high) return 0;
    for (std::size_t i = 2; i < length; ++i)
        if ((byteAt(text, i) & 0xC0) != 0x80) return 0;
    return length;
}

char32_t valueOfSequence(std::string_view text, std::size_t length) {
    if (length == 0) return kBadByte + byteAt(text, 0);
    if (length == 1) return byteAt(text, 0);
    auto value = static_cast<char32_t>(byteAt(text, 0) & (0x7F >> length));
    for (std::size_t i = 1; i < length; ++i) value = value << 6 | (byteAt(text, i) & 0x3Fu);
    return value;
}

std::size_t characterLength(std::string_view text) {
    return std::max<std::size_t>(sequenceLength(text), 1);
}

/// Appends the text with A to Z in lower case, eight bytes at a time.
void appendAsciiLowered(std::string& lower, std::string_view text) {
    constexpr std::uint64_t kOnes = 0x0101010101010101u;
    lower.append(text);
    auto* const out = lower.data() + lower.size() - text.size();
    std::size_t i = 0;
    for (; text.size() - i >= sizeof(std::uint64_t); i += sizeof(std::uint64_t)) {
        std::uint64_t word = 0;
        std::memcpy(&word, out + i, sizeof word);
        const auto low = word & (0x7F * kOnes);
        const auto fromA = low + (0x80 - 'A') * kOnes, pastZ = low + (0x7F - 'Z') * kOnes;
        word |= ((fromA ^ pastZ) & ~word & (0x80 * kOnes)) >> 2;  // 0x20 for each capital letter
        std::memcpy(out + i, &word, sizeof word);
    }
    for (; i < text.size(); ++i) out[i] = asciiLower(out[i]);
}

}  // namespace

char32_t nextCodePoint(std::string_view& text) {
    const auto length = sequenceLength(text);
    const auto value = valueOfSequence(text, length);
    text.remove_prefix(std::max<std::size_t>(length, 1));
    return value;
}

char32_t lastCodePoint(std::string_view& text) {
    // Going forwards never jumps over the lead byte of a valid sequence, so both ways cut a text alike.
    const auto longest = std::min<std::size_t>(text.size(), 4);
    for (std::size_t length = 1; length <= longest; ++length) {
        const auto tail = text.substr(text.size() - length);
        if (sequenceLength(tail) != length) continue;
        text.remove_suffix(length);
        return valueOfSequence(tail, length);
    }
    const auto value = kBadByte + byteAt(text, text.size() - 1);
    text.remove_suffix(1);
    return value;
}

void appendUtf8(std::string& text, char32_t c) {
    const auto append = [&](char32_t byte) { text += static_cast<char>(byte); };
    const auto appendContinuation = [&](int shift) { append(0x80 | (c >> shift & 0x3F)); };
    if (c < 0x80) return append(c);
    if (isBadByte(c)) return append(c - kBadByte);
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
    if (c < 0x800) {
        append(0xC0 | c >> 6);
    } else if (c < 0x10000) {
        append(0xE0 | c >> 12);
        appendContinuation(6);
    } else {
        append(0xF0 | c >> 18);
        appendContinuation(12);
        appendContinuation(6);
    }
    appendContinuation(0);
}

std::size_t asciiPrefixLength(std::string_view text) {
    constexpr std::size_t kBlock = 64;
    constexpr std::uint64_t kHighBits = 0x8080808080808080u;
    // A vector type of the compiler: one instruction a load on every processor of today, without naming any.
    using Vector __attribute__((vector_size(16))) = std::uint64_t;
    std::size_t i = 0;
    for (; text.size() - i >= kBlock; i += kBlock) {
        Vector part[4];
        std::memcpy(part, text.data() + i, kBlock);
        const Vector all = (part[0] | part[1]) | (part[2] | part[3]);
        if (((all[0] | all[1]) & kHighBits) != 0) break;
    }
    for (; text.size() - i >= sizeof(std::uint64_t); i += sizeof(std::uint64_t)) {
        std::uint64_t word = 0;
        std::memcpy(&word, text.data() + i, sizeof word);
        if ((word & kHighBits) != 0) break;
    }
    while (i < text.size() && byteAt(text, i) < 0x80) ++i;
    return i;
}

bool isValidUtf8(std::string_view text) {
    for (;;) {
        text.remove_prefix(asciiPrefixLength(text));
        if (text.empty()) return true;
        do {
            const auto length = sequenceLength(text);
            if (length == 0) return false;
            text.remove_prefix(length);
        } while (!text.empty() && byteAt(text, 0) >= 0x80);
    }
}

std::size_t characterCount(std::string_view text) {
    std::size_t count = 0;
    while (!text.empty()) {
        const auto ascii = asciiPrefixLength(text);
        count += ascii;
        text.remove_prefix(ascii);
        for (; !text.empty() && byteAt(text, 0) >= 0x80; ++count) text.remove_prefix(characterLength(text));
    }
    return count;
}

std::size_t byteOffset(std::string_view text, std::size_t characterIndex) {
    auto rest = text;
    while (characterIndex > 0 && !rest.empty()) {
        const auto ascii = asciiPrefixLength(rest.substr(0, characterIndex));
        rest.remove_prefix(ascii);
        characterIndex -= ascii;
        for (; characterIndex > 0 && !rest.empty() && byteAt(rest, 0) >= 0x80; --characterIndex)
            rest.remove_prefix(characterLength(rest));
    }
    return text.size() - rest.size();
}

std::string_view substring(std::string_view text, Range characters) {
    text.remove_prefix(byteOffset(text, characters.location));
    return text.substr(0, byteOffset(text, characters.length));
}

// Case -----------------------------------------------------------------------------------------------------

std::string foldCase(std::string_view text) {
    std::string folded;
    folded.reserve(text.size());
    while (!text.empty()) {
        const auto ascii = asciiPrefixLength(text);
        appendAsciiLowered(folded, text.substr(0, ascii));
        text.remove_prefix(ascii);
        while (!text.empty() && byteAt(text, 0) >= 0x80)
            for (const auto c : foldedCharacter(nextCodePoint(text))) appendUtf8(folded, c);
    }
    return folded;
}

int compareIgnoringCase(std::string_view a, std::string_view b) {
    // ASCII folds byte by byte; the general way starts where a text leaves it.
    const auto shorter = std::min(a.size(), b.size());
    std::size_t i = 0;
    for (; i < shorter && byteAt(a, i) < 0x80 && byteAt(b, i) < 0x80; ++i)
        if (a[i] != b[i] && asciiLower(a[i]) != asciiLower(b[i])) return asciiLower(a[i]) - asciiLower(b[i]);
    FoldedText left(a.substr(i)), right(b.substr(i));
    for (;;) {
        const auto l = left.next(), r = right.next();
        if (l != r) return l < r ? -1 : 1;
        if (l == FoldedText::kEnd) return 0;
    }
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
    return compareIgnoringCase(a, b) == 0;
}

std::string lowercased(std::string_view text) {
    std::string lower;
    lower.reserve(text.size());
    while (!text.empty()) {
        const auto c = nextCodePoint(text);
        appendUtf8(lower,
                   c < 0x80 ? static_cast<char32_t>(asciiLower(static_cast<char>(c))) : lowerCharacter(c));
    }
    return lower;
}

std::string asciiLowered(std::string_view text) {
    std::string lower;
    appendAsciiLowered(lower, text);
    return lower;
}

int compareIgnoringAsciiCase(std::string_view a, std::string_view b) {
    const auto shorter = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < shorter; ++i) {
        const auto l = static_cast<std::uint8_t>(asciiLower(a[i]));
        const auto r = static_cast<std::uint8_t>(asciiLower(b[i]));
        if (l != r) return l - r;
    }
    return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

bool equalIgnoringAsciiCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && compareIgnoringAsciiCase(a, b) == 0;
}

// Pieces ---------------------------------------------------------------------------------------------------

std::string_view trimmed(std::string_view text, std::string_view set) {
    const auto first = text.find_first_not_of(set);
    if (first == std::string_view::npos) return text.substr(0, 0);
    return text.substr(first, text.find_last_not_of(set) - first + 1);
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    return split(text, std::string_view(&separator, 1));
}

std::vector<std::string_view> split(std::string_view text, std::string_view separator) {
    std::vector<std::string_view> pieces;
    while (!separator.empty()) {
        const auto end = text.find(separator);
        if (end == std::string_view::npos) break;
        pieces.push_back(text.substr(0, end));
        text.remove_prefix(end + separator.size());
    }
    pieces.push_back(text);
    return pieces;
}

}  // namespace lorvale
