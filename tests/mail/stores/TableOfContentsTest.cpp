#include "mail/stores/TableOfContents.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>

#include <fstream>

#include "lorvale/platform/exception.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/text.h"
#include "tests/support/StoreSupport.h"

namespace lorvale {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
using namespace std::string_literals;

/// The numbers of a listing in hexadecimal; text behind a "|" stands for itself.
std::string bytesOfListing(std::string_view listing) {
    std::string bytes, digits;
    for (std::size_t i = 0; i < listing.size(); ++i) {
        if (listing[i] == '|') {
            const auto end = listing.find('|', i + 1);
            bytes += listing.substr(i + 1, end - i - 1);
            i = end;
        } else if (listing[i] != ' ') {
            digits += listing[i];
            if (digits.size() == 2)
                bytes += static_cast<char>(std::stoi(std::exchange(digits, ""), nullptr, 16));
        }
    }
    return bytes;
}

/// The example in the documents: the numbers before the gap of each line.
std::string bytesInDocument() {
    const auto text = readFile(sourceFolder() / "docs/formats.md");
    const auto start = text.find("```\n", text.find("<!-- table of contents -->")) + 4;
    const auto block = text.substr(start, text.find("```", start) - start);
    std::string digits;
    for (const auto line : split(block, '\n')) digits += std::string(line.substr(0, line.find("   "))) + " ";
    return bytesOfListing(digits);
}

class Table : public ::testing::Test {
protected:
    Table() {
        ::setenv("TZ", "UTC0", 1);
        ::tzset();
    }
    ~Table() override {
        ::unsetenv("TZ");
        ::tzset();
    }
    static std::string contents(std::string_view records, std::string_view count) {
        constexpr auto kFloats = "00000000 3f800000 40000000 40400000 40800000 40a00000";
        return bytesOfListing("000dbba0" + std::string(count) + kFloats + std::string(records));
    }
    /// A record of the 22nd of August 2002 with empty texts; behind the texts stands what is given.
    static std::string record(std::string_view status = "* ",
                              std::string_view rest = "00000000 00000000 00000000 00000000") {
        char length[9];
        std::snprintf(length, sizeof length, "%08zx", 23 + bytesOfListing(rest).size());
        return length + "00000000 00000050 000fa516 |"s + std::string(status) + "  | 000000"s +
               std::string(rest);
    }
    static std::string failureOf(std::string_view bytes) {
        try {
            TableOfContents::ofBytes("", Data::copyOf(bytes));
            return "";
        } catch (const NamedException& exception) {
            return exception.name() + ": " + exception.reason();
        }
    }
    static const TOCMessage& at(const TableOfContents& table, std::size_t index) {
        return static_cast<const TOCMessage&>(*table.messages()[index]);
    }

