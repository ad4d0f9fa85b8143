#include "mail/imap/ResponseReader.h"

#include <algorithm>
#include <array>
#include <limits>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "base/text/TextScanner.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"
#include "mail/imap/Digits.h"

namespace lorvale {

ResponseLine ResponseReader::read(KTSocket& socket) {
    _buffer.truncate(0);
    _lastBrace = std::string_view::npos;
    _searched = 0;
    ResponseLine response;
    std::size_t lineStart = 0;
    readLine(socket);
    while (const auto length = announced(lineStart)) {
        readLiteral(socket, *length);
        response.hasLiteral = true;
        lineStart = _buffer.size();
        readLine(socket);
    }
    response.bytes = _buffer.view();
    return response;
}

void ResponseReader::readLine(KTSocket& socket) {
    socket.readLine(_buffer);
    if (_buffer.size() > _limit)
        throw SocketLimitException(formatText("a response of more than %d bytes", _limit));
}

void ResponseReader::readLiteral(KTSocket& socket, std::size_t length) {
    if (length > _limit - std::min(_limit, _buffer.size()))
        throw SocketLimitException(formatText("a literal of %d bytes", length));
    if (!socket.readBytes(_buffer, length)) log("didn't read enough bytes!!!!");
}

std::optional<std::size_t> ResponseReader::announced(std::size_t lineStart) {
    const auto line = _buffer.view().substr(lineStart);
    if (!line.ends_with("}\r\n")) return std::nullopt;
    if (_dialect == MailDialect::classic) return announcedInClassicManner();
    const auto brace = line.rfind('{');
    if (brace == std::string_view::npos) return std::nullopt;
    const auto digits = line.substr(brace + 1, line.size() - brace - 4);
    if (digits.empty() || !std::ranges::all_of(digits, isAsciiDigit)) return std::nullopt;
    return wholeNumber<std::size_t>(digits).value_or(std::numeric_limits<std::size_t>::max());
}

/// The brace may stand in an earlier line or in a literal, and what follows it need be no number: the next line
/// then belongs to the response too.  Servers that break a line behind a brace have been read that way from the
/// start.
std::optional<std::size_t> ResponseReader::announcedInClassicManner() {
    const auto all = _buffer.view();
    const auto brace = all.substr(_searched).rfind('{');
    if (brace != std::string_view::npos) _lastBrace = _searched + brace;
    _searched = all.size();
    if (_lastBrace == std::string_view::npos) return 0;
    TextScanner number(all.substr(_lastBrace + 1, 64));
    int length = 0;
    return number.scanInt(&length) && length > 0 ? static_cast<std::size_t>(length) : 0;
}

namespace {

constexpr auto kSwapped = std::to_array<std::string_view>({"EXISTS", "EXPUNGE", "RECENT"});

/// A word, with the white space in front of it taken too.
std::string_view takeWord(Cursor& cursor) {
    cursor.takeWhile(isAsciiWhite);
    return cursor.takeUntil(isAsciiWhite);
}

std::optional<std::string_view> takeText(Cursor& cursor, MailDialect dialect) {
    if (dialect == MailDialect::standard) {
        cursor.skip(' ');
        return cursor.takeUntil("\r\n");
    }
    cursor.takeWhile(isAsciiWhite);
    const auto text = cursor.takeUntil("\r\n");
    return text.empty() ? std::nullopt : std::optional(text);
}

/// What stands behind the number, with the same end.
std::optional<std::string_view> textWithLiterals(Cursor& cursor, MailDialect dialect) {
    if (dialect == MailDialect::standard) cursor.skip(' ');
    return cursor.takeRest();
}

ParsedResponse parseUntagged(Cursor& cursor, bool hasLiteral, MailDialect dialect) {
    ParsedResponse response{ParsedResponse::Kind::untagged, takeWord(cursor), {}, std::nullopt};
    response.text = hasLiteral ? textWithLiterals(cursor, dialect) : takeText(cursor, dialect);
    if (!response.text || response.text->size() >= 8) return response;
    const auto word = std::ranges::find_if(
        kSwapped, [&](std::string_view each) { return equalIgnoringAsciiCase(each, *response.text); });
    if (word == kSwapped.end()) return response;
    // As the server spelled it in the classic dialect, where only capitals are what a caller looks for.
    const auto number = response.key;
    response.key = dialect == MailDialect::classic ? *response.text : *word;
    response.text = number;
    return response;
}

}  // namespace

ParsedResponse parseResponse(const ResponseLine& line, MailDialect dialect) {
    Cursor cursor(line.bytes);
    const auto first = takeWord(cursor);
    if (first.empty()) return {};
    if (first == "*") return parseUntagged(cursor, line.hasLiteral, dialect);
    if (first == "+") {
        auto text = takeText(cursor, dialect);
        return {ParsedResponse::Kind::continuation, {}, {}, text};
    }
    const auto status = takeWord(cursor);
    return {ParsedResponse::Kind::tagged, status, first, takeText(cursor, dialect)};
}

}  // namespace lorvale
