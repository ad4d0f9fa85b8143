// Encoding and decoding gives the bytes back, the fast paths do what the plain rules say, and no encoded line
// is longer than an escape and a soft break allow.
#include "fuzz/FuzzTarget.h"
#include "lorvale/mime.h"
#include "tests/support/PlainCodecs.h"

using namespace lorvale;

LORVALE_FUZZ_TARGET(text) {
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
}
