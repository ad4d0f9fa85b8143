#pragma once
#include <cstddef>
#include <string>
#include <string_view>

#include "lorvale/mime/dialect.h"
#include "lorvale/values/encoding.h"

/// The header codecs of mime.h with a given preferred encoding, which may be unknown, and those of the standard
/// dialect for values that are no plain text.

namespace lorvale {

std::string decodeHeaderValue(std::string_view text, StringEncoding preferred,
                              MailDialect dialect = mailDialect());
std::string encodeHeaderValue(std::string_view text, StringEncoding preferred,
                              MailDialect dialect = mailDialect());

/// A list of addresses with its encoded words read; it can still be taken apart (lorvale/message/mailboxes.h).
std::string decodeAddressHeader(std::string_view bytes);
/// A value in which no encoded word stands, such as `Message-ID:` or `Content-Type:`.
std::string decodeStructuredHeader(std::string_view bytes);

// Folded with "\n" in front of white space.  `column` is how much of the first line is taken.
std::string encodeTextHeader(std::string_view text, std::size_t column);
std::string encodeAddressHeader(std::string_view text, std::size_t column);
std::string encodeStructuredHeader(std::string_view text, std::size_t column);

}  // namespace lorvale
