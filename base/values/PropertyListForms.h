#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/values/property_list.h"

namespace lorvale {

// The two forms of property lists in files.  Readers answer nullopt for what is none, is damaged or goes beyond
// the limits of PropertyList.

bool isBinaryPropertyList(std::string_view bytes);
std::optional<PropertyList> propertyListFromBinary(std::string_view bytes);
std::optional<PropertyList> propertyListFromXml(std::string_view bytes);

/// Nullopt beyond the limits, and an empty text for a null value.
std::optional<std::string> xmlFromPropertyList(const PropertyList& value);

/// XML has no way to write control characters, U+FFFE, U+FFFF and bytes that are not UTF-8.  Each of their
/// bytes is written as a private character that no text uses, U+10F700 plus the byte.  Where a text does use
/// one of these 256 characters, its bytes are written in that way, too, so that reading gives back any bytes.
std::string withBytesForXml(std::string_view text);
std::string withBytesFromXml(std::string text);

}  // namespace lorvale
