// The promise of the ordered set: the same changes always give the same file.
#include <gtest/gtest.h>

#include <random>

#include "base/text/Crc32.h"
#include "tests/support/BTreeFixture.h"

namespace brindle::testing {
namespace {

/// A life of a tree: mixed sizes at random and in either order, growing and shrinking, with objects that get
/// longer, shorter and stay as they are.
class History {
public:
    History(TreeInMemory& tree, std::uint32_t treePageSize)
        : t(tree), most(LongestValue(treePageSize)), random(treePageSize) {}

    /// The checksum of all that is committed in the end.
    std::uint32_t Run() {
        t.Make();
        constexpr std::uint32_t kKeys = 700;
        for (std::uint32_t i = 0; i < 200; ++i) PutSized(Below(kKeys), most);
        for (int round = 0; round < 3; ++round) {
            for (std::uint32_t i = 0; i < kKeys; ++i) Put(Below(kKeys), true);
            for (std::uint32_t i = 0; i < kKeys; ++i) Put(round == 0 ? i : kKeys - 1 - i, round == 1);
            for (std::uint32_t i = 0; i < kKeys; ++i) Remove(Below(kKeys));
            for (std::uint32_t i = 0; i < kKeys / 2; ++i) Remove(round == 0 ? i : kKeys - 1 - i);
        }
        for (std::uint32_t i = 0; i < kKeys / 2; ++i) Put(Below(kKeys), true);
        MembersOf(*t.tree, kKeys / 3);
        Put(1, true);
        t.FlushAndCommit();
        t.Open();
        DestroyAnother();
        for (std::uint32_t i = 0; i < 2 * kKeys; ++i) Put(Below(kKeys), i % 3 != 0);
        t.FlushAndCommit();
        const Bytes live = LiveBytes(*t.storage, *t.bytes);
        return lorvale::crc32({reinterpret_cast<const char*>(live.data()), live.size()});
    }

private:
    std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); }
    static std::uint32_t LongestValue(std::uint32_t treePageSize) {
        std::uint32_t length = 0;
        while (ObjectFits(Entry(KeyOf(0), std::string(length + 1, 'v')).StoreSize(), treePageSize)) ++length;
        return length;
    }
    /// The blocks that it gives back are taken again in an order that depends on its own.
    void DestroyAnother() {
        BTree other(std::make_unique<Entry>(), 64);
        other.Initialize(t.storage.get(), t.storage->Allocate(), false);
        for (std::uint32_t i = 0; i < 90; ++i) other.Put(std::make_unique<Entry>(KeyOf(i), "value"));
        other.Destroy();
    }
    void Put(std::uint32_t number, bool mixed) {
        const std::uint32_t dice = Below(8);
        PutSized(number, !mixed ? 5 : dice == 0 ? most : Below(dice < 3 ? most : most / 8 + 4));
    }
    void PutSized(std::uint32_t number, std::uint32_t size) {
        t.Put(KeyOf(number), std::string(size, static_cast<char>('a' + size % 26)));
        Changed();
    }
    void Remove(std::uint32_t number) {
        const Entry key(KeyOf(number));
        t.tree->Remove(&key);
        Changed();
    }
    static std::string KeyOf(std::uint32_t number) { return std::to_string(1000 + number); }
    void Changed() {
        ++changes;
        if (changes % 97 == 0) t.tree->Flush();
        if (changes % 389 == 0) t.storage->Commit();
        if (changes % 1201 == 0) t.tree->Purge();
    }

    TreeInMemory& t;
    const std::uint32_t most;
    std::mt19937 random;  // the same numbers everywhere
    std::uint32_t changes = 0;
};

TEST(BTreeShape, IsTheSameAfterTheSameChanges) {
    const struct {
        std::uint32_t pageSize;
        std::uint32_t checksum;
    } rows[] = {{128, 1342312764}, {4096, 3743301431}};
    for (const auto& row : rows) {
        for (const bool searchesStored : {false, true}) {
            TreeInMemory t(row.pageSize);
            t.searchesStored = searchesStored;
            EXPECT_EQ(History(t, row.pageSize).Run(), row.checksum) << "page size " << row.pageSize;
            EXPECT_EQ(t.tree->Check().violations, std::vector<std::string>());
        }
    }
}

}  // namespace
}  // namespace brindle::testing
