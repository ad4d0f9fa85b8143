#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "lorvale/values/encoding.h"
#include "lorvale/values/text.h"

// The first byte chooses the encoding.  Whatever the bytes, a lossy reading is valid text and agrees with the
// strict one where that succeeds; what can be converted reads back the same.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace lorvale;
    if (size == 0) return 0;
    const auto encodings = availableStringEncodings();
    const auto encoding = encodings[bytes[0] % encodings.size()].encoding;
    const std::string_view input(reinterpret_cast<const char*>(bytes) + 1, size - 1);

    const auto lossy = decodeLossy(input, encoding);
    if (!isValidUtf8(lossy)) std::abort();
    if (const auto strict = decode(input, encoding); strict && *strict != lossy) std::abort();
    if (!isValidUtf8(decodeCString(input))) std::abort();

    const auto encoded = encode(input, encoding);
    if (encoded.has_value() != canConvert(input, encoding)) std::abort();
    if (encoded && decode(encoded->view(), encoding) != input) std::abort();
    if (!encode(input, encoding, Lossy::yes)) std::abort();
    return 0;
}
