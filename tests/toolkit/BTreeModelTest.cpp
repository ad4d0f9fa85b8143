#include <gmock/gmock.h>

#include <random>

#include "tests/support/BTreeFixture.h"
#include "toolkit/storage/PageMemory.h"

namespace brindle::testing {
namespace {

using ::testing::_;
using ::testing::IsEmpty;

/// What an iterator will give, from the model: the next key was settled when the last one was given.
class ModelIterator {
public:
    ModelIterator(const Model& model, const std::string& from) { SettleFrom(model.lower_bound(from), model); }
    std::optional<std::pair<std::string, std::string>> Next(const Model& model) {
        if (!next.has_value()) return std::nullopt;
        const auto found = model.lower_bound(*next);
        next.reset();
        if (found == model.end()) return std::nullopt;
        SettleFrom(std::next(found), model);
        return *found;
    }

private:
    void SettleFrom(Model::const_iterator at, const Model& model) {
        if (at != model.end()) next = at->first;
    }
    std::optional<std::string> next;
};

struct Shape {
    const char* name;
    std::uint32_t pageSize;
    std::uint32_t longestKey;
    int keys;  // how many different ones
    int steps;
};
void PrintTo(const Shape& shape, std::ostream* out) {
    *out << shape.name;
}

/// A tree driven at random beside an ordered map.
class Driver {
public:
    Driver(const Shape& treeShape, unsigned seed) : shape(treeShape), random(seed), t(treeShape.pageSize) {
        t.Make();
        t.storage->Commit();
    }

    void Step() {
        const std::uint32_t dice = Below(20);
        if (dice == 0) return Reopen();
        if (dice == 1) return t.tree->Purge();
        if (dice == 2) return t.tree->Flush();
        if (dice == 3) return MakeIterator();
        if (dice < 8) return MoveIterators();
        if (dice < 10) return Look();
        return growing || (dice >= 15 && Below(3) == 0) ? Put() : Remove();
    }
    void CheckAll() {
        ASSERT_THAT(t.tree->Check().violations, IsEmpty());
        ASSERT_EQ(t.tree->Count(), model.size());
        ASSERT_EQ(MembersOf(*t.tree), MembersOf(model));
    }
    void Turn() { growing = !growing; }
    TreeInMemory& Tree() { return t; }

private:
    std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); }

    std::string RandomKey() {
        const std::uint32_t number = Below(static_cast<std::uint32_t>(shape.keys));
        // The number settles the length too, so that a key comes again.
        return std::to_string(number) +
               std::string(number * 7919 % shape.longestKey, static_cast<char>('a' + number % 26));
    }
    std::string RandomValue(const std::string& key) {
        const std::uint32_t most = MaxEntrySizeFor(shape.pageSize) - BTEntryOverhead;
        const std::uint32_t keyTakes = Entry(key).StoreSize() + 1;
        const std::uint32_t room = most > keyTakes ? most - keyTakes : 0;
        const std::uint32_t dice = Below(4);
        if (dice == 0) return std::string(room, 'L');  // the largest allowed, or one less
        if (dice == 1) return std::string(Below(room + 1), 'm');
        return std::string(std::min(room, Below(8)), 's');
    }
    void Put() {
        const std::string key = RandomKey();
        const std::string value = RandomValue(key);
        ASSERT_EQ(t.Put(key, value), model.contains(key));
        model[key] = value;
    }
    void Remove() {
        const Entry key(RandomKey());
        ASSERT_EQ(t.tree->Remove(&key), model.erase(key.key) == 1);
    }
    void Look() {
        const Entry key(RandomKey());
        const auto found = t.tree->Get(&key);
        const auto expected = model.find(key.key);
        ASSERT_EQ(found != nullptr, expected != model.end());
        if (found != nullptr) {
            ASSERT_EQ(static_cast<Entry&>(*found).value, expected->second);
        }
        const float estimate = t.tree->PositionEstimate(&key);
        ASSERT_TRUE(estimate > 0 && estimate < 1);
    }
    void MakeIterator() {
        const Entry from(RandomKey());
        if (iterators.size() >= 4) iterators.erase(iterators.begin());
        if (Below(3) == 0)
            iterators.emplace_back(t.tree->MakeIterator(), ModelIterator(model, ""));
        else
            iterators.emplace_back(t.tree->MakeIterator(&from), ModelIterator(model, from.key));
    }
    void MoveIterators() {
        for (auto& [real, expected] : iterators) {
            for (std::uint32_t i = Below(9); i > 0; --i) {
                const auto next = real->Next();
                const auto inModel = expected.Next(model);
                ASSERT_EQ(next != nullptr, inModel.has_value());
                if (next == nullptr) break;
                ASSERT_EQ(static_cast<Entry&>(*next).key, inModel->first);
                ASSERT_EQ(static_cast<Entry&>(*next).value, inModel->second);
            }
        }
    }
    /// Mostly after a commit; else back to the last one.
    void Reopen() {
        iterators.clear();
        if (Below(4) != 0) {
            t.FlushAndCommit();
            committed = model;
        }
        t.Open();
        model = committed;
        ASSERT_THAT(VerifyBTree(*t.storage, t.header, Entry()).violations, IsEmpty());
    }

    const Shape shape;
    std::mt19937 random;
    TreeInMemory t;
    Model model;
    Model committed;
    bool growing = true;
    std::vector<std::pair<std::unique_ptr<IAOrderedStorableIterator>, ModelIterator>> iterators;
};

#ifdef NDEBUG
constexpr int kCheckEvery = 50;
#else
constexpr int kCheckEvery = 1;
#endif

class BTreeModel : public ::testing::TestWithParam<Shape> {};

