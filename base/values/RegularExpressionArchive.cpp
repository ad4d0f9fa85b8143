#include "lorvale/values/property_list.h"
#include "lorvale/values/regular_expression.h"

namespace lorvale {

PropertyList toPropertyList(const RegularExpression& expression) {
    return PropertyList::Dictionary{{"version", 1}, {"expression", expression.expressionString()}};
}

std::optional<RegularExpression> regularExpressionFromPropertyList(const PropertyList& list) {
    const auto* const expression = list["expression"].get<std::string>();
    return expression != nullptr ? RegularExpression::regularExpressionWithString(*expression) : std::nullopt;
}

}  // namespace lorvale
