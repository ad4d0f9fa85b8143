#pragma once
#include <string_view>

#include "lorvale/values/attributed_text.h"

/// Enriched text (RFC 1896) and its forerunner, as attributed text.

namespace lorvale {

AttributedText textFromEnriched(std::string_view text);
AttributedText textFromRichText(std::string_view text);

}  // namespace lorvale
