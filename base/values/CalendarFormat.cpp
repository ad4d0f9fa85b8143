#include <algorithm>
#include <cstdlib>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "base/values/CalendarNames.h"
#include "lorvale/values/date.h"
#include "lorvale/values/text.h"

// Reading and writing dates by calendar formats.  The functions of the C library are not used: they follow the
// locale, and strptime() forgives what must be refused for twenty formats to be told apart.

namespace lorvale {

namespace {

/// What has been read so far.
struct Fields {
    CivilTime time;
    std::optional<int> dayOfYear, hourOf12;
    std::optional<std::int32_t> zoneOffset;
    bool afternoon = false;
};

/// Reads the fields of a text, one mark of the format at a time.
class Reader {
public:
    explicit Reader(std::string_view text) : _text(text) {}

    bool readFormat(std::string_view format) {
        for (std::size_t i = 0; i < format.size(); ++i) {
            if (format[i] == '%' && i + 1 < format.size()) {
                if (!readMark(format[++i])) return false;
            } else if (isAsciiBlank(format[i])) {
                if (_text.takeWhile(isAsciiBlank).empty()) return false;
            } else if (!_text.skip(format[i])) {
                return false;
            }
        }
        return _text.atEnd();
    }

    void negateYear() { _fields.time.year = -_fields.time.year; }

    std::optional<Date> date() {
        auto& time = _fields.time;
        if (_fields.hourOf12) time.hour = *_fields.hourOf12 % 12 + (_fields.afternoon ? 12 : 0);
        if (_fields.dayOfYear && !setDayOfYear(*_fields.dayOfYear)) return std::nullopt;
        return _fields.zoneOffset ? dateFromCivil(time, *_fields.zoneOffset) : dateFromLocalCivil(time);
    }

private:
    bool readMark(char mark) {
        auto& time = _fields.time;
        switch (mark) {
            case 'a':
            case 'A':
                return weekdayNamed(_text.takeWhile(isAsciiLetter)).has_value();
            case 'b':
            case 'B':
                return set(time.month, monthNamed(_text.takeWhile(isAsciiLetter)));
            case 'd':
            case 'e':
                return set(time.day, number(1, 2, 1, 31));
            case 'm':
                return set(time.month, number(1, 2, 1, 12));
            case 'y':
                return set(time.year, yearOfTwoDigits());
            case 'Y':
                return set(time.year, number(4, 4, 0, 9999));
            case 'H':
                return set(time.hour, number(1, 2, 0, 23));
            case 'I':
                return set(_fields.hourOf12, number(1, 2, 1, 12));
            case 'M':
                return set(time.minute, number(1, 2, 0, 59));
            case 'S':
                return set(time.second, number(1, 2, 0, 60));
            case 'j':
                return set(_fields.dayOfYear, number(1, 3, 1, 366));
            case 'p':
                return readHalfOfDay();
            case 'z':
                return set(_fields.zoneOffset,
                           _text.skip('Z') ? std::optional<std::int32_t>(0) : digitsOfZone());
            case 'Z':
                return set(_fields.zoneOffset, zoneOffsetNamed(_text.takeWhile(isPartOfZoneName)));
            case '%':
                return _text.skip('%');
            default:
                return false;
        }
    }

    template <class Field, class Value>
    static bool set(Field& field, const std::optional<Value>& value) {
        if (value) field = *value;
        return value.has_value();
    }

    std::optional<int> number(std::size_t fewest, std::size_t most, int low, int high) {
        const auto digits = _text.takeWhile(isAsciiDigit, most);
        if (digits.size() < fewest || isAsciiDigit(_text.peek())) return std::nullopt;
        int value = 0;
        for (const char c : digits) value = value * 10 + (c - '0');
        return value >= low && value <= high ? std::optional(value) : std::nullopt;
    }

    std::optional<int> yearOfTwoDigits() {
        const auto year = number(2, 2, 0, 99);
        return year ? std::optional(*year + (*year >= 69 ? 1900 : 2000)) : std::nullopt;
    }

    bool readHalfOfDay() {
        const auto half = _text.takeWhile(isAsciiLetter);
        _fields.afternoon = equalIgnoringAsciiCase(half, "PM");
        return _fields.afternoon || equalIgnoringAsciiCase(half, "AM");
    }

