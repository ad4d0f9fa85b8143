#include "fuzz/FuzzTarget.h"
#include "tests/support/BTreeFixture.h"

/// Arbitrary bytes as a storage with a tree in it: whatever is done with it ends in an IAException or not, and
/// in nothing else.
LORVALE_FUZZ_TARGET(input) {
    if (input.size() > (std::size_t{1} << 17)) return;
    brindle::testing::UseTreeInDamagedStorage({input.begin(), input.end()});
}
