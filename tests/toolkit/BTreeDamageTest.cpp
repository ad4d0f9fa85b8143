#include <gmock/gmock.h>

#include "tests/support/BTreeFixture.h"
#include "tests/support/FailureText.h"
#include "toolkit/storage/StoredMembers.h"

namespace brindle::testing {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// A page as a test wants it on disk, whether or not a tree could ever write it.
struct RawPage {
    std::uint32_t id;
    std::uint32_t rightChild;
    std::vector<std::pair<std::uint32_t, std::string>> entries;  // child and key
    std::optional<std::uint32_t> count = std::nullopt;           // a lie about their number
};

/// Trees written by hand.  The header is block 1 and the pages are blocks 2 to 9.
class DamagedBTree : public ::testing::Test {
protected:
    DamagedBTree() {
        t.Attach(std::make_unique<MemoryStoreStream>(t.bytes));
        t.storage->Initialize();
        for (int i = 1; i < 10; ++i) t.storage->Allocate();
        t.header = 1;
    }
    void Write(const BTreeHeader& header, const std::vector<RawPage>& pages) {
        header.Write(t.storage.get(), t.header, nullptr);
        for (const RawPage& page : pages) {
            IAOutputBlock output(t.storage.get(), page.id, header.pageSize, nullptr);
            output.WriteUInt32(page.rightChild);
            output.WriteUInt32(page.count.value_or(static_cast<std::uint32_t>(page.entries.size())));
            for (const auto& [child, key] : page.entries) {
                if (page.rightChild != 0) output.WriteUInt32(child);
                Entry(key).Store(&output);
            }
        }
    }
    std::string FailureOfOpen() {
        t.tree = std::make_unique<BTree>(std::make_unique<Entry>(), 64);
        return failureOf([this] { t.tree->Open(t.storage.get(), t.header, true, false); });
    }
    std::string FailureOfIteration() {
        return failureOf([this] { MembersOf(*t.tree, 1000); });
    }
    auto Violations() { return VerifyBTree(*t.storage, t.header, Entry()).violations; }

