#include "mail/mime/Multipart.h"

#include <algorithm>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "base/text/DataUtils.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

constexpr auto npos = std::string_view::npos;

/// What stands behind the first line that begins with two dashes, in a body whose header forgot to say it.
std::optional<std::string> guessedBoundary(std::string_view body) {
    auto found = findBytes(body, "--");
    if (found == npos) return std::nullopt;
    if (found > 0 && body[found - 1] != '\n') {
        found = findBytes(body, "\n--");
        if (found == npos) return std::nullopt;
        ++found;
    }
    auto boundary = body.substr(found + 2);
    boundary = boundary.substr(0, boundary.find('\n'));
    log("Missing multipart boundary parameter; using \"%@\"", boundary);
    return std::string(boundary);
}

/// The pieces between the delimiters; an empty last one is left out.
std::vector<std::string_view> piecesOf(std::string_view body, std::string_view delimiter, std::size_t most) {
    std::vector<std::string_view> pieces;
    while (pieces.size() < most) {
        const auto found = findBytes(body, delimiter);
        if (found == npos) break;
        pieces.push_back(body.substr(0, found));
        body.remove_prefix(found + delimiter.size());
    }
    if (!body.empty()) pieces.push_back(body);
    return pieces;
}

/// A line that is a boundary.
struct Delimiter {
    std::size_t start = 0;  ///< of the line end before it, which belongs to it
    std::size_t end = 0;    ///< behind its own line end
    bool isClosing = false;
};

/// Finds boundary lines one after the other.
class Delimiters {
public:
    Delimiters(std::string_view body, std::string_view boundary, char lineEnd)
        : _body(body), _line("--" + std::string(boundary)), _lineEnd(lineEnd) {}

    std::optional<Delimiter> next() {
        for (;;) {
            const auto found = findBytes(_body.substr(_at), _line);
            if (found == npos) return std::nullopt;
            const auto start = _at + found;
            _at = start + _line.size();
            if (start > 0 && _body[start - 1] != _lineEnd) continue;
            if (const auto delimiter = delimiterAt(start)) return _at = delimiter->end, delimiter;
        }
    }

private:
    /// The boundary, two dashes for the last one, white space, and the end of the line or of the data.
    std::optional<Delimiter> delimiterAt(std::size_t start) const {
        Cursor rest(_body.substr(start + _line.size()));
        Delimiter delimiter;
        delimiter.isClosing = rest.skip("--");
        rest.takeWhile(isAsciiBlank);
        if (_lineEnd == '\n') rest.skip('\r');
        if (!rest.atEnd() && !rest.skip(_lineEnd)) return std::nullopt;
        delimiter.end = start + _line.size() + rest.position();
        delimiter.start = start;
        if (start > 0) --delimiter.start;
        if (_lineEnd == '\n' && start > 1 && _body[start - 2] == '\r') --delimiter.start;
        return delimiter;
    }

    const std::string_view _body;
    const std::string _line;
    const char _lineEnd;
    std::size_t _at = 0;
};

}  // namespace

// Delimiters count only with their newlines, so white space behind one, or the end of the data behind the last
// one, makes it text.  Programs that look for parts by their bytes find them where they always were.
std::optional<std::vector<Data>> splitMultipartClassically(const Data& body,
                                                           std::optional<std::string> boundary,
                                                           std::size_t most) {
    if (!boundary) boundary = guessedBoundary(body.view());
    if (!boundary) return std::nullopt;
    const auto opening = "--" + *boundary + "\n";
    auto pieces = piecesOf(body.view(), "\n" + opening, most);
    if (!pieces.empty() && pieces.front().starts_with(opening)) {
        pieces.front().remove_prefix(opening.size());
    } else if (!pieces.empty()) {
        pieces.erase(pieces.begin());  // the preamble
    }
    if (!pieces.empty())
        pieces.back() = pieces.back().substr(0, findBytes(pieces.back(), "\n--" + *boundary + "--\n"));
    std::vector<Data> parts;
    parts.reserve(pieces.size());
    for (const auto piece : pieces) parts.push_back(body.subdata(piece));
    return parts;
}

std::optional<std::vector<Data>> splitMultipartByStandard(const Data& body, std::optional<std::string> boundary,
                                                          char lineEnd, std::size_t most) {
    if (!boundary || boundary->empty()) boundary = guessedBoundary(body.view());
    if (!boundary) return std::nullopt;
    boundary->erase(boundary->find_last_not_of(kAsciiWhite) + 1);
    const auto view = body.view();
    Delimiters delimiters(view, *boundary, lineEnd);
    auto before = delimiters.next();
    if (!before) return std::nullopt;
    std::vector<Data> parts;
    while (!before->isClosing) {
        const auto after = parts.size() + 1 < most ? delimiters.next() : std::nullopt;
        // Of boundary lines that follow each other directly the last one counts.
        const auto end = after ? after->start : view.size();
        if (end >= before->end) parts.push_back(body.subdata(view.substr(before->end, end - before->end)));
        if (!after) break;
        before = after;
    }
    return parts;
}

}  // namespace lorvale
