#include "mail/mime/CalendarText.h"

#include <algorithm>
#include <array>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

struct Property {
    std::string_view name, label;
};

constexpr auto kShown = std::to_array<Property>({
    {"SUMMARY", "Summary"},
    {"DTSTART", "Begins"},
    {"DTEND", "Ends"},
    {"DUE", "Due"},
    {"RRULE", "Repeats"},
    {"LOCATION", "Where"},
    {"ORGANIZER", "Organizer"},
    {"ATTENDEE", "Attendee"},
    {"STATUS", "Status"},
    {"DESCRIPTION", "Description"},
});

/// "20040105T182300Z" as "2004-01-05 18:23 UTC"; another form stays as it is.
std::string moment(std::string_view value) {
    const auto areDigits = [&](std::size_t at, std::size_t count) {
        return value.size() >= at + count && std::ranges::all_of(value.substr(at, count), isAsciiDigit);
    };
    if (!areDigits(0, 8)) return std::string(value);
    const auto piece = [&](std::size_t at, std::size_t count) { return std::string(value.substr(at, count)); };
    auto text = piece(0, 4) + "-" + piece(4, 2) + "-" + piece(6, 2);
    if (value.size() < 13 || value[8] != 'T' || !areDigits(9, 4)) return text;
    text += " " + piece(9, 2) + ":" + piece(11, 2);
    return value.ends_with('Z') ? text + " UTC" : text;
}

/// Section 3.3.11.
std::string unescaped(std::string_view value) {
    std::string text;
    for (Cursor cursor(value); !cursor.atEnd();) {
        text += cursor.takeUntil('\\');
        if (!cursor.skip('\\')) break;
        const auto next = cursor.take(1);
        text += next == "n" || next == "N" ? "\n" : next;
    }
    return text;
}

/// The value of a parameter of a property: 'ORGANIZER;CN="Port Office":mailto:...'.
std::string_view parameterNamed(std::string_view name, std::string_view parameters) {
    for (auto parameter : split(parameters, ';')) {
        const auto equals = parameter.find('=');
        if (equals != std::string_view::npos && equalIgnoringAsciiCase(parameter.substr(0, equals), name))
            return trimmed(parameter.substr(equals + 1), "\"");
    }
    return {};
}

std::string valueForPeople(std::string_view name, std::string_view parameters, std::string_view value) {
    if (name.starts_with("DT") || name == "DUE") {
        const auto zone = parameterNamed("TZID", parameters);
        return moment(value) + (zone.empty() ? "" : " " + std::string(zone));
    }
    if (name != "ORGANIZER" && name != "ATTENDEE") return unescaped(value);
    constexpr std::string_view kScheme = "mailto:";
    if (equalIgnoringAsciiCase(value.substr(0, kScheme.size()), kScheme)) value.remove_prefix(kScheme.size());
    const auto person = parameterNamed("CN", parameters);
    return person.empty() ? std::string(value) : std::string(person) + " <" + std::string(value) + ">";
}

/// Section 3.1: a line goes on in those behind it that begin with white space.
std::string unfolded(std::string_view calendar) {
    std::string text;
    for (Cursor cursor(calendar); !cursor.atEnd();) {
        text += cursor.takeLine();
        if (!cursor.skipIf(isAsciiBlank)) text += '\n';
    }
    return text;
}

/// Where the value begins: the first colon outside quotes.
std::size_t colonIn(std::string_view line) {
    bool quoted = false;
    const auto found = std::ranges::find_if(line, [&](char c) {
        if (c == '"') quoted = !quoted;
        return c == ':' && !quoted;
    });
    return static_cast<std::size_t>(found - line.begin());
}

}  // namespace

std::string calendarText(std::string_view calendar) {
    const auto plain = unfolded(calendar);
    std::string text;
    std::size_t depth = 0;  // inside an event or task; alarms and the like are further in
    for (Cursor cursor(plain); !cursor.atEnd();) {
        const auto line = cursor.takeLine();
        if (line == "BEGIN:VEVENT" || line == "BEGIN:VTODO") {
            if (!text.empty()) text += '\n';
            depth = 1;
        } else if (depth > 0 && line.starts_with("BEGIN:")) {
            ++depth;
        } else if (depth > 0 && line.starts_with("END:")) {
            --depth;
        } else if (depth == 1) {
            const auto colon = colonIn(line);
            const auto head = line.substr(0, colon);
            const auto semicolon = std::min(head.find(';'), head.size());
            const auto name = head.substr(0, semicolon);
            const auto shown = std::ranges::find(kShown, name, &Property::name);
            if (shown == kShown.end() || colon == line.size()) continue;
            const auto value = valueForPeople(name, head.substr(semicolon), line.substr(colon + 1));
            text.append(shown->label).append(": ").append(value).append("\n");
        }
    }
    return text.empty() ? std::string(calendar) : text;
}

}  // namespace lorvale
