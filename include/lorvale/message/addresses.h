#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"

/// Mail addresses as they stand in headers.  All operations are linear and take any bytes.

namespace lorvale {

/// The entries of a list of addresses: the text cut at commas outside double quotes.  Nullopt for an empty
/// text.
LORVALE_EXPORT std::optional<std::vector<std::string>> addressList(std::string_view text);

/// The pure address: "jd" for "Jane (home) <jd>" and for "jd (Jane)".
LORVALE_EXPORT std::string uncommentedAddress(std::string_view text);

/// The name a person reads: "Jane" for "Jane <jd>" and for "jd (Jane)"; the text itself when there is no name.
LORVALE_EXPORT std::string addressComment(std::string_view text);

}  // namespace lorvale
