#include "lorvale/values/date.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <random>

#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using lorvale::testing::ExactCopy;

/// Another local zone for one test.
class LocalZone {
public:
    explicit LocalZone(const char* name) {
        if (const char* const before = std::getenv("TZ")) _before = before;
        ::setenv("TZ", name, 1);
        ::tzset();
    }
    ~LocalZone() {
        _before ? ::setenv("TZ", _before->c_str(), 1) : ::unsetenv("TZ");
        ::tzset();
    }

private:
    std::optional<std::string> _before;
};

std::string isoOf(const std::optional<Date>& date) {
    return date ? date->iso8601() : "refused";
}

constexpr std::string_view kLong = "%a, %e %b %Y %H:%M:%S %z";
constexpr std::string_view kShort = "%a, %e %b %y %H:%M:%S %z";

TEST(Date, ReadsByTheCalendarFormat) {
    const struct {
        const char* why;
        std::string_view text, format, iso;
    } rows[] = {
        {"four-digit year", "Thu, 22 Aug 2002 18:26:25 +0700", kLong, "2002-08-22T11:26:25Z"},
        {"and not for two", "Thu, 22 Aug 02 18:26:25 +0700", kLong, "refused"},
        {"two digits do not take four", "Thu, 22 Aug 2002 18:26:25 +0700", kShort, "refused"},
        {"year 69", "1 Jan 69 00:00:00 +0000", "%d %b %y %H:%M:%S %z", "1969-01-01T00:00:00Z"},
        {"year 68", "1 Jan 68 00:00:00 +0000", "%d %b %y %H:%M:%S %z", "2068-01-01T00:00:00Z"},
        {"wide blanks", "Thu Aug  2 10:00:00 2002 ", "%a %b %e %H:%M:%S %Y", "2002-08-02T08:00:00Z"},
        {"zero or none", " 02 Aug 2002  9:05 GMT", "%e %b %Y %H:%M %Z", "2002-08-02T09:05:00Z"},
        {"long names in any case", "THURSDAY, 22 august 2002 00:00:00 cest", "%A, %d %B %Y %H:%M:%S %Z",
         "2002-08-21T22:00:00Z"},
        {"wrong weekday is forgiven", "Fri, 22 Aug 2002 18:26:25 -0330", kLong, "2002-08-22T21:56:25Z"},
        {"no weekday is not", "Xyz, 22 Aug 2002 18:26:25 -0330", kLong, "refused"},
        {"ISO", "2002-08-22 18:26:25 +02:00", "%Y-%m-%d %H:%M:%S %z", "2002-08-22T16:26:25Z"},
        {"ISO with Z", "2002-08-22T18:26:25Z", "%Y-%m-%dT%H:%M:%S%z", "2002-08-22T18:26:25Z"},
        {"noon and midnight", "8/22/2002 12:05 am UT", "%m/%d/%Y %I:%M %p %Z", "2002-08-22T00:05:00Z"},
        {"afternoon", "PM 12:05 2002-08-22 UT", "%p %I:%M %Y-%m-%d %Z", "2002-08-22T12:05:00Z"},
        {"day of a leap year", "366 2004 Z", "%j %Y %Z", "2004-12-31T00:00:00Z"},
        {"day of another", "366 2003 Z", "%j %Y %Z", "refused"},
        {"leap second", "31 Dec 1998 23:59:60 +0000", "%d %b %Y %H:%M:%S %z", "1999-01-01T00:00:00Z"},
        {"per cent", "100% 1999 Z", "100%% %Y %Z", "1999-01-01T00:00:00Z"},
        {"local zone in summer", "22 Aug 02 18:00:00", "%d %b %y %H:%M:%S", "2002-08-22T16:00:00Z"},
        {"local zone in winter", "22 Jan 02 18:00:00", "%d %b %y %H:%M:%S", "2002-01-22T17:00:00Z"},
        {"an hour left out", "31 Mar 02 02:30:00", "%d %b %y %H:%M:%S", "2002-03-31T01:30:00Z"},
        {"an hour twice", "27 Oct 02 02:30:00", "%d %b %y %H:%M:%S", "2002-10-27T00:30:00Z"},
        {"the hour after", "27 Oct 02 03:30:00", "%d %b %y %H:%M:%S", "2002-10-27T02:30:00Z"},
        {"text behind", "Thu, 22 Aug 2002 18:26:25 +0700 (x)", kLong, "refused"},
        {"text missing", "Thu, 22 Aug 2002 18:26:25", kLong, "refused"},
        {"no such day", "29 Feb 1900 Z", "%d %b %Y %Z", "refused"},
        {"hour", "1 Feb 1900 24:00 Z", "%d %b %Y %H:%M %Z", "refused"},
        {"five digits", "1 Feb 19000 Z", "%d %b %Y %Z", "refused"},
        {"zone minutes", "1 Feb 1900 +0060", "%d %b %Y %z", "refused"},
        {"unknown zone", "1 Feb 1900 XYZT", "%d %b %Y %Z", "refused"},
        {"unknown mark", "1 Feb 1900 7", "%d %b %Y %Q", "refused"},
        {"mark cut off", "1900%", "%Y%", "1899-12-31T23:00:00Z"},
        {"empty", "", "%Y", "refused"},
    };
    const LocalZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(isoOf(Date::dateWithString(ExactCopy(row.text), row.format)), row.iso);
    }
}

