#include "mail/search/BooleanSearchString.h"

#include <algorithm>

#include "lorvale/values/text.h"

namespace lorvale {

namespace {

constexpr std::string_view kWhiteSpace = " \t\n\r\v\f";  // skipped before whatever is taken
constexpr std::string_view kSeparators = " \t\n&|!";

std::string_view takeUpTo(std::string_view& rest, std::string_view signs) {
    const auto taken = rest.substr(0, rest.find_first_of(signs));
    rest.remove_prefix(taken.size());
    return taken;
}

void skip(std::string_view& rest, std::string_view signs) {
    rest.remove_prefix(std::min(rest.find_first_not_of(signs), rest.size()));
}

std::string_view takeWord(std::string_view& rest) {
    skip(rest, kWhiteSpace);
    return takeUpTo(rest, kSeparators);
}

std::string_view takeSeparators(std::string_view& rest) {
    skip(rest, kWhiteSpace);
    const auto taken = rest.substr(0, rest.find_first_not_of(kSeparators));
    rest.remove_prefix(taken.size());
    return taken;
}

std::string_view asOperator(std::string_view word) {
    if (word == "and") return "&";
    if (word == "or") return "|";
    return word == "not" ? "!" : word;
}

/// "(a" loses its grouping in place of failing.
std::string withBalancedParentheses(std::string text) {
    if (std::ranges::count(text, '(') == std::ranges::count(text, ')')) return text;
    std::ranges::replace(text, '(', ' ');
    std::ranges::replace(text, ')', ' ');
    return text;
}

}  // namespace

std::string processBooleanSearchString(std::string_view typed) {
    const auto text = withBalancedParentheses(lowercased(typed));
    std::string query;
    std::string_view rest = text;
    while (!rest.empty()) {
        const auto word = takeWord(rest);
        if (word.empty()) {
            // An operator where a word should be: it is left to the parser, which complains of it.
            query += takeSeparators(rest);
            continue;
        }
        auto ahead = rest;
        const bool isLast = takeWord(ahead).empty();
        (query += isLast ? word : asOperator(word)) += ' ';
        query += takeSeparators(rest);
    }
    return query;
}

}  // namespace lorvale
