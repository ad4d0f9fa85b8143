#include "mail/delivery/SMTPReplies.h"

#include <algorithm>
#include <charconv>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "lorvale/values/text.h"

namespace lorvale {

namespace {

constexpr struct {
    std::string_view keyword;
    bool SMTPExtensions::*flag;
} kFlags[] = {
    {"8bitmime", &SMTPExtensions::eightBit}, {"pipelining", &SMTPExtensions::pipelining},
    {"size", &SMTPExtensions::size},         {"smtputf8", &SMTPExtensions::utf8},
    {"starttls", &SMTPExtensions::startTLS},
};

std::string_view nextWord(Cursor& cursor) {
    const auto isSeparator = [](char c) { return isAsciiBlank(c) || c == '='; };  // "AUTH=PLAIN", of old
    cursor.takeWhile(isSeparator);
    return cursor.takeUntil(isSeparator);
}

}  // namespace

int classicReplyClass(std::string_view line) {
    const bool isKnown = !line.empty() && line[0] >= '0' && line[0] <= '5';
    return isKnown ? line[0] - '0' : 6;
}

SMTPReplyLine smtpReplyLine(std::string_view line) {
    SMTPReplyLine reply;
    const auto text = line.substr(0, line.find_last_not_of("\r\n") + 1);
    const bool isCode = text.size() >= 3 && text[0] >= '2' && text[0] <= '5' &&
                        std::ranges::all_of(text.substr(0, 3), isAsciiDigit) &&
                        (text.size() == 3 || text[3] == ' ' || text[3] == '-');
    if (!isCode) {
        reply.text = text;
        return reply;
    }
    reply.code = (text[0] - '0') * 100 + (text[1] - '0') * 10 + (text[2] - '0');
    reply.isLast = text.size() == 3 || text[3] == ' ';
    reply.text = text.substr(std::min<std::size_t>(4, text.size()));
    return reply;
}

void addExtension(SMTPExtensions& extensions, std::string_view line) {
    Cursor cursor(line);
    const auto keyword = asciiLowered(nextWord(cursor));
    for (const auto& [name, flag] : kFlags) {
        if (keyword == name) extensions.*flag = true;
    }
    if (keyword == "size") {
        const auto number = nextWord(cursor);
        std::size_t bytes = 0;
        const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), bytes);
        if (error == std::errc() && end == number.data() + number.size()) extensions.mostBytes = bytes;
    }
    if (keyword == "auth") {
        for (auto name = nextWord(cursor); !name.empty(); name = nextWord(cursor))
            extensions.logins.push_back(asciiLowered(name));
    }
}

}  // namespace lorvale
