#include "lorvale/values/date.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>

#include "lorvale/values/format.h"

namespace lorvale {

namespace {

namespace chrono = std::chrono;

constexpr std::int64_t kDay = 86'400;
constexpr int kFirstYear = -9999, kLastYear = 9999;

constexpr chrono::year_month_day dayOf(int year, int month, int day) {
    return {chrono::year(year), chrono::month(static_cast<unsigned>(month)),
            chrono::day(static_cast<unsigned>(day))};
}

constexpr std::int64_t secondsTo(chrono::sys_days day) {
    return chrono::sys_seconds(day).time_since_epoch().count();
}

constexpr auto kEarliest = secondsTo(dayOf(kFirstYear, 1, 1)),
               kLatest = secondsTo(dayOf(kLastYear + 1, 1, 1)) - 1;

CivilTime civilTimeAt(std::int64_t localSeconds) {
    const chrono::sys_seconds moment{chrono::seconds(localSeconds)};
    const auto midnight = chrono::floor<chrono::days>(moment);
    const chrono::year_month_day date(midnight);
    const chrono::hh_mm_ss time(moment - midnight);
    CivilTime civil;
    civil.year = static_cast<int>(date.year());
    civil.month = static_cast<int>(static_cast<unsigned>(date.month()));
    civil.day = static_cast<int>(static_cast<unsigned>(date.day()));
    civil.hour = static_cast<int>(time.hours().count());
    civil.minute = static_cast<int>(time.minutes().count());
    civil.second = static_cast<int>(time.seconds().count());
    return civil;
}

/// The seconds from 1970 that the fields would be in UTC; nullopt when they name no time.
std::optional<std::int64_t> secondsOf(const CivilTime& time) {
    const bool valid = time.year >= kFirstYear && time.year <= kLastYear && time.month >= 1 &&
                       time.month <= 12 && time.day >= 1 && time.day <= daysInMonth(time.year, time.month) &&
                       time.hour >= 0 && time.hour <= 23 && time.minute >= 0 && time.minute <= 59 &&
                       time.second >= 0 && time.second <= 60;
    if (!valid) return std::nullopt;
    return daysFromCivil(time.year, time.month, time.day) * kDay + time.hour * 3600 + time.minute * 60 +
           time.second;
}

}  // namespace

Date::Date(std::int64_t secondsSince1970, std::int32_t zoneOffset)
    : _seconds(std::clamp(secondsSince1970, kEarliest, kLatest)),
      _zoneOffset(zoneOffset > -kDay && zoneOffset < kDay ? zoneOffset : 0) {}

Date Date::now() {
    const auto sinceEpoch = chrono::system_clock::now().time_since_epoch();
    return Date(chrono::floor<chrono::seconds>(sinceEpoch).count()).inLocalZone();
}

Date Date::inLocalZone() const {
    return inZone(localZoneOffset(_seconds));
}

std::string Date::iso8601() const {
    const auto time = civilTimeAt(_seconds);
    return formatText("%s%04d-%02d-%02dT%02d:%02d:%02dZ", time.year < 0 ? "-" : "", std::abs(time.year),
                      time.month, time.day, time.hour, time.minute, time.second);
}

std::int64_t daysFromCivil(int year, int month, int day) {
    return chrono::sys_days(dayOf(year, month, day)).time_since_epoch().count();
}

CivilTime civilTime(const Date& date) {
    return civilTimeAt(date.secondsSince1970() + date.zoneOffset());
}

int weekdayFromDays(std::int64_t daysSince1970) {
    const chrono::sys_days day{chrono::days(daysSince1970 % 7)};  // in any week, for the sake of far days
    return static_cast<int>(chrono::weekday(day).c_encoding());
}

int daysInMonth(int year, int month) {
    const chrono::year_month_day_last last =
        chrono::year(year) / chrono::month(static_cast<unsigned>(month)) / chrono::last;
    return static_cast<int>(static_cast<unsigned>(last.day()));
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
