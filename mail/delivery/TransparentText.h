#pragma once
#include <cstddef>
#include <string>
#include <string_view>

#include "lorvale/mime/dialect.h"

namespace lorvale {

/// A text in the form in which it travels between DATA and the dot, a stretch at a time: lines end with CRLF,
/// and a dot that starts one is doubled (RFC 5321, section 4.5.2).  Borrows the text.
class TransparentText {
public:
    TransparentText(std::string_view text, MailDialect dialect) : _text(text), _dialect(dialect) {}

    /// Appends the next stretch, some `size` bytes; false when there is no more.
    bool appendTo(std::string& out, std::size_t size);
    /// How much of the text has been taken.
    std::size_t position() const { return _position; }

private:
    void appendEnd(std::string& out) const;

    std::string_view _text;
    std::size_t _position = 0;
    MailDialect _dialect;
};

}  // namespace lorvale
