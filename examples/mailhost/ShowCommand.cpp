#include <unistd.h>

#include <cstdio>
#include <map>

#include "BodyText.h"
#include "Commands.h"
#include "Mailbox.h"
#include "Terminal.h"
#include "lorvale/mime.h"
#include "lorvale/values/text.h"

namespace mailhost {

namespace {

struct HeaderLine {
    std::string name, value;
};

/// All headers but the envelope line, in the order of the message, each name as the message spells it.
std::vector<HeaderLine> headerLines(lorvale::MessageHeaders& headers) {
    const auto& all = headers.allHeaders();
    std::vector<HeaderLine> lines;
    std::map<std::string_view, std::size_t> used;
    for (const auto& key : headers.allHeadersOrder()) {
        const auto values = all.find(key);
        if (key == lorvale::kFromSpaceKey || values == all.end()) continue;
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
    if (!bytes) throw Failure("the bytes of the message cannot be had");
    return *bytes;
}

/// Without the line ends of the codec: a string in JSON is one line anyway.
std::string base64(const lorvale::Data& bytes) {
    std::string text = lorvale::encodeBase64(bytes).toString();
    std::erase(text, '\n');
    return text;
}

std::string messageAsJson(lorvale::Message& message, const Options& options) {
    JsonObject object = summaryOf(message, options.number).json();
    const bool summary = options.part == ShowPart::summary;
    if (summary || options.part == ShowPart::headers) {
        object.addJson("headers", headersAsJson(*message.headers()));
    }
    if (summary || options.part == ShowPart::text) {
        const auto body = bodyText(message);
        object.add("type", body.type).add("charset", body.charset);
        object.add("transferEncoding", body.transferEncoding)
            .add("decoded", body.decoded)
            .add("text", body.text);
    }
    if (options.part == ShowPart::raw) object.add("base64", base64(rawBytes(message)));
    return object.text();
}

}  // namespace

int runShow(const Options& options) {
    Mailbox mailbox(options.path);
    const auto message = mailbox.message(options.number);
    if (options.json) {
        std::printf("%s\n", messageAsJson(*message, options).c_str());
        return 0;
    }
    switch (options.part) {
        case ShowPart::summary:
            printSummary(*message->headers());
            printText(bodyText(*message));
            break;
        case ShowPart::headers:
            for (const auto& [name, value] : headerLines(*message->headers())) printHeader(name, value);
            break;
        case ShowPart::raw:
            printRaw(rawBytes(*message));
            break;
        case ShowPart::text:
            printText(bodyText(*message));
            break;
    }
    return 0;
}

}  // namespace mailhost
