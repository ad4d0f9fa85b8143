#pragma once
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/export.h"

namespace lorvale {

/// A moment and the time zone in which it was written.  Moments run from the year -9999 to the year 9999;
/// later and earlier ones are cut off there.  Dates compare by their moment alone.
class LORVALE_EXPORT Date {
public:
    /// The start of 1970, UTC.
    Date() = default;
    /// `zoneOffset` is in seconds east of UTC, below one day in size; a larger one counts as 0.
    explicit Date(std::int64_t secondsSince1970, std::int32_t zoneOffset = 0);
    /// This moment, in the local time zone.
    static Date now();

    std::int64_t secondsSince1970() const { return _seconds; }
    std::int32_t zoneOffset() const { return _zoneOffset; }

    /// Reads a text by a calendar format; nullopt unless the format covers the whole text, every field is in
    /// its range and the day exists.  No locale matters: names are English, in any case of letters.
    ///
    ///   %a %A  weekday by weekdayNamed(); need not agree with the date     %b %B  month by monthNamed()
    ///   %d %e  day of the month, one or two digits                         %m     month, one or two digits
    ///   %y     year, exactly two digits: 69 to 99 are 19xx, 00 to 68 20xx  %Y     year, exactly four digits
    ///   %H %M %S  hour (24), minute, second (60 too), one or two digits    %I %p  hour (12), AM or PM
    ///   %z     by zoneOffsetFromDigits(), or "Z"                           %Z     by zoneOffsetNamed()
    ///   %j     day of the year, up to three digits                         %%     the per cent sign
    ///
    /// A blank in the format takes one or more blanks and tabs, white space around the text is passed over, any
    /// other character stands for itself, and a format with another mark reads nothing.  What is missing is
    /// taken as the start of 1970; without a zone the local one at that time holds.  Never allocates.
    [[nodiscard]] static std::optional<Date> dateWithString(std::string_view text,
                                                            std::string_view calendarFormat);

    /// Written by a calendar format, in its own zone.  %a and %b give the short names, %A and %B the long ones,
    /// %e the day without zero or blank, %j three digits, the other numbers two; %z is "+hhmm", %Z "GMT" or
    /// "GMT+hhmm"; a mark that is not known stands as it is.
    std::string descriptionWithCalendarFormat(std::string_view calendarFormat) const;
    /// In UTC, as "2002-08-22T10:46:23Z"; a year before 0 has a sign, "-0044-03-15T11:00:00Z".
    std::string iso8601() const;

    /// The same moment in another zone, or in the local one with its offset at that moment.
    [[nodiscard]] Date inZone(std::int32_t zoneOffset) const { return Date(_seconds, zoneOffset); }
    [[nodiscard]] Date inLocalZone() const;

    friend bool operator==(const Date& a, const Date& b) { return a._seconds == b._seconds; }
    friend std::strong_ordering operator<=>(const Date& a, const Date& b) { return a._seconds <=> b._seconds; }

private:
    std::int64_t _seconds = 0;
    std::int32_t _zoneOffset = 0;
};

/// A moment as a calendar of one zone shows it (proleptic Gregorian).
struct CivilTime {
    int year = 1970;
    int month = 1;  ///< 1 to 12
    int day = 1;    ///< 1 to 31
    int hour = 0, minute = 0, second = 0;
    friend bool operator==(const CivilTime&, const CivilTime&) = default;
};

/// Days from 1 January 1970 to that day.  The month must be 1 to 12, years from -9999 to 9999.
LORVALE_EXPORT std::int64_t daysFromCivil(int year, int month, int day);
/// What the calendar of the date's own zone shows.
LORVALE_EXPORT CivilTime civilTime(const Date& date);
/// 0 is Sunday.
LORVALE_EXPORT int weekdayFromDays(std::int64_t daysSince1970);
LORVALE_EXPORT int daysInMonth(int year, int month);
/// Nullopt when a field is out of its range or the day does not exist; a second of 60 is the next minute.
[[nodiscard]] LORVALE_EXPORT std::optional<Date> dateFromCivil(const CivilTime& time, std::int32_t zoneOffset);
/// The same in the local zone: a time that a change of clocks leaves out counts by the offset before it.
[[nodiscard]] LORVALE_EXPORT std::optional<Date> dateFromLocalCivil(const CivilTime& time);
/// Seconds east of UTC in the local zone at that moment.
LORVALE_EXPORT std::int32_t localZoneOffset(std::int64_t secondsSince1970);

/// 1 to 12, 0 to 6 from Sunday: by the English name, cut off behind any letter from the third on ("Sept",
/// "Thurs"), in any case of letters.
[[nodiscard]] LORVALE_EXPORT std::optional<int> monthNamed(std::string_view name);
[[nodiscard]] LORVALE_EXPORT std::optional<int> weekdayNamed(std::string_view name);
/// The moment of "2002-08-22T10:46:23Z", as Date::iso8601() writes it, or with a zone as "+02:00" in place of
/// the "Z"; nullopt for another form, or a time that does not exist.
[[nodiscard]] LORVALE_EXPORT std::optional<Date> dateFromIso8601(std::string_view text);
/// Seconds east of UTC for a name of RFC 822 ("UT", "GMT", "EST", "PDT"), a common abbreviation ("CET", "JST"),
/// one letter of the military zones (all 0, as RFC 5322 asks, since mail has them with both signs) or a form
/// with digits ("GMT+2", "UTC-0330"); nullopt for any other.
[[nodiscard]] LORVALE_EXPORT std::optional<std::int32_t> zoneOffsetNamed(std::string_view name);
/// Seconds east of UTC for "+hhmm", "-hhmm" or "+hh:mm"; nullopt for another form, or minutes above 59.
[[nodiscard]] LORVALE_EXPORT std::optional<std::int32_t> zoneOffsetFromDigits(std::string_view digits);

}  // namespace lorvale
