#include <algorithm>
#include <optional>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "mail/encoding/HeaderWords.h"
#include "mail/encoding/LineFolder.h"
#include "mail/encoding/WordWriter.h"

namespace lorvale {

namespace {

struct Word {
    std::string_view white, text;  ///< the white space in front of it, and the word
};

Word takeWordOfText(Cursor& cursor) {
    const auto white = cursor.takeWhile(isAsciiBlank);
    return {white, cursor.takeUntil(isAsciiBlank)};
}

/// Where the part begins that has to be in encoded words.  White space at the ends, and so much of it that a
/// line could be nothing else, would get lost otherwise.
std::optional<std::size_t> encodedPart(std::string_view text) {
    constexpr std::size_t kMostWhite = 40;
    std::size_t before = 0;  // where the word before begins
    Cursor cursor(text);
    while (!cursor.atEnd()) {
        const auto word = takeWordOfText(cursor);
        const auto start = cursor.position() - word.text.size();
        const bool isOuter = !word.white.empty() && (word.text.empty() || start == word.white.size());
        if (isOuter || word.white.size() > kMostWhite) return before;
        if (needsWords(word.text)) return start;
        before = start;
    }
    return std::nullopt;
}

void addPlain(LineFolder& lines, std::string_view text) {
    Cursor cursor(text);
    while (!cursor.atEnd()) {
        const auto word = takeWordOfText(cursor);
        lines.add(word.white, word.text);
    }
}

}  // namespace

std::string writeStandardWords(std::string_view text, std::size_t column, StringEncoding preferred) {
    const auto value = harmlessText(text);
    LineFolder lines(column);
    auto start = encodedPart(value);
    if (!start) {
        addPlain(lines, value);
        return lines.take();
    }
    // From there on all is encoded, and all in front of it stays on the first line: then readers that drop a
    // blank behind a word or at a fold, as our classic one does, read the same text.
    if (column + *start > LineFolder::kWidth) start = 0;
    const auto plain = std::string_view(value).substr(0, *start);
    const auto end = plain.find_last_not_of(" \t") + 1;
    addPlain(lines, plain.substr(0, end));
    WordWriter(lines, preferred).write(plain.substr(end), std::string_view(value).substr(*start));
    return lines.take();
}

std::string writeStandardStructure(std::string_view text, std::size_t column) {
    LineFolder lines(column);
    const auto value = harmlessText(text);
    const auto start = std::min(value.find_first_not_of(" \t"), value.size());
    addPlain(lines, std::string_view(value).substr(start, value.find_last_not_of(" \t") + 1 - start));
    return lines.take();
}

}  // namespace lorvale
