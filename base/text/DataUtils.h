#pragma once
#include <cstddef>
#include <string_view>
#include <vector>

#include "lorvale/values/data.h"
#include "lorvale/values/range.h"

/// Searching in bytes.

namespace lorvale {

/// The bits of a search's options.
inline constexpr unsigned kCaseInsensitiveSearch = 1;
inline constexpr unsigned kBackwardsSearch = 4;
/// The match must stand at the start of the range; with kBackwardsSearch, at its end.
inline constexpr unsigned kAnchoredSearch = 8;

/// The bytes before the index, and from it on.  Throw RangeException for an index past the end.
Data subdataToIndex(const Data& data, std::size_t index);
Data subdataFromIndex(const Data& data, std::size_t index);

/// Where `bytes` stand in the range, or not found; an empty pattern is nowhere.  Throws RangeException for a
/// range that leaves the data.  Without case means that A to Z are the same as a to z.
Range rangeOfBytes(const Data& data, std::string_view bytes, unsigned options, Range range);
Range rangeOfData(const Data& data, const Data& pattern, unsigned options = 0);
Range rangeOfData(const Data& data, const Data& pattern, unsigned options, Range range);
Range rangeOfCString(const Data& data, std::string_view pattern, unsigned options = 0);
Range rangeOfCString(const Data& data, std::string_view pattern, unsigned options, Range range);

/// Where the pattern first stands in the text, or npos; 0 for an empty one.  In linear time, whatever the two
/// are, which std::string_view::find does not promise.
std::size_t findBytes(std::string_view text, std::string_view pattern);

/// The pieces between the matches, as slices.  An empty piece between two matches stays, an empty last one
/// does not.
std::vector<Data> componentsSeparatedByData(const Data& data, const Data& separator);

/// Compares with A to Z as a to z: the difference of the first unequal pair of bytes, or 0.
int memcasecmp(const void* a, const void* b, std::size_t count);

}  // namespace lorvale
