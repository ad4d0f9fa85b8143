#include "Parts.h"

#include <algorithm>

#include "Json.h"
#include "Mailbox.h"
#include "Table.h"
#include "Terminal.h"
#include "lorvale/platform/exception.h"

namespace mailhost {

namespace {

using lorvale::MimeBodyPart;

std::string charsetOf(const MimeBodyPart& part) {
    return part.isText() ? part.mimeParameterForKey("charset").value_or("") : "";
}

/// Behind the transfer encoding; of a part with parts, what these take in the message.
std::size_t sizeOf(MimeBodyPart& part) {
    const auto data = part.bodyParts() != nullptr ? part.encodedBodyData() : part.bodyData();
    return data ? data->size() : 0;
}

/// "1.2" for the second part in the first one.
std::string childNumber(const std::string& number, std::size_t index) {
    return (number.empty() ? "" : number + ".") + std::to_string(index + 1);
}

/// What is told of a part, whoever knows it.
struct PartLine {
    std::string number, type, charset, encoding, name;
    std::size_t size = 0;
    bool isAttachment = false;
    std::optional<std::vector<PartLine>> parts = {};
};

PartLine lineOf(MimeBodyPart& part, const std::string& number) {
    PartLine line{number,
                  typeOf(part),
                  charsetOf(part),
                  part.mimeEncoding().value_or(""),
                  part.givenFilename().value_or(""),
                  sizeOf(part),
                  part.isAttachment()};
    if (const auto* const children = part.bodyParts()) {
        line.parts.emplace();
        for (std::size_t i = 0; i < children->size(); ++i)
            line.parts->push_back(lineOf(*(*children)[i], childNumber(number, i)));
    }
    return line;
}

/// A server tells the size of a part as it is encoded.
PartLine lineOf(const lorvale::IMAPBodyPart& part) {
    const auto charset = part.parameters.find("charset");
    PartLine line{part.section,
                  part.type + "/" + part.subtype,
                  charset == part.parameters.end() ? "" : charset->second,
                  part.encoding,
                  part.fileName(),
                  part.size,
                  part.disposition == "attachment" || !part.fileName().empty()};
    if (!part.isMultipart()) return line;
    line.parts.emplace();
    for (const auto& child : part.parts) {
        line.parts->push_back(lineOf(child));
        line.size += line.parts->back().size;
    }
    return line;
}

/// The whole message has no number, also where it is but one part.
PartLine rootOf(const lorvale::IMAPBodyPart& part) {
    auto line = lineOf(part);
    line.number.clear();
    return line;
}

void addRows(Table& table, const PartLine& part, std::size_t depth) {
    table.addRow({part.number.empty() ? "-" : part.number, std::string(2 * depth, ' ') + part.type,
                  part.charset, part.encoding, part.name, groupedNumber(part.size)},
                 part.isAttachment);
    for (const auto& child : part.parts.value_or(std::vector<PartLine>())) addRows(table, child, depth + 1);
}

void print(const PartLine& root) {
    Table table({{.title = "Part"},
                 {.title = "Type", .takesRest = true},
                 {.title = "Charset", .dispensable = 2},
                 {.title = "Encoding", .dispensable = 1},
                 {.title = "Name", .widest = 40, .narrowest = 12},
                 {.title = "Bytes", .numeric = true}},
                outputColumns(), outputIsStyled());
    addRows(table, root, 0);
    table.finish();
}

std::string asJson(const PartLine& part) {
    JsonObject object;
    object.add("part", part.number).add("type", part.type).add("charset", part.charset);
    object.add("transferEncoding", part.encoding).add("name", part.name);
    object.add("size", part.size).add("attachment", part.isAttachment);
    if (part.parts) {
        std::vector<std::string> inner;
        for (const auto& child : *part.parts) inner.push_back(asJson(child));
        object.addJson("parts", jsonArray(inner));
    }
    return object.text();
}

std::shared_ptr<lorvale::MimeBody> mimeBodyOf(lorvale::Message& message) {
    return std::dynamic_pointer_cast<lorvale::MimeBody>(message.messageBody());
}

/// Null for one that cannot be read, as in the classic dialect one with an odd type.
std::shared_ptr<MimeBodyPart> treeOf(lorvale::MimeBody& body) {
    try {
        return body.bodyPart();
    } catch (const lorvale::RangeException&) {
        return nullptr;
    }
}

std::size_t countAttachments(MimeBodyPart& part) {
    if (part.isAttachment()) return 1;
    std::size_t count = 0;
    if (const auto* const children = part.bodyParts())
        for (const auto& child : *children) count += countAttachments(*child);
    return count;
}

}  // namespace

std::shared_ptr<MimeBodyPart> partsOf(lorvale::Message& message) {
    const auto body = mimeBodyOf(message);
    if (!body) return nullptr;
    auto root = treeOf(*body);
    if (!root || message.bytesAreMissing()) throwUnreadable("the body of the message");
    return root;
}

std::optional<std::size_t> attachmentCount(lorvale::Message& message) {
    if (const auto older = std::dynamic_pointer_cast<lorvale::TarnMailBody>(message.messageBody())) {
        const auto text = older->decodedBody();  // its files lie in no tree, but in the text
        return text ? std::optional(text->attachments().size()) : std::nullopt;
    }
    const auto body = mimeBodyOf(message);
    const auto root = body ? treeOf(*body) : nullptr;
    return root ? std::optional(countAttachments(*root)) : std::nullopt;
}

std::shared_ptr<MimeBodyPart> partOfHeaders(lorvale::MessageHeaders& headers) {
    auto block = headers.encodedHeaders().value_or(lorvale::Data());
    const auto view = block.view();
    if (view.starts_with("From "))
        block = block.subdata(view.substr(std::min(view.find('\n'), view.size() - 1) + 1));
    const auto part = MimeBodyPart::bodyPartWithData(block);
    return part ? part : std::make_shared<MimeBodyPart>();
}

std::string typeOf(const MimeBodyPart& part) {
    const auto& type = part.mimeType();
    return type ? *type + "/" + part.mimeSubtype().value_or("") : "text/plain";
}

void printParts(MimeBodyPart& root) {
    print(lineOf(root, ""));
}

void printParts(const lorvale::IMAPBodyPart& root) {
    print(rootOf(root));
}

std::string partsAsJson(MimeBodyPart& root) {
    return asJson(lineOf(root, ""));
}

std::string partsAsJson(const lorvale::IMAPBodyPart& root) {
    return asJson(rootOf(root));
}

}  // namespace mailhost
