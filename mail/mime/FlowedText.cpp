#include "mail/mime/FlowedText.h"

#include <algorithm>

#include "base/text/Cursor.h"

namespace lorvale {

namespace {

constexpr std::string_view kSignature = "-- ";  // section 4.3: never flows

/// How many bytes of a paragraph go on one line: all of it where it fits; else up to the last blank within the
/// width that lines are cut to, which is where the line then ends, or up to the first behind it.  No line is
/// cut so that it would read as a signature.
std::size_t lineLength(std::string_view text, std::size_t mostCharacters, std::size_t width) {
    std::size_t cut = 0, characters = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool mayCut =
            at > 0 && text[at - 1] == ' ' && text[at] != ' ' && text.substr(0, at) != kSignature;
        if (mayCut && (characters <= width || cut == 0)) cut = at;
        if (characters > mostCharacters && cut > 0) return cut;
        characters += (text[at] & 0xC0) != 0x80;  // the bytes behind the first of a character count nothing
    }
    return characters <= mostCharacters || cut == 0 ? text.size() : cut;
}

/// Section 4.4: what would read as a mark of quotation, as stuffed, or to a mailbox as its next message.
bool needsStuffing(std::string_view line) {
    return line.starts_with(' ') || line.starts_with('>') || line.starts_with("From ");
}

/// The marks of quotation in front of a line that a reader gives back as they are: a blank or nothing behind.
std::string_view quoteMarks(std::string_view line) {
    const auto marks = std::min(line.find_first_not_of('>'), line.size());
    return marks == line.size() || line[marks] == ' ' ? line.substr(0, marks) : std::string_view();
}

void appendFlowedLine(std::string& out, std::string_view line) {
    // Lines that somebody has cut already stay as they are; new ones leave room for an escaped blank.
    constexpr std::size_t kMost = 76, kWidth = 66, kNarrowest = 20;
    const auto marks = quoteMarks(line);
    line.remove_prefix(marks.empty() ? 0 : std::min(marks.size() + 1, line.size()));
    const auto beside = [&](std::size_t width) {
        return marks.size() + kNarrowest < width ? width - marks.size() : kNarrowest;
    };
    do {
        const auto piece =
            line.substr(0, line == kSignature ? line.size() : lineLength(line, beside(kMost), beside(kWidth)));
        out += marks;
        if (marks.empty() ? needsStuffing(piece) : !piece.empty()) out += ' ';
        out += piece;
        line.remove_prefix(piece.size());
        if (!line.empty()) out += '\n';
    } while (!line.empty());
}

}  // namespace

std::optional<std::string> flowedText(std::string_view text) {
    std::string out;
    out.reserve(text.size() + text.size() / 64);
    for (Cursor cursor(text); !cursor.atEnd();) {
        const auto line = cursor.takeLine();
        const bool hasEnd = cursor.takenSince(0).ends_with('\n');
        const auto content =
            line.substr(std::min(quoteMarks(line).size() + !quoteMarks(line).empty(), line.size()));
        if (line.ends_with(' ') && content != kSignature) return std::nullopt;
        appendFlowedLine(out, line);
        if (hasEnd) out += '\n';
    }
    return out;
}

std::string unflowedText(std::string_view text, bool deletesSpace) {
    std::string out;
    out.reserve(text.size());
    bool flows = false;  // whether the line before goes on
    std::size_t depth = 0;
    for (Cursor cursor(text); !cursor.atEnd();) {
        auto line = cursor.takeLine();
        const bool hasEnd = cursor.takenSince(0).ends_with('\n');
        const auto marks = std::min(line.find_first_not_of('>'), line.size());
        line.remove_prefix(marks);
        if (line.starts_with(' ')) line.remove_prefix(1);  // section 4.4: stuffed
        const bool isSignature = line == kSignature;
        if (flows && (marks != depth || isSignature)) {
            out += '\n';
            flows = false;
        }
        if (!flows) {
            out.append(marks, '>');
            if (marks > 0 && !line.empty()) out += ' ';
        }
        depth = marks;
        flows = line.ends_with(' ') && !isSignature;
        if (flows && deletesSpace) line.remove_suffix(1);
        out += line;
        if (!flows && hasEnd) out += '\n';
    }
    if (flows) out += '\n';
    return out;
}

}  // namespace lorvale
