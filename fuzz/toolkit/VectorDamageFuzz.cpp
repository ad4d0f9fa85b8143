#include "fuzz/FuzzTarget.h"
#include "tests/support/IndexDamage.h"

/// A real index with lists and vectors, and bytes of it changed: whatever is done with it ends in an
/// IAException or not, and in nothing else.
LORVALE_FUZZ_TARGET(input) {
    static const brindle::testing::DamagedIndex<brindle::InVecIndex> index;
    if (input.size() <= 400) index.DamageAndUse(lorvale::fuzz::bytesOf(input));
}
