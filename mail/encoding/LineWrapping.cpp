#include "mail/encoding/LineWrapping.h"

#include "base/text/Cursor.h"

namespace lorvale {

namespace {

constexpr std::string_view kSeparator = "From ";

/// How much of a line that is too long comes before the cut; all of it when there is no blank to cut behind.
std::size_t cutIn(std::string_view line, std::size_t column) {
    auto blank = line.substr(0, column).rfind(' ');
    if (blank == std::string_view::npos) blank = line.find(' ', column);
    return blank == std::string_view::npos ? line.size() : blank + 1;
}

}  // namespace

void appendDataWrapped(ByteBuffer& out, std::string_view text, std::size_t atColumn, bool escapesFrom) {
    const auto appendLine = [&](std::string_view line) {
        if (escapesFrom && line.starts_with(kSeparator)) out.append('>');
        out.append(line);
    };
    for (Cursor cursor(text); !cursor.atEnd();) {
        auto line = cursor.takeUntil('\n');
        while (atColumn > 0 && line.size() > atColumn) {
            const auto cut = cutIn(line, atColumn);
            if (cut == line.size()) break;
            appendLine(line.substr(0, cut));
            out.append('\n');
            line.remove_prefix(cut);
        }
        appendLine(line);
        if (cursor.skip('\n')) out.append('\n');
    }
}

}  // namespace lorvale