    TreeInMemory t{64};
};

TEST_F(DamagedBTree, HeaderThatNoTreeHas) {
    Write({2, 32, 1, 1, 64}, {{2, 0, {{0, "a"}}}});
    EXPECT_EQ(FailureOfOpen(), "VSIV btree header out of range");
    Write({2, 31, 1, 1, 64}, {});
    EXPECT_EQ(FailureOfOpen(), "VSIV btree root of the wrong kind");
    Write({2, 1, 1, 1, 64}, {{2, 3, {}}});
    EXPECT_EQ(FailureOfOpen(), "VSIV btree root of the wrong kind") << "an interior root without entries";
    Write({2, 1, 1, 1, 64}, {{2, 0, {{0, "a"}}}});
    EXPECT_EQ(FailureOfOpen(), "VSIV btree root of the wrong kind");
    EXPECT_THAT(Violations(), Contains(HasSubstr("is a leaf above the lowest level")));
    Write({0, 0, 0, 0, 64}, {});
    EXPECT_EQ(FailureOfOpen(), "VSBI id out of range");
}

TEST_F(DamagedBTree, PageThatNoTreeWrites) {
    const struct {
        const char* why;
        RawPage page;
        const char* failure;
    } rows[] = {
        {"more entries than there are bytes",
         {2, 0, {{0, "a"}}, 0xFFFFFFFF},
         "VSIV btree page entry count out of range"},
        {"entries behind the block's end", {2, 0, {{0, "a"}}, 30}, "VSPB buffer position passed blockEnd"},
        {"an object of more than half a page",
         {2, 0, {{0, std::string(30, 'k')}}},
         "VSIV btree page entry too big"},
        {"an entry without a child", {2, 3, {{0, "a"}}}, "VSIV btree page without a child"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        Write({2, 0, 1, 1, 64}, {row.page});
        EXPECT_EQ(FailureOfOpen(), row.failure);
        EXPECT_FALSE(Violations().empty());
    }
}

TEST_F(DamagedBTree, EntriesOutOfOrderEndAnIteration) {
    for (const char* second : {"a", "A"}) {
        Write({2, 0, 2, 1, 64}, {{2, 0, {{0, "a"}, {0, second}}}});
        EXPECT_EQ(FailureOfOpen(), "");
        EXPECT_EQ(FailureOfIteration(), "VSIV btree pages out of order");
        EXPECT_THAT(Violations(), Contains(HasSubstr("has objects out of order")));
        const auto members = t.tree->MakeIterator();
        EXPECT_NE(failureOf([&] { static_cast<void>(members->Next()); }), "");
        EXPECT_EQ(members->Next(), nullptr) << "it would go round for ever";
    }
}

TEST_F(DamagedBTree, PagesThatLeadToEachOther) {
    // An interior page below itself, where leaves should be.
    Write({2, 1, 9, 9, 64}, {{2, 2, {{2, "m"}}}});
    EXPECT_EQ(FailureOfOpen(), "");
    EXPECT_EQ(FailureOfIteration(), "VSIV btree page at the wrong level");
    EXPECT_EQ(failureOf([&] { t.Put("a"); }), "VSIV btree page at the wrong level");

    // Every level leads to one page of the next in all its children: more ways than there is time for.
    Write({2, 6, 9, 9, 64}, {{2, 3, {{3, "b"}, {3, "c"}}},
                             {3, 4, {{4, "b"}, {4, "c"}}},
                             {4, 5, {{5, "b"}, {5, "c"}}},
                             {5, 6, {{6, "b"}, {6, "c"}}},
                             {6, 7, {{7, "b"}, {7, "c"}}},
                             {7, 8, {{8, "b"}, {8, "c"}}},
                             {8, 0, {{0, "a"}}}});
    EXPECT_EQ(FailureOfOpen(), "");
    EXPECT_EQ(FailureOfIteration(), "VSIV btree pages out of order");
    EXPECT_EQ(failureOf([&] { ForEachStored(*t.tree->MakeIterator(), [](auto) {}); }),
              "VSIV more members than the btree has");
    EXPECT_THAT(Violations(), Contains(HasSubstr("is used more than once")));

    // Neighbours that are one page: levelling them would lose what they hold.
    Write({2, 1, 9, 9, 64}, {{2, 3, {{3, "m"}}}, {3, 0, {{0, "n"}}}});
    EXPECT_EQ(FailureOfOpen(), "");
    EXPECT_EQ(failureOf([&] { t.Put("z"); }), "VSIV btree page met twice");
}

/// A reader's cache keeps no page that nobody uses, and nobody can use one of the wrong kind: it is found good
/// as soon as it is.
TEST_F(DamagedBTree, PageOfTheWrongKindIsNotKept) {
    Write({2, 1, 3, 3, 64}, {{2, 3, {{4, "m"}}}, {3, 0, {{0, "n"}}}, {4, 3, {{3, "b"}}}});
    t.storage->Commit();
    const std::uint32_t address = t.storage->GetReadAddress(4);
    const std::size_t usual = IAPageMemory.exchange(0);
    t.Attach(std::make_unique<MemoryStoreStream>(t.bytes));
    t.storage->Open(false);
    IAPageMemory = usual;
    t.tree->Open(t.storage.get(), t.header, false, false);
    EXPECT_EQ(FailureOfIteration(), "VSIV btree page at the wrong level");
    const Bytes leaf = {0, 0, 0, 0, 0, 0, 0, 1, 1, 'a', 0};
    std::ranges::copy(leaf, t.bytes->begin() + address);
    EXPECT_EQ(MembersOf(*t.tree), (Members{{"a", ""}, {"m", ""}, {"n", ""}}));
}

TEST_F(DamagedBTree, DestroyGivesNoBlockBackTwice) {
    const char* const twice = "VSIV btree page met twice";
    const struct {
        const char* why;
        std::uint32_t depth;
        std::vector<RawPage> pages;
        std::string failure;
    } rows[] = {
        {"one leaf in two places", 1, {{2, 3, {{3, "m"}}}, {3, 0, {{0, "n"}}}}, twice},
        {"the header as a leaf", 1, {{2, 3, {{1, "m"}}}, {3, 0, {{0, "n"}}}}, twice},
        {"more ways than there is time for", 31, {{2, 2, {{2, "b"}, {2, "c"}}}}, twice},
        {"a leaf too high",
         2,
         {{2, 3, {{4, "m"}}}, {3, 0, {}}, {4, 0, {}}},
         "VSIV btree page at the wrong level"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        Write({2, row.depth, 9, 9, 64}, row.pages);
        ASSERT_EQ(FailureOfOpen(), "");
        const std::uint32_t next = t.storage->Allocate();
        EXPECT_EQ(failureOf([&] { t.tree->Destroy(); }), row.failure);
        EXPECT_EQ(t.storage->Allocate(), next + 1) << "nothing was given back";
    }
}

TEST_F(DamagedBTree, LargePageBehindTheEndOfTheStore) {
    TreeInMemory large(65'536);
    large.Make();
    for (const char* key : {"a", "b", "c"}) large.Put(key, std::string(5000, 'v'));
    large.FlushAndCommit();
    large.Open();
    EXPECT_EQ(large.tree->Count(), MembersOf(*large.tree).size());
    large.bytes->resize(large.storage->GetReadAddress(2) + 9000);
    EXPECT_EQ(failureOf([&] { large.Open(); }), "VSPB text past the end of its block");
}

TEST(PageImage, RefusesBytesThatAreNoPage) {
    class Lying : public Entry {
    public:
        explicit Lying(std::uint32_t told) : size(told) {}
        std::uint32_t StoredSize(std::span<const std::uint8_t>) const override { return size; }
        const std::uint32_t size;
    };
    const Bytes leaf = {0, 0, 0, 0, 0, 0, 0, 1, 'x'};
    const auto restored = [&leaf](std::size_t length, std::uint32_t objectSize) {
        const Bytes exact(leaf.begin(), leaf.begin() + static_cast<std::ptrdiff_t>(length));
        return PageImage::Restore(exact, Lying(objectSize));
    };
    EXPECT_EQ(failureOf([&] { restored(7, 0); }), "VSEo passed EOF");
    EXPECT_EQ(restored(8, 0)->Count(), 1u) << "an object that is stored as nothing";
    EXPECT_EQ(restored(9, 1)->LargestObject(), 1u);
    EXPECT_EQ(failureOf([&] { restored(9, 2); }), "VSPB buffer position passed blockEnd");
}

TEST_F(DamagedBTree, VerifyNamesEveryBrokenRule) {
    const struct {
        BTreeHeader header;
        std::vector<RawPage> pages;
        std::vector<const char*> violations;
    } rows[] = {
        {{2, 1, 9, 7, 64},
         {{2, 3, {{4, "g"}, {5, "m"}}},
          {3, 0, {{0, "k"}}},   // below its separator
          {4, 0, {}},           // empty
          {5, 6, {{7, "h"}}}},  // not a leaf
         {"Page 4 at level 1 has no entries", "Page 5 at level 1 has children at the lowest level",
          "Page 3 at level 1 has objects out of order", "The header counts 9 objects, the pages hold 4",
          "The header counts 7 pages, there are 4"}},
        {{2, 0, 1, 1, 64}, {{2, 0, {{0, "a"}, {0, "b"}}}}, {"The header counts 1 objects, the pages hold 2"}},
        {{2, 0, 1, 0, 64}, {{2, 0, {{0, "a"}}}}, {"The header counts 0 pages, there are 1"}},
        {{2, 1, 1, 2, 64}, {{2, 3, {}}, {3, 0, {{0, "a"}}}}, {"Page 2 at level 0 has no entries"}},
        {{2, 1, 3, 3, 64},
         {{2, 3, {{4, "g"}}}, {3, 0, {{0, "z"}}}, {4, 0, {{0, "g"}}}},
         {"Page 4 at level 1 has objects out of order"}},
        {{2, 1, 5, 4, 64},
         {{2, 3, {{4, "g"}, {5, "m"}}}, {3, 0, {{0, "z"}}}, {4, 0, {{0, "a"}}}, {5, 0, {{0, "c"}}}},
         {"Page 5 at level 1 has objects out of order"}},
        {{2, 2, 7, 7, 64},  // below a page that is in order by itself
         {{2, 3, {{4, "m"}}},
          {3, 7, {{8, "r"}}},
          {4, 5, {{6, "c"}}},
          {5, 0, {{0, "z"}}},
          {6, 0, {{0, "a"}}},
          {7, 0, {{0, "x"}}},
          {8, 0, {{0, "p"}}}},
         {"Page 5 at level 2 has objects out of order"}},
        {{1, 0, 0, 0, 64}, {}, {"The root page is the header block itself"}},
        {{2, 32, 0, 0, 64}, {}, {"The header tells a depth of 32"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.violations.front());
        Write(row.header, row.pages);
        std::vector<::testing::Matcher<std::string>> says(row.violations.size());
        std::ranges::transform(row.violations, says.begin(),
                               [](const char* sentence) { return HasSubstr(sentence); });
        EXPECT_THAT(Violations(), ::testing::ElementsAreArray(says));
    }
    Write({2, 0, 3, 1, 64}, {{2, 0, {{0, "a"}, {0, "b"}, {0, "c"}}}});
    Write({2, 0, 3, 1, 16}, {});  // as if it were of a tree of smaller pages
    EXPECT_THAT(Violations(), Contains(HasSubstr("more than a page may")));
    EXPECT_THAT(Violations(), Contains(HasSubstr("too big for its page size")));
}

/// Every byte of a small file changed in several ways, and the file cut at every length.
TEST(DamagedBTreeFile, OnlyTheToolkitsOwnFailureComesOut) {
    TreeInMemory t(64);
    t.Make();
    for (int i = 0; i < 30; ++i) t.Put("key" + std::to_string(10 + i), "12345");
    t.FlushAndCommit();
    EXPECT_THAT(VerifyBTree(*t.storage, t.header, Entry()).violations, IsEmpty());
    UseTreeInDamagedStorage(*t.bytes);
    for (std::uint32_t id = 1; id <= t.tree->Check().pages + 1; ++id) {
        const std::uint32_t address = t.storage->GetReadAddress(id);
        for (std::uint32_t at = address; at < address + t.storage->GetBlockSize(id); ++at) {
            for (const int change : {1, 0x80, 0xFF}) {
                Bytes damaged = *t.bytes;
                damaged[at] = static_cast<std::uint8_t>(damaged[at] ^ change);
                UseTreeInDamagedStorage(std::move(damaged));
            }
        }
    }
    for (std::size_t length = 0; length < t.bytes->size(); length += 37)
        UseTreeInDamagedStorage(
            Bytes(t.bytes->begin(), t.bytes->begin() + static_cast<std::ptrdiff_t>(length)));
}

}  // namespace
}  // namespace brindle::testing
