#pragma once
#include <string_view>

#include "lorvale/values/data.h"

/// The decoders of mime.h on borrowed bytes, for callers that decode many small pieces into one buffer.

namespace lorvale {

void appendDecodedBase64(ByteBuffer& out, std::string_view in);
void appendDecodedQuotedPrintable(ByteBuffer& out, std::string_view in);

// What bodies are in the standard dialect.

/// RFC 2045, section 6.8, and RFC 4648, section 3.2: pads may be missing; bytes outside the alphabet are passed
/// over, those above 0x7F too.
void appendStandardBase64(ByteBuffer& out, std::string_view in);
/// RFC 2045, section 6.7: lines end with CRLF or LF, and "=" without two digits stands for itself.  White space
/// in front of a line end stays, against that section, as in the other readers of today: no transport adds it
/// any more, and flowed text lives by it.
void appendStandardQuotedPrintable(ByteBuffer& out, std::string_view in);

}  // namespace lorvale
