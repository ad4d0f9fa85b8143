// A file made from the input comes back with its name, packed or not; what is decoded from anything is bounded
// by the input.
#include "fuzz/FuzzTarget.h"
#include "lorvale/mime.h"
#include "tests/support/PlainCodecs.h"

using namespace lorvale;

LORVALE_FUZZ_TARGET(text) {
    std::string name;
    const auto decoded = decodeBinHex40(Data::ofStatic(text), &name);
    fuzz::require(!decoded || (decoded->size() <= 96 * text.size() && name.size() <= 3 * 255));

    const std::string wanted(text.empty() ? 1 : static_cast<std::uint8_t>(text[0]), 'n');
    const auto file = testing::plainEncodeBinHex(wanted, text, text.size() % 5);
    const auto back = decodeBinHex40(Data::ofStatic(file), &name);
    fuzz::require(back && back->view() == text && name == wanted);
}
