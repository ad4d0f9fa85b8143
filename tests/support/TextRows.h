#pragma once
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "tests/support/TestSupport.h"

namespace lorvale::testing {

/// A text, what is made of it, and what there is to see in it.
template <class Text>
struct BasicTextRow {
    std::string_view why;
    Text in, out;
};
using TextRow = BasicTextRow<std::string_view>;
using MadeTextRow = BasicTextRow<std::string>;  ///< of texts that are put together

/// `made` gets each text in a block of just its size, so that the sanitizer sees one byte too many.
template <class Function, class Rows>
void expectRows(const Function& made, const Rows& rows) {
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(made(ExactCopy(row.in)), row.out);
    }
}

}  // namespace lorvale::testing
