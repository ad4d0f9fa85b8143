#include <cstddef>
#include <cstdint>

#include "tests/support/BTreeFixture.h"

/// Arbitrary bytes as a storage with a tree in it: whatever is done with it ends in an IAException or not, and
/// in nothing else.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size > (std::size_t{1} << 17)) return 0;
    brindle::testing::UseTreeInDamagedStorage(brindle::testing::Bytes(bytes, bytes + size));
    return 0;
}
