#include "toolkit/storage/PageMemory.h"

#include <gtest/gtest.h>

#include "tests/support/BTreeFixture.h"

namespace brindle::testing {
namespace {

/// A leaf that takes that many bytes, all of one letter.
SharedPageImage LeafOf(std::size_t storeSize, char letter = 'x') {
    const std::size_t objectSize = storeSize - BTPageOverhead;
    auto image = PageImage::Make(true, typeid(Entry), {objectSize, 1});
    std::ranges::fill(image->InsertEntry(0, 0, objectSize), static_cast<std::uint8_t>(letter));
    return SharedPageImage(std::move(image));
}

class PageMemoryTest : public ::testing::Test {
protected:
    const std::shared_ptr<Bytes> bytes = std::make_shared<Bytes>();
    MemoryStoreStream stream{bytes};
    const std::size_t cost = LeafOf(100)->MemorySize();
    PageMemory memory{8 * cost};
};

TEST_F(PageMemoryTest, WritesWhenThreeQuartersOfItWait) {
    for (std::uint32_t id = 0; id < 7; ++id)
        EXPECT_EQ(memory.EnterUnwritten(id, LeafOf(100), 128 * (id + 1)), id == 6) << id;
    EXPECT_EQ(memory.UnwrittenEnd(), 8u * 128);
    EXPECT_EQ(memory.MemorySize(), 7 * cost);
    memory.WriteBack(stream);
    EXPECT_EQ(memory.UnwrittenEnd(), 0u);
    EXPECT_EQ(bytes->size(), 8u * 128);
}

TEST_F(PageMemoryTest, KeepsWhatWaitsAndForgetsWhatWasUsedLeast) {
    memory.EnterUnwritten(0, LeafOf(100), 128);
    for (std::uint32_t id = 1; id < 9; ++id) memory.EnterRead(id, LeafOf(100), memory.Changes());
    EXPECT_EQ(memory.MemorySize(), 8 * cost) << "one had to leave";
    EXPECT_TRUE(memory.Find(0));
    EXPECT_FALSE(memory.Find(1));
    EXPECT_TRUE(memory.Find(3));
    memory.EnterRead(9, LeafOf(100), memory.Changes());
    EXPECT_FALSE(memory.Find(2));
    memory.EnterRead(10, LeafOf(100), memory.Changes());
    EXPECT_TRUE(memory.Find(3)) << "used since the hand came by";
    EXPECT_FALSE(memory.Find(4));
}

TEST_F(PageMemoryTest, KnowsWhatWaits) {
    EXPECT_FALSE(memory.Find(0)) << "empty";
    memory.EnterUnwritten(5, LeafOf(100), 128);
    EXPECT_FALSE(memory.Find(6)) << "one behind the last";
    memory.Release(5);
    EXPECT_TRUE(memory.Find(5)) << "it is nowhere else";
    EXPECT_TRUE(memory.IsUnwritten(5));
    memory.WriteBack(stream, 5);
    EXPECT_FALSE(memory.IsUnwritten(5));
    EXPECT_EQ(memory.UnwrittenEnd(), 0u);
    memory.Release(5);
    EXPECT_FALSE(memory.Find(5));

    const std::uint64_t before = memory.Changes();
    memory.Forget(7);
    memory.EnterRead(5, LeafOf(100), before);
    EXPECT_FALSE(memory.Find(5)) << "something changed while it was read";

    memory.EnterRead(4, LeafOf(100), memory.Changes());
    const std::uint64_t beforeWriting = memory.Changes();
    memory.EnterUnwritten(4, LeafOf(100), 128);
    memory.EnterRead(4, LeafOf(100), beforeWriting);
    EXPECT_EQ(memory.UnwrittenEnd(), 256u) << "known before, and not replaced by what it was then";
}

TEST_F(PageMemoryTest, WritesWholeBuffersNeighboursJoinedTheRestZero) {
    *bytes = Bytes(16'384, 0xFF);
    memory.EnterUnwritten(1, LeafOf(4097, 'b'), 8192);  // of a block of 8192: two buffers
    memory.EnterUnwritten(2, LeafOf(40, 'a'), 128);
    memory.EnterUnwritten(3, LeafOf(64, 'c'), 192);
    memory.WriteBack(stream);
    const std::pair<std::size_t, int> rows[] = {{127, 0xFF},        {128 + 39, 'a'},  {128 + 40, 0},
                                                {191, 0},           {192 + 63, 'c'},  {256, 0xFF},
                                                {8192 + 4096, 'b'}, {8192 + 4097, 0}, {8192 + 8191, 0}};
    for (const auto& [place, byte] : rows) EXPECT_EQ((*bytes)[place], byte) << place;
}

}  // namespace
}  // namespace brindle::testing
