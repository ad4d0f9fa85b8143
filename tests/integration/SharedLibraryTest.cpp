/// What liblorvale.so shows to programs that are linked to it.

#include <gtest/gtest.h>

#include "lorvale/values/text.h"
#include "tests/integration/RunProgram.h"

namespace lorvale::testing {
namespace {

TEST(SharedLibrary, ShowsNamesOfItsOwnOnly) {
    const auto symbols = runShell("nm -D --defined-only -C " + shellWord(LORVALE_LIBRARY_DIR "/liblorvale.so"));
    ASSERT_EQ(symbols.status, 0) << symbols.errors;
    std::size_t seen = 0;
    for (const auto line : split(symbols.output, '\n')) {
        if (line.empty()) continue;
        ++seen;
        auto name = line.substr(std::min(line.find(' ') + 3, line.size()));  // address, kind, name
        for (const std::string_view what :
             {"typeinfo for ", "typeinfo name for ", "vtable for ", "non-virtual thunk to "})
            if (name.starts_with(what)) name.remove_prefix(what.size());
        EXPECT_TRUE(name.starts_with("lorvale::") || name.starts_with("brindle::")) << line;
    }
    EXPECT_GT(seen, 300u);
}

TEST(SharedLibrary, ExceptionsOfEachHalfAreCaughtOutsideOfIt) {
    const auto outcome = runShell(shellWord(LORVALE_CLIENT));
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
}

}  // namespace
}  // namespace lorvale::testing
