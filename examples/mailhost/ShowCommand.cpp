#include <cstdio>
#include <map>

#include "Attachments.h"
#include "BodyText.h"
#include "Commands.h"
#include "Mailbox.h"
#include "Pager.h"
#include "Parts.h"
#include "RichText.h"
#include "Summary.h"
#include "Table.h"
#include "Terminal.h"
#include "Work.h"
#include "lorvale/imap.h"
#include "lorvale/mime.h"
#include "lorvale/values/text.h"

namespace mailhost {

namespace {

enum class Part { summary, headers, raw, text, rich, parts, saved };

constexpr auto kNumber = numberWord("N", "the number of a message");
constexpr auto kHeaders = flag("--headers", "all headers, and nothing else", "part");
constexpr auto kRaw = flag("--raw", "the very bytes", "part");
constexpr auto kText = flag("--text", "the text alone", "part");
constexpr auto kRich = flag("--rich", "the text alone, with its fonts, colours and links", "part");
constexpr auto kParts = flag("--parts", "the tree of parts, with their types, names and sizes", "part");
constexpr auto kSave = Typed<std::string>{{.name = "--save",
                                           .placeholder = "DIR",
                                           .help = "write the attachments to files in a folder",
                                           .takes = Takes::folder,
                                           .group = "part"}};
constexpr auto kWords = std::to_array<Parameter>({kMailbox, kNumber});
constexpr auto kOptions = std::to_array<Parameter>({kHeaders, kRaw, kText, kRich, kParts, kSave});

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

void printText(lorvale::Message& message) {
    const auto text = printableText(readableText(decodedText(message)));
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (!text.empty() && !text.ends_with('\n')) std::putchar('\n');
}

void printRichText(lorvale::Message& message) {
    const auto text = richText(decodedText(message), outputColumns(), outputIsStyled());
    std::fwrite(text.data(), 1, text.size(), stdout);
}

/// The tree, of a body that is one.
std::shared_ptr<lorvale::MimeBodyPart> treeOf(lorvale::Message& message) {
    auto root = partsOf(message);
    if (!root) throw Failure("the body of the message has no parts: it is of another kind");
    return root;
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
    if (outputIsTerminal()) {
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

std::string savedAsJson(const std::vector<SavedFile>& files) {
    std::vector<std::string> objects;
    objects.reserve(files.size());
    for (const auto& [path, size] : files)
        objects.push_back(JsonObject().add("path", path).add("size", size).text());
    return jsonArray(objects);
}

void addText(JsonObject& object, lorvale::Message& message) {
    const auto part = partOfHeaders(*message.headers());
    object.add("type", typeOf(*part)).add("charset", part->mimeParameterForKey("charset").value_or(""));
    object.add("transferEncoding", part->mimeEncoding().value_or(""));
    object.add("text", readableText(decodedText(message)));
}

std::string messageAsJson(lorvale::Message& message, std::uint64_t number, Part part,
                          const std::string& folder) {
    JsonObject object = Summary(message, number, Summary::Detail::json).json();
    const bool summary = part == Part::summary;
    if (summary || part == Part::headers) object.addJson("headers", headersAsJson(*message.headers()));
    if (summary || part == Part::text) addText(object, message);
    if (part == Part::rich) object.add("text", richText(decodedText(message), outputColumns(), false));
    if (part == Part::raw) object.add("base64", base64(rawBytes(message)));
    if (part == Part::parts) object.addJson("body", partsAsJson(*treeOf(message)));
    if (part == Part::saved)
        object.addJson("saved", savedAsJson(saveAttachments(decodedText(message), folder)));
    return object.text();
}

void printSaved(const std::vector<SavedFile>& files) {
    Table table({{.title = "File", .takesRest = true}, {.title = "Bytes", .numeric = true}}, outputColumns(),
                outputIsStyled());
    for (const auto& [path, size] : files) table.addRow({path, groupedNumber(size)});
    table.finish();
    if (files.empty()) LineOutput().write("No attachments.");
}

void print(lorvale::Message& message, Part part, const std::string& folder) {
    switch (part) {
        case Part::summary:
            printSummary(*message.headers());
            printText(message);
            break;
        case Part::headers:
            for (const auto& [name, value] : headerLines(*message.headers())) printHeader(name, value);
            break;
        case Part::raw:
            printRaw(rawBytes(message));
            break;
        case Part::text:
            printText(message);
            break;
        case Part::rich:
            printRichText(message);
            break;
        case Part::parts:
            printParts(*treeOf(message));
            break;
        case Part::saved:
            printSaved(saveAttachments(decodedText(message), folder));
            break;
    }
}

Part wantedPart(const Arguments& arguments) {
    if (arguments.has(kHeaders)) return Part::headers;
    if (arguments.has(kRaw)) return Part::raw;
    if (arguments.has(kRich)) return Part::rich;
    if (arguments.has(kParts)) return Part::parts;
    if (arguments.has(kSave)) return Part::saved;
    return arguments.has(kText) ? Part::text : Part::summary;
}

/// The parts of a message whose text is still on its server; nullopt for any other.
std::optional<lorvale::IMAPBodyPart> partsOnServer(Mailbox& mailbox, lorvale::Message& message) {
    auto* const store = dynamic_cast<lorvale::IMAPStore*>(&mailbox.store());
    return store != nullptr && !store->isMirrored(message) ? store->structureOfMessage(message) : std::nullopt;
}

void showPartsOnServer(const lorvale::IMAPBodyPart& parts, lorvale::Message& message, std::uint64_t number,
                       bool inJson) {
    if (inJson) {
        auto object = Summary(message, number, Summary::Detail::json).json();
        LineOutput().write(object.addJson("body", partsAsJson(parts)).text());
    } else {
        const Pager pager;
        printParts(parts);
    }
}

int run(const Arguments& arguments) {
    Mailbox mailbox(arguments[kMailbox]);
    const auto number = arguments[kNumber];
    const auto message = mailbox.message(number);
    const auto part = wantedPart(arguments);
    if (const auto parts = part == Part::parts ? partsOnServer(mailbox, *message) : std::nullopt) {
        showPartsOnServer(*parts, *message, number, arguments.has(kJson));
        return 0;
    }
    const auto folder = arguments.value(kSave).value_or("");
    workOn(nameOfMessage(number), message->messageSize(), [&] {
        message->headers()->allHeaders();
        if (message->bytesAreMissing() && dynamic_cast<lorvale::IMAPMessage*>(message.get()) != nullptr)
            throw Failure(nameOfMessage(number) + ": its text is not on this machine, and no server gives it");
        if (message->bytesAreMissing()) throwUnreadable(nameOfMessage(number));
        if (arguments.has(kJson)) {
            LineOutput().write(messageAsJson(*message, number, part, folder));
        } else {
            const Pager pager;
            print(*message, part, folder);
        }
    });
    return 0;
}

}  // namespace

const Command showCommand = {
    .name = "show",
    .summary = "the headers and the text of a message",
    .description =
        "Prints message number N of a mailbox: its main headers and its text, the best of its alternatives, "
        "with "
        "the name and the size of each attachment in its place. Control characters are shown and never obeyed, "
        "but for --raw into a file or a pipe, which gets the very bytes.\n\n"
        "--rich wraps the text to the width of the output and shows its fonts, colours and links, unless "
        "$NO_COLOR is set. On a terminal all this goes through $MAILHOST_PAGER, $PAGER or less.\n\n"
        "Of a message on a server only what is needed is fetched; --parts fetches no text, and tells the sizes "
        "of the parts as they are encoded.\n\n"
        "In JSON --parts gives the member body, an object with the members part (\"1.2\" for the second part "
        "in "
        "the first), type, charset, transferEncoding, name, size (in bytes, decoded), attachment and, for a "
        "part "
        "that holds others, parts; --save gives the member saved, a list of objects with path and size.",
    .words = kWords,
    .options = kOptions,
    .run = run,
};

}  // namespace mailhost
