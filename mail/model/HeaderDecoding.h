#pragma once
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/message/headers.h"

namespace lorvale {

/// Parses a header block: adds to the three tables.  Reads up to the first empty line or the end; never fails.
/// Linear in the size of the block, but for the logarithm of a look-up by name.
void decodeHeaderBlock(std::string_view bytes, HeaderDictionary& headers, HeaderOrder& order,
                       OriginalKeys& originalKeys);

/// The first value of each of a few headers, as decodeHeaderBlock() gives them, without the work for all the
/// others: for listings.  `keys` are in lower case.
std::vector<std::optional<std::string>> firstValuesInBlock(std::string_view bytes,
                                                           std::span<const std::string_view> keys);

/// The cached headers alone, under the names as the block spells them, without the work for all the others:
/// for a store that lists its messages from their bytes.  The values are those decodeHeaderBlock() gives first.
CachedHeaders cachedHeadersInBlock(std::string_view bytes);

/// The value of the pseudo-header "from " alone, for a block that begins with an envelope line; nullopt for
/// others.
std::optional<std::string> envelopeInBlock(std::string_view bytes);

}  // namespace lorvale
