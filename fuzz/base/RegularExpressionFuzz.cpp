#include "fuzz/FuzzTarget.h"
#include "lorvale/values/regular_expression.h"
#include "lorvale/values/text.h"

// The first line is the expression, the rest the text.  What matches lies in the text, the groups that took
// part inside it too, and what is matched again gives the same.
LORVALE_FUZZ_TARGET(input) {
    using namespace lorvale;
    setRegularExpressionStepLimit(20'000);
    const auto line = std::min(input.find('\n'), input.size());
    const auto text = input.substr(std::min(line + 1, input.size()));
    auto expression = RegularExpression::regularExpressionWithString(input.substr(0, line));
    if (!expression || !expression->matchesString(text)) return;
    const auto whole = expression->rangeForSubexpressionAtIndex(0, text);
    if (!whole.found() || whole.end() > characterCount(text)) std::abort();
    auto again = *RegularExpression::regularExpressionWithString(expression->expressionString());
    for (std::size_t group = 0; group < CompiledExpression::kGroups; ++group) {
        const auto range = expression->rangeForSubexpressionAtIndex(group, text);
        if (range.found() && (range.location < whole.location || range.end() > whole.end())) std::abort();
        if (again.rangeForSubexpressionAtIndex(group, text) != range) std::abort();
    }
}
