// A file made from the input comes back with its name, packed or not; what is decoded from anything is bounded
// by the input.
#include "fuzz/mail/CodecFuzz.h"
#include "lorvale/mime.h"
#include "tests/support/PlainCodecs.h"

using namespace lorvale;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const auto text = fuzz::viewOf(bytes, size);
    std::string name;
    const auto decoded = decodeBinHex40(Data::ofStatic(text), &name);
    fuzz::require(!decoded || (decoded->size() <= 96 * size && name.size() <= 3 * 255));

    const std::string wanted(size > 0 ? bytes[0] : 1, 'n');
    const auto file = testing::plainEncodeBinHex(wanted, text, size % 5);
    const auto back = decodeBinHex40(Data::ofStatic(file), &name);
    fuzz::require(back && back->view() == text && name == wanted);
    return 0;
}
