#include "base/text/DataUtils.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "lorvale/platform/exception.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

constexpr auto npos = std::string_view::npos;

[[noreturn]] void throwOutOfBounds(std::string_view operation) {
    throw RangeException(formatText("%@ %s: Out of bounds", "Data", operation));
}

constexpr std::uint8_t folded(char c) {
    return static_cast<std::uint8_t>(asciiLower(c));
}

bool matches(std::string_view text, std::string_view pattern, bool ignoringCase) {
    return ignoringCase ? memcasecmp(text.data(), pattern.data(), pattern.size()) == 0
                        : std::memcmp(text.data(), pattern.data(), pattern.size()) == 0;
}

/// Horspool's search: the byte under the end of the pattern tells how far it may be moved on.
std::size_t findIgnoringCase(std::string_view text, std::string_view pattern) {
    const auto last = pattern.size() - 1;
    std::array<std::size_t, 256> steps;
    steps.fill(pattern.size());
    for (std::size_t i = 0; i < last; ++i) steps[folded(pattern[i])] = last - i;
    for (std::size_t at = 0; at <= text.size() - pattern.size();) {
        const auto end = folded(text[at + last]);
        if (end == folded(pattern[last]) && matches(text.substr(at), pattern, true)) return at;
        at += steps[end];
    }
    return npos;
}

std::size_t findBackwardsIgnoringCase(std::string_view text, std::string_view pattern) {
    for (auto at = text.size() - pattern.size() + 1; at-- > 0;)
        if (folded(text[at]) == folded(pattern[0]) && matches(text.substr(at), pattern, true)) return at;
    return npos;
}

/// `pattern` is neither empty nor longer than `text`.
std::size_t find(std::string_view text, std::string_view pattern, unsigned options) {
    const bool ignoringCase = (options & kCaseInsensitiveSearch) != 0;
    const bool backwards = (options & kBackwardsSearch) != 0;
    if ((options & kAnchoredSearch) != 0) {
        const auto at = backwards ? text.size() - pattern.size() : 0;
        return matches(text.substr(at), pattern, ignoringCase) ? at : npos;
    }
    if (ignoringCase)
        return backwards ? findBackwardsIgnoringCase(text, pattern) : findIgnoringCase(text, pattern);
    if (backwards) return text.rfind(pattern);
    return findBytes(text, pattern);
}

}  // namespace

std::size_t findBytes(std::string_view text, std::string_view pattern) {
    if (pattern.size() > text.size()) return npos;
    if (pattern.empty()) return 0;
    const auto* const found = ::memmem(text.data(), text.size(), pattern.data(), pattern.size());
    return found == nullptr ? npos : static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

Data subdataToIndex(const Data& data, std::size_t index) {
    if (index > data.size()) throwOutOfBounds("subdataToIndex:");
    return data.subdata(Range{0, index});
}

Data subdataFromIndex(const Data& data, std::size_t index) {
    if (index > data.size()) throwOutOfBounds("subdataFromIndex:");
    return data.subdata(Range{index, data.size() - index});
}

Range rangeOfBytes(const Data& data, std::string_view bytes, unsigned options, Range range) {
    if (range.location > data.size() || range.length > data.size() - range.location)
        throwOutOfBounds("rangeOfBytes:length:options:range:");
    if (bytes.empty() || bytes.size() > range.length) return Range::notFound();
    const auto found = find(data.view().substr(range.location, range.length), bytes, options);
    return found == npos ? Range::notFound() : Range{range.location + found, bytes.size()};
}

Range rangeOfData(const Data& data, const Data& pattern, unsigned options) {
    return rangeOfBytes(data, pattern.view(), options, {0, data.size()});
}
Range rangeOfData(const Data& data, const Data& pattern, unsigned options, Range range) {
    return rangeOfBytes(data, pattern.view(), options, range);
}
Range rangeOfCString(const Data& data, std::string_view pattern, unsigned options) {
    return rangeOfBytes(data, pattern, options, {0, data.size()});
}
Range rangeOfCString(const Data& data, std::string_view pattern, unsigned options, Range range) {
    return rangeOfBytes(data, pattern, options, range);
}

std::vector<Data> componentsSeparatedByData(const Data& data, const Data& separator) {
    std::vector<Data> pieces;
    std::size_t start = 0;
    for (;;) {
        const auto found = rangeOfData(data, separator, 0, {start, data.size() - start});
        if (!found.found()) break;
        pieces.push_back(data.subdata(Range{start, found.location - start}));
        start = found.end();
    }
    if (start < data.size()) pieces.push_back(subdataFromIndex(data, start));
    return pieces;
}

int memcasecmp(const void* a, const void* b, std::size_t count) {
    const auto* const left = static_cast<const char*>(a);
    const auto* const right = static_cast<const char*>(b);
    for (std::size_t i = 0; i < count; ++i)
        if (const int difference = folded(left[i]) - folded(right[i]); difference != 0) return difference;
    return 0;
}

}  // namespace lorvale
