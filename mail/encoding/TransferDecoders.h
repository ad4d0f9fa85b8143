#pragma once
#include <string_view>

#include "lorvale/values/data.h"

/// The decoders of mime.h on borrowed bytes, for callers that decode many small pieces into one buffer.

namespace lorvale {

void appendDecodedBase64(ByteBuffer& out, std::string_view in);
void appendDecodedQuotedPrintable(ByteBuffer& out, std::string_view in);

}  // namespace lorvale
