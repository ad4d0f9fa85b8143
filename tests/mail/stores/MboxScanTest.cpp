#include "mail/stores/MboxScan.h"

#include <gmock/gmock.h>

#include "tests/support/TestSupport.h"

namespace lorvale {
namespace {

using ::testing::ElementsAreArray;
using testing::ExactCopy;

std::vector<std::string> scanned(std::string_view bytes) {
    std::vector<std::string> messages;
    for (const auto& range : mboxRanges(bytes))
        messages.emplace_back(bytes.substr(range.location, range.length));
    return messages;
}

TEST(MboxScan, FindsWhereMessagesBegin) {
    const struct {
        const char* why;
        std::string_view bytes;
        std::vector<std::string> messages;
    } rows[] = {
        {"an empty file", "", {}},
        {"white space alone", " \t\r\f\n", {}},
        {"no separator at the start", "x\nFrom a\n", {}},
        {"a byte order mark is no white space",
         "\xEF\xBB\xBF"
         "From a\n",
         {}},
        {"the blank belongs to the separator", "From\nFrom: x\n", {}},
        {"leading white space goes", "\n\r\n \tFrom a\n\nx\n", {"From a\n\nx\n"}},
        {"the last message runs to the end", "From a\n\nx\n\nFrom b\n\ny", {"From a\n\nx\n\n", "From b\n\ny"}},
        {"an unescaped body line splits a message", "From a\n\nFrom Russia\n", {"From a\n\n", "From Russia\n"}},
        {"an escaped one does not", "From a\n\n>From Russia\n", {"From a\n\n>From Russia\n"}},
        {"a separator at the very end", "From a\n\nFrom ", {"From a\n\n", "From "}},
        {"separators and nothing else", "From \nFrom \nFrom ", {"From \n", "From \n", "From "}},
        {"only a newline ends a line", "From a\rFrom b\r\nFrom c\r\n", {"From a\rFrom b\r\n", "From c\r\n"}},
        {"a zero byte is a byte",
         std::string_view("From a\0\nFrom b", 14),
         {std::string("From a\0\n", 8), "From b"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_THAT(scanned(ExactCopy(row.bytes)), ElementsAreArray(row.messages));
    }
}

TEST(MboxScan, SplitsHeadersFromBodyAtTheFirstEmptyLine) {
    EXPECT_EQ(mboxHeaderLength("From a\nx: y\n\nbody\n\n"), 13u);
    EXPECT_EQ(mboxHeaderLength("From a\nx: y\n"), 12u);   // all headers
    EXPECT_EQ(mboxHeaderLength("From a\r\n\r\nb"), 11u);  // two newlines must touch
    EXPECT_EQ(mboxHeaderLength(""), 0u);
}

TEST(MboxScan, PadsToAnEmptyLine) {
    EXPECT_EQ(mboxPadding("a\n\n"), "");
    EXPECT_EQ(mboxPadding("a\n"), "\n");
    EXPECT_EQ(mboxPadding("a"), "\n\n");
    EXPECT_EQ(mboxPadding("a\nb"), "\n\n");
    EXPECT_EQ(mboxPadding("\n"), "\n");
    EXPECT_EQ(mboxPadding(""), "\n\n");
}

}  // namespace
}  // namespace lorvale