TEST(Date, WritesByTheCalendarFormatInItsOwnZone) {
    const auto date = *Date::dateWithString("Fri, 2 Aug 2002 00:05:09 -0330", kLong);
    EXPECT_EQ(date.descriptionWithCalendarFormat("%a %A %b %B %d %e %m %y %Y %H %I %M %S %p %j %z %Z %% %q %"),
              "Fri Friday Aug August 02 2 08 02 2002 00 12 05 09 AM 214 -0330 GMT-0330 % %q %");
    EXPECT_EQ(date.inZone(3600).descriptionWithCalendarFormat("%a %b %e %H:%M:%S %Y"),
              "Fri Aug 2 04:35:09 2002");
    EXPECT_EQ(date.iso8601(), "2002-08-02T03:35:09Z");
    EXPECT_EQ(date.inZone(0).descriptionWithCalendarFormat("%Z"), "GMT");
    EXPECT_EQ(date, date.inZone(7200));
}

TEST(Date, EveryMomentReadsBackFromWhatIsWritten) {
    std::mt19937_64 random(5);
    std::uniform_int_distribution<std::int64_t> moments(
        Date::dateWithString("0001 Z", "%Y %Z")->secondsSince1970(),
        Date::dateWithString("9998 Z", "%Y %Z")->secondsSince1970());
    for (int round = 0; round < 4'000; ++round) {
        const Date date(moments(random), static_cast<std::int32_t>(random() % 2880) * 60 - 86'400 + 60);
        for (const auto format :
             {kLong, std::string_view("%Y %j %I:%M:%S %p %Z"), std::string_view("%A %d %B %Y %H:%M:%S%z")}) {
            const auto text = date.descriptionWithCalendarFormat(format);
            const auto back = Date::dateWithString(text, format);
            ASSERT_EQ(isoOf(back), date.iso8601()) << text;
            ASSERT_EQ(back->zoneOffset(), date.zoneOffset()) << text;
        }
    }
}

TEST(Date, AgreesWithTheCalendarOfTheCLibrary) {
    std::mt19937_64 random(6);
    for (int round = 0; round < 20'000; ++round) {
        const auto seconds = static_cast<std::time_t>(random() % 550'000'000'000u) - 300'000'000'000;
        std::tm expected{};
        ASSERT_NE(::gmtime_r(&seconds, &expected), nullptr);
        const auto time = civilTime(Date(seconds));
        ASSERT_EQ(time, (CivilTime{expected.tm_year + 1900, expected.tm_mon + 1, expected.tm_mday,
                                   expected.tm_hour, expected.tm_min, expected.tm_sec}));
        const auto days = daysFromCivil(time.year, time.month, time.day);
        ASSERT_EQ(weekdayFromDays(days), expected.tm_wday);
        ASSERT_EQ(dateFromCivil(time, 0), Date(seconds));
    }
}

TEST(Date, StaysWithinItsYears) {
    EXPECT_EQ(Date(INT64_MAX).iso8601(), "9999-12-31T23:59:59Z");
    EXPECT_EQ(Date(INT64_MIN).descriptionWithCalendarFormat("%Y-%m-%d %y"), "-9999-01-01 01");
    EXPECT_EQ(Date(0, 86'400).zoneOffset(), 0);
    EXPECT_EQ(Date(INT64_MAX, 86'399).descriptionWithCalendarFormat("%Y"), "10000");
    EXPECT_FALSE(dateFromCivil({INT32_MAX, 1, 1}, 0));
    EXPECT_FALSE(dateFromLocalCivil({2000, 13, 1}));
    EXPECT_FALSE(dateFromCivil({2000, 1, 1, 0, 0, -1}, 0));
}

TEST(Date, KnowsTheNamesOfMonthsDaysAndZones) {
    EXPECT_EQ(monthNamed("sept"), 9);
    EXPECT_EQ(monthNamed("Se"), std::nullopt);
    EXPECT_EQ(monthNamed("Septembers"), std::nullopt);
    EXPECT_EQ(weekdayNamed("THURS"), 4);
    const struct {
        std::string_view name;
        std::optional<int> minutes;
    } zones[] = {
        {"EST", -300},
        {"pdt", -420},
        {"a", 0},
        {"J", std::nullopt},
        {"GMT+2", 120},
        {"utc-0330", -210},
        {"GMT+02:00", 120},
        {"GMT+", std::nullopt},
        {"EST+1", std::nullopt},
        {"", std::nullopt},
        {"GMT+2x", std::nullopt},
        {"GMT+24", std::nullopt},
    };
    for (const auto& zone : zones) {
        SCOPED_TRACE(zone.name);
        EXPECT_EQ(zoneOffsetNamed(ExactCopy(zone.name)),
                  zone.minutes ? std::optional(*zone.minutes * 60) : std::nullopt);
    }
}

}  // namespace
}  // namespace lorvale
