#include <gmock/gmock.h>

#include "tests/support/BTreeFixture.h"
#include "tests/support/FailureText.h"

namespace brindle::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

std::string NumberedKey(int number) {
    std::string digits = std::to_string(number);
    return "key" + std::string(digits.size() < 2 ? 2 - digits.size() : 0, '0') + digits;
}

class BTreeTest : public ::testing::Test {
protected:
    BTreeTest() { t.Make(); }
    std::unique_ptr<Entry> Get(std::string_view key) {
        const Entry probe(key);
        return std::unique_ptr<Entry>(static_cast<Entry*>(t.tree->Get(&probe).release()));
    }
    std::string NextOf(IAOrderedStorableIterator& iterator) {
        const auto next = iterator.Next();
        return next != nullptr ? static_cast<Entry&>(*next).key : "(end)";
    }
    TreeInMemory t;
};

TEST_F(BTreeTest, EmptyTreeHasNothing) {
    const Entry key("x");
    EXPECT_EQ(Get("x"), nullptr);
    EXPECT_EQ(t.tree->MakeIterator()->Next(), nullptr);
    EXPECT_EQ(t.tree->MakeIterator(&key)->Next(), nullptr);
    EXPECT_FALSE(t.tree->Remove(&key));
    EXPECT_EQ(t.tree->PositionEstimate(&key), 0.5F);
    EXPECT_EQ(t.tree->TotalSize(), 4096u + 20u);
}

TEST_F(BTreeTest, PutOfAnEqualKeyReplacesTheMember) {
    EXPECT_FALSE(t.Put("a", "1"));
    EXPECT_TRUE(t.Put("a", "longer"));
    EXPECT_EQ(t.tree->Count(), 1u);
    EXPECT_EQ(Get("a")->value, "longer");
}

TEST_F(BTreeTest, LargestEntryIsHalfOfAPage) {
    const std::string value(2040 - 1 - 1 - 2, 'v');  // two lengths, of one and of two bytes, and the key
    ASSERT_EQ(Entry("k", value).StoreSize(), 2040u);
    EXPECT_FALSE(t.Put("k", value));
    EXPECT_EQ(failureOf([&] { t.Put("k", value + "!"); }), "VSBE Ordered Storable Set Entry Too Big");
    EXPECT_EQ(Get("k")->value, value);
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

TEST_F(BTreeTest, IteratorsGoOnWhileTheTreeChanges) {
    for (int i = 0; i < 90; ++i) t.Put(NumberedKey(i), std::string(100, 'v'));
    const auto iterator = t.tree->MakeIterator();
    EXPECT_EQ(NextOf(*iterator), "key00");
    for (int i = 0; i < 50; ++i) {  // with the key it would have returned next, and many behind it
        const Entry gone(NumberedKey(i));
        EXPECT_TRUE(t.tree->Remove(&gone));
    }
    EXPECT_EQ(NextOf(*iterator), "key50");
    t.tree->Purge();
    t.Put("key505", "");
    EXPECT_EQ(NextOf(*iterator), "key51") << "its next one was settled before";
    const Entry between("key60+");
    EXPECT_EQ(NextOf(*t.tree->MakeIterator(&between)), "key61");
    const Entry above("zzz");
    EXPECT_EQ(NextOf(*t.tree->MakeIterator(&above)), "(end)");
    for (int i = 50; i < 90; ++i) {
        const Entry gone(NumberedKey(i));
        t.tree->Remove(&gone);
    }
    EXPECT_EQ(NextOf(*iterator), "(end)");
    EXPECT_EQ(t.tree->Check().violations, std::vector<std::string>());
}

TEST_F(BTreeTest, RemovingASeparatorPutsItsPredecessorThere) {
    TreeInMemory small(64);
    small.Make();
    for (const char* key : {"a", "b", "c", "e", "f", "g", "d"}) small.Put(key, "1234567");
    small.tree->Flush();
    const auto rootOf = [&small] {
        const Entry prototype;
        const BTreeHeader header = BTreeHeader::Read(small.storage.get(), small.header, nullptr);
        const auto root = ReadPage(header.rootId, small.storage.get(), nullptr, &prototype);
        return Entry::KeyOf(&root->Object(0));
    };
    EXPECT_EQ(rootOf(), "e");
    const Entry separator("e");
    EXPECT_TRUE(small.tree->Remove(&separator));
    small.tree->Flush();
    EXPECT_EQ(rootOf(), "d") << "the pages are full enough as they are";
}

TEST_F(BTreeTest, PositionEstimateCountsRootEntries) {
    TreeInMemory small(64);
    small.Make();
    for (const char* key : {"a", "b", "c", "d", "e", "f"}) small.Put(key, "1234567");
    const Entry low("a"), at("d"), high("e");
    EXPECT_FLOAT_EQ(small.tree->PositionEstimate(&low), 0.25F);
    EXPECT_FLOAT_EQ(small.tree->PositionEstimate(&at), 0.75F);
    EXPECT_FLOAT_EQ(small.tree->PositionEstimate(&high), 0.75F);
}

TEST_F(BTreeTest, DestroyLeavesNothingInTheStorage) {
    const std::uint32_t freeBefore = [this] {
        t.FlushAndCommit();
        return t.storage->TotalSpace() - t.storage->FreeSpace();
    }();
    BTree second(std::make_unique<Entry>(), 64);
    const std::uint32_t header = t.storage->Allocate();
    second.Initialize(t.storage.get(), header, false);
    for (int i = 0; i < 99; ++i) second.Put(std::make_unique<Entry>(NumberedKey(i), "value"));
    second.Flush();
    t.storage->Commit();
    second.Put(std::make_unique<Entry>("more", "unflushed"));
    second.Destroy();
    t.storage->Commit();
    t.storage->Commit();
    EXPECT_EQ(t.storage->TotalSpace() - t.storage->FreeSpace(), freeBefore);
    EXPECT_EQ(failureOf([&] { second.Flush(); }), "QFLT invalid btree!");
}

TEST_F(BTreeTest, OpensOnceAndOnlyAsTheStreamAllows) {
    t.Put("a", "1");
    t.FlushAndCommit();
    EXPECT_EQ(failureOf([&] { t.tree->Initialize(t.storage.get(), t.header, false); }), "QFLT invalid btree!");
    EXPECT_EQ(failureOf([&] { t.tree->Open(t.storage.get(), t.header, true, false); }), "QFLT root not null!");
    t.Open(false);
    EXPECT_THAT(MembersOf(*t.tree), ElementsAre(Pair("a", "1")));
    EXPECT_EQ(failureOf([&] { t.Put("b"); }), "VSNW btree not open for writing");
    BTree writable(std::make_unique<Entry>(), IADiskBlockSize);
    EXPECT_EQ(failureOf([&] { writable.Open(t.storage.get(), t.header, true, false); }),
              "QFLT store stream not writable");
}

TEST_F(BTreeTest, ReadsThroughACloneOfTheStream) {
    for (int i = 0; i < 99; ++i) t.Put(NumberedKey(i), std::string(100, 'v'));
    t.FlushAndCommit();
    BTree reader(std::make_unique<Entry>(), 1);  // the stored page size counts
    reader.Open(t.storage.get(), t.header, false, true);
    EXPECT_EQ(MembersOf(reader).size(), 99u);
    EXPECT_EQ(reader.TotalSize(), t.tree->TotalSize());
}

}  // namespace
}  // namespace brindle::testing
