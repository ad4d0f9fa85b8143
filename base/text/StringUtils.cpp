#include "base/text/StringUtils.h"

#include <algorithm>

#include "base/text/CaseFolding.h"
#include "lorvale/values/text.h"

namespace lorvale {

// Case ----------------------------------------------------------------------------------------------------

bool isCaseEqual(std::string_view a, std::string_view b) {
    return equalIgnoringCase(a, b);
}

namespace {

/// How many bytes of the text are left after taking a folded prefix (or suffix) off it; nullopt when it is not
/// there or ends inside a character.
std::optional<std::size_t> bytesLeftAfter(std::string_view text, std::string_view part,
                                          FoldedText::Direction direction) {
    FoldedText whole(text, direction), wanted(part, direction);
    for (;;) {
        const auto c = wanted.next();
        if (c == FoldedText::kEnd) break;
        if (whole.next() != c) return std::nullopt;
    }
    if (!whole.atCharacterBoundary()) return std::nullopt;
    return whole.bytesLeft();
}

}  // namespace

std::optional<std::size_t> casePrefixLength(std::string_view text, std::string_view prefix) {
    const auto left = bytesLeftAfter(text, prefix, FoldedText::Direction::forwards);
    if (!left) return std::nullopt;
    return text.size() - *left;
}

bool hasCasePrefix(std::string_view text, std::string_view prefix) {
    return casePrefixLength(text, prefix).has_value();
}

bool hasCaseSuffix(std::string_view text, std::string_view suffix) {
    return bytesLeftAfter(text, suffix, FoldedText::Direction::backwards).has_value();
}

std::optional<std::string> stringWithData(const std::optional<Data>& data, StringEncoding encoding) {
    if (!data) return std::nullopt;
    return decode(data->view(), encoding);
}

// Ranges --------------------------------------------------------------------------------------------------

Range validRange(std::string_view text, Range range) {
    const auto count = characterCount(text);
    const auto location = std::min(range.location, count);
    return {location, std::min(range.length, count - location)};
}

namespace {

constexpr std::string_view kWhite = " \t\n";

}  // namespace

Range clearwhite(std::string_view text, Range range) {
    range = validRange(text, range);
    const auto part = substring(text, range);
    const auto white = std::min(part.find_first_not_of(kWhite), part.size());
    return {range.location + white, range.length - white};  // white characters are bytes
}

Range rclearwhite(std::string_view text, Range range) {
    range = validRange(text, range);
    const auto part = substring(text, range);
    const auto last = part.find_last_not_of(kWhite);
    if (last == std::string_view::npos) return {0, 0};
    return {range.location, range.length - (part.size() - last - 1)};
}

// Names and prefixes --------------------------------------------------------------------------------------

std::string_view stringByRemovingPrefix(std::string_view text, std::string_view prefix, bool ignoreCase) {
    while (!prefix.empty()) {
        if (!ignoreCase && !text.starts_with(prefix)) break;
        const auto length = ignoreCase ? casePrefixLength(text, prefix) : prefix.size();
        if (!length) break;
        text.remove_prefix(*length);
    }
    return text;
}

// Forms for others ----------------------------------------------------------------------------------------

std::string _fixStringForShell(std::string_view text) {
    std::string fixed;
    fixed.reserve(text.size());
    for (const char c : text) fixed.append(c == '\\' ? 2 : 1, c);
    return fixed;
}

std::string_view _tarnReferenceName(std::string_view text) {
    return text.substr(0, text.find(','));
}

std::string cStringWithSpaces(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    while (!text.empty()) {
        const auto c = nextCodePoint(text);
        bytes += c > 0x7F ? ' ' : static_cast<char>(c);
    }
    return bytes;
}

}  // namespace lorvale
