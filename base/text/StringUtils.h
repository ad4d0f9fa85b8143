#pragma once
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/values/data.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/range.h"

/// Small operations on text.  Ranges count characters.

namespace lorvale {

bool isCaseEqual(std::string_view a, std::string_view b);
bool hasCasePrefix(std::string_view text, std::string_view prefix);
bool hasCaseSuffix(std::string_view text, std::string_view suffix);
/// How many bytes of the text its case-insensitive prefix takes, which may be more or fewer than the bytes of
/// the prefix itself; nullopt when the text does not begin with it.
std::optional<std::size_t> casePrefixLength(std::string_view text, std::string_view prefix);

/// The data read in the encoding; nullopt for no data and for data that are not valid in it.
std::optional<std::string> stringWithData(const std::optional<Data>& data, StringEncoding encoding);

/// The range clipped to the text.
Range validRange(std::string_view text, Range range);
/// The range without leading blanks, tabs and newlines; empty at its end when there is nothing else.
Range clearwhite(std::string_view text, Range range);
/// The range without trailing ones; {0, 0} when there is nothing else.
Range rclearwhite(std::string_view text, Range range);

/// The text without the prefix, removed as often as it is there.
std::string_view stringByRemovingPrefix(std::string_view text, std::string_view prefix, bool ignoreCase);

/// With each backslash doubled.
std::string _fixStringForShell(std::string_view text);
/// The text before the first comma.
std::string_view _tarnReferenceName(std::string_view text);
/// One byte a character, with a blank for each one above 0x7F, so that byte offsets are character offsets.
std::string cStringWithSpaces(std::string_view text);

}  // namespace lorvale
