#pragma once
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "lorvale/values/data.h"

/// Dividing the body of a multipart into the bytes of its parts (RFC 2046, section 5.1).  The pieces are slices
/// of the body; at most so many are made, and the last one then holds all that is left.  Linear in the size of
/// the body.

namespace lorvale {

/// Nullopt when no boundary was given and none can be guessed.
std::optional<std::vector<Data>> splitMultipartClassically(const Data& body,
                                                           std::optional<std::string> boundary,
                                                           std::size_t most);

/// Lines end with `lineEnd`, as for walkStandardFields().  Nullopt also when the boundary does not occur.
std::optional<std::vector<Data>> splitMultipartByStandard(const Data& body, std::optional<std::string> boundary,
                                                          char lineEnd, std::size_t most);

}  // namespace lorvale
