// A crash at any write leaves the last commit, in full; and the memory that waits is bounded.
#include <gtest/gtest.h>
#include <malloc.h>

#include "tests/support/FaultyDisk.h"
#include "tests/support/IndexHistory.h"

namespace brindle::testing {
namespace {

/// Every document that is there is there in full, and nothing else is.
template <class Index>
void ExpectWhole(InMemory<Index>& t, std::uint32_t least, std::uint32_t most) {
    EXPECT_EQ(VerifyIndex(*t.index).violations, std::vector<std::string>());
    EXPECT_EQ(VerifyStorage(*t.storage->GetStoreStream()).violations, std::vector<std::string>());
    EXPECT_GE(t.index->GetDocCount(), least);
    EXPECT_LE(t.index->GetDocCount(), most);
    EXPECT_EQ(t.CountOf("all"), t.index->GetDocCount());
}

template <class Index>
class IndexCrashes : public ::testing::Test {};
using Indexes = ::testing::Types<InvertedIndex, VectorIndex, InVecIndex>;
TYPED_TEST_SUITE(IndexCrashes, Indexes);

TYPED_TEST(IndexCrashes, TheDiskDiesAtAnyWrite) {
    Texts texts;
    for (int i = 0; i < 400; ++i) texts["d" + std::to_string(1000 + i)] = "all w" + std::to_string(i % 50);
    InMemory<TypeParam> before(texts);
    before.Make();
    for (int i = 0; i < 200; ++i) before.Add("d" + std::to_string(1000 + i));
    before.FlushAndCommit();

    std::mt19937 random(1);
    bool done = false;
    for (std::uint64_t allowed = 0; !done; allowed += 1 + allowed / 12) {
        const auto disk = std::make_shared<FaultyDisk>(*before.bytes);
        disk->dieAtWrite = allowed;
        InMemory<TypeParam> t(texts);
        std::uint32_t committed = 200;
        try {
            t.Attach(std::make_unique<FaultyStoreStream>(disk));
            t.storage->Open(true);
            t.index->Open();
            for (int i = 200; i < 300; ++i) t.Add("d" + std::to_string(1000 + i));
            t.FlushAndCommit();
            committed = 300;
            for (int i = 0; i < 40; ++i) t.Delete("d" + std::to_string(1000 + i * 3));
            t.index->Compact();
            t.FlushAndCommit();
            committed = 260;
            t.storage->Compact();
            t.storage->Commit();
            done = true;
        } catch (const DiskDied&) {
        }
        InMemory<TypeParam> left(texts, std::make_shared<Bytes>(disk->AfterCrash(random)));
        left.Open();
        SCOPED_TRACE(allowed);
        ExpectWhole(left, committed == 200 ? 200 : 260, committed == 260 ? 260 : 300);
        left.Add("d1399");
        left.FlushAndCommit();
        ExpectWhole(left, 1, 400);
        if (::testing::Test::HasFailure()) return;
    }
}

TEST(IndexCrash, WaitingPostingsStayWithinTheirBudget) {
    Texts texts;
    std::mt19937 random(7);
    for (int i = 0; i < 3000; ++i) {
        std::string& text = texts["d" + std::to_string(i)];
        for (int word = 0; word < 60; ++word) text += "w" + std::to_string(random() % 4000) + " ";
    }
    IAPageMemory = 0;
    IndexInMemory t(texts);
    t.Make();
    t.index->SetBytesForUpdate(200'000);
    const std::size_t before = mallinfo2().uordblks;  // a sanitizer's allocator tells nothing
    std::size_t most = before;
    for (const auto& [name, text] : texts) {
        t.Add(name);
        most = std::max<std::size_t>(most, mallinfo2().uordblks);
    }
    IAPageMemory = std::size_t{32} << 20;
    EXPECT_LT(most - before, 800'000u);
}

}  // namespace
}  // namespace brindle::testing
