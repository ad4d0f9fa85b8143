#include "mail/stores/MboxScan.h"

#include "tests/support/TextRows.h"

namespace lorvale {
namespace {

using namespace std::string_view_literals;

/// The messages, each behind a bar, their bodies behind a second one.
std::string scanned(std::string_view bytes) {
    std::string messages;
    for (const auto& entry : mboxEntries(bytes)) {
        const auto header = entry.header(), body = entry.body();
        messages.append("|").append(bytes.substr(header.location, header.length));
        if (body.length > 0) messages.append("|").append(bytes.substr(body.location, body.length));
    }
    return messages;
}

TEST(MboxScan, FindsWhereMessagesBegin) {
    const testing::TextRow rows[] = {
        {"white space alone", " \t\r\f\n", ""},
        {"no separator at the start", "x\nFrom a\n", ""},
        {"a byte order mark is no white space", "\uFEFFFrom a\n", ""},
        {"the blank belongs to the separator", "From\nFrom: x\n", ""},
        {"an unescaped body line splits a message", "From a\n\nFrom Russia\n", "|From a\n\n|From Russia\n"},
        {"an escaped one does not", "From a\n\n>From Russia\n", "|From a\n\n|>From Russia\n"},
        {"the first empty line ends the headers", "From a\nx: y\n\nb\n\nc", "|From a\nx: y\n\n|b\n\nc"},
        {"two newlines must touch", "From a\r\n\r\nb", "|From a\r\n\r\nb"},
        {"only a newline ends a line", "From a\rFrom b\r\nFrom c\r\n", "|From a\rFrom b\r\n|From c\r\n"},
        {"a zero byte is a byte", "From a\0\nFrom b"sv, "|From a\0\n|From b"sv},
    };
    testing::expectRows(scanned, rows);
}

}  // namespace
}  // namespace lorvale
