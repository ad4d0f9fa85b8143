#include <algorithm>

#include "base/text/ByteSet.h"
#include "lorvale/mime.h"
#include "lorvale/platform/log.h"

namespace lorvale {

namespace {

constexpr std::size_t kLineInput = 45;

/// Six bits as a character.  A backquote, not a blank, for 0: blanks at line ends get lost on the way.
constexpr char characterFor(std::uint32_t value) {
    return value == 0 ? '`' : static_cast<char>(value + 0x20);
}

constexpr std::uint32_t valueOf(char c) {
    return (static_cast<std::uint8_t>(c) - 0x20u) & 0x3F;
}

std::string_view takeUpTo(std::string_view& rest, std::size_t end) {
    const auto taken = rest.substr(0, end);
    rest.remove_prefix(taken.size());
    return taken;
}

/// What stands behind "begin": at the very start of the data, which needs no blank after it, or else of a line.
std::optional<std::string_view> afterBegin(std::string_view data) {
    constexpr std::string_view kFirst = "begin", kLater = "\nbegin ";
    if (data.starts_with(kFirst)) return data.substr(kFirst.size());
    const auto found = data.find(kLater);
    if (found == std::string_view::npos) return std::nullopt;
    return data.substr(found + kLater.size());
}

int modeFrom(std::string_view digits) {
    std::uint32_t mode = 0;
    for (const char c : digits) {
        if (c < '0' || c > '7') break;
        mode = mode << 3 | static_cast<std::uint32_t>(c - '0');
    }
    return static_cast<int>(mode);
}

/// Decodes `count` bytes from a line.  A line that is too short goes on with `filler`: blanks were cut from
/// line ends on the way; where the data itself ends, the missing bytes are 0.
void appendLine(ByteBuffer& out, std::string_view line, std::size_t count, char filler) {
    const auto value = [&](std::size_t i) { return valueOf(i < line.size() ? line[i] : filler); };
    auto* const to = out.reserve(count + 2);  // the last group is written whole
    for (std::size_t i = 0, written = 0; written < count; i += 4, written += 3) {
        const auto bits = value(i) << 18 | value(i + 1) << 12 | value(i + 2) << 6 | value(i + 3);
        to[written] = static_cast<std::uint8_t>(bits >> 16);
        to[written + 1] = static_cast<std::uint8_t>(bits >> 8);
        to[written + 2] = static_cast<std::uint8_t>(bits);
    }
    out.commit(count);
}

}  // namespace

// The two complaints belong on standard error; the log's first sink leads there, and a host may lead it
// elsewhere.
std::optional<Data> uudecodedDataIntoFile(const Data& data, std::string* name, int* mode) {
    const auto begin = afterBegin(data.view());
    if (!begin) {
        log("Missing begin line in uuencoded data");
        return std::nullopt;
    }
    const auto& white = ByteSet::asciiWhitespaceSet();
    auto rest = *begin;
    takeUpTo(rest, white.findNonMember(rest));
    const auto modeDigits = takeUpTo(rest, white.findMember(rest));
    takeUpTo(rest, white.findNonMember(rest));
    const auto nameEnd = rest.find('\n');
    if (nameEnd == std::string_view::npos) {
        log("Malformed begin line in uuencoded data");
        return std::nullopt;
    }
    if (name != nullptr) *name = decodeCString(rest.substr(0, nameEnd));
    if (mode != nullptr) *mode = modeFrom(modeDigits);
    rest.remove_prefix(nameEnd + 1);

    ByteBuffer out(data.size() / 2);
    while (!rest.empty() && rest[0] != '\0') {
        const auto count = valueOf(rest[0]);
        if (count == 0) break;  // the line before "end", which is not looked for: it is often cut off
        rest.remove_prefix(1);
        const auto lineEnd = rest.find('\n');
        const bool isLast = lineEnd == std::string_view::npos;
        appendLine(out, rest.substr(0, lineEnd), count, isLast ? '\0' : ' ');
        rest.remove_prefix(isLast ? rest.size() : lineEnd + 1);
    }
    return out.data();
}

Data uuencodedDataWithFile(const Data& data, std::string_view name, int mode) {
    ByteBuffer out(2 * data.size());
    out.append(formatText("begin %o ", mode));
    out.append(encodeCString(name));
    out.append('\n');
    for (auto rest = data.view(); !rest.empty();) {
        const auto line = takeUpTo(rest, kLineInput);
        const auto byte = [&](std::size_t i) {
            return std::uint32_t{i < line.size() ? static_cast<std::uint8_t>(line[i]) : std::uint8_t{0}};
        };
        out.append(characterFor(static_cast<std::uint32_t>(line.size())));
        for (std::size_t i = 0; i < line.size(); i += 3) {
            const auto bits = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
            const char group[] = {characterFor(bits >> 18), characterFor(bits >> 12 & 63),
                                  characterFor(bits >> 6 & 63), characterFor(bits & 63)};
            out.append(std::string_view(group, sizeof group));
        }
        out.append('\n');
    }
    out.append("`\nend\n");
    return out.data();
}

}  // namespace lorvale
