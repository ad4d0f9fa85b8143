#include "lorvale/values/format.h"

#include <gtest/gtest.h>

namespace lorvale {
namespace {

TEST(FormatText, FillsMarksAndForgivesWrongOnes) {
    EXPECT_EQ(formatText("%@,%@ (Lorvale version %@),%d\n", "host", std::string("me"), "106", 42),
              "host,me (Lorvale version 106),42\n");
    EXPECT_EQ(formatText("=%02X|%o|%s : %lu|%5d|%c", 0xEu, 0755, "file", 7ul, -3, 'x'),
              "=0E|755|file : 7|   -3|x");
    EXPECT_EQ(formatText("took %f seconds, 100%%", 0.5), "took 0.500000 seconds, 100%");
    EXPECT_EQ(formatText("%d is no number, %@ has no argument, 5% z %", "five"),
              "five is no number, %@ has no argument, 5% z %");
    EXPECT_EQ(formatText("%@ %s %@ %@ %d", -3, 7u, 5'000'000'000, 0.5, 2.5), "-3 7 5000000000 0.5 2.5");
}

}  // namespace
}  // namespace lorvale
