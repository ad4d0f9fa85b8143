#pragma once
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/mime/dialect.h"
#include "lorvale/platform/socket.h"
#include "lorvale/values/data.h"

namespace lorvale {

/// One response of a server, literals included.
struct ResponseLine {
    std::string_view bytes;  ///< with the final CRLF; good until the next read
    bool hasLiteral = false;
};

/// Reads responses off a socket, one at a time: a line and, where it announces literals, these and the lines
/// behind them.  Memory grows with what has come, never with what was announced.
class ResponseReader {
public:
    /// Most bytes of one response: the largest message that can be fetched.
    static constexpr std::size_t kResponseLimit = 512 * 1024 * 1024;

    explicit ResponseReader(MailDialect dialect) : _dialect(dialect) {}
    void setLimit(std::size_t bytes) { _limit = bytes; }

    /// Throws what the socket throws, and SocketLimitException for a response beyond the limit.
    ResponseLine read(KTSocket& socket);
    /// Those of the last response, without a copy.
    Data takeBuffer() { return _buffer.data(); }

private:
    /// How many bytes the line that was read last announces; nullopt for a complete response.
    std::optional<std::size_t> announced(std::size_t lineStart);
    std::optional<std::size_t> announcedInClassicManner();
    void readLine(KTSocket& socket);
    void readLiteral(KTSocket& socket, std::size_t length);

    const MailDialect _dialect;
    std::size_t _limit = kResponseLimit;
    ByteBuffer _buffer{4096};
    // Of the classic manner: the last brace in the buffer, and how much of that was looked at for it.
    std::size_t _lastBrace = std::string_view::npos, _searched = 0;
};

/// What a response says, as its first words tell.
struct ParsedResponse {
    enum class Kind : std::uint8_t { empty, untagged, continuation, tagged };
    Kind kind = Kind::empty;
    std::string_view key;  ///< of an untagged one, as "EXISTS" or "17"; of a tagged one the status
    std::string_view tag;  ///< of a tagged one
    std::optional<std::string_view> text;  ///< what follows
};

/// Splits a response.  A number in front of EXISTS, RECENT or EXPUNGE becomes the text and the word the key.
/// In the classic dialect no text is nullopt, in the standard one it is empty.
ParsedResponse parseResponse(const ResponseLine& line, MailDialect dialect);

}  // namespace lorvale
