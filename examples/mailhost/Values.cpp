/// How the text of each kind of parameter is read.

#include <charconv>
#include <chrono>
#include <cmath>

#include "Arguments.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"

namespace mailhost {

namespace {

using lorvale::Date;

[[noreturn]] void refuse(const Parameter& parameter, std::string_view wanted, std::string_view text) {
    throw UsageError(lorvale::formatText("%@ takes %@, not \"%@\"", parameter.name, wanted, text));
}

Value choice(const Parameter& parameter, std::string_view text) {
    for (const auto word : parameter.choices) {
        if (word == text) return std::string(text);
    }
    refuse(parameter, enumeration(parameter.choices), text);
}

Value number(const Parameter& parameter, std::string_view text, std::uint64_t least) {
    std::uint64_t number = 0;
    const auto end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < least)
        refuse(parameter, "a number from " + std::to_string(least), text);
    return number;
}

/// The power of two behind a number of bytes; nullopt for letters that are none.
std::optional<int> sizeExponent(std::string_view unit) {
    constexpr std::pair<std::string_view, int> kUnits[] = {{"", 0}, {"k", 10}, {"m", 20}, {"g", 30}};
    for (const auto& [name, exponent] : kUnits) {
        if (lorvale::equalIgnoringAsciiCase(unit, name)) return exponent;
    }
    return std::nullopt;
}

Value bytes(const Parameter& parameter, std::string_view text) {
    constexpr double kTooMany = 9e18;
    double number = 0;
    const auto end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    const auto exponent = sizeExponent({stop, static_cast<std::size_t>(end - stop)});
    const double size = exponent ? std::ldexp(number, *exponent) : -1;
    if (error != std::errc() || !(size >= 0 && size < kTooMany))
        refuse(parameter, "a number of bytes such as 4096, 100K or 2.5M", text);
    return static_cast<std::uint64_t>(size);
}

enum class Unit { year, month, day, minute, second };

/// The first moment of the next year, month or day in the local time zone, where a day need not have 24 hours.
Date startOfNext(Unit unit, const Date& begin) {
    using namespace std::chrono;
    const auto field = [&](const char* format) {
        return std::stoi(begin.descriptionWithCalendarFormat(format));
    };
    year_month_day day{year(field("%Y")), month(static_cast<unsigned>(field("%m"))),
                       std::chrono::day(static_cast<unsigned>(field("%d")))};
    if (unit == Unit::year) day += years(1);
    if (unit == Unit::month) day += months(1);
    if (unit == Unit::day) day = sys_days(day) + days(1);
    const auto text = lorvale::formatText("%04d-%02d-%02d", static_cast<int>(day.year()),
                                          static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()));
    constexpr std::int64_t kLongest = 366 * 86'400;  // at the end of the calendar there is no next one
    return Date::dateWithString(text, "%Y-%m-%d").value_or(Date(begin.secondsSince1970() + kLongest));
}

Date endOf(Unit unit, const Date& begin) {
    if (unit == Unit::second) return Date(begin.secondsSince1970() + 1);
    if (unit == Unit::minute) return Date(begin.secondsSince1970() + 60);
    return startOfNext(unit, begin);
}

Value period(const Parameter& parameter, std::string_view text) {
    constexpr std::pair<std::string_view, Unit> kForms[] = {
        {"%Y-%m-%d", Unit::day},
        {"%Y-%m", Unit::month},
        {"%Y", Unit::year},
        {"%Y-%m-%d %H:%M", Unit::minute},
        {"%Y-%m-%dT%H:%M", Unit::minute},
        {"%Y-%m-%d %H:%M:%S", Unit::second},
        {"%Y-%m-%dT%H:%M:%S", Unit::second},
        {"%Y-%m-%d %H:%M:%S %z", Unit::second},
        {"%Y-%m-%dT%H:%M:%S%z", Unit::second},  // as in our JSON
    };
    for (const auto& [format, unit] : kForms) {
        if (const auto begin = Date::dateWithString(text, format)) return Period{*begin, endOf(unit, *begin)};
    }
    refuse(parameter, "a date such as 2004-01-31, 2004-01 or \"2004-01-31 18:30\"", text);
}

Value setting(const Parameter& parameter, std::string_view text) {
    const auto equals = text.find('=');
    if (equals == std::string_view::npos || equals == 0) refuse(parameter, "KEY=VALUE", text);
    return Setting{std::string(text.substr(0, equals)), std::string(text.substr(equals + 1))};
}

Value place(const Parameter& parameter, std::string_view text) {
    if (text.empty()) throw UsageError(std::string(parameter.name) + " is empty");
    return std::string(text);
}

}  // namespace

std::string enumeration(std::span<const std::string_view> words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (i > 0) text += i + 1 < words.size() ? ", " : " or ";
        text += words[i];
    }
    return text;
}

Value valueOf(const Parameter& parameter, std::string_view text) {
    switch (parameter.takes) {
        case Takes::nothing:
            return true;
        case Takes::text:
            return std::string(text);
        case Takes::choice:
            return choice(parameter, text);
        case Takes::number:
            return number(parameter, text, 1);
        case Takes::descriptor:
            return number(parameter, text, 0);
        case Takes::bytes:
            return bytes(parameter, text);
        case Takes::period:
            return period(parameter, text);
        case Takes::setting:
            return setting(parameter, text);
        case Takes::mailbox:
        case Takes::folder:
        case Takes::file:
            return place(parameter, text);
    }
    return true;
}

}  // namespace mailhost
