#include "mail/stores/MboxScan.h"

#include <cassert>
#include <cstring>
#include <limits>

#include "base/text/ByteSet.h"
#include "mail/model/HeaderDecoding.h"

namespace lorvale {

namespace {

/// The next "From " that stands behind a newline, from `start` on; bytes.size() without one.
std::size_t findSeparator(std::string_view bytes, std::size_t start) {
    // The capital F is far rarer in mail than the newline, so memchr() runs over long stretches at the speed of
    // memory and the rest is looked at only where it pays.
    while (start < bytes.size()) {
        const auto* const hit = std::memchr(bytes.data() + start, kMboxSeparator.front(), bytes.size() - start);
        if (hit == nullptr) break;
        const auto at = static_cast<std::size_t>(static_cast<const char*>(hit) - bytes.data());
        if (at > 0 && bytes[at - 1] == '\n' && bytes.substr(at).starts_with(kMboxSeparator)) return at;
        start = at + 1;
    }
    return bytes.size();
}

MboxRange rangeBetween(std::size_t start, std::size_t end) {
    return {static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(end - start)};
}

}  // namespace

bool isMbox(std::string_view bytes) {
    bytes.remove_prefix(ByteSet::asciiWhitespaceSet().findNonMember(bytes));
    return bytes.empty() || bytes.starts_with(kMboxSeparator);
}

std::vector<MboxRange> mboxRanges(std::string_view bytes) {
    assert(bytes.size() <= std::numeric_limits<std::uint32_t>::max());
    std::vector<MboxRange> ranges;
    if (!isMbox(bytes)) return ranges;
    auto location = ByteSet::asciiWhitespaceSet().findNonMember(bytes);
    while (location < bytes.size()) {
        const auto next = findSeparator(bytes, location + kMboxSeparator.size());
        ranges.push_back(rangeBetween(location, next));
        location = next;
    }
    return ranges;
}

std::size_t mboxHeaderLength(std::string_view message) {
    return headerLength(message);
}

std::string_view mboxPadding(std::string_view bytes) {
    if (bytes.ends_with("\n\n")) return "";
    return bytes.ends_with('\n') ? "\n" : "\n\n";
}

}  // namespace lorvale
