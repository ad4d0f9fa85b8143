#include "lorvale/values/date.h"

#include <algorithm>
#include <chrono>
#include <ctime>

#include "lorvale/values/format.h"

namespace lorvale {

namespace {

constexpr std::int64_t kDay = 86'400;
constexpr int kFirstYear = -9999, kLastYear = 9999;

/// Days are counted in eras of 400 years, whose years begin in March so that the leap day comes last.
constexpr std::int64_t kDaysOfEra = 146'097;
constexpr std::int64_t kDaysTo1970 = 719'468;  // from 1 March of the year 0

constexpr std::int64_t floorDivide(std::int64_t a, std::int64_t b) {
    return a / b - (a % b < 0 ? 1 : 0);
}

constexpr std::int64_t daysOf(int year, int month, int day) {
    const auto y = static_cast<std::int64_t>(year) - (month <= 2 ? 1 : 0);
    const auto era = floorDivide(y, 400);
    const auto yearOfEra = y - era * 400;
    const auto dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    return era * kDaysOfEra + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - kDaysTo1970;
}

CivilTime civilTimeAt(std::int64_t localSeconds) {
    const auto days = floorDivide(localSeconds, kDay);
    const auto second = static_cast<int>(localSeconds - days * kDay);
    const auto shifted = days + kDaysTo1970;
    const auto era = floorDivide(shifted, kDaysOfEra);
    const auto dayOfEra = shifted - era * kDaysOfEra;
    const auto yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
    const auto dayOfYear = static_cast<int>(dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100));
    const auto monthFromMarch = (5 * dayOfYear + 2) / 153;
    CivilTime time;
    time.day = dayOfYear - (153 * monthFromMarch + 2) / 5 + 1;
    time.month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
    time.year = static_cast<int>(yearOfEra + era * 400) + (time.month <= 2 ? 1 : 0);
    time.hour = second / 3600;
    time.minute = second / 60 % 60;
    time.second = second % 60;
    return time;
}

/// The seconds from 1970 that the fields would be in UTC; nullopt when they name no time.
std::optional<std::int64_t> secondsOf(const CivilTime& time) {
    const bool valid = time.year >= kFirstYear && time.year <= kLastYear && time.month >= 1 &&
                       time.month <= 12 && time.day >= 1 && time.day <= daysInMonth(time.year, time.month) &&
                       time.hour >= 0 && time.hour <= 23 && time.minute >= 0 && time.minute <= 59 &&
                       time.second >= 0 && time.second <= 60;
    if (!valid) return std::nullopt;
    return daysOf(time.year, time.month, time.day) * kDay + time.hour * 3600 + time.minute * 60 + time.second;
}

}  // namespace

Date::Date(std::int64_t secondsSince1970, std::int32_t zoneOffset)
    : _seconds(std::clamp(secondsSince1970, daysOf(kFirstYear, 1, 1) * kDay,
                          daysOf(kLastYear + 1, 1, 1) * kDay - 1)),
      _zoneOffset(zoneOffset > -kDay && zoneOffset < kDay ? zoneOffset : 0) {}

Date Date::now() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return Date(std::chrono::floor<std::chrono::seconds>(sinceEpoch).count()).inLocalZone();
}

Date Date::inLocalZone() const {
    return inZone(localZoneOffset(_seconds));
}

std::string Date::iso8601() const {
    const auto time = civilTimeAt(_seconds);
    return formatText("%04d-%02d-%02dT%02d:%02d:%02dZ", time.year, time.month, time.day, time.hour, time.minute,
                      time.second);
}

std::int64_t daysFromCivil(int year, int month, int day) {
    return daysOf(year, month, day);
}

CivilTime civilTime(const Date& date) {
    return civilTimeAt(date.secondsSince1970() + date.zoneOffset());
}

int weekdayFromDays(std::int64_t daysSince1970) {
    const auto fromThursday = daysSince1970 % 7;  // 1 January 1970 was one
    return static_cast<int>((fromThursday + 11) % 7);
}

int daysInMonth(int year, int month) {
    if (month == 2) return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) ? 29 : 28;
    return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

std::optional<Date> dateFromCivil(const CivilTime& time, std::int32_t zoneOffset) {
    const auto seconds = secondsOf(time);
    if (!seconds) return std::nullopt;
    return Date(*seconds - zoneOffset, zoneOffset);
}

std::optional<Date> dateFromLocalCivil(const CivilTime& time) {
    const auto seconds = secondsOf(time);
    if (!seconds) return std::nullopt;
    // A day away on either side the offset is that before and after a change of clocks, if one is near.
    const auto before = localZoneOffset(*seconds - kDay), after = localZoneOffset(*seconds + kDay);
    const bool isAfter =
        localZoneOffset(*seconds - before) != before && localZoneOffset(*seconds - after) == after;
    const auto offset = isAfter ? after : before;
    return Date(*seconds - offset, offset);
}

std::int32_t localZoneOffset(std::int64_t secondsSince1970) {
    const auto moment = static_cast<std::time_t>(secondsSince1970);
    std::tm local{};
    if (::localtime_r(&moment, &local) == nullptr) return 0;
    return static_cast<std::int32_t>(local.tm_gmtoff);
}

}  // namespace lorvale
