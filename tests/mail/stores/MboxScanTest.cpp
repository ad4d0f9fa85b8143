#include "mail/stores/MboxScan.h"

#include "tests/support/TextRows.h"

namespace lorvale {
namespace {

using namespace std::string_view_literals;

/// The messages, each behind a bar.
std::string scanned(std::string_view bytes) {
    std::string messages;
    for (const auto& range : mboxRanges(bytes))
        messages.append("|").append(bytes.substr(range.location, range.length));
    return messages;
}

TEST(MboxScan, FindsWhereMessagesBegin) {
    const testing::TextRow rows[] = {
        {"white space alone", " \t\r\f\n", ""},
        {"no separator at the start", "x\nFrom a\n", ""},
        {"a byte order mark is no white space", "\uFEFFFrom a\n", ""},
        {"the blank belongs to the separator", "From\nFrom: x\n", ""},
        {"an unescaped body line splits a message", "From a\n\nFrom Russia\n", "|From a\n\n|From Russia\n"},
        {"an escaped one does not", "From a\n\n>From Russia\n", "|From a\n\n>From Russia\n"},
        {"only a newline ends a line", "From a\rFrom b\r\nFrom c\r\n", "|From a\rFrom b\r\n|From c\r\n"},
        {"a zero byte is a byte", "From a\0\nFrom b"sv, "|From a\0\n|From b"sv},
    };
    testing::expectRows(scanned, rows);
}

TEST(MboxScan, SplitsHeadersFromBodyAtTheFirstEmptyLine) {
    EXPECT_EQ(mboxHeaderLength("From a\nx: y\n\nbody\n\n"), 13u);
    EXPECT_EQ(mboxHeaderLength("From a\nx: y\n"), 12u);   // all headers
    EXPECT_EQ(mboxHeaderLength("From a\r\n\r\nb"), 11u);  // two newlines must touch
    EXPECT_EQ(mboxHeaderLength(""), 0u);
}

}  // namespace
}  // namespace lorvale
