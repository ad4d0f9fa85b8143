// What mime_tool.py asks of the library and of GMime, so that they can be held against each other.
//
//   mime_tool FILE...   for each message a line "message FILE OFFSET LENGTH"; for each of its parts, outer ones
//                       first, a line
//                         READER DEPTH TYPE NAME SIZE CRC TEXT-CRC
//                       READER is "we" (the standard dialect) or "gmime"; NAME is in hexadecimal, "-" for none;
//                       SIZE and CRC are of the bytes behind the transfer encoding; TEXT-CRC is of the text in
//                       UTF-8, with "\n" at the ends of lines.  Multiparts and messages have "-" in place of
//                       these three, parts that are no text in place of the last.
#include <algorithm>
#include <cstdio>
#include <span>
#include <string>

#ifdef LORVALE_TEST_GMIME
#include <gmime/gmime.h>
#endif

#include "base/text/Crc32.h"
#include "lorvale/body.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/text.h"
#include "mail/mime/LineEnds.h"
#include "tests/mail/dialect/ToolSupport.h"

using namespace lorvale;

namespace {

struct Line {
    const char* reader;
    int depth;
    std::string type, name;
};

void print(const Line& line, const std::string* bytes = nullptr, const std::string* text = nullptr) {
    std::printf("%s %d %s %s", line.reader, line.depth, line.type.c_str(), hex(line.name).c_str());
    if (bytes == nullptr) {
        std::puts(" - - -");
        return;
    }
    std::printf(" %zu %08x", bytes->size(), crc32(*bytes));
    text == nullptr ? std::printf(" -\n") : std::printf(" %08x\n", crc32(withNewlines(*text)));
}

void printOurs(MimeBodyPart& part, int depth) {
    const Line line{"we", depth, *part.mimeType() + "/" + *part.mimeSubtype(),
                    part.givenFilename().value_or("")};
    if (const auto* const children = part.bodyParts()) {
        print(line);
        for (const auto& child : *children) printOurs(*child, depth + 1);
        return;
    }
    const auto bytes = part.bodyData().value_or(Data()).toString();
    print(line, &bytes, part.isText() ? &part.body() : nullptr);
}

#ifdef LORVALE_TEST_GMIME
std::string textOf(const char* text) {
    return text == nullptr ? "" : text;
}

void printGMimes(GMimeObject* object, int depth) {
    auto* const type = g_mime_object_get_content_type(object);
    const auto subtype = textOf(g_mime_content_type_get_media_subtype(type));
    Line line{"gmime", depth, asciiLowered(textOf(g_mime_content_type_get_media_type(type)) + "/" + subtype),
              ""};
    const char* const disposition = g_mime_object_get_content_disposition_parameter(object, "filename");
    line.name = textOf(disposition != nullptr ? disposition : g_mime_content_type_get_parameter(type, "name"));
    if (GMIME_IS_MULTIPART(object)) {
        print(line);
        auto* const multipart = GMIME_MULTIPART(object);
        for (int i = 0; i < g_mime_multipart_get_count(multipart); ++i)
            printGMimes(g_mime_multipart_get_part(multipart, i), depth + 1);
        return;
    }
    if (GMIME_IS_MESSAGE_PART(object)) {
        print(line);
        auto* const message = g_mime_message_part_get_message(GMIME_MESSAGE_PART(object));
        if (message != nullptr && g_mime_message_get_mime_part(message) != nullptr)
            printGMimes(g_mime_message_get_mime_part(message), depth + 1);
        return;
    }
    std::string bytes;
    if (auto* const content = GMIME_IS_PART(object) ? g_mime_part_get_content(GMIME_PART(object)) : nullptr) {
        auto* const stream = g_mime_stream_mem_new();
        g_mime_data_wrapper_write_to_stream(content, stream);
        const auto* const array = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(stream));
        bytes.assign(reinterpret_cast<const char*>(array->data), array->len);
        g_object_unref(stream);
    }
    if (!GMIME_IS_TEXT_PART(object)) return print(line, &bytes);
    char* const text = g_mime_text_part_get_text(GMIME_TEXT_PART(object));
    const auto converted = textOf(text);
    g_free(text);
    print(line, &bytes, &converted);
}

void printGMimes(std::string_view message) {
    auto* const stream = g_mime_stream_mem_new_with_buffer(message.data(), message.size());
    auto* const parser = g_mime_parser_new_with_stream(stream);
    auto* const parsed = g_mime_parser_construct_message(parser, nullptr);
    if (parsed != nullptr && g_mime_message_get_mime_part(parsed) != nullptr)
        printGMimes(g_mime_message_get_mime_part(parsed), 0);
    if (parsed != nullptr) g_object_unref(parsed);
    g_object_unref(parser);
    g_object_unref(stream);
}
#else
void printGMimes(std::string_view) {}
#endif

void printMessage(const std::string& path, const Data& message, std::size_t offset) {
    std::printf("message %s %zu %zu\n", hex(path).c_str(), offset, message.size());
    auto view = message.view();
    if (view.starts_with("From ")) view.remove_prefix(std::min(view.find('\n'), view.size() - 1) + 1);
    if (const auto part = MimeBodyPart::bodyPartWithData(message.subdata(view), MailDialect::standard))
        printOurs(*part, 0);
    printGMimes(view);
}

}  // namespace

int main(int count, char** arguments) {
    setLogSink([](std::string_view) {});
#ifdef LORVALE_TEST_GMIME
    g_mime_init();
#endif
    for (const std::string path : std::span(arguments + 1, arguments + count))
        forEachMessage(path,
                       [&](const Data& message, std::size_t offset) { printMessage(path, message, offset); });
    return 0;
}
