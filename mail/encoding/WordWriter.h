#pragma once
#include <string>
#include <string_view>

#include "lorvale/values/encoding.h"
#include "mail/encoding/LineFolder.h"

namespace lorvale {

/// Writes encoded words (RFC 2047): each closed, of at most 75 characters, never cut inside a character, in
/// US-ASCII, the preferred charset or UTF-8, in the Q or the B encoding by what is shorter.
class WordWriter {
public:
    /// `preferred` may be unknown; it serves where it holds all of a text and has a name that mail knows.
    WordWriter(LineFolder& lines, StringEncoding preferred) : _lines(lines), _preferred(preferred) {}

    /// `text` is valid UTF-8 and not empty.  `white` stands before the first word.
    void write(std::string_view white, std::string_view text);

private:
    LineFolder& _lines;
    const StringEncoding _preferred;
};

/// Valid UTF-8 in which nothing ends a line: a caller's or a stranger's line ends, with the white space behind
/// them, and control characters other than the tab are each one blank.
std::string harmlessText(std::string_view text);

/// Whether a word of plain text has to be encoded: for bytes outside ASCII, for what could be taken for an
/// encoded word, and for a length that no line holds.
bool needsWords(std::string_view text);

}  // namespace lorvale
