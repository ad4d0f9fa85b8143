#include "mail/model/HeaderLines.h"

#include <algorithm>

#include "base/text/Ascii.h"

namespace lorvale {

// Only what holds no newline at all, as files of old Macintoshes, is taken to have lines that end with CR.
HeaderLines::HeaderLines(std::string_view block, MailDialect dialect)
    : _block(block),
      _rest(block),
      _dialect(dialect),
      _lineEnd(dialect == MailDialect::standard && block.find('\n') == std::string_view::npos ? '\r' : '\n') {}

std::optional<std::string_view> HeaderLines::next() {
    return _dialect == MailDialect::classic ? nextClassic() : nextStandard();
}

/// Up to and with the line end; answers how many bytes stand before that.
std::size_t HeaderLines::takePhysicalLine() {
    const auto length = std::min(_rest.find(_lineEnd), _rest.size());
    _rest.remove_prefix(std::min(length + 1, _rest.size()));
    return length;
}

/// Lines end with a newline alone.  An empty line before an indented one is folded like any other, and what is
/// left of a line without its folds tells whether it is the end: programs that write such blocks get back what
/// they always did.
std::optional<std::string_view> HeaderLines::nextClassic() {
    const auto start = _rest;
    std::size_t length = 0, unfoldedLength = 0;
    for (;;) {
        const bool ended = _rest.find('\n') == std::string_view::npos;
        const auto piece = takePhysicalLine();
        length += piece;
        unfoldedLength += piece;
        if (_rest.empty() || !isAsciiBlank(_rest.front())) {
            // Less than two bytes, the newline counted, are no header line any more.
            if (unfoldedLength + (ended ? 0 : 1) < 2) return std::nullopt;
            return start.substr(0, length);
        }
        length += 2;
        _rest.remove_prefix(1);
    }
}

/// RFC 5322, sections 2.1 and 2.2.3; a newline alone, as files have it, ends a line as CRLF does.
std::optional<std::string_view> HeaderLines::nextStandard() {
    const auto start = _rest;
    std::size_t length = 0;
    do length = start.size() - _rest.size() + takePhysicalLine();
    while (length > 1 && !_rest.empty() && isAsciiBlank(_rest.front()));
    auto line = start.substr(0, length);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (!line.empty()) return line;
    _sawEmptyLine = !start.empty();
    return std::nullopt;
}

std::string_view HeaderLines::unfolded(std::string_view part) {
    if (part.find(_lineEnd) == std::string_view::npos) return part;
    _unfolded.clear();
    while (!part.empty()) {
        const auto length = std::min(part.find(_lineEnd), part.size());
        _unfolded += part.substr(0, length);
        part.remove_prefix(std::min(length + 1, part.size()));
        if (_dialect == MailDialect::standard) {
            if (!part.empty() && _unfolded.ends_with('\r')) _unfolded.pop_back();
        } else if (!part.empty()) {
            part.remove_prefix(1);
        }
    }
    return _unfolded;
}

}  // namespace lorvale
