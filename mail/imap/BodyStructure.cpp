/// The parts of a message as its server describes them.
#include <algorithm>

#include "base/text/Ascii.h"
#include "lorvale/imap/structure.h"
#include "lorvale/mime.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"
#include "mail/imap/FetchParsing.h"
#include "mail/mime/ContentType.h"

namespace lorvale {

namespace {

using Items = std::span<const IMAPValue>;
using Parameters = IMAPBodyPart::Parameters;

const IMAPValue& itemAt(Items items, std::size_t index) {
    static const IMAPValue nothing;
    return index < items.size() ? items[index] : nothing;
}

std::string lowerAt(Items items, std::size_t index) {
    return asciiLowered(itemAt(items, index).text());
}

std::uint32_t numberAt(Items items, std::size_t index) {
    return itemAt(items, index).number().value_or(0);
}

/// Servers hand on what stands in the header: pieces and charsets of RFC 2231, encoded words.  Put together
/// again it is read like a header.
Parameters parametersOf(Items namesAndValues) {
    std::string value = "x/x";
    for (std::size_t i = 0; i + 1 < namesAndValues.size(); i += 2) {
        value += formatText("; %@=\"", namesAndValues[i].text());
        for (const char c : namesAndValues[i + 1].text()) {
            if (c == '"' || c == '\\') value += '\\';
            value += c;
        }
        value += '"';
    }
    return ContentType::parseStandard(value).parameters;
}

void readDisposition(IMAPBodyPart& part, const IMAPValue& disposition) {
    part.disposition = lowerAt(disposition.list(), 0);
    part.dispositionParameters = parametersOf(itemAt(disposition.list(), 1).list());
}

std::optional<IMAPBodyPart> readPart(const IMAPValue& structure, const std::string& section);

std::string numbered(const std::string& section, std::size_t number) {
    return section + (section.empty() ? "" : ".") + std::to_string(number);
}

/// What a message holds: its parts are counted from 1, and it is the first one itself when it has no others.
std::optional<IMAPBodyPart> readBody(const IMAPValue& structure, const std::string& ofMessage) {
    const bool isMultipart = itemAt(structure.list(), 0).isList();
    auto body = readPart(structure, isMultipart ? ofMessage : numbered(ofMessage, 1));
    if (body && isMultipart) body->section = ofMessage.empty() ? "TEXT" : ofMessage + ".TEXT";
    return body;
}

IMAPBodyPart readMultipart(Items items, const std::string& section) {
    IMAPBodyPart part;
    part.section = section;
    part.type = "multipart";
    std::size_t i = 0;
    for (; i < items.size() && items[i].isList(); ++i)
        if (auto child = readPart(items[i], numbered(section, i + 1))) part.parts.push_back(*std::move(child));
    part.subtype = lowerAt(items, i);
    part.parameters = parametersOf(itemAt(items, i + 1).list());
    readDisposition(part, itemAt(items, i + 2));
    return part;
}

IMAPBodyPart readSinglePart(Items items, const std::string& section) {
    constexpr std::size_t kBasicFields = 7;
    IMAPBodyPart part;
    part.section = section;
    part.type = lowerAt(items, 0);
    part.subtype = lowerAt(items, 1);
    part.parameters = parametersOf(itemAt(items, 2).list());
    part.contentID = itemAt(items, 3).text();
    part.description = decodeMimeHeaderValue(itemAt(items, 4).text(), MailDialect::standard);
    part.encoding = lowerAt(items, 5);
    part.size = numberAt(items, 6);
    auto next = kBasicFields;
    if (part.type == "message" && itemAt(items, next).isList()) {
        part.envelope = headersOfEnvelope(itemAt(items, next), MailDialect::standard);
        if (auto body = readBody(itemAt(items, next + 1), section)) part.parts.push_back(*std::move(body));
        next += 2;
    }
    if (part.type == "text" || next > kBasicFields) part.lines = numberAt(items, next++);
    readDisposition(part, itemAt(items, next + 1));  // behind a digest that nobody asks for
    return part;
}

std::optional<IMAPBodyPart> readPart(const IMAPValue& structure, const std::string& section) {
    const auto items = structure.list();
    if (items.empty()) return std::nullopt;
    return items.front().isList() ? readMultipart(items, section) : readSinglePart(items, section);
}

}  // namespace

std::string IMAPBodyPart::fileName() const {
    for (const auto& [of, name] :
         {std::pair(&dispositionParameters, "filename"), std::pair(&parameters, "name")})
        if (const auto found = of->find(name); found != of->end()) return found->second;
    return {};
}

std::optional<IMAPBodyPart> bodyPartOfStructure(const IMAPValue& structure) {
    return readBody(structure, "");
}

}  // namespace lorvale
