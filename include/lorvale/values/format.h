#pragma once
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include "lorvale/export.h"

namespace lorvale {

/// One argument of formatText(): an integer, a character, a floating-point number or text (borrowed).
class FormatArgument {
public:
    using Value = std::variant<std::int64_t, std::uint64_t, double, std::string_view>;

    template <class T>
    requires std::is_arithmetic_v<T> FormatArgument(T value) : _value(fromNumber(value)) {}
    FormatArgument(std::string_view text) : _value(text) {}
    FormatArgument(const std::string& text) : _value(std::string_view(text)) {}
    FormatArgument(const char* text) : _value(std::string_view(text == nullptr ? "(null)" : text)) {}

    const Value& value() const { return _value; }

private:
    template <class T>
    static Value fromNumber(T value) {
        if constexpr (std::is_floating_point_v<T>) {
            return static_cast<double>(value);
        } else if constexpr (std::is_signed_v<T>) {
            return static_cast<std::int64_t>(value);
        } else {
            return static_cast<std::uint64_t>(value);
        }
    }

    Value _value;
};

LORVALE_EXPORT std::string formatArguments(std::string_view text, std::span<const FormatArgument> arguments);

/// Puts the arguments into a text with the marks of printf and "%@", which takes any argument in its natural
/// form; flags, width and precision as in printf ("%02X").  A mark without an argument stays as it stands, an
/// argument without a mark is dropped: a text that a translator got wrong must not end the program.
template <class... Arguments>
std::string formatText(std::string_view text, const Arguments&... arguments) {
    if constexpr (sizeof...(arguments) == 0) {
        return formatArguments(text, {});
    } else {
        const FormatArgument list[] = {FormatArgument(arguments)...};
        return formatArguments(text, list);
    }
}

}  // namespace lorvale
