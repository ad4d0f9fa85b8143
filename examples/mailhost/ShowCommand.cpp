#include <unistd.h>

#include <cstdio>
#include <map>

#include "BodyText.h"
#include "Commands.h"
#include "Mailbox.h"
#include "Summary.h"
#include "Terminal.h"
#include "Work.h"
#include "lorvale/mime.h"
#include "lorvale/values/text.h"

namespace mailhost {

namespace {

enum class Part { summary, headers, raw, text };

constexpr auto kNumber = numberWord("N", "the number of a message");
constexpr auto kHeaders = flag("--headers", "all headers, and nothing else", "part");
constexpr auto kRaw = flag("--raw", "the very bytes", "part");
constexpr auto kText = flag("--text", "the text alone", "part");
constexpr auto kWords = std::to_array<Parameter>({kMailbox, kNumber});
constexpr auto kOptions = std::to_array<Parameter>({kHeaders, kRaw, kText});

struct HeaderLine {
    std::string name, value;
};

/// All headers but the envelope line, in the order of the message, each name as the message spells it.
std::vector<HeaderLine> headerLines(lorvale::MessageHeaders& headers) {
    const auto all = headers.allHeaders();
    std::vector<HeaderLine> lines;
    std::map<std::string_view, std::size_t> used;
    for (const auto& key : headers.allHeadersOrder()) {
        const auto values = all->find(key);
        if (key == lorvale::kFromSpaceKey || values == all->end()) continue;
        const std::string name(headers.originalKeyForKey(key).value_or(key));
        const std::size_t index = used[key]++;
        if (index < values->second.size()) {
            lines.push_back({name, values->second[index]});
        } else if (values->second.empty()) {
            lines.push_back({name, ""});
        }  // else a header that replaced its earlier line: one value for several lines
    }
    return lines;
}

void printHeader(std::string_view name, std::string_view value) {
    std::printf(outputIsStyled() ? "\033[1m%s:\033[0m %s\n" : "%s: %s\n", printableLine(name).c_str(),
                printableLine(value).c_str());
}

void printText(const BodyText& body) {
    if (!body.decoded) {
        std::fprintf(stderr, "mailhost: the body is %s; it is shown as it stands\n",
                     printableLine(body.type).c_str());
    }
    const auto text = printableText(body.text);
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (!text.empty() && !text.ends_with('\n')) std::putchar('\n');
}

/// Decoding an encoded word drops the blank behind it, so that a name in other letters touches its address.
std::string withGapsBeforeAddresses(std::string_view value) {
    std::string text;
    bool quoted = false;
    for (const char c : value) {
        if (c == '"') quoted = !quoted;
        const bool touches = c == '<' && !quoted && !text.empty() && text.back() != ' ' && text.back() != ',';
        if (touches) text += ' ';
        text += c;
    }
    return text;
}

void printSummary(lorvale::MessageHeaders& headers) {
    const auto lines = headerLines(headers);
    struct Wanted {
        const char* name;
        bool holdsAddresses;
    };
    for (const auto& wanted :
         {Wanted{"From", true}, {"To", true}, {"Cc", true}, {"Date", false}, {"Subject", false}}) {
        for (const auto& [name, value] : lines) {
            if (!lorvale::equalIgnoringAsciiCase(name, wanted.name)) continue;
            printHeader(wanted.name, wanted.holdsAddresses ? withGapsBeforeAddresses(value) : value);
        }
    }
    std::putchar('\n');
}

/// The very bytes into a file or pipe; a terminal gets what is harmless of them.
void printRaw(const lorvale::Data& bytes) {
    if (isTerminal(STDOUT_FILENO)) {
        const auto text = printableText(bytes.view());
        std::fwrite(text.data(), 1, text.size(), stdout);
    } else {
        std::fwrite(bytes.bytes(), 1, bytes.size(), stdout);
    }
}

std::string headersAsJson(lorvale::MessageHeaders& headers) {
    std::vector<std::string> lines;
    for (const auto& [name, value] : headerLines(headers)) {
        lines.push_back(JsonObject().add("name", name).add("value", value).text());
    }
    return jsonArray(lines);
}

lorvale::Data rawBytes(lorvale::Message& message) {
    const auto bytes = message.messageData();
    if (!bytes) throwUnreadable("the message");
    return *bytes;
}

/// Without the line ends of the codec: a string in JSON is one line anyway.
std::string base64(const lorvale::Data& bytes) {
    std::string text = lorvale::encodeBase64(bytes).toString();
    std::erase(text, '\n');
    return text;
}

std::string messageAsJson(lorvale::Message& message, std::uint64_t number, Part part) {
    JsonObject object = Summary(message, number, Summary::Detail::json).json();
    const bool summary = part == Part::summary;
    if (summary || part == Part::headers) {
        object.addJson("headers", headersAsJson(*message.headers()));
    }
    if (summary || part == Part::text) {
        const auto body = bodyText(message);
        object.add("type", body.type).add("charset", body.charset);
        object.add("transferEncoding", body.transferEncoding)
            .add("decoded", body.decoded)
            .add("text", body.text);
    }
    if (part == Part::raw) object.add("base64", base64(rawBytes(message)));
    return object.text();
}

void print(lorvale::Message& message, Part part) {
    switch (part) {
        case Part::summary:
            printSummary(*message.headers());
            printText(bodyText(message));
            break;
        case Part::headers:
            for (const auto& [name, value] : headerLines(*message.headers())) printHeader(name, value);
            break;
        case Part::raw:
            printRaw(rawBytes(message));
            break;
        case Part::text:
            printText(bodyText(message));
            break;
    }
}

Part wantedPart(const Arguments& arguments) {
    if (arguments.has(kHeaders)) return Part::headers;
    if (arguments.has(kRaw)) return Part::raw;
    return arguments.has(kText) ? Part::text : Part::summary;
}

int run(const Arguments& arguments) {
    Mailbox mailbox(arguments[kMailbox]);
    const auto number = arguments[kNumber];
    const auto message = mailbox.message(number);
    const auto part = wantedPart(arguments);
    workOn(nameOfMessage(number), message->messageSize(), [&] {
        message->headers()->allHeaders();
        if (message->bytesAreMissing()) throwUnreadable(nameOfMessage(number));
        if (arguments.has(kJson)) {
            LineOutput().write(messageAsJson(*message, number, part));
        } else {
            print(*message, part);
        }
    });
    return 0;
}

}  // namespace

const Command showCommand = {
    .name = "show",
    .summary = "the headers and the text of a message",
    .description =
        "Prints message number N of a mailbox: its main headers and its text. A body in one part is decoded by "
        "its "
        "transfer encoding and charset. Control characters are shown and never obeyed, but for --raw into a "
        "file "
        "or a pipe, which gets the very bytes.",
    .words = kWords,
    .options = kOptions,
    .run = run,
};

}  // namespace mailhost
