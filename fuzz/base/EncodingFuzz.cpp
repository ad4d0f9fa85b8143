#include "fuzz/FuzzTarget.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/text.h"

// The first byte chooses the encoding.  Whatever the bytes, a lossy reading is valid text and agrees with the
// strict one where that succeeds; what can be converted reads back the same.
LORVALE_FUZZ_TARGET(bytes) {
    using namespace lorvale;
    if (bytes.empty()) return;
    const auto encodings = availableStringEncodings();
    const auto encoding = encodings[static_cast<std::uint8_t>(bytes[0]) % encodings.size()].encoding;
    const auto input = bytes.substr(1);

    const auto lossy = decodeLossy(input, encoding);
    if (!isValidUtf8(lossy)) std::abort();
    if (const auto strict = decode(input, encoding); strict && *strict != lossy) std::abort();
    if (!isValidUtf8(decodeCString(input))) std::abort();

    const auto encoded = encode(input, encoding);
    if (encoded.has_value() != canConvert(input, encoding)) std::abort();
    if (encoded && decode(encoded->view(), encoding) != input) std::abort();
    if (!encode(input, encoding, Lossy::yes)) std::abort();
}
