// The bytes on disk, and what is done with bytes that cannot be right.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "tests/support/FailureText.h"
#include "tests/support/StoredForm.h"
#include "tests/support/TestSupport.h"

namespace brindle {
namespace {

using testing::Bytes;
using testing::failureOf;
using testing::MemoryStoreStream;

/// Lays the bytes of a listing in docs/formats.md over a file: lines of an address and up to 16 bytes, all in
/// hex.
std::string withListing(const std::string& title, std::string file) {
    for (const std::string& line :
         lorvale::testing::documentedLines("docs/formats.md", {"### " + title, "```"})) {
        std::istringstream words(line.substr(0, 58));
        std::size_t address = 0;
        words >> std::hex >> address;
        for (unsigned byte; words >> byte; ++address) file.at(address) = static_cast<char>(byte);
    }
    return file;
}

/// The size of what both begin with; where they differ this beats a print of both.
std::size_t alikeFor(const std::string& a, const std::string& b) {
    return static_cast<std::size_t>(std::ranges::mismatch(a, b).in1 - a.begin());
}

TEST(StorageFormat, FilesAreThoseOfTheDocs) {
    const lorvale::testing::TemporaryFolder folder;
    const auto path = folder / "store";
    const auto storage = MakeFileStorage(path.c_str());
    storage->Initialize();
    auto expected = withListing("A new storage", std::string(4096, '\0'));
    EXPECT_EQ(std::filesystem::file_size(path), 4096u);
    EXPECT_EQ(alikeFor(lorvale::testing::readFile(path), expected), 4096u);

    testing::writeBlock(*storage, storage->AllocateNamedBlock("greeting"), "hello");
    testing::writeBlock(*storage, storage->AllocateNamedBlock("apples"), std::string(40, 'a'));
    storage->Deallocate(storage->Allocate());
    storage->Commit();
    expected.resize(6144);
    expected = withListing("Two named blocks", expected);
    EXPECT_EQ(std::filesystem::file_size(path), 6144u);
    EXPECT_EQ(alikeFor(lorvale::testing::readFile(path), expected), 6144u);

    // What is written down there opens for ever.
    lorvale::testing::writeFile(path, expected);
    const auto reopened = MakeFileStorage(path.c_str());
    reopened->Open(false);
    EXPECT_EQ(testing::readBlock(*reopened, reopened->TOC_Get("greeting"), 5), "hello");
    EXPECT_EQ(testing::readBlock(*reopened, reopened->TOC_Get("apples"), 40), std::string(40, 'a'));
}

class DamagedStorage : public ::testing::Test {
protected:
    DamagedStorage() {
        const auto storage = IAMakeStorage(std::make_unique<MemoryStoreStream>(bytes));
        storage->Initialize();
        for (std::uint32_t i = 1; i <= 3; ++i)
            testing::writeBlock(*storage, storage->AllocateNamedBlock(std::string(i, 'n').c_str()),
                                std::string(i * 30, 'x'));
        storage->Allocate();
        storage->Deallocate(storage->Allocate());
        storage->Commit();
        root = 4096;  // where the second system block goes
        names = root + 8 + 1024;
        freeLists = names + 4 + 3 * 5 + 6;
    }

    /// How opening and checking end when a field is changed.
    std::string openingWith(std::size_t address, std::uint32_t value) {
        Bytes damaged = *bytes;
        for (std::size_t i = 0; i < 4; ++i)
            damaged.at(address + i) = static_cast<std::uint8_t>(value >> (24 - 8 * i));
        return opening(std::move(damaged));
    }
    static std::string opening(Bytes damaged) {
        const auto shared = std::make_shared<Bytes>(std::move(damaged));
        const Bytes before = *shared;
        const auto storage = IAMakeStorage(std::make_unique<MemoryStoreStream>(shared));
        const auto failure = failureOf([&] { storage->Open(true); });
        EXPECT_EQ(*shared, before);
        const bool sound = VerifyStorage(*storage->GetStoreStream()).Sound();
        EXPECT_TRUE(failure.empty() || !sound) << "refused, but the checker has nothing to say: " << failure;
        if (!failure.empty()) {
            EXPECT_EQ(failureOf([&] { storage->Allocate(); }), "VSNO storage not open");
        }
        return failure.empty() && !sound ? "opened, but not sound" : failure;
    }

