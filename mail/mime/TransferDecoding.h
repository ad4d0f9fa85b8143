#pragma once
#include <optional>
#include <string>

#include "lorvale/mime/dialect.h"
#include "lorvale/values/data.h"

namespace lorvale {

/// What a body is behind its transfer encoding (RFC 2045, section 6).  An encoding that is not known, or none,
/// leaves the bytes as they are.  Nullopt, classic only, for uuencoded data without their first line.
std::optional<Data> decodeTransferEncoding(const Data& data, const std::optional<std::string>& encoding,
                                           MailDialect dialect);

/// Whether the encoding, by name, leaves bytes as they are.
bool isIdentityEncoding(const std::optional<std::string>& encoding);
bool isUuencode(const std::optional<std::string>& encoding, MailDialect dialect);

}  // namespace lorvale
