#pragma once
#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "base/text/Ascii.h"

/// The header block of a part, field by field, as slices of the block: only what is wanted is unfolded and
/// decoded.  Each walker calls `visit(name, value)`; both are folded still, see unfoldedField().

namespace lorvale {

// How programs that were written for this system have always met a header block; they find what they wrote:
//   - a name is all that stands before a colon, also lines without one that precede it
//   - a value ends before a newline that no blank or tab follows
//   - the last byte of the block always goes, whether it is a newline or not
// Answers false for a block with something behind the last value that is no field.
template <class Visit>
bool walkClassicFields(std::string_view block, Visit visit) {
    for (std::size_t at = 0; at < block.size();) {
        const auto colon = block.find(':', at);
        if (colon == std::string_view::npos) return false;
        const auto name = block.substr(at, colon - at);
        const auto start = std::min(block.find_first_not_of(" \t", colon + 1), block.size());
        if (start == block.size()) break;
        auto end = start;
        for (;; ++end) {
            end = std::min(block.find('\n', end), block.size() - 1);
            if (end + 1 == block.size() || !isAsciiBlank(block[end + 1])) break;
        }
        visit(name, block.substr(start, end - start));
        at = end + 1;
    }
    return true;
}

/// A classic value: each newline in it was a fold and becomes one blank.
std::string unfoldedClassicField(std::string_view value);

/// Fields as RFC 5322, section 2.2, has them, up to the first empty line; answers where the body begins, which
/// is the end of the data where no line is empty.  Lines that are no field are passed over: programs put such
/// lines into headers.  But data that begins with one has no header at all.  Lines end with `lineEnd`, which is
/// '\n', with or without a '\r' before it, or '\r' alone.
template <class Visit>
std::size_t walkStandardFields(std::string_view data, char lineEnd, Visit visit) {
    constexpr auto kNameBytes = byteTable([](std::uint8_t c) { return c > ' ' && c < 0x7F && c != ':'; });
    bool isFirst = true;
    for (std::size_t at = 0; at < data.size(); isFirst = false) {
        const auto start = at;
        if (data[at] == lineEnd) return at + 1;
        if (data[at] == '\r' && at + 1 < data.size() && data[at + 1] == '\n') return at + 2;
        do at = std::min(data.find(lineEnd, at), data.size() - 1) + 1;
        while (at < data.size() && isAsciiBlank(data[at]));
        auto nameEnd = start;
        while (nameEnd < at && kNameBytes[static_cast<std::uint8_t>(data[nameEnd])]) ++nameEnd;
        auto colon = nameEnd;
        while (colon < at && isAsciiBlank(data[colon])) ++colon;  // RFC 5322, section 4.5
        if (nameEnd > start && colon < at && data[colon] == ':') {
            visit(data.substr(start, nameEnd - start), data.substr(colon + 1, at - colon - 1));
        } else if (isFirst && !data.substr(start).starts_with("From ") &&
                   !data.substr(start).starts_with(">From ")) {
            return 0;
        }
    }
    return data.size();
}

/// A standard value without its line ends and the white space around it.
std::string unfoldedStandardField(std::string_view value);

}  // namespace lorvale
