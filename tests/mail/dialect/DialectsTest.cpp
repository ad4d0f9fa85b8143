#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>

#include "base/text/Ascii.h"
#include "lorvale/body.h"
#include "lorvale/message/addresses.h"
#include "lorvale/message/mailboxes.h"
#include "lorvale/mime.h"
#include "lorvale/platform/exception.h"
#include "lorvale/values/text.h"
#include "mail/model/HeaderDecoding.h"
#include "mail/model/HeaderEncoding.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using enum MailDialect;

/// What a cell stands for: the text between its backquotes, "\n", "\xE9" and "\u00E9" undone.
std::string contentOfCell(std::string_view cell) {
    auto text = trimmed(cell);
    text = text.substr(1, text.size() - 2);
    std::string content;
    while (!text.empty()) {
        const bool escaped = text.size() > 1 && text[0] == '\\';
        const auto number = [&](std::size_t digits) {
            const auto value = std::stoul(std::string(text.substr(2, digits)), nullptr, 16);
            text.remove_prefix(2 + digits);
            return static_cast<char32_t>(value);
        };
        if (escaped && text[1] == 'x') {
            content += static_cast<char>(number(2));
        } else if (escaped && text[1] == 'u') {
            appendUtf8(content, number(4));
        } else if (escaped && std::string_view("nrt").find(text[1]) != std::string_view::npos) {
            content += text[1] == 'n' ? '\n' : text[1] == 'r' ? '\r' : '\t';
            text.remove_prefix(2);
        } else {
            content += text.front();
            text.remove_prefix(1);
        }
    }
    return content;
}

std::string firstValue(std::string_view block, MailDialect dialect) {
    HeaderDictionary headers;
    HeaderOrder order;
    OriginalKeys originalKeys;
    decodeHeaderBlock(ExactCopy(block), headers, order, originalKeys, dialect);
    return order.empty() || headers[order[0]].empty() ? "" : headers[order[0]].front();
}

std::string body(std::string_view message, MailDialect dialect) {
    return std::string(message.substr(headerLength(ExactCopy(message), dialect)));
}

std::string written(std::string_view header, MailDialect dialect) {
    const auto colon = header.find(": ");
    const std::string name(header.substr(0, colon)), key = asciiLowered(name);
    auto block = encodeHeaderBlock({{key, {std::string(header.substr(colon + 2))}}}, {key}, {{key, name}},
                                   EnvelopeLine::leaveOut, dialect)
                     .toString();
    return block.substr(0, block.size() - 2);
}

std::string nameIn(std::string_view entry, MailDialect dialect) {
    return dialect == classic ? addressComment(entry) : mailboxesInList(entry).at(0).name;
}

std::string addressIn(std::string_view entry, MailDialect dialect) {
    return dialect == classic ? uncommentedAddress(entry) : mailboxesInList(entry).at(0).address;
}

std::string parameter(std::string_view value, MailDialect dialect) {
    return mimeParameter("filename", value, dialect);
}

std::shared_ptr<MimeBodyPart> partOf(std::string_view bytes, MailDialect dialect) {
    return MimeBodyPart::bodyPartWithData(Data::copyOf(bytes), dialect);
}

std::string shown(std::string_view bytes, MailDialect dialect) {
    try {
        return partOf(bytes, dialect)->decodeBodyPartInDirectory(std::nullopt).string();
    } catch (const RangeException& exception) {
        return exception.name();
    }
}

std::string typesIn(MimeBodyPart& part) {
    auto types = part.mimeType() ? *part.mimeType() + "/" + part.mimeSubtype().value_or("-") : "-";
    const auto* const children = part.bodyParts();
    if (children == nullptr) return types;
    for (const auto& child : *children) types += (child == children->front() ? "(" : ",") + typesIn(*child);
    return types + (children->empty() ? "(nothing)" : ")");
}

std::string parts(std::string_view bytes, MailDialect dialect) {
    return typesIn(*partOf(bytes, dialect));
}

std::string file(std::string_view bytes, MailDialect dialect) {
    return partOf(bytes, dialect)->givenFilename().value_or("");
}

std::string saved(std::string_view bytes, MailDialect dialect) {
    return partOf(bytes, dialect)->filename();
}

/// A letter of this text, without its headers but the type.
std::string composed(std::string_view text, MailDialect dialect) {
    const auto part = MimeBodyPart::bodyPartFromAttributedString(AttributedText(text), dialect);
    ByteBuffer body;
    part->appendBodyToData(body);
    return *part->mimeType() + "/" + *part->mimeSubtype() + " " + *part->mimeParameterForKey("charset") + " " +
           *part->mimeEncoding() + ": " + body.data().toString();
}

/// How a file of this name goes out.
std::string attached(std::string_view name, MailDialect dialect) {
    const auto file = FileWrapper::regularFile(Data());
    const auto part = MimeBodyPart::bodyPartWithFileWrapper(*file, name, dialect);
    ByteBuffer block;
    part->appendHeadersToData(block, false);
    return block.data().toString();
}

TEST(Dialects, EveryRowOfTheTableIsTrue) {
    const LogCapture silence;
    const std::map<std::string, std::string (*)(std::string_view, MailDialect)> operations = {
        {"read", firstValue},   {"body", body},           {"write", written},     {"name", nameIn},
        {"address", addressIn}, {"parameter", parameter}, {"show", shown},        {"parts", parts},
        {"file", file},         {"saved", saved},         {"composed", composed}, {"attached", attached},
    };
    const auto document = readFile(testing::sourceFolder() / "docs" / "dialects.md");
    std::size_t rows = 0;
    for (const auto line : split(document, '\n')) {
        const auto cells = split(line, '|');
        if (cells.size() != 9 || !trimmed(cells[2]).starts_with('`')) continue;
        SCOPED_TRACE(cells[1]);
        const auto operation = operations.at(contentOfCell(cells[2]));
        const auto example = contentOfCell(cells[3]);
        EXPECT_EQ(operation(example, classic), contentOfCell(cells[4]));
        EXPECT_EQ(operation(example, standard), contentOfCell(cells[5]));
        ++rows;
    }
    EXPECT_GT(rows, 60u);
}

}  // namespace
}  // namespace lorvale
