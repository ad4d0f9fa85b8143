// Arbitrary bytes as a boolean query.  Only IAException comes out of it; and what is read, told with all its
// parentheses, reads as the same again, unless these are more than may be open at one time.
#include "fuzz/FuzzTarget.h"
#include "lorvale/toolkit/retrieval.h"
#include "tests/support/FailureText.h"

namespace {

/// The tree, or the failure behind "!".
std::string parsed(const std::string& text) {
    brindle::IABooleanQuery query;
    std::string tree;
    const std::string failure = brindle::testing::failureOf([&] {
        if (query.Initialize(text)) tree = query.GetTree()->Describe();
    });
    return failure.empty() ? tree : "!" + failure;
}

}  // namespace

LORVALE_FUZZ_TARGET(input) {
    const std::string tree = parsed(std::string(input));
    if (tree.empty() || tree[0] == '!') return;
    const std::string again = parsed(tree);
    if (again != tree && again != "!QFLT attempt to push a new item into full stack") std::abort();
}
