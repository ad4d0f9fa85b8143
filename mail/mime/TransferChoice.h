#pragma once
#include <cstddef>
#include <string_view>

#include "lorvale/mime/dialect.h"

/// Which transfer encoding a body needs.

namespace lorvale {

enum class BodyKind { text, message, other };

/// "7bit", "8bit" (messages alone), "quoted-printable" or "base64".  Classic: bodies of lines that are all
/// shorter than `lineLength` may go as they are.  Standard: so may lines of RFC 5322, section 2.1.1, unless
/// something on the way changes them.
std::string_view transferEncodingFor(std::string_view body, BodyKind kind, std::size_t lineLength,
                                     MailDialect dialect);

/// Whether a body may stand in a letter as it is, under RFC 2045, section 2.7 or 2.8.
bool canGoAs7bit(std::string_view body);
bool canGoAs8bit(std::string_view body);

}  // namespace lorvale
