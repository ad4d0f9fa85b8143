#pragma once
#include <string>
#include <string_view>

#include "lorvale/values/encoding.h"

/// The header codecs of mime.h with a given preferred encoding, which may be unknown.

namespace lorvale {

std::string decodeHeaderValue(std::string_view text, StringEncoding preferred);
std::string encodeHeaderValue(std::string_view text, StringEncoding preferred);

}  // namespace lorvale
