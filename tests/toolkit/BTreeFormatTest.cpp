#include <gmock/gmock.h>

#include <fstream>

#include "tests/support/BTreeFixture.h"
#include "tests/support/TestSupport.h"

namespace brindle::testing {
namespace {

/// Bytes as hex digits, in groups of four bytes.
std::string Hex(const Bytes& bytes, std::uint32_t address, std::uint32_t size) {
    std::string text;
    for (std::uint32_t i = 0; i < size; ++i) {
        if (i > 0 && i % 4 == 0) text += ' ';
        for (const int shift : {4, 0}) text += "0123456789abcdef"[bytes.at(address + i) >> shift & 15];
    }
    return text;
}

class BTreeFormat : public ::testing::Test {
protected:
    std::string BlockOf(TreeInMemory& t, std::uint32_t id, std::uint32_t size) {
        return Hex(*t.bytes, t.storage->GetReadAddress(id), size);
    }
};

TEST_F(BTreeFormat, OneLeaf) {
    TreeInMemory t;
    t.Make();
    t.Put("b", "xy");
    t.Put("a");
    t.FlushAndCommit();
    // The header is block 1, its root block 2, which takes the smallest block there is; behind its end are
    // zeros.
    EXPECT_EQ(BlockOf(t, 1, 20), "00000002 00000000 00000002 00000001 00001000");
    EXPECT_EQ(BlockOf(t, 2, 32), "00000000 00000002 01610001 62027879 00000000 00000000 00000000 00000000");
    EXPECT_EQ(t.storage->GetBlockSize(2), 32u);
}

/// The worked example of docs/formats.md is a real tree: its lines "address: bytes" of the section on the
/// ordered set stand in the file that the program of the example makes.
TEST_F(BTreeFormat, DocumentedExampleIsARealFile) {
    TreeInMemory t(64);
    t.Make();
    for (const char* key : {"a", "b", "c", "d", "e", "f"}) t.Put(key, "1234567");
    t.FlushAndCommit();

    std::istringstream docs(lorvale::testing::readFile(lorvale::testing::sourceFolder() / "docs/formats.md"));
    int lines = 0;
    bool inExample = false;
    for (std::string line; std::getline(docs, line);) {
        if (line.starts_with("#")) inExample = line.ends_with("A small ordered set, byte by byte");
        const std::size_t colon = line.find(": ");
        if (!inExample || !line.starts_with("    0x") || colon == std::string::npos) continue;
        const auto address = static_cast<std::uint32_t>(std::stoul(line.substr(6, colon - 6), nullptr, 16));
        const std::string bytes = line.substr(colon + 2, line.find("  ", colon + 2) - colon - 2);
        const auto size = static_cast<std::uint32_t>((bytes.size() + 1) / 9 * 4);
        EXPECT_EQ(Hex(*t.bytes, address, size), bytes) << line;
        ++lines;
    }
    EXPECT_EQ(lines, 8);
}

}  // namespace
}  // namespace brindle::testing
