#include <gmock/gmock.h>

#include "tests/support/BTreeFixture.h"
#include "tests/support/FailureText.h"

namespace brindle::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

class BTreeTest : public ::testing::Test {
protected:
    BTreeTest() { t.Make(); }
    TreeInMemory t;
};

TEST_F(BTreeTest, EmptyTreeHasNothing) {
    const Entry key("x");
    EXPECT_FALSE(t.tree->Remove(&key));
    t.Put("x");
    EXPECT_TRUE(t.tree->Remove(&key)) << "the last one";
    EXPECT_EQ(t.tree->MakeIterator(&key)->Next(), nullptr);
    EXPECT_EQ(t.tree->PositionEstimate(&key), 0.5F);
    EXPECT_EQ(t.tree->TotalSize(), 4096u + 20u);
}

TEST_F(BTreeTest, TheStoredPageSizeCountsNotThatOfTheOpener) {
    t.FlushAndCommit();
    BTree opened(std::make_unique<Entry>(), 64);
    opened.Open(t.storage.get(), t.header, true, false);
    EXPECT_EQ(opened.TotalSize(), 4096u + 20u);
    EXPECT_FALSE(opened.Put(std::make_unique<Entry>("k", std::string(2000, 'v'))))
        << "too big for a page of 64";
    BTree tiny(std::make_unique<Entry>(), BTPageOverhead - 1);
    tiny.Initialize(t.storage.get(), t.storage->Allocate(), false);
    EXPECT_EQ(failureOf([&] { tiny.Put(std::make_unique<Entry>()); }),
              "VSBE Ordered Storable Set Entry Too Big");
}

TEST_F(BTreeTest, LargestEntryIsHalfOfAPage) {
    const std::string value(2040 - 1 - 1 - 2, 'v');  // two lengths, of one and of two bytes, and the key
    ASSERT_EQ(Entry("k", value).StoreSize(), 2040u);
    EXPECT_FALSE(t.Put("k", value));
    EXPECT_EQ(failureOf([&] { t.Put("k", value + "!"); }), "VSBE Ordered Storable Set Entry Too Big");
    EXPECT_THAT(MembersOf(*t.tree), ElementsAre(Pair("k", value)));
    t.Put("l", value);
    t.Put("m", "12345");
    EXPECT_EQ(t.tree->TotalSize(), 4096u + 20u) << "they fill one page to the last byte";
    t.Put("m", "123456");
    EXPECT_EQ(t.tree->TotalSize(), 3 * 4096u + 20u);
}

TEST_F(BTreeTest, ObjectThatLiesAboutItsSizeStaysOut) {
    class Liar : public Entry {
    public:
        explicit Liar(int lie) : Entry("liar", "value"), by(lie) {}
        std::uint32_t StoreSize() const override { return Entry::StoreSize() + static_cast<std::uint32_t>(by); }
        const int by;
    };
    t.Put("a", "1");
    for (const int by : {1, -1, -11}) EXPECT_THROW(t.tree->Put(std::make_unique<Liar>(by)), IAException) << by;
    EXPECT_THAT(MembersOf(*t.tree), ElementsAre(Pair("a", "1")));
    EXPECT_EQ(t.tree->Check().violations, std::vector<std::string>());
}

TEST_F(BTreeTest, RemovingASeparatorPutsItsPredecessorThere) {
    TreeInMemory small(64);
    small.Make();
    for (const char* key : {"a", "b", "c", "e", "f", "g", "d"}) small.Put(key, "1234567");
    const auto rootOf = [&small] {
        small.tree->Flush();
        const Entry prototype;
        const BTreeHeader header = BTreeHeader::Read(small.storage.get(), small.header, nullptr);
        return Entry::KeyOf(
            PageBlocks(*small.storage, nullptr, prototype).Read(header.rootId).CopyObject(0).get());
    };
    EXPECT_EQ(rootOf(), "e");
    const Entry low("a"), separator("e"), high("f");
    EXPECT_FLOAT_EQ(small.tree->PositionEstimate(&low), 0.25F) << "by the entries of the root";
    EXPECT_FLOAT_EQ(small.tree->PositionEstimate(&separator), 0.75F);
    EXPECT_FLOAT_EQ(small.tree->PositionEstimate(&high), 0.75F);
    EXPECT_TRUE(small.tree->Remove(&separator));
    EXPECT_EQ(rootOf(), "d") << "the pages are full enough as they are";
}

TEST_F(BTreeTest, DestroyLeavesNothingInTheStorage) {
    t.FlushAndCommit();
    const std::uint32_t usedBefore = t.storage->TotalSpace() - t.storage->FreeSpace();
    BTree second(std::make_unique<Entry>(), 64);
    const std::uint32_t header = t.storage->Allocate();
    second.Initialize(t.storage.get(), header, false);
    for (int i = 0; i < 99; ++i) second.Put(std::make_unique<Entry>(std::to_string(i), "value"));
    second.Flush();
    t.storage->Commit();
    second.Put(std::make_unique<Entry>("more", "unflushed"));
    const auto iterator = second.MakeIterator();
    iterator->Next();
    second.Destroy();
    EXPECT_EQ(failureOf([&] { iterator->Next(); }), "QFLT invalid btree!");
    t.storage->Commit();
    t.storage->Commit();
    EXPECT_EQ(t.storage->TotalSpace() - t.storage->FreeSpace(), usedBefore);
    EXPECT_EQ(failureOf([&] { second.Flush(); }), "QFLT invalid btree!");
    EXPECT_EQ(second.Count(), 0u);
    second.Initialize(t.storage.get(), t.storage->Allocate(), false);
    EXPECT_EQ(second.Check().violations, std::vector<std::string>()) << "made anew";
}

TEST_F(BTreeTest, OpensOnceAndOnlyAsTheStreamAllows) {
    t.Put("a", "1");
    t.FlushAndCommit();
    EXPECT_EQ(failureOf([&] { t.tree->Initialize(t.storage.get(), t.header, false); }), "QFLT invalid btree!");
    EXPECT_EQ(failureOf([&] { t.tree->Open(t.storage.get(), t.header, true, false); }), "QFLT root not null!");
    t.Open(false);
    EXPECT_EQ(failureOf([&] { t.Put("b"); }), "VSNW btree not open for writing");
    BTree writable(std::make_unique<Entry>(), IADiskBlockSize);
    EXPECT_EQ(failureOf([&] { writable.Open(t.storage.get(), t.header, true, false); }),
              "QFLT store stream not writable");
}

}  // namespace
}  // namespace brindle::testing
