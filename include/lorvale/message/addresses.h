#pragma once
#include <optional>
#include <span>
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

/// uncommentedAddress() of each; nullopt for an empty list.
LORVALE_EXPORT std::optional<std::vector<std::string>> uncommentedAddressList(
    std::span<const std::string> addresses);

/// The list without the user's own addresses.
LORVALE_EXPORT std::vector<std::string> addressArrayExcludingSelf(std::span<const std::string> addresses);

/// Compares from the start without regard to case; a pair in which neither character is an ASCII letter or
/// digit is passed over, so that "Jane-Doe" matches "jane doe".
LORVALE_EXPORT bool looselyMatches(std::string_view a, std::string_view b);

/// Whether mail to this address comes to the user: by aliases, login name, full name or the alternate addresses
/// of the defaults.
LORVALE_EXPORT bool isMyAddress(std::optional<std::string_view> address);

}  // namespace lorvale
