#include "lorvale/values/regular_expression.h"

#include "base/text/StringUtils.h"
#include "lorvale/platform/exception.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"

namespace lorvale {

std::unique_ptr<CompiledExpression> _MOTestAndCompileExpressionString(std::string_view expression) {
    return _MOregcomp(cStringWithSpaces(expression).c_str());
}

bool _MOTestAndMatchCandidateWithExpression(std::string_view candidate, CompiledExpression& expression) {
    return _MOregexec(expression, cStringWithSpaces(candidate).c_str());
}

std::optional<RegularExpression> RegularExpression::regularExpressionWithString(std::string_view expression) {
    if (!validExpressionString(expression)) return std::nullopt;
    RegularExpression result;
    result._expressionString = expression;
    return result;
}

bool RegularExpression::validExpressionString(std::string_view expression) {
    return _MOTestAndCompileExpressionString(expression) != nullptr;
}

bool RegularExpression::matchesString(std::string_view text) {
    if (_lastMatch == text) return true;
    _lastMatch.reset();
    _lastSubexpressionRanges.reset();
    const auto compiled = _MOTestAndCompileExpressionString(_expressionString);
    const auto bytes = cStringWithSpaces(text);
    if (compiled == nullptr || !_MOregexec(*compiled, bytes.c_str())) return false;
    Ranges ranges;
    for (std::size_t group = 0; group < ranges.size(); ++group) {
        const auto *const start = compiled->starts[group], *const end = compiled->ends[group];
        const bool isSet = start != nullptr && end != nullptr;
        ranges[group] = isSet ? Range{static_cast<std::size_t>(start - bytes.c_str()),
                                      static_cast<std::size_t>(end - start)}
                              : Range::notFound();
    }
    _lastMatch = text;
    _lastSubexpressionRanges = ranges;
    return true;
}

Range RegularExpression::rangeForSubexpressionAtIndex(std::size_t index, std::string_view text) {
    if (index > CompiledExpression::kGroups) {
        throw InvalidArgumentException(formatText("A regular expression has no subexpression %@", index));
    }
    matchesString(text);
    // Ten is let through, as it always was, and names no group.
    if (!_lastSubexpressionRanges || index == CompiledExpression::kGroups) return Range::notFound();
    return (*_lastSubexpressionRanges)[index];
}

std::optional<std::string> RegularExpression::substringForSubexpressionAtIndex(std::size_t index,
                                                                               std::string_view text) {
    const auto range = rangeForSubexpressionAtIndex(index, text);
    if (!range.found()) return std::nullopt;
    return std::string(substring(text, range));
}

std::optional<std::vector<std::string>> RegularExpression::subexpressionsForString(std::string_view text) {
    if (!matchesString(text)) return std::nullopt;
    std::vector<std::string> groups;
    for (const auto& range : *_lastSubexpressionRanges)
        groups.emplace_back(range.found() ? substring(text, range) : std::string_view());
    return groups;
}

}  // namespace lorvale
