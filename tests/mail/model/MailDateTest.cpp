#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <random>
#include <set>
#include <thread>

#include "lorvale/values/text.h"
#include "mail/model/DateUtils.h"
#include "tests/mail/model/RealMail.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TextRows.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;

std::string read(std::string_view text) {
    const auto date = dateInTolerantForm(text);
    return date ? date->iso8601() : "none";
}

/// The usual forms are compared in BothReadersAgreeOnEveryFormat.
TEST(MailDates, OddFormsAreRead) {
    const TextRow rows[] = {
        {"a comment with the zone's name", "Thu, 22 Aug 2002 12:46:23 -0500 (EST)", "2002-08-22T17:46:23Z"},
        {"a comment is the only zone", "Thu, 22 Aug 2002 12:46:23 (EDT)", "2002-08-22T16:46:23Z"},
        {"comments nest", "Thu (a (b) \\) c), 22 (x) Aug 2002 12:46 GMT", "2002-08-22T12:46:00Z"},
        {"an unclosed comment", "22 Aug 2002 12:46:23 +0000 (EST", "2002-08-22T12:46:23Z"},
        {"digits are truer than names", "22 Aug 2002 12:46:23 EST -0400", "2002-08-22T16:46:23Z"},
        {"a name with digits", "22 Aug 2002 12:46:23 GMT+0200", "2002-08-22T10:46:23Z"},
        {"hours alone", "22 Aug 2002 12:46:23 UTC-3", "2002-08-22T15:46:23Z"},
        {"a colon in the zone", "22 Aug 2002 12:46:23 +05:30", "2002-08-22T07:16:23Z"},
        {"a zone that lost its sign", "22 Aug 2002 12:46:23 0200", "2002-08-22T10:46:23Z"},
        {"a sign apart from its zone", "22 Aug 2002 12:46:23 - 0100", "2002-08-22T13:46:23Z"},
        {"an impossible zone", "22 Aug 2002 12:46:23 +9999", "2002-08-22T12:46:23Z"},
        {"military letters count for nothing", "22 Aug 2002 12:46:23 A", "2002-08-22T12:46:23Z"},
        {"an unknown zone is UTC", "22 Aug 2002 12:46:23 XYZT", "2002-08-22T12:46:23Z"},
        {"summer time behind the zone", "22 Aug 2002 12:46:23 MET DST", "2002-08-22T10:46:23Z"},
        {"an unknown zone before the year", "Thu Aug 22 12:46:23 XYZT 2002", "2002-08-22T12:46:23Z"},
        {"a wrong weekday", "Mon, 22 Aug 2002 12:46:23 +0000", "2002-08-22T12:46:23Z"},
        {"years since 1900", "22 Aug 102 12:46:23 GMT", "2002-08-22T12:46:23Z"},
        {"the same behind a 19", "22 Aug 19102 12:46:23 GMT", "2002-08-22T12:46:23Z"},
        {"asctime with a zone", "Thu Aug 22 12:46:23 EDT 2002", "2002-08-22T16:46:23Z"},
        {"a zone behind the year", "Thu Aug 22 12:46:23 2002 +0200", "2002-08-22T10:46:23Z"},
        {"blanks in the time", "Thu, 2 Aug 2002  1: 4: 3 GMT", "2002-08-02T01:04:03Z"},
        {"too many blanks and commas", "Thu ,, 22  Aug,2002 , 12:46:23 ,+0000", "2002-08-22T12:46:23Z"},
        {"quotes around it", "'Thu, 22 Aug 2002 12:46:23 +0000'", "2002-08-22T12:46:23Z"},
        {"ISO 8601 with all of it", "2002-08-22T12:46:23.250+01:00", "2002-08-22T11:46:23Z"},
        {"ISO 8601 in short", "20020822T124623Z", "2002-08-22T12:46:23Z"},
        {"dashes and a name", "22-Aug-2002 12:46:23 GMT", "2002-08-22T12:46:23Z"},
        {"year first with a name", "2002-Aug-22 12:46:23 GMT", "2002-08-22T12:46:23Z"},
        {"slashes", "8/22/2002 12:46:23 GMT", "2002-08-22T12:46:23Z"},
        {"slashes, day first", "22/8/2002 12:46:23 GMT", "2002-08-22T12:46:23Z"},
        {"dots", "22.08.2002 12.46.23 GMT", "2002-08-22T12:46:23Z"},
        {"month first, afternoon", "August 22nd, 2002 at 1:17 PM GMT", "2002-08-22T13:17:00Z"},
        {"midnight by the clock of twelve", "Aug 22 2002 12:17am GMT", "2002-08-22T00:17:00Z"},
        {"the end of the day", "22 Aug 2002 24:00:00 GMT", "2002-08-23T00:00:00Z"},
        {"a leap second", "22 Aug 2002 23:59:60 GMT", "2002-08-23T00:00:00Z"},
        {"the year 0", "22 Aug 0000 12:46:23 GMT", "0000-08-22T12:46:23Z"},
        {"an impossible hour", "22 Aug 2002 59:10 -0500", "none"},
        {"an impossible day", "31 Jun 2002 12:00 GMT", "none"},
        {"no year", "Thu, 22 Aug 12:46:23 GMT", "none"},
        {"no date", "Not supplied", "none"},
        {"a sentence", "on 1 may 2002 we all went to the fair", "none"},
        {"endless digits", "99999999999999999999 Aug 99999999999999999999", "none"},
        {"nothing", "", "none"},
    };
    expectRows(read, rows);
}

