#include "base/values/CalendarNames.h"

#include <algorithm>
#include <cstdint>
#include <optional>

#include "base/text/Ascii.h"
#include "lorvale/values/date.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

template <std::size_t Count>
std::optional<int> indexOf(std::string_view name, const std::array<std::string_view, Count>& names) {
    if (name.size() < kShortNameLength) return std::nullopt;
    for (std::size_t i = 0; i < Count; ++i)
        if (equalIgnoringAsciiCase(name, names[i].substr(0, name.size()))) return static_cast<int>(i);
    return std::nullopt;
}

constexpr int twoDigits(std::string_view text) {
    return (text[0] - '0') * 10 + (text[1] - '0');
}

struct Zone {
    std::string_view name;
    int minutes;  // east of UTC
};

// Where a name stands for several zones, it is that of RFC 822, else that of the most mail ("IST" is India's).
constexpr auto kZones = std::to_array<Zone>({
    {"ACDT", 630}, {"ACST", 570}, {"ADT", -180}, {"AEDT", 660}, {"AEST", 600},   {"AKDT", -480}, {"AKST", -540},
    {"AST", -240}, {"AWST", 480}, {"BRT", -180}, {"BST", 60},   {"CAT", 120},    {"CDT", -300},  {"CEST", 120},
    {"CET", 60},   {"CST", -360}, {"EAT", 180},  {"EDT", -240}, {"EEST", 180},   {"EET", 120},   {"EST", -300},
    {"GMT", 0},    {"HKT", 480},  {"HST", -600}, {"IDT", 180},  {"IST", 330},    {"JST", 540},   {"KST", 540},
    {"MDT", -360}, {"MEST", 120}, {"MESZ", 120}, {"MET", 60},   {"METDST", 120}, {"MEZ", 60},    {"MSD", 240},
    {"MSK", 180},  {"MST", -420}, {"NDT", -150}, {"NST", -210}, {"NZDT", 780},   {"NZST", 720},  {"PDT", -420},
    {"PKT", 300},  {"PST", -480}, {"SAST", 120}, {"SGT", 480},  {"UT", 0},       {"UTC", 0},     {"WAT", 60},
    {"WEST", 60},  {"WET", 0},    {"WIB", 420},
});
static_assert(std::ranges::is_sorted(kZones, {}, &Zone::name), "found by binary search");

std::optional<std::int32_t> offsetOf(char sign, int hours, int minutes) {
    if ((sign != '+' && sign != '-') || hours > 23 || minutes > 59) return std::nullopt;
    const auto seconds = hours * 3600 + minutes * 60;
    return sign == '-' ? -seconds : seconds;
}

/// "+2", "-03", "+0200", "+02:00": the forms that follow "GMT".
std::optional<std::int32_t> offsetFromShortDigits(std::string_view text) {
    const auto digits = text.substr(1);
    if (digits.empty() || digits.size() > 2 || !std::ranges::all_of(digits, isAsciiDigit))
        return zoneOffsetFromDigits(text);
    return offsetOf(text[0], digits.size() == 1 ? digits[0] - '0' : twoDigits(digits), 0);
}

}  // namespace

std::optional<int> monthNamed(std::string_view name) {
    const auto index = indexOf(name, kMonthNames);
    return index ? std::optional(*index + 1) : std::nullopt;
}

std::optional<int> weekdayNamed(std::string_view name) {
    return indexOf(name, kWeekdayNames);
}

std::optional<std::int32_t> zoneOffsetNamed(std::string_view name) {
    if (const auto sign = name.find_first_of("+-"); sign != std::string_view::npos) {
        const auto base = name.substr(0, sign);
        const bool universal = equalIgnoringAsciiCase(base, "GMT") || equalIgnoringAsciiCase(base, "UTC") ||
                               equalIgnoringAsciiCase(base, "UT");
        return universal ? offsetFromShortDigits(name.substr(sign)) : std::nullopt;
    }
    if (name.size() == 1) {
        const bool isZone = isAsciiLetter(name[0]) && asciiUpper(name[0]) != 'J';
        return isZone ? std::optional<std::int32_t>(0) : std::nullopt;
    }
    const auto less = [](std::string_view a, std::string_view b) { return compareIgnoringAsciiCase(a, b) < 0; };
    const auto found = std::ranges::lower_bound(kZones, name, less, &Zone::name);
    if (found == kZones.end() || !equalIgnoringAsciiCase(found->name, name)) return std::nullopt;
    return found->minutes * 60;
}

std::optional<std::int32_t> zoneOffsetFromDigits(std::string_view digits) {
    if (digits.size() == 6 && digits[3] == ':') {
        const char without[] = {digits[0], digits[1], digits[2], digits[4], digits[5]};
        return zoneOffsetFromDigits({without, sizeof without});
    }
    if (digits.size() != 5 || !std::ranges::all_of(digits.substr(1), isAsciiDigit)) return std::nullopt;
    return offsetOf(digits[0], twoDigits(digits.substr(1)), twoDigits(digits.substr(3)));
}

}  // namespace lorvale