    static bool isPartOfZoneName(char c) { return isAsciiLetter(c) || isPartOfZoneDigits(c); }
    static bool isPartOfZoneDigits(char c) { return isAsciiDigit(c) || c == '+' || c == '-' || c == ':'; }
    std::optional<std::int32_t> digitsOfZone() {
        return zoneOffsetFromDigits(_text.takeWhile(isPartOfZoneDigits));
    }

    bool setDayOfYear(int day) {
        auto& time = _fields.time;
        for (time.month = 1; day > daysInMonth(time.year, time.month); ++time.month) {
            day -= daysInMonth(time.year, time.month);
            if (time.month == 12) return false;
        }
        time.day = day;
        return true;
    }

    Cursor _text;
    Fields _fields;
};

/// Writes the fields of one date.
class Writer {
public:
    explicit Writer(const Date& date) : _time(civilTime(date)), _zoneOffset(date.zoneOffset()) {}

    std::string write(std::string_view format) {
        for (std::size_t i = 0; i < format.size(); ++i) {
            if (format[i] == '%' && i + 1 < format.size()) {
                writeMark(format[++i]);
            } else {
                _text += format[i];
            }
        }
        return std::move(_text);
    }

private:
    void writeMark(char mark) {
        switch (mark) {
            case 'a':
                return append(weekdayName().substr(0, kShortNameLength));
            case 'A':
                return append(weekdayName());
            case 'b':
                return append(monthName().substr(0, kShortNameLength));
            case 'B':
                return append(monthName());
            case 'd':
                return append(_time.day, 2);
            case 'e':
                return append(_time.day, 1);
            case 'm':
                return append(_time.month, 2);
            case 'y':
                return append((_time.year % 100 + 100) % 100, 2);
            case 'Y':
                return append(_time.year, 4);
            case 'H':
                return append(_time.hour, 2);
            case 'I':
                return append((_time.hour + 11) % 12 + 1, 2);
            case 'M':
                return append(_time.minute, 2);
            case 'S':
                return append(_time.second, 2);
            case 'j':
                return append(static_cast<int>(days() - daysFromCivil(_time.year, 1, 1)) + 1, 3);
            case 'p':
                return append(_time.hour < 12 ? "AM" : "PM");
            case 'z':
                return appendZone();
            case 'Z':
                append("GMT");
                if (_zoneOffset != 0) appendZone();
                return;
            case '%':
                return append("%");
            default:
                _text.append({'%', mark});
        }
    }

    void append(std::string_view text) { _text += text; }
    void append(int number, std::size_t digits) {
        const auto text = std::to_string(std::abs(number));
        if (number < 0) _text += '-';
        if (text.size() < digits) _text.append(digits - text.size(), '0');
        _text += text;
    }

    void appendZone() {
        const auto minutes = std::abs(_zoneOffset) / 60;
        append(_zoneOffset < 0 ? "-" : "+");
        append(minutes / 60 * 100 + minutes % 60, 4);
    }

    std::int64_t days() const { return daysFromCivil(_time.year, _time.month, _time.day); }
    std::string_view weekdayName() const {
        return kWeekdayNames[static_cast<std::size_t>(weekdayFromDays(days()))];
    }
    std::string_view monthName() const { return kMonthNames[static_cast<std::size_t>(_time.month - 1)]; }

    const CivilTime _time;
    const std::int32_t _zoneOffset;
    std::string _text;
};

}  // namespace

std::optional<Date> Date::dateWithString(std::string_view text, std::string_view calendarFormat) {
    Reader reader(trimmed(text));
    if (!reader.readFormat(calendarFormat)) return std::nullopt;
    return reader.date();
}

std::optional<Date> dateFromIso8601(std::string_view text) {
    const bool isBeforeYear0 = text.starts_with('-');
    Reader reader(text.substr(isBeforeYear0 ? 1 : 0));
    if (!reader.readFormat("%Y-%m-%dT%H:%M:%S%z")) return std::nullopt;
    if (isBeforeYear0) reader.negateYear();
    return reader.date();
}

std::string Date::descriptionWithCalendarFormat(std::string_view calendarFormat) const {
    return Writer(*this).write(calendarFormat);
}

}  // namespace lorvale
