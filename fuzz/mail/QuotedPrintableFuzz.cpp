// Encoding and decoding gives the bytes back, the fast paths do what the plain rules say, and no encoded line
// is longer than an escape and a soft break allow.
#include "fuzz/mail/CodecFuzz.h"
#include "lorvale/mime.h"
#include "tests/support/PlainCodecs.h"

using namespace lorvale;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const auto text = fuzz::viewOf(bytes, size);
    const auto data = Data::ofStatic(text);
    const auto encoded = encodeQuotedPrintable(data);
    fuzz::require(encoded.view() == testing::plainEncodeQuotedPrintable(text));
    fuzz::require(decodeQuotedPrintable(encoded) == data);
    for (auto rest = encoded.view(); !rest.empty();) {
        const auto end = rest.find('\n');
        fuzz::require(end <= 77);
        rest.remove_prefix(end + 1);
    }
    fuzz::require(decodeQuotedPrintable(data).view() == testing::plainDecodeQuotedPrintable(text));
    return 0;
}
