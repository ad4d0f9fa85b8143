#pragma once
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/message/addresses.h"

/// More operations on mail addresses as they stand in headers.  All are linear and take any bytes.

namespace lorvale {

/// uncommentedAddress() of each; nullopt for an empty list.
std::optional<std::vector<std::string>> uncommentedAddressList(std::span<const std::string> addresses);

/// The list without the user's own addresses.
std::vector<std::string> addressArrayExcludingSelf(std::span<const std::string> addresses);

/// Compares from the start without regard to case; a pair in which neither character is an ASCII letter or
/// digit is passed over, so that "Jane-Doe" matches "jane doe".
bool looselyMatches(std::string_view a, std::string_view b);

/// Whether mail to this address comes to the user: by aliases, login name, full name or the alternate addresses
/// of the defaults.
bool isMyAddress(std::optional<std::string_view> address);

}  // namespace lorvale
