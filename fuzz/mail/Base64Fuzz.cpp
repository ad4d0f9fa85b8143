// Encoding and decoding gives the bytes back, and every kernel does what the plain rules say.
#include "fuzz/mail/CodecFuzz.h"
#include "lorvale/mime.h"
#include "mail/encoding/Base64Kernels.h"
#include "tests/support/PlainCodecs.h"

using namespace lorvale;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const auto text = fuzz::viewOf(bytes, size);
    const auto data = Data::ofStatic(text);
    const auto encoded = encodeBase64(data);
    fuzz::require(encoded.view() == testing::plainEncodeBase64(text));
    fuzz::require(encodeBase64(data, kPortableBase64Kernels) == encoded);
    fuzz::require(decodeBase64(encoded) == data);

    const auto decoded = testing::plainDecodeBase64(text);
    fuzz::require(decodeBase64(data).view() == decoded);
    ByteBuffer portably;
    appendDecodedBase64(portably, text, kPortableBase64Kernels);
    fuzz::require(portably.view() == decoded);
    return 0;
}
