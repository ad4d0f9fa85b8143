// The promise of the ordered set: the same changes always give the same file.
#include <gtest/gtest.h>

#include "tests/support/BTreeFixture.h"

namespace brindle::testing {
namespace {

/// Numbers that are the same everywhere.
class Numbers {
public:
    explicit Numbers(std::uint32_t seed) : state(seed) {}
    std::uint32_t Below(std::uint32_t limit) {
        state = state * 1664525 + 1013904223;
        return (state >> 8) % limit;
    }

private:
    std::uint32_t state;
};

std::uint64_t DigestOf(const Bytes& bytes) {
    std::uint64_t digest = 0xCBF29CE484222325;
    for (const std::uint8_t byte : bytes) digest = (digest ^ byte) * 0x100000001B3;
    return digest;
}

/// A life of a tree: mixed sizes at random and in either order, growing and shrinking, with objects that get
/// longer, shorter and stay as they are.
class History {
public:
    History(TreeInMemory& tree, std::uint32_t treePageSize)
        : t(tree), most(LongestValue(treePageSize)), numbers(treePageSize) {}

    std::uint64_t Run() {
        t.Make();
        constexpr std::uint32_t kKeys = 700;
        for (std::uint32_t i = 0; i < 200; ++i) PutSized(numbers.Below(kKeys), most);
        for (int round = 0; round < 3; ++round) {
            for (std::uint32_t i = 0; i < kKeys; ++i) Put(numbers.Below(kKeys), true);
            for (std::uint32_t i = 0; i < kKeys; ++i) Put(round == 0 ? i : kKeys - 1 - i, round == 1);
            for (std::uint32_t i = 0; i < kKeys; ++i) Remove(numbers.Below(kKeys));
            for (std::uint32_t i = 0; i < kKeys / 2; ++i) Remove(round == 0 ? i : kKeys - 1 - i);
        }
        for (std::uint32_t i = 0; i < kKeys / 2; ++i) Put(numbers.Below(kKeys), true);
        MembersOf(*t.tree, kKeys / 3);
        Put(1, true);
        t.FlushAndCommit();
        t.Open();
        DestroyAnother();
        for (std::uint32_t i = 0; i < 2 * kKeys; ++i) Put(numbers.Below(kKeys), i % 3 != 0);
        t.FlushAndCommit();
        return DigestOf(LiveBytes(*t.storage, *t.bytes));
    }

private:
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
        const std::uint32_t dice = numbers.Below(8);
        PutSized(number, !mixed ? 5 : dice == 0 ? most : numbers.Below(dice < 3 ? most : most / 8 + 4));
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
    Numbers numbers;
    std::uint32_t changes = 0;
};

TEST(BTreeShape, IsTheSameAfterTheSameChanges) {
    const struct {
        std::uint32_t pageSize;
        std::uint64_t digest;
    } rows[] = {{128, 14650039981700239689u}, {4096, 18042040708029795484u}};
    for (const auto& row : rows) {
        for (const bool searchesStored : {false, true}) {
            TreeInMemory t(row.pageSize);
            t.searchesStored = searchesStored;
            EXPECT_EQ(History(t, row.pageSize).Run(), row.digest) << "page size " << row.pageSize;
            EXPECT_EQ(t.tree->Check().violations, std::vector<std::string>());
        }
    }
}

}  // namespace
}  // namespace brindle::testing
