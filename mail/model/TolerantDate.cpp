#include <algorithm>
#include <array>
#include <cstdint>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "lorvale/values/text.h"
#include "mail/model/DateUtils.h"

namespace lorvale {

namespace {

// Bytes beyond ASCII belong to words, so that a month in another language is one unknown word.
constexpr bool isWordByte(char c) {
    return isAsciiLetter(c) || static_cast<unsigned char>(c) >= 0x80;
}

/// The value of a few digits; callers look at their count first.
int number(std::string_view digits) {
    int value = 0;
    for (const char c : digits.substr(0, 9)) value = value * 10 + (c - '0');
    return value;
}

/// Reads a date word by word and takes each for what it can mean, the first meaning that is still missing.
class DateReader {
public:
    explicit DateReader(std::string_view text) : _cursor(text) {}

    std::optional<Date> read() {
        while (!_cursor.atEnd()) {
            const char c = _cursor.peek();
            if (isAsciiDigit(c)) {
                if (!readNumber()) return std::nullopt;
            } else if (isWordByte(c)) {
                if (!readWord()) return std::nullopt;
            } else if (c == '(') {
                readComment();
            } else if (c == '+' || c == '-') {
                readSignedNumber();
            } else {
                _cursor.advance();
            }
        }
        return assembled();
    }

private:
    // Numbers.  Each of these answers false where the text names a time that cannot be.

    bool readNumber() {
        const auto digits = _cursor.takeWhile(isAsciiDigit);
        const char next = _cursor.peek();
        if (digits.size() <= 2 && next == ':' && !_hour) return readTime(number(digits));
        const bool separated = (next == '-' || next == '/' || next == '.');
        if (separated && digits.size() <= 4 && (isAsciiDigit(_cursor.peek(1)) || isWordByte(_cursor.peek(1)))) {
            return readSeparated(digits, next);
        }
        readPlainNumber(digits);
        return true;
    }

    /// Behind the hour.  Blanks may stand around the colons.
    bool readTime(int hour) {
        const auto field = [this]() -> std::optional<int> {
            auto ahead = _cursor;
            if (!ahead.skip(':')) return std::nullopt;
            ahead.takeWhile(isFoldingWhite);
            const auto digits = ahead.takeWhile(isAsciiDigit);
            if (digits.empty() || digits.size() > 2) return std::nullopt;
            _cursor = ahead;
            return number(digits);
        };
        const auto minute = field();
        if (!minute) return true;
        const auto second = field();
        if (second && _cursor.peek() == '.' && isAsciiDigit(_cursor.peek(1))) {
            _cursor.advance();
            _cursor.takeWhile(isAsciiDigit);  // a fraction
        }
        return setTime(hour, *minute, second.value_or(0));
    }

    bool setTime(int hour, int minute, int second) {
        if (hour > 24 || minute > 59 || second > 60) return false;
        _hour = hour;
        _minute = minute;
        _second = second;
        return true;
    }

    /// "2002-08-22", "22-Aug-2002", "8/22/2002", "22.8.2002", "12.46.23"; `first` is taken already.
    bool readSeparated(std::string_view first, char separator) {
        auto ahead = _cursor;
        ahead.advance();
        const auto second =
            isAsciiDigit(ahead.peek()) ? ahead.takeWhile(isAsciiDigit) : ahead.takeWhile(isWordByte);
        const bool hasThird = ahead.peek() == separator && isAsciiDigit(ahead.peek(1));
        if (hasThird) ahead.advance();
        const auto third = hasThird ? ahead.takeWhile(isAsciiDigit) : std::string_view();
        if (separator == '.' && _day && _month && !_hour && isAsciiDigit(second.front()) &&
            second.size() <= 2) {
            _cursor = ahead;
            return setTime(number(first), number(second), third.size() <= 2 ? number(third) : 0);
        }
        if (!hasThird || _day || _month || _year || third.size() > 4) {
            readPlainNumber(first);  // "-" and what follows are read on their own
            return true;
        }
        _cursor = ahead;
        if (!isAsciiDigit(second.front())) {
            _month = monthNamed(second).value_or(0);
            return first.size() <= 2 ? setDayAndYear(first, third) : setDayAndYear(third, first);
        }
        if (second.size() > 2) return false;
        if (first.size() > 2) {
            _month = number(second);
            return setDayAndYear(third, first);
        }
        // With slashes as Americans write it, unless only the other order can be meant.
        const bool monthFirst = separator == '/' && number(first) <= 12;
        _month = number(monthFirst ? first : second);
        return setDayAndYear(monthFirst ? second : first, third);
    }

    bool setDayAndYear(std::string_view day, std::string_view year) {
        _day = number(day);
        setYear(year);
        return day.size() <= 2;
    }

    void readPlainNumber(std::string_view digits) {
        const int value = number(digits);
        if (digits.size() <= 2 && !_day && value >= 1 && value <= 31) {
            _day = value;
        } else if (digits.size() >= 2 && digits.size() <= 5 && !_year) {
            setYear(digits);
        } else if (digits.size() == 4 && _hour && !_zone) {
            setNumericZone(digits, 1);  // a zone that lost its sign
        } else if (digits.size() == 8 && !_day && !_month && !_year) {
            setYear(digits.substr(0, 4));
            _month = number(digits.substr(4, 2));
            _day = number(digits.substr(6));
        } else if (digits.size() == 6 && _day && !_hour) {
            setTime(number(digits.substr(0, 2)), number(digits.substr(2, 2)), number(digits.substr(4)));
        }
    }

