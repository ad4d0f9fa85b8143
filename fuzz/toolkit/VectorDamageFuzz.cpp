#include <cstddef>
#include <cstdint>

#include "tests/support/IndexDamage.h"

/// A real index with lists and vectors, and bytes of it changed: whatever is done with it ends in an
/// IAException or not, and in nothing else.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const brindle::testing::DamagedIndex<brindle::InVecIndex> index;
    if (size <= 400) index.DamageAndUse({bytes, size});
    return 0;
}
