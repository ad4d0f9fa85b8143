#include "toolkit/storage/PageCache.h"

#include <gtest/gtest.h>

#include "tests/support/BTreeFixture.h"
#include "tests/support/FailureText.h"
#include "tests/support/FaultyDisk.h"

namespace brindle::testing {
namespace {

/// Ten leaves of one entry each, written to blocks; a cache of four pages for them.
class PageCacheTest : public ::testing::Test {
protected:
    static constexpr std::uint32_t kNow = 7, kLater = 8;

    PageCacheTest() {
        for (int i = 0; i < 10; ++i) {
            ids.push_back(storage->Allocate());
            Page leaf = NewLeaf(ids.back());
            blocks.Write(leaf);
        }
    }
    Page NewLeaf(std::uint32_t id) {
        Page leaf(id, true, &prototype);
        leaf.InsertEntry(0, 0, Entry("key" + std::to_string(id)));
        return leaf;
    }
    PageCache NewCache() { return {blocks, 64, 4}; }

    const std::unique_ptr<IAStorage> storage = [] {
        auto made = IAMakeStorage(std::make_unique<MemoryStoreStream>(std::make_shared<Bytes>()));
        made->Initialize();
        return made;
    }();
    const Entry prototype;
    const PageBlocks blocks{*storage, nullptr, prototype, 64};
    std::vector<std::uint32_t> ids;
};

TEST_F(PageCacheTest, LeastRecentlyUsedPageLeavesFirstAndIsWrittenIfDirty) {
    PageCache cache = NewCache();
    for (std::size_t i = 0; i < 4; ++i) cache.Get(ids[i], kNow, false);
    cache.Peek(ids[1])->InsertEntry(0, 0, Entry("added"));
    cache.Get(ids[0], kNow, false);  // a hit is a use too
    cache.Get(ids[4], kNow, false);
    EXPECT_EQ(cache.Peek(ids[1]), nullptr);
    EXPECT_NE(cache.Peek(ids[0]), nullptr);
    EXPECT_EQ(cache.Get(ids[1], kNow, false)->Count(), 2u);
    cache.Peek(ids[1])->RemoveEntry(0);
    cache.Delete(ids[1]);
    EXPECT_EQ(cache.Get(ids[1], kNow, false)->Count(), 2u) << "deleting a page writes nothing";
}

TEST_F(PageCacheTest, LockedPagesStayAndMakeRoom) {
    PageCache cache = NewCache();
    cache.Get(ids[0], kNow, true);
    cache.Get(ids[0], kNow, true);
    EXPECT_EQ(cache.MaxCount(), 6u);
    for (std::size_t i = 1; i < 10; ++i) cache.Get(ids[i], kNow, false);
    EXPECT_NE(cache.Peek(ids[0]), nullptr);
    EXPECT_EQ(cache.Count(), 6u);

    cache.Unlock(ids[0], kNow, true);
    EXPECT_NE(cache.Peek(ids[0]), nullptr) << "one lock is left";
    cache.Unlock(ids[0], kNow, true);
    EXPECT_EQ(cache.Peek(ids[0]), nullptr);
    EXPECT_EQ(cache.MaxCount(), 4u);
}

TEST_F(PageCacheTest, LocksOfAnotherTimeDoNotHold) {
    PageCache cache = NewCache();
    cache.Get(ids[0], kNow, true);
    cache.Get(ids[1], kNow, true);
    cache.Get(ids[1], kLater, true);  // takes the place of the old lock
    EXPECT_EQ(cache.MaxCount(), 6u);
    for (std::size_t i = 2; i < 8; ++i) cache.Get(ids[i], kLater, false);
    EXPECT_EQ(cache.Peek(ids[0]), nullptr);
    EXPECT_NE(cache.Peek(ids[1]), nullptr);
    EXPECT_EQ(cache.MaxCount(), 5u);
    cache.Purge();
    EXPECT_EQ(cache.MaxCount(), 4u);
}

TEST_F(PageCacheTest, RefusesWhatItDoesNotHold) {
    PageCache cache = NewCache();
    cache.Get(ids[0], kNow, false);
    EXPECT_THROW(cache.Unlock(ids[1], kNow, false), IAException);
    EXPECT_THROW(cache.Unlock(ids[0], kNow, false), IAException) << "it is not locked";
    EXPECT_THROW(cache.Remove(ids[1]), IAException);
    EXPECT_THROW(cache.Put(NewLeaf(ids[0]), kNow, false), IAException);
}

TEST_F(PageCacheTest, PageThatNobodyCouldReadIsNotWritten) {
    PageCache cache = NewCache();
    cache.Put(Page(ids[0], true, &prototype), kNow, false);
    EXPECT_EQ(failureOf([&] { cache.WriteDirtyPages(); }), "QFLT page cache entry size invalid");
    cache.Peek(ids[0])->InsertEntry(0, 0, Entry("key", std::string(60, 'v')));
    EXPECT_EQ(failureOf([&] { cache.Purge(); }), "QFLT page cache entry size invalid");
}

/// What a write that failed has left in the stream's buffer goes down first, when the disk is well again.
TEST(PageBlocks, ReadWhatAFailedWriteLeft) {
    const std::size_t usual = IAPageMemory.exchange(0);
    const auto disk = std::make_shared<FaultyDisk>();
    const auto storage = IAMakeStorage(std::make_unique<FaultyStoreStream>(disk));
    IAPageMemory = usual;
    storage->Initialize();
    const Entry prototype;
    const PageBlocks blocks(*storage, nullptr, prototype);
    const auto write = [&, id = storage->Allocate()](const char* key) {
        Page leaf(id, true, &prototype);
        leaf.InsertEntry(0, 0, Entry(key));
        const std::string failure = failureOf([&] { blocks.Write(leaf); });
        return failure + Entry::KeyOf(blocks.Read(id).CopyObject(0).get());
    };
    EXPECT_EQ(write("a"), "a");
    disk->failAtWrite = disk->writes + 1;
    disk->failures = 1;
    EXPECT_EQ(write("b"), "VSFu unable to extend store is fullb");
}

}  // namespace
}  // namespace brindle::testing
