#include "mail/model/Envelope.h"

#include "lorvale/values/format.h"

namespace lorvale {

Envelope Envelope::parse(std::string_view text) {
    const auto blank = text.find_first_of(" \t");
    if (blank == std::string_view::npos) return {text, {}};
    return {text.substr(0, blank), text.substr(blank + 1)};
}

std::string Envelope::text(std::string_view sender, const Date& delivered) {
    const auto when = delivered.inLocalZone().descriptionWithCalendarFormat("%a %b %e %H:%M:%S %Y");
    return formatText("%@ %@", sender, when);
}

}  // namespace lorvale