    TemporaryFolder folder;
    const std::string path = folder / "table_of_contents", mbox = folder / "mbox";
};

TEST_F(Table, HasTheBytesOfItsFormat) {
    const auto message = [](std::string_view head) { return messageOf(std::string(head) + "\n\nbody\n"); };
    const auto html = message(
        "From a@x.example Thu Aug 22 12:46:23 2002\nFrom: Ann <a@x.example>\n"
        "Subject: caf\xE9\nContent-Type: text/html");
    const auto rich =
        message("From b@x.example Thu Jan  1 00:00:00 1970\nFrom: b\nTarn-Reference: tea.attach, 1/1");
    html->messageFlags()->setRead(false);
    rich->messageFlags()->setDeleted(true);
    TableOfContents table(path);
    table.addMessage(*html, {0, 120});
    table.addMessage(*rich, {120, 80});
    const auto expected = bytesInDocument();
    EXPECT_EQ(table.cachedData(0x3d64dbaf).toString(), expected);
    const auto again = TableOfContents::ofBytes("", Data::copyOf(expected));
    EXPECT_EQ(at(*again, 0).dateReceived(), Date(0x3d64dd1f));
    EXPECT_EQ(at(*again, 0).subject(), "café");
    EXPECT_FALSE(at(*again, 0).isRead());
    EXPECT_EQ(at(*again, 0).messageTypeImageName(), "html");
    EXPECT_EQ(at(*again, 1).dateReceived(), Date(43'200)) << "0 would stand for no time, so it is noon";
    EXPECT_EQ(at(*again, 1).attachment(), "tea.attach");
    EXPECT_TRUE(at(*again, 1).isDeleted());
    for (const std::size_t i : {0u, 1u})
        EXPECT_EQ(again->messages()[i]->messageID(), table.messages()[i]->messageID());
}

TEST_F(Table, ReadsOldAndOddRecords) {
    const struct {
        const char* why;
        std::string bytes;
        bool isRead, isDeleted;
        std::int64_t date;
    } rows[] = {
        {"unread", record(), false, false, 1'030'017'600},
        {"read by another name", record("> "), true, false, 1'030'017'600},
        {"deleted by another name", record("D "), true, true, 1'030'017'600},
        {"no words behind the texts", record("  ", ""), true, false, 1'030'017'600},
        {"one word", record("  ", "00000000"), true, false, 1'030'017'600},
        {"a time", record("  ", "00000000 00000000 00000000 3d64dbaf"), true, false, 0x3d64dbaf},
        {"a time beyond 2038", record("  ", "00000000 00000000 00000000 ffffffff"), true, false, 0xFFFFFFFF},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const auto table = TableOfContents::ofBytes("", Data::copyOf(contents(row.bytes, "00000001")));
        EXPECT_EQ(at(*table, 0).isRead(), row.isRead);
        EXPECT_EQ(at(*table, 0).isDeleted(), row.isDeleted);
        EXPECT_EQ(at(*table, 0).dateReceived(), Date(row.date));
        EXPECT_EQ(table->cachedData(0).size(), 32u + 39u);
        EXPECT_EQ(table->cachedData(0).view().substr(12, 20), contents("", "00000001").substr(12))
            << "the floats are kept";
    }
    auto old = contents(record(), "00000001");
    old.replace(0, 4, bytesOfListing("000d9758"));
    EXPECT_EQ(TableOfContents::ofBytes("", Data::copyOf(old))->cachedData(0).view().substr(0, 4),
              old.substr(0, 4));
}

TEST_F(Table, RefusesWhatIsNone) {
    const auto bogus = [](std::string_view why) {
        return "Bogus table of contents: Bogus TOC, " + std::string(why);
    };
    const auto damaged = [&](std::size_t offset, std::string_view bytes) {
        return contents(record(), "00000001").replace(32 + offset, bytes.size(), bytes);
    };
    EXPECT_EQ(failureOf("A text that is no table at all, but longer than one."),
              "Bad TOC: Incompatible TOC versions");
    EXPECT_EQ(failureOf("short"), bogus("shorter than its header"));
    EXPECT_EQ(failureOf(contents(record(), "00000002")), bogus("record 2 of 2 does not fit"));
    EXPECT_EQ(failureOf(contents(record(), "ffffffff")), bogus("record 2 of 4294967295 does not fit"));
    EXPECT_EQ(failureOf(damaged(0, "\xFF\xFF\xFF\xFF")), bogus("record 1 of 1 does not fit"));
    EXPECT_EQ(failureOf(damaged(0, "\0\0\0\x16"s)), bogus("record 1 of 1 does not fit"));
    EXPECT_EQ(failureOf(damaged(15, "\0"s)), bogus("bad date")) << "day 0";
    EXPECT_EQ(failureOf(damaged(12, "\0\x4e\x20\x21"s)), bogus("bad date")) << "year 10000";
    EXPECT_EQ(failureOf(damaged(15, "\xB6")), bogus("bad date")) << "month 13";
    EXPECT_EQ(failureOf(damaged(18, "x")), bogus("bad date")) << "filler";
    EXPECT_EQ(failureOf(damaged(20, std::string(19, 'x'))), bogus("a text without end"));
    const auto whole = contents(record() + record(), "00000002");
    for (std::size_t size = 0; size < whole.size(); ++size)
        EXPECT_NE(failureOf(whole.substr(0, size)), "") << "cut at " << size;
    for (std::size_t i = 0; i < whole.size(); ++i) {
        for (const int bit : {1, 16, 128}) {
            auto flipped = whole;
            flipped[i] = static_cast<char>(flipped[i] ^ bit);
            failureOf(flipped);  // whatever comes out, it stays within the bytes
        }
    }
    LogCapture log;
    writeFile(path, "A text that is no table at all, but longer than one.");
    EXPECT_EQ(TableOfContents::initWithPath(path), nullptr);
    EXPECT_THAT(log.take(),
                ElementsAre("Error loading table of contents file:", "    Incompatible TOC versions"));
    writeFile(path, "");
    EXPECT_EQ(TableOfContents::initWithPath(path), nullptr);
    EXPECT_EQ(TableOfContents::initWithPath(path + ".no"), nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(Table, IsValidAsLongAsItsMailboxIsAsItWas) {
    writeFile(mbox, "From a\n\n");
    const auto setTimeOf = [](const std::string& file, std::int64_t seconds, long nanoseconds) {
        const timespec times[] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
        ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    };
    const auto setTime = [&](std::int64_t seconds, long ns) { setTimeOf(mbox, seconds, ns); };
    const auto attributes = [&] { return *FileSystem::current().attributes(mbox); };
    setTime(1'000'000'000, 499'999'999);
    TableOfContents table(path);
    ASSERT_TRUE(table.flushToFile(attributes()));
    EXPECT_TRUE(TableOfContents::initWithPath(path)->isValid());
    setTime(1'000'000'000, 500'000'000);
    EXPECT_FALSE(TableOfContents::initWithPath(path)->isValid()) << "both sides are rounded";
    ASSERT_TRUE(table.flushToFile(attributes()));
    setTime(1'000'000'001, 0);
    EXPECT_TRUE(TableOfContents::initWithPath(path)->isValid());
    setTime(1'000'000'001, 5);
    const struct {
        std::int64_t seconds;
        long nanoseconds;
        bool isValid;
    } tableWritten[] = {{1'000'000'001, 5, true},  // in the same moment
                        {1'000'000'001, 4, false},
                        {1'000'000'000, 999'999'999, false},
                        {999'999'999, 0, true}};  // before a clock was set
    for (const auto& row : tableWritten) {
        setTimeOf(path, row.seconds, row.nanoseconds);
        EXPECT_EQ(TableOfContents::initWithPath(path)->isValid(), row.isValid) << row.nanoseconds;
    }
    auto known = attributes();
    known.size -= 1;
    ASSERT_TRUE(table.flushToFile(known));
    for (const auto later : {-1, 0, 1}) {
        setTime(1'000'000'001 + later, 0);
        EXPECT_FALSE(TableOfContents::initWithPath(path)->isValid()) << "a file that we did not write";
    }
    setTime(1'000'000'001, 0);
    EXPECT_TRUE(table.flushToFile(attributes()));
    std::ofstream(path, std::ios::app) << "more";
    EXPECT_FALSE(TableOfContents::initWithPath(path)->isValid()) << "records that nobody counted";
    std::filesystem::rename(path, folder / "Incoming_Table_of_Contents");
    std::filesystem::remove(mbox);
    EXPECT_EQ(TableOfContents::initWithPath(folder / "Incoming_Table_of_Contents")->path(),
              (folder / "Incoming_Table_of_Contents").string());
}

TEST_F(Table, FindsAndRemoves) {
    TableOfContents table(path);
    const auto add = [&](std::string_view subject, MboxRange range) {
        const auto head =
            "From a@x.example Thu Aug 22 12:46:23 2002\nFrom: a\nSubject: " + std::string(subject);
        return table.addMessage(*messageOf(head + "\n\n"), range);
    };
    const auto first = add("one", {0, 10}), second = add("two", {10, 20}), third = add("two", {30, 30});
    EXPECT_EQ(second->messageID(), "a_two_1030020383");
    EXPECT_EQ(table.messageForMessageID("a_two_1030020383"), third);
    table.removeMessages({first});
    EXPECT_EQ(second->mboxRange(), (MboxRange{0, 20}));
    EXPECT_EQ(third->mboxRange(), (MboxRange{20, 30}));
    EXPECT_EQ(table.messageForMessageID(first->messageID()), nullptr);
    const auto fourth = add("two", {50, 1});
    EXPECT_EQ(table.messageForMessageID("a_two_1030020383"), fourth);
    // So many of one second and one length that another way is taken to tell them apart.
    std::uint32_t end = 51;
    for (int i = 100; i < 200; ++i) add(std::to_string(i), {end++, 1});
    for (int i = 100; i < 200; ++i) {
        const auto found = table.messageForMessageID("a_" + std::to_string(i) + "_1030020383");
        ASSERT_NE(found, nullptr) << i;
        EXPECT_EQ(found->subject(), std::to_string(i));
    }
    EXPECT_EQ(table.messageForMessageID("a_two_1030020383"), fourth);
    for (const auto* const unknown : {"a_200_1030020383", "a_two_1030020384", "_", ""})
        EXPECT_EQ(table.messageForMessageID(unknown), nullptr) << unknown;
}

TEST_F(Table, ListsSoThatItCanBeReadAgain) {
    const std::string nul("Subject: a\0b\xE9\n", 14);
    for (const auto* const date :
         {"Mon Jan  1 00:00:00 1600", "Fri Dec 31 23:59:59 9999", "Thu Jan  1 00:00:00 1970"}) {
        const auto head = "From a@x.example " + std::string(date) + "\nFrom: a\n" + nul + "\n";
        TableOfContents table(path);
        table.addMessage(*messageOf(head), {0, 10});
        const auto again = TableOfContents::ofBytes("", table.cachedData(0));
        EXPECT_EQ(again->messages()[0]->messageID(), table.messages()[0]->messageID()) << date;
        EXPECT_EQ(at(*again, 0).subject(), "abé");
    }
}

}  // namespace
}  // namespace lorvale
