#include "mail/mime/TextBlocks.h"

#include <algorithm>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "base/text/DataUtils.h"
#include "base/text/NamedCharset.h"
#include "lorvale/mime.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

std::string_view withoutReturn(std::string_view line) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

std::string nameFrom(std::string_view bytes) {
    return decodeUnlabelled(trimmed(bytes), preferedMIMEStringEncoding());
}

/// The name in "begin 644 name"; nullopt for another line.
std::optional<std::string_view> nameInBeginLine(std::string_view line) {
    Cursor cursor(line);
    if (!cursor.skip("begin ")) return std::nullopt;
    const auto mode = cursor.takeWhile([](char c) { return c >= '0' && c <= '7'; });
    if (mode.size() < 3 || mode.size() > 5 || !cursor.skip(' ')) return std::nullopt;
    return trimmed(cursor.rest());
}

/// How many bytes a line of data says it holds; nullopt when it cannot be one.
std::optional<std::size_t> bytesOfUuLine(std::string_view line) {
    const auto isSymbol = [](char c) { return c >= ' ' && c <= '`'; };
    if (line.empty() || !std::ranges::all_of(line, isSymbol)) return std::nullopt;
    const auto count = (static_cast<std::size_t>(line[0]) - 0x20) & 0x3F;
    const auto symbols = (count + 2) / 3 * 4;
    // Blanks at its end may have been cut off; some programs add a checksum.
    constexpr std::size_t kMostMissing = 8, kMostMore = 3;
    if (line.size() - 1 + kMostMissing < symbols || line.size() - 1 > symbols + kMostMore) return std::nullopt;
    return count;
}

/// Where the lines of data end, and the block with its line "end".
struct UuEnd {
    std::size_t ofData, ofBlock;
};

/// Of the block whose data begin at the cursor; nullopt when it is none.
std::optional<UuEnd> endOfUuBlock(Cursor cursor) {
    bool hasData = false;
    while (!cursor.atEnd()) {
        const auto start = cursor.position();
        const auto line = withoutReturn(cursor.takeLine());
        if (line == "end") return hasData ? std::optional(UuEnd{start, cursor.position()}) : std::nullopt;
        const auto count = bytesOfUuLine(line);
        if (!count && !trimmed(line).empty()) return std::nullopt;
        hasData = hasData || count.value_or(0) > 0;
    }
    return std::nullopt;
}

/// The decoder takes a line "end" for data where no empty line stands before it.
TextBlock uuBlock(const Data& text, std::size_t start, UuEnd end, std::string_view name) {
    const auto lines = text.subdata(Range{start, end.ofData - start});
    return {start, end.ofBlock, nameFrom(name),
            uudecodedDataIntoFile(lines, nullptr, nullptr).value_or(Data())};
}

/// The value of "name=" in a control line of yEnc; that of the name itself, which comes last, is all that
/// follows.
std::optional<std::string_view> yEncValue(std::string_view line, std::string_view key) {
    const auto found = findBytes(line, " " + std::string(key) + "=");
    if (found == std::string_view::npos) return std::nullopt;
    const auto value = line.substr(found + key.size() + 2);
    return key == "name" ? trimmed(value) : value.substr(0, value.find(' '));
}

Data yEncDecoded(std::string_view lines) {
    ByteBuffer out(lines.size());
    bool escaped = false;
    for (const char c : lines) {
        if (c == '\r' || c == '\n') continue;
        if (c == '=' && !escaped) {
            escaped = true;
            continue;
        }
        out.append(static_cast<std::uint8_t>(static_cast<std::uint8_t>(c) - (escaped ? 42 + 64 : 42)));
        escaped = false;
    }
    return out.data();
}

/// The block whose first line has just been taken; nullopt without its last line.
std::optional<TextBlock> yEncBlock(std::size_t start, std::string_view beginLine, Cursor cursor) {
    const auto name = yEncValue(beginLine, "name");
    if (!name || !yEncValue(beginLine, "size")) return std::nullopt;
    if (cursor.rest().starts_with("=ypart ")) cursor.takeLine();
    const auto data = cursor.takeUntil("\n=yend ");
    if (cursor.atEnd()) return std::nullopt;
    cursor.advance();
    cursor.takeLine();
    return TextBlock{start, cursor.position(), nameFrom(*name), yEncDecoded(data)};
}

}  // namespace

std::optional<TextBlock> firstUuencodedBlock(const Data& text) {
    for (Cursor cursor(text.view()); !cursor.atEnd();) {
        const auto start = cursor.position();
        const auto name = nameInBeginLine(withoutReturn(cursor.takeLine()));
        if (!name) continue;
        const auto found = findBytes(cursor.rest(), "\nend");
        const auto end = found == std::string_view::npos ? text.size() : cursor.position() + found + 1;
        return uuBlock(text, start, {end, text.size()}, *name);
    }
    return std::nullopt;
}

std::vector<TextBlock> blocksInText(const Data& text) {
    std::vector<TextBlock> blocks;
    const auto view = text.view();
    // Behind the last line that could end a block no block begins, so that openers alone cost nothing.
    const auto endsBefore = [](std::size_t found) { return found == std::string_view::npos ? 0 : found; };
    const auto lastYEnd = endsBefore(view.rfind("\n=yend ")), lastEnd = endsBefore(view.rfind("\nend"));
    if (lastYEnd == 0 && lastEnd == 0) return blocks;
    for (Cursor cursor(view); !cursor.atEnd();) {
        const auto start = cursor.position();
        const auto line = withoutReturn(cursor.takeLine());
        std::optional<TextBlock> block;
        if (start < lastYEnd && line.starts_with("=ybegin ")) {
            block = yEncBlock(start, line, cursor);
        } else if (const auto name = nameInBeginLine(line); name && start < lastEnd) {
            if (const auto end = endOfUuBlock(cursor)) block = uuBlock(text, start, *end, *name);
        }
        if (!block) continue;
        cursor.moveTo(block->end);
        blocks.push_back(*std::move(block));
    }
    return blocks;
}

}  // namespace lorvale
