#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"

namespace lorvale {

/// What messages are searched for on the server (RFC 3501, section 6.4.4): conditions, all of which have to
/// hold, each a few words in the protocol's order.
///
///     IMAPSearchKeys().add("UNSEEN").add("SUBJECT", "Grüße").add("NOT").add("FROM", "anna")
class LORVALE_EXPORT IMAPSearchKeys {
public:
    /// A word as it is: "UNSEEN", "NOT", "OR", "1:5".
    IMAPSearchKeys& add(std::string_view word);
    /// A word and a text, in UTF-8, that may hold anything: "SUBJECT", "BODY", "TEXT", "FROM".
    IMAPSearchKeys& add(std::string_view word, std::string_view text);

    struct Piece {
        bool isText = false;
        std::string value;
    };
    const std::vector<Piece>& pieces() const { return _pieces; }
    bool isAscii() const;  ///< so that a server needs to know no charset

private:
    std::vector<Piece> _pieces;
};

}  // namespace lorvale
