#include <gtest/gtest.h>

#include "tests/support/BTreeFixture.h"
#include "tests/support/StoredForm.h"
#include "tests/support/TestSupport.h"

namespace brindle::testing {
namespace {

/// Lays bytes in hex digits beside those that stand at an address of the file.
void ExpectBytes(const TreeInMemory& t, std::uint32_t address, std::string digits) {
    std::erase(digits, ' ');
    const auto begin = t.bytes->begin() + address;
    const std::string there(begin, begin + static_cast<std::ptrdiff_t>(digits.size() / 2));
    EXPECT_EQ(hexOf(there), digits) << "at " << address;
}

TEST(BTreeFormat, OneLeaf) {
    TreeInMemory t;
    t.Make();
    t.Put("b", "xy");
    t.Put("a");
    t.FlushAndCommit();
    // The header is block 1, its root block 2, which takes the smallest block there is; behind its end are
    // zeros.
    ExpectBytes(t, t.storage->GetReadAddress(1), "00000002 00000000 00000002 00000001 00001000");
    ExpectBytes(t, t.storage->GetReadAddress(2),
                "00000000 00000002 01610001 62027879 00000000 00000000 00000000 00000000");
    EXPECT_EQ(t.storage->GetBlockSize(2), 32u);
}

/// The worked example of the documents is a real tree: its lines "address: bytes" stand in the file that the
/// program of the example makes.
TEST(BTreeFormat, DocumentedExampleIsARealFile) {
    TreeInMemory t(64);
    t.Make();
    for (const char* key : {"a", "b", "c", "d", "e", "f"}) t.Put(key, "1234567");
    t.FlushAndCommit();
    int lines = 0;
    for (const std::string& line :
         lorvale::testing::documentedLines("docs/formats.md", {"### A small ordered set, byte by byte"})) {
        if (!line.starts_with("    0x")) continue;
        const std::size_t begin = line.find(": ") + 2;
        ExpectBytes(t, static_cast<std::uint32_t>(std::stoul(line, nullptr, 16)),
                    line.substr(begin, line.find("  ", begin) - begin));
        ++lines;
    }
    EXPECT_EQ(lines, 8);
}

}  // namespace
}  // namespace brindle::testing
