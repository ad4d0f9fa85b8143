#pragma once
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/message/headers.h"
#include "lorvale/mime/dialect.h"

/// Header blocks from bytes.  Nothing here fails, and all is linear in the size of the block, but for the
/// logarithm of a look-up by name.

namespace lorvale {

/// Parses a header block: adds to the three tables.  Reads up to the first empty line or the end.
void decodeHeaderBlock(std::string_view bytes, HeaderDictionary& headers, HeaderOrder& order,
                       OriginalKeys& originalKeys, MailDialect dialect = mailDialect());

/// The first value of each of a few headers, as decodeHeaderBlock() gives them, without the work for all the
/// others: for listings.  `keys` are in lower case.
std::vector<std::optional<std::string>> firstValuesInBlock(std::string_view bytes,
                                                           std::span<const std::string_view> keys,
                                                           MailDialect dialect = mailDialect());

/// The same for the cached headers, under the names as the block spells them: for a store that lists its
/// messages from their bytes.
CachedHeaders cachedHeadersInBlock(std::string_view bytes, MailDialect dialect = mailDialect());

/// The value of the pseudo-header "from " alone, for a block that begins with an envelope line; nullopt for
/// others.
std::optional<std::string> envelopeInBlock(std::string_view bytes, MailDialect dialect = mailDialect());

/// How many bytes of a message are its header block with the empty line that ends it; nullopt when there is no
/// such line.  Only the standard dialect sees one that ends with CRLF.
std::optional<std::size_t> headerEnd(std::string_view message, MailDialect dialect = mailDialect());

/// The same, but all bytes of a message without an empty line.
std::size_t headerLength(std::string_view message, MailDialect dialect = mailDialect());

}  // namespace lorvale
