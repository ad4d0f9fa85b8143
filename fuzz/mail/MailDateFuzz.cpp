// A date that is read has fields in their ranges and reads back the same from any form that holds all of it.
// What an exact format accepts the tolerant reader reads as the same moment.
#include "fuzz/FuzzTarget.h"
#include "mail/model/DateUtils.h"

using namespace lorvale;

namespace {

void requireReadsBack(const Date& date) {
    // Zones are written in whole minutes.
    const auto whole = Date(date.secondsSince1970(), date.zoneOffset() / 60 * 60);
    const auto year = civilTime(whole).year;
    if (year < 0 || year > 9999) return;
    for (const char* const format :
         {"%a, %e %b %Y %H:%M:%S %z", "%Y-%m-%d %H:%M:%S %z", "%d-%b-%Y %H:%M:%S %z"}) {
        const auto text = whole.descriptionWithCalendarFormat(format);
        fuzz::require(dateInTolerantForm(text) == whole);
    }
}

}  // namespace

LORVALE_FUZZ_TARGET(text) {
    const auto tolerant = dateInTolerantForm(text);
    if (tolerant) requireReadsBack(*tolerant);
    const auto date = dateInCommonFormatsWithString(text);
    if (date) requireReadsBack(*date);
    if (tolerant && !text.empty()) fuzz::require(date.has_value());
    for (const auto format : commonDateFormats()) {
        const auto strict = Date::dateWithString(text, format);
        if (strict) fuzz::require(tolerant == strict);
    }
}