TEST_P(BTreeModel, AgreesWithAnOrderedMap) {
    for (const unsigned seed : {1u, 2u}) {
        SCOPED_TRACE(seed);
        Driver driver(GetParam(), seed);
        for (int step = 0; step < GetParam().steps; ++step) {
            if (step % 400 == 300) driver.Turn();
            driver.Step();
            if (step % kCheckEvery == 0) driver.CheckAll();
            if (::testing::Test::HasFatalFailure()) FAIL() << "at step " << step;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Shapes, BTreeModel,
                         ::testing::Values(Shape{"SmallestPages", 40, 4, 150, 1000},
                                           Shape{"SmallPages", 64, 12, 200, 1000},
                                           Shape{"MiddlePages", 300, 60, 200, 1000},
                                           Shape{"UsualPages", 4096, 1500, 300, 1000}),
                         [](const auto& shape) { return shape.param.name; });

/// What a storage remembers of pages, and when it writes them, must not show in any file.  What stands in free
/// space may differ.
TEST(PageMemory, LeavesNoTraceInTheFile) {
    const Shape shape{"", 128, 12, 400, 0};
    const auto storeWith = [&shape](std::size_t memory) {
        const std::size_t before = IAPageMemory.exchange(memory);
        Driver driver(shape, 5);
        for (int step = 0; step < 3000; ++step) {
            if (step % 400 == 300) driver.Turn();
            driver.Step();
            const PageMemory* const pages = PageMemory::Of(*driver.Tree().storage);
            EXPECT_EQ(pages != nullptr, memory > 0);
            if (pages != nullptr) {
                EXPECT_LE(pages->MemorySize(), memory) << "whether or not it was time for a commit";
            }
        }
        driver.Tree().FlushAndCommit();
        IAPageMemory = before;
        return LiveBytes(*driver.Tree().storage, *driver.Tree().bytes);
    };
    const Bytes without = storeWith(0);
    EXPECT_TRUE(storeWith(std::size_t{1} << 20) == without);
    EXPECT_TRUE(storeWith(3000) == without) << "with the memory of a few pages";
}

/// Somebody else's writing to a page's block, and its going, are seen at once.
TEST(PageMemory, FollowsTheBlocks) {
    TreeInMemory t(64);
    t.Make();
    t.Put("a", "1");
    t.FlushAndCommit();
    BTree other(std::make_unique<Entry>(), 64);
    other.Open(t.storage.get(), t.header, true, false);
    other.Put(std::make_unique<Entry>("a", "2"));
    other.Flush();
    BTree reader(std::make_unique<Entry>(), 64);
    reader.Open(t.storage.get(), t.header, false, false);
    EXPECT_EQ(MembersOf(reader).front().second, "2");
    const Entry prototype;
    t.storage->Compact();
    const PageBlocks blocks(*t.storage, nullptr, prototype);
    EXPECT_EQ(blocks.Read(2).Count(), 1u);
    t.storage->Deallocate(2);
    EXPECT_THROW(blocks.Read(2), IAException);
}

/// What one tree has left there is no way round the checks of another, of other objects or of smaller pages.
TEST(PageMemory, ChecksWhatItRemembers) {
    class Byte : public Entry {
    public:
        std::uint32_t StoredSize(std::span<const std::uint8_t>) const override { return 1; }
    };
    const std::string tooLong(40, 'v');  // for a page of 64, though the page as a whole is not too large
    const std::vector<std::pair<const char*, std::string>> histories[] = {
        {{"a", tooLong}}, {{"a", ""}, {"a", tooLong}}, {{"a", tooLong}, {"b", ""}}};
    for (const auto& history : histories) {
        TreeInMemory t;
        t.Make();
        for (const auto& [key, value] : history) t.Put(key, value);
        t.tree->Flush();
        const Entry prototype;
        EXPECT_THROW(PageBlocks(*t.storage, nullptr, prototype, 64).Read(2), IAException);
        t.Put("c");
        t.tree->Flush();
        const Byte bytes;
        EXPECT_EQ(PageBlocks(*t.storage, nullptr, bytes).Read(2).Image().Object(0).size(), 1u);
    }
    const auto leafOf = [](std::size_t objectSize) {
        auto image = PageImage::Make(true, typeid(Entry), {99, 9});
        image->InsertEntry(0, 0, objectSize);
        return image;
    };
    const auto small = leafOf(3), large = leafOf(30);
    small->InsertEntries(1, *large, 0, 1);
    EXPECT_EQ(small->LargestObject(), 30u);
}

/// A page that waits for the commit is there for whoever reads its block, and what was flushed stays so when
/// the tree goes on and is given up.
TEST(PageMemory, ShowsWhatWasFlushed) {
    TreeInMemory t;
    t.Make();
    t.storage->Commit();
    const std::uint32_t before = t.storage->TotalSpace();
    for (const char* key : {"a", "b"}) t.Put(key, std::string(1500, 'v'));
    t.tree->Flush();
    EXPECT_EQ(t.bytes->size(), before) << "else this test has lost its point";
    EXPECT_EQ(t.storage->TotalSpace(), 3 * 4096u) << "as if it were written";
    {
        IAInputBlock block(t.storage.get(), 2);
        EXPECT_EQ(block.ReadUInt32(), 0u);
        EXPECT_EQ(block.ReadUInt32(), 2u) << "a leaf with two entries";
    }
    EXPECT_EQ(t.bytes->size(), 3 * 4096u);
    t.Put("a", "flushed");
    t.tree->Flush();
    t.Put("c", "lost");
    t.tree.reset();
    t.storage->Commit();
    t.Open();
    EXPECT_THAT(MembersOf(*t.tree),
                ::testing::ElementsAre(::testing::Pair("a", "flushed"), ::testing::Pair("b", _)));
}

}  // namespace
}  // namespace brindle::testing