TEST(MailDates, WithoutAZoneTheLocalOneHolds) {
    setenv("TZ", "Asia/Kolkata", 1);
    tzset();
    const auto local = dateFromCivil({2002, 8, 22, 12, 46, 23}, 19'800);
    for (const auto* text : {"22 Aug 2002 12:46:23", "Thu Aug 22 12:46:23 2002 remote from foo"})
        EXPECT_EQ(dateInTolerantForm(text), local) << text;
    unsetenv("TZ");
    tzset();
}

TEST(MailDates, AreWrittenForHeaders) {
    EXPECT_EQ(dateHeaderText(*dateFromCivil({2002, 8, 3, 1, 4, 5}, -12'600)), "Sat, 3 Aug 2002 01:04:05 -0330");
    EXPECT_EQ(dateHeaderText(Date(0, 3'659)), "Thu, 1 Jan 1970 01:00:00 +0100") << "a zone of whole minutes";
}

TEST(MessageIDs, AreNewAndOfTheRightForm) {
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) seen.insert(makeMessageID("mail.example"));
    EXPECT_EQ(seen.size(), 1000u);
    EXPECT_THAT(*seen.begin(), MatchesRegex("<[a-z2-9]{26}@mail\\.example>"));
    for (const auto* domain : {"", ".", "a..b", "a.", "a b", "a\r\nBcc: b", "\xC3\xA9.example"})
        EXPECT_THAT(makeMessageID(domain), MatchesRegex("<[a-z2-9]{26}@[-a-zA-Z0-9._]+>")) << domain;
}

TEST(MailDates, FailureIsLoggedOnce) {
    const LogCapture log;
    for (const auto* text : {"", "some day"}) EXPECT_EQ(dateInCommonFormatsWithString(text), std::nullopt);
    EXPECT_EQ(log.lines().size(), 1u) << "an empty date is none that failed";
}

/// The exact formats and the tolerant reader agree on whatever the formats write.
TEST(MailDates, BothReadersAgreeOnEveryFormat) {
    std::mt19937 random(7);
    std::uniform_int_distribution<std::int64_t> seconds(0, 3'000'000'000);  // years that two digits can tell
    std::uniform_int_distribution<int> quarters(-47, 47);
    for (int i = 0; i < 2'000; ++i) {
        const Date date(seconds(random) / 60 * 60 + i % 60, quarters(random) * 900);
        for (const auto format : commonDateFormats()) {
            const auto text = date.descriptionWithCalendarFormat(format);
            SCOPED_TRACE(text);
            const auto strict = Date::dateWithString(text, format);
            ASSERT_TRUE(strict);
            ASSERT_EQ(dateInTolerantForm(text), strict);
            ASSERT_EQ(dateInCommonFormatsWithString(text), strict);
        }
    }
}

TEST(MailDates, FormatThatFitsMovesToTheFront) {
    const auto before = commonDateFormats();
    const std::string_view wanted = "%Y-%m-%d %H:%M:%S %z";
    const auto place = static_cast<std::size_t>(std::ranges::find(before, wanted) - before.begin());
    ASSERT_LT(place, before.size());
    ASSERT_TRUE(dateInCommonFormatsWithString("2002-08-22 12:46:23 +0200"));
    auto after = before;
    std::swap(after[0], after[place]);
    EXPECT_EQ(commonDateFormats(), after);
}

TEST(MailDateThreads, NoFormatIsLost) {
    auto expected = commonDateFormats();
    std::ranges::sort(expected);
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            const Date date(1'000'000'000, 3600);
            for (int i = 0; i < 300; ++i) {
                const auto formats = commonDateFormats();
                const auto format = formats[static_cast<std::size_t>(i * 7 + t * 3) % formats.size()];
                dateInCommonFormatsWithString(date.descriptionWithCalendarFormat(format));
            }
        });
    }
    threads.clear();
    auto formats = commonDateFormats();
    std::ranges::sort(formats);
    EXPECT_EQ(formats, expected);
}

TEST(MailDates, OfRealMailAreRead) {
    const auto headers = testing::realHeaderBlocks();
    if (headers.empty()) GTEST_SKIP() << "no folder of real mail beside the checkout";
    LogCapture log;
    std::size_t all = 0, good = 0;
    for (const auto& block : headers) {
        const auto written = cachedHeadersInBlock(block).textForKey("Date");
        if (trimmed(written).empty()) continue;
        ++all;
        if (dateInCommonFormatsWithString(written)) ++good;
    }
    EXPECT_GE(good * 1000, all * 998) << good << " of " << all << ::testing::PrintToString(log.lines());
    RecordProperty("read", std::to_string(good) + " of " + std::to_string(all));
}

}  // namespace
}  // namespace lorvale
