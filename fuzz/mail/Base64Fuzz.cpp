// Encoding and decoding gives the bytes back, and every kernel does what the plain rules say.
#include "fuzz/FuzzTarget.h"
#include "mail/encoding/Base64Kernels.h"
#include "tests/support/PlainCodecs.h"

using namespace lorvale;

LORVALE_FUZZ_TARGET(text) {
    const auto data = Data::ofStatic(text);
    const auto encoded = testing::plainEncodeBase64(text);
    const auto decoded = testing::plainDecodeBase64(text);
    for (const auto& kernels : base64Kernels()) {
        fuzz::require(encodeBase64(data, kernels).view() == encoded);
        ByteBuffer back, out;
        appendDecodedBase64(back, encoded, kernels);
        fuzz::require(back.view() == text);
        appendDecodedBase64(out, text, kernels);
        fuzz::require(out.view() == decoded);
    }
}