    void setYear(std::string_view digits) {
        int year = number(digits);
        if (digits.size() == 2) year += year < 69 ? 2000 : 1900;  // as %y reads it
        if (digits.size() == 3) year += 1900;                     // years since 1900, after 1999
        if (digits.size() == 5) {                                 // "19102", the same behind a fixed "19"
            if (year < 19100 || year > 19199) return;
            year -= 17100;
        }
        _year = year;
        _yearBehindTime = _hour.has_value();
    }

    void readSignedNumber() {
        const int sign = _cursor.peek() == '-' ? -1 : 1;
        _cursor.advance();
        auto ahead = _cursor;
        ahead.takeWhile(isFoldingWhite);
        // A lone dash is punctuation, unless what follows can only be a zone.
        const auto digits = ahead.takeWhile(isAsciiDigit);
        const bool apart = digits.data() != _cursor.rest().data();
        if (digits.empty() || (apart && digits.size() != 4) || !_hour || _zone) return;
        if (digits.size() > 4 || (digits.size() <= 2 && ahead.peek() == ':' && !isAsciiDigit(ahead.peek(1))))
            return;
        _cursor = ahead;
        if (digits.size() <= 2 && _cursor.skip(':')) {
            setZone(number(digits), number(_cursor.takeWhile(isAsciiDigit)), sign);
        } else {
            setNumericZone(digits, sign);
        }
    }

    /// "hhmm", "hmm", "hh" or "h".
    void setNumericZone(std::string_view digits, int sign) {
        const int value = number(digits);
        if (digits.size() <= 2) {
            setZone(value, 0, sign);
        } else {
            setZone(value / 100, value % 100, sign);
        }
    }

    void setZone(int hours, int minutes, int sign) {
        // An impossible zone is as good as none that is known.
        _zone = hours < 24 && minutes < 60 ? sign * (hours * 3600 + minutes * 60) : 0;
    }

    // Words and comments.

    bool readWord() {
        const auto word = _cursor.takeWhile(isWordByte);
        if (const auto month = monthNamed(word)) {
            if (!_month) _month = month;
            return true;
        }
        if (weekdayNamed(word) || isOrdinalEnding(word)) return true;
        if (!_hour) return equalIgnoringAsciiCase(word, "t") || countUnknown();
        if (equalIgnoringAsciiCase(word, "am") || equalIgnoringAsciiCase(word, "pm")) {
            _afternoon = asciiLower(word.front()) == 'p';
            return true;
        }
        if (equalIgnoringAsciiCase(word, "dst")) {
            _summerTime = true;
            return true;
        }
        if (const auto offset = zoneOffsetNamed(word)) {
            if (!_namedZone) _namedZone = offset;
            return true;
        }
        // Behind "12:46:23 2002" stands no zone any more, but the likes of "remote from host".
        if (!_yearBehindTime) _unknownZone = true;
        return countUnknown();
    }

    static bool isOrdinalEnding(std::string_view word) {
        constexpr std::array<std::string_view, 4> kEndings = {"st", "nd", "rd", "th"};
        return std::ranges::any_of(kEndings, [word](auto each) { return equalIgnoringAsciiCase(word, each); });
    }

    /// False when there are too many strange words for this to be a date.
    bool countUnknown() { return ++_unknownWords <= 4; }

    /// Comments nest.  One behind the time may hold the only zone there is.
    void readComment() {
        _cursor.advance();
        const auto inside = _cursor.rest();
        for (std::size_t depth = 1; depth > 0 && !_cursor.atEnd();) {
            const char c = _cursor.peek();
            _cursor.advance(c == '\\' ? 2 : 1);
            if (c == '(') ++depth;
            if (c == ')') --depth;
        }
        if (!_hour || _commentZone) return;
        const auto content = trimmed(inside.substr(0, inside.size() - _cursor.rest().size()), " \t)");
        _commentZone = zoneOffsetNamed(content);
        if (!_commentZone) _commentZone = zoneOffsetFromDigits(content);
    }

    // The result.

    std::optional<Date> assembled() const {
        if (!_day || !_month || !_year) return std::nullopt;
        CivilTime time{*_year, *_month, *_day, _hour.value_or(0), _minute, _second};
        if (_afternoon && time.hour >= 1 && time.hour <= 12)
            time.hour = time.hour % 12 + (*_afternoon ? 12 : 0);
        const bool nextDay = time.hour == 24;  // midnight at the end of the day
        if (nextDay) time.hour = 0;
        const auto zone = zoneOffset();
        const auto date = zone ? dateFromCivil(time, *zone) : dateFromLocalCivil(time);
        if (!date || !nextDay) return date;
        return Date(date->secondsSince1970() + 24 * 60 * 60, date->zoneOffset());
    }

    /// Digits are the truth, where names stand for several zones.
    std::optional<std::int32_t> zoneOffset() const {
        if (_zone) return _zone;
        if (_namedZone) return *_namedZone + (_summerTime ? 3600 : 0);
        if (_commentZone) return _commentZone;
        return _unknownZone ? std::optional<std::int32_t>(0) : std::nullopt;
    }

    Cursor _cursor;
    std::optional<int> _year, _month, _day, _hour;
    int _minute = 0, _second = 0;
    std::optional<bool> _afternoon;
    std::optional<std::int32_t> _zone, _namedZone, _commentZone;  // seconds east of UTC
    bool _summerTime = false, _unknownZone = false, _yearBehindTime = false;
    int _unknownWords = 0;
};

}  // namespace

std::optional<Date> dateInTolerantForm(std::string_view text) {
    return DateReader(text).read();
}

}  // namespace lorvale
