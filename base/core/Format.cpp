#include "lorvale/values/format.h"

#include <fmt/printf.h>

#include <algorithm>

namespace lorvale {

namespace {

/// The length of the mark that starts at text[0], which is a '%'; 0 when it is none.
std::size_t markLength(std::string_view text) {
    auto end = text.find_first_not_of("-+ #0123456789.", 1);
    end = std::min(text.find_first_not_of("hlqLzjt", end), text.size());  // lengths follow from the argument
    constexpr std::string_view kConversions = "@diuoxXcsfeEgG";
    if (end == text.size() || kConversions.find(text[end]) == std::string_view::npos) return 0;
    return end + 1;
}

/// "%05ld" without the length letters.  '@' and a conversion that does not go with `value` give way to the one
/// that is natural for it.
std::string printfMark(std::string_view mark, const FormatArgument::Value& value) {
    std::string result;
    for (const char c : mark.substr(0, mark.size() - 1))
        if (std::string_view("hlqLzjt").find(c) == std::string_view::npos) result += c;
    const bool wantsNumber = std::string_view("diuoxXc").find(mark.back()) != std::string_view::npos;
    const bool wantsFloat = std::string_view("feEgG").find(mark.back()) != std::string_view::npos;
    const bool isText = std::holds_alternative<std::string_view>(value);
    const bool isFloat = std::holds_alternative<double>(value);
    const bool fits = wantsNumber ? !isText && !isFloat : wantsFloat ? isFloat : isText;
    return result + (fits && mark.back() != '@' ? mark.back() : isText ? 's' : isFloat ? 'g' : 'd');
}

}  // namespace

std::string formatArguments(std::string_view text, std::span<const FormatArgument> arguments) {
    std::string result;
    std::size_t next = 0;
    while (!text.empty()) {
        const auto percent = std::min(text.find('%'), text.size());
        result += text.substr(0, percent);
        text.remove_prefix(percent);
        if (text.starts_with("%%")) {
            result += '%';
            text.remove_prefix(2);
            continue;
        }
        if (text.empty()) break;
        const auto length = markLength(text);
        if (length == 0 || next == arguments.size()) {
            result += '%';
            text.remove_prefix(1);
            continue;
        }
        const auto& value = arguments[next++].value();
        const auto mark = printfMark(text.substr(0, length), value);
        result += std::visit(
            [&](const auto& v) {
                // Only text and numbers come here, so the conversions that throw cannot happen.
                return fmt::vsprintf(fmt::string_view(mark), fmt::make_printf_args(v));
            },
            value);
        text.remove_prefix(length);
    }
    return result;
}

}  // namespace lorvale