    std::shared_ptr<Bytes> bytes = std::make_shared<Bytes>();
    std::size_t root, names, freeLists;
};

TEST_F(DamagedStorage, IsRefusedAndNotTouched) {
    constexpr const char* kRoot = "VSIV invalid storage root block";
    constexpr const char* kAddress = "VSIV invalid storage block address";
    constexpr const char* kChain = "VSIV invalid storage free id chain";
    constexpr const char* kOverlap = "VSIV invalid storage blocks overlap";
    constexpr const char* kList = "VSIV invalid storage free list";
    const struct {
        const char* why;
        std::size_t address;
        std::uint32_t value;
        const char* failure;
    } rows[] = {
        {"another type", 0, IATag("Bud2"), "VSIV invalid storage type"},
        {"two addresses", 4, 8192, "VSIV invalid storage type bad root address"},
        {"a size that is no power of two", 8, 2047, kRoot},
        {"a size that is not the table's", 8, 4096, kRoot},
        {"no IDs", root, 0, "VSIV invalid storage block count"},
        {"more IDs than the block holds", root, 257, "VSIV invalid storage block count"},
        {"IDs without end", root, 0xFFFFFFFF, "VSIV invalid storage block count"},
        {"a free ID that is none", root + 4, 100, kChain},
        {"a free ID that is a block", root + 4, 1, kChain},
        {"a chain that runs in a circle", root + 8 + 5 * 4, 5u << 5, kChain},
        {"the system block is elsewhere", root + 8, 32768 | 11, kRoot},
        {"a block in the header", root + 12, 5, kAddress},
        {"a block that is not aligned", root + 12, 32 | 7, kAddress},
        {"a block that is too small", root + 12, 64 | 4, kAddress},
        {"a block behind 2 GB", root + 12, 0x80000000 | 6, kAddress},
        {"two blocks in one place", root + 12, (testing::Bytes(*bytes)[root + 19] & 0xE0u) | 6, kOverlap},
        {"a block in free space", root + 12, 0x40000000 | 6, kOverlap},
        {"a word behind the last ID", root + 8 + 255 * 4, 32, kAddress},
        {"more names than there is room for", names, 0xFFFFFFFF, "VSIV invalid storage table of contents"},
        {"a name with a NUL", names + 4, 0x01000000, "VSIV invalid storage table of contents"},
        {"names out of order", names + 4, 0x017A0000, "VSIV invalid storage table of contents"},
        {"a name for no block", names + 6, 77, "opened, but not sound"},
        {"a free block of 16 bytes", freeLists + 16, 1, kList},
        {"more free blocks than there is room for", freeLists + 20, 0x40000001, kList},
        {"free blocks forgotten", freeLists + 31 * 4, 0, nullptr},
    };
    EXPECT_EQ(opening(*bytes), "");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const auto result = openingWith(row.address, row.value);
        if (row.failure != nullptr)
            EXPECT_EQ(result, row.failure);
        else
            EXPECT_NE(result, "");
    }
}

/// Every length and every flipped bit of the parts that mean something: only IAException comes out, and what
/// still opens can be read and written without harm.
TEST_F(DamagedStorage, EndsInNothingWorseThanAnException) {
    const auto tryOut = [](Bytes damaged) {
        const auto shared = std::make_shared<Bytes>(std::move(damaged));
        const auto storage = IAMakeStorage(std::make_unique<MemoryStoreStream>(shared));
        if (!failureOf([&] { storage->Open(true); }).empty()) return;
        for (std::uint32_t id = 0; id < 8; ++id) {
            failureOf([&] { testing::readBlock(*storage, id, 32); });
            failureOf([&] { testing::writeBlock(*storage, id, std::string(40, 'd')); });
        }
        failureOf([&] { storage->Commit(); });
        failureOf([&] { storage->Compact(); });
        VerifyStorage(*storage->GetStoreStream());
    };
    for (std::size_t length = 0; length < bytes->size(); length += length < 40 ? 1 : 61)
        tryOut(Bytes(bytes->begin(), bytes->begin() + static_cast<std::ptrdiff_t>(length)));
    for (std::size_t at = 0; at < bytes->size(); ++at) {
        if (at == 16) at = root;          // the rest of the header is never read
        if (at == root + 40) at = names;  // nor are the words of IDs not handed out
        if (at == freeLists + 300) break;
        for (int bit = 0; bit < 8; ++bit) {
            Bytes damaged = *bytes;
            damaged[at] = static_cast<std::uint8_t>(damaged[at] ^ 1u << bit);
            tryOut(std::move(damaged));
        }
    }
}

TEST(VerifyStorage, NamesAFileThatIsNotThere) {
    const auto report = VerifyStorageFile("/no/such/file");
    ASSERT_EQ(report.violations.size(), 1u);
    EXPECT_EQ(report.violations[0], "/no/such/file:  unable to open file");
}

}  // namespace
}  // namespace brindle
