#pragma once
#include <gtest/gtest.h>

#include <span>
#include <string_view>

#include "tests/support/TestSupport.h"

namespace lorvale::testing {

/// A text, what is made of it, and what there is to see in it.
struct TextRow {
    std::string_view why, in, out;
};

/// `made` gets each text in a block of just its size, so that the sanitizer sees one byte too many.
template <class Function>
void expectRows(const Function& made, std::span<const TextRow> rows) {
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(made(ExactCopy(row.in)), row.out);
    }
}

}  // namespace lorvale::testing
