#include "mail/fetch/SpoolEntry.h"

#include <cstring>
#include <optional>

#include "lorvale/fetch/pop3_connection.h"
#include "lorvale/message.h"
#include "lorvale/values/date.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"
#include "mail/model/Envelope.h"

namespace lorvale {

namespace {

std::optional<Date> dateReceived(const POP3Header& header) {
    const auto received = header.firstTextForKey("received");
    const auto semicolon = received.find(';');
    if (semicolon == std::string::npos) return std::nullopt;
    // Up to a second one, which no date has.
    const auto rest = std::string_view(received).substr(semicolon + 1);
    const auto text = trimmed(rest.substr(0, rest.find(';')));
    const auto* const format =
        text.find(',') != std::string_view::npos ? "%a, %d %b %y %H:%M:%S %z" : "%d %b %y %H:%M:%S %z";
    if (const auto date = Date::dateWithString(text, format)) return date;
    return dateInCommonFormatsWithString(text);
}

}  // namespace

std::string envelopeLineFor(const POP3Header* header, std::string_view user, std::string_view host) {
    std::string sender, date;
    if (header != nullptr) {
        sender = uncommentedAddress(header->firstTextForKey("from"));
        if (const auto received = dateReceived(*header))
            date = received->inLocalZone().descriptionWithCalendarFormat("%a %b %d %H:%M:%S %Y");
    }
    // A header word may hold a line end, and what stands behind it would be an entry of its own.
    std::erase_if(sender, [](char c) { return static_cast<unsigned char>(c) < ' '; });
    if (sender.empty()) sender = formatText("%@@%@", user, host);
    if (date.empty()) date = Date::now().descriptionWithCalendarFormat("%a %b %e %H:%M:%S %Y");
    return formatText("From %@ %@\n", sender, date);
}

void appendSpoolEntry(std::string& out, std::string_view envelopeLine, std::string_view text) {
    const auto start = out.size();
    out.append(envelopeLine);
    out.reserve(start + envelopeLine.size() + text.size());
    while (!text.empty()) {
        const auto* const newline = static_cast<const char*>(std::memchr(text.data(), '\n', text.size()));
        const auto length =
            newline == nullptr ? text.size() : static_cast<std::size_t>(newline - text.data()) + 1;
        const auto line = text.substr(0, length);
        text.remove_prefix(length);
        if (line.starts_with(kEnvelopeMark)) out += '>';
        if (line.ends_with("\r\n")) {
            out.append(line.substr(0, line.size() - 2)) += '\n';
        } else {
            out.append(line);
        }
    }
    // An entry ends with the line end that its last CRLF became; what has none is closed.
    if (out.size() == start + envelopeLine.size() || out.back() != '\n') out += '\n';
}

}  // namespace lorvale
