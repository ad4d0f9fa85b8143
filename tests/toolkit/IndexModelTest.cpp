#include "tests/support/IndexHistory.h"
#include "tests/support/ToolkitThreads.h"

namespace brindle::testing {
namespace {

TEST(IndexModel, AnyHistoryLeavesWhatAFreshIndexHas) {
    for (unsigned seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE(seed);
        IndexHistory history(seed);
        for (int round = 0; round < 8; ++round) {
            for (int step = 0; step < 60; ++step) history.Step();
            ASSERT_NO_FATAL_FAILURE(history.Check()) << "round " << round;
        }
    }
}

}  // namespace
}  // namespace brindle::testing
