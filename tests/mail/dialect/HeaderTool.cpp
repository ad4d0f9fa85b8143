// What header_tool.py asks of the library, so that other implementations of mail can be held against it.
//
//   header_tool read FILE...   for each message a line of fields "name=value", texts in hexadecimal ("-":
//   none):
//                              file, offset, length; subject, date (seconds since 1970), and from, to, cc as
//                              "name:address,name:address"; a header that is not there has no field
//   header_tool write          standard input holds lines "text HEX" and "list HEX", a value each; for each a
//   line
//                              with the header block that the standard dialect makes of it, and what the
//                              standard dialect, the classic one and, where the test has it, GMime read in that
//                              block
#include <cstdio>
#include <iostream>
#include <span>
#include <string>
#include <vector>

#ifdef LORVALE_TEST_GMIME
#include <gmime/gmime.h>
#endif

#include "base/text/Ascii.h"
#include "lorvale/message/addresses.h"
#include "lorvale/message/dates.h"
#include "lorvale/message/mailboxes.h"
#include "lorvale/platform/log.h"
#include "mail/model/HeaderDecoding.h"
#include "mail/model/HeaderEncoding.h"
#include "tests/mail/dialect/ToolSupport.h"

using namespace lorvale;

namespace {

constexpr auto kStandard = MailDialect::standard;

std::string bytesOf(std::string_view hexText) {
    std::string out;
    for (std::size_t i = 0; i + 1 < hexText.size(); i += 2)
        out += static_cast<char>(hexDigitValue(hexText[i]) * 16 + hexDigitValue(hexText[i + 1]));
    return out;
}

std::string listField(std::string_view list) {
    std::string field;
    for (const auto& mailbox : mailboxesInList(list))
        field += (field.empty() ? "" : ",") + hex(mailbox.name) + ":" + hex(mailbox.address);
    return field;
}

void readMessage(std::string_view message, std::string_view file, std::size_t offset) {
    constexpr std::string_view kKeys[] = {"subject", "date", "from", "to", "cc"};
    const auto values =
        firstValuesInBlock(message.substr(0, headerLength(message, kStandard)), kKeys, kStandard);
    std::printf("file=%s offset=%zu length=%zu", hex(file).c_str(), offset, message.size());
    for (std::size_t i = 0; i < std::size(kKeys); ++i) {
        if (!values[i]) continue;
        std::string field = hex(*values[i]);
        if (kKeys[i] == "date") {
            const auto date = dateInCommonFormatsWithString(*values[i]);
            field = date ? std::to_string(date->secondsSince1970()) : "none";
        } else if (kKeys[i] != "subject") {
            field = listField(*values[i]);
        }
        std::printf(" %s=%s", std::string(kKeys[i]).c_str(), field.c_str());
    }
    std::printf("\n");
}

std::string readBack(std::string_view block, bool isList, MailDialect dialect) {
    constexpr std::string_view kKeys[] = {"x-text", "to"};
    const auto value = firstValuesInBlock(block, kKeys, dialect)[isList ? 1 : 0].value_or("");
    if (!isList) return hex(value);
    if (dialect == kStandard) return listField(value);
    std::string field;
    for (const auto& each : addressList(value).value_or(std::vector<std::string>()))
        field += (field.empty() ? "" : ",") + hex(addressComment(each)) + ":" + hex(uncommentedAddress(each));
    return field;
}

#ifdef LORVALE_TEST_GMIME
std::string listFieldOfGMime(InternetAddressList* list) {
    std::string field;
    for (int i = 0; list != nullptr && i < internet_address_list_length(list); ++i) {
        auto* const entry = internet_address_list_get_address(list, i);
        if (INTERNET_ADDRESS_IS_GROUP(entry)) {
            const auto members =
                listFieldOfGMime(internet_address_group_get_members(INTERNET_ADDRESS_GROUP(entry)));
            field += (field.empty() || members.empty() ? "" : ",") + members;
            continue;
        }
        const char* const name = internet_address_get_name(entry);
        field += (field.empty() ? "" : ",") + hex(name != nullptr ? name : "") + ":" +
                 hex(internet_address_mailbox_get_addr(INTERNET_ADDRESS_MAILBOX(entry)));
    }
    return field;
}

std::string readByGMime(const std::string& block, bool isList) {
    auto* const stream = g_mime_stream_mem_new_with_buffer(block.data(), block.size());
    auto* const parser = g_mime_parser_new_with_stream(stream);
    auto* const message = g_mime_parser_construct_message(parser, nullptr);
    std::string field;
    if (isList) {
        field = listFieldOfGMime(g_mime_message_get_addresses(message, GMIME_ADDRESS_TYPE_TO));
    } else if (const char* const value = g_mime_object_get_header(GMIME_OBJECT(message), "X-Text")) {
        field = hex(value);
    }
    g_object_unref(message);
    g_object_unref(parser);
    g_object_unref(stream);
    return field;
}
#endif

void writeValue(const std::string& kind, const std::string& value) {
    const bool isList = kind == "list";
    const std::string key = isList ? "to" : "x-text", name = isList ? "To" : "X-Text";
    const auto block =
        encodeHeaderBlock({{key, {value}}}, {key}, {{key, name}}, EnvelopeLine::leaveOut, kStandard).toString();
    std::printf("block=%s standard=%s classic=%s", hex(block).c_str(),
                readBack(block, isList, kStandard).c_str(),
                readBack(block, isList, MailDialect::classic).c_str());
#ifdef LORVALE_TEST_GMIME
    std::printf(" gmime=%s", readByGMime(block, isList).c_str());
#endif
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    [[maybe_unused]] static const auto before = setLogSink([](std::string_view) {});
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "read") {
        for (const std::string path : std::span(argv + 2, argv + argc))
            forEachMessage(path, [&](const Data& message, std::size_t offset) {
                readMessage(message.view(), path, offset);
            });
        return 0;
    }
    if (mode != "write") return 2;
#ifdef LORVALE_TEST_GMIME
    g_mime_init();
#endif
    for (std::string kind, value; std::cin >> kind >> value;) writeValue(kind, bytesOf(value));
    return 0;
}
