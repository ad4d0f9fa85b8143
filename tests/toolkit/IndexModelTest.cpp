#include "tests/support/IndexHistory.h"
#include "tests/support/ToolkitThreads.h"

namespace brindle::testing {
namespace {

template <class Index>
class IndexModel : public ::testing::Test {};
using Indexes = ::testing::Types<InvertedIndex, VectorIndex, InVecIndex>;
TYPED_TEST_SUITE(IndexModel, Indexes);

TYPED_TEST(IndexModel, AnyHistoryLeavesWhatAFreshIndexHas) {
    for (unsigned seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE(seed);
        History<TypeParam> history(seed);
        for (int round = 0; round < 8; ++round) {
            for (int step = 0; step < 60; ++step) history.Step();
            ASSERT_NO_FATAL_FAILURE(history.Check()) << "round " << round;
        }
    }
}

}  // namespace
}  // namespace brindle::testing
