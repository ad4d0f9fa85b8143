// The promise of the storage for a tree, whose pages wait in memory until they are committed: whatever happens,
// reopening shows the tree of the last commit whole.
#include <gtest/gtest.h>

#include <random>

#include "lorvale/toolkit/storage/verify.h"
#include "lorvale/toolkit/storage/verify_btree.h"
#include "tests/support/BTreeFixture.h"
#include "tests/support/FaultyDisk.h"
#include "tests/support/KilledProcess.h"

namespace brindle::testing {
namespace {

constexpr std::uint32_t kPageSize = 256;  // deep with few members

/// A random life of a tree, followed by a model.  The same seed gives the same life.
class TreeLife {
public:
    TreeLife(TreeInMemory& tree, Model start, unsigned seed)
        : current(std::move(start)), states{current}, t(tree), random(seed) {}

    void Step() {
        const auto choice = random() % 16;
        if (choice < 9) return Change();
        if (choice == 9) return t.tree->Flush();
        if (choice == 10) return t.tree->Purge();
        Commit(choice == 11);
    }
    void Commit(bool compact = false) {
        PutOne("state", std::to_string(states.size()));  // tells the states apart
        t.tree->Flush();
        states.push_back(current);
        if (compact) t.storage->Compact();  // commits only what it moves
        t.storage->Commit();
        committed = states.size() - 1;
    }

    Model current;
    std::vector<Model> states;  // all that have, or may have, been committed; the start is the first
    std::size_t committed = 0;  // the latest of them that surely was

private:
    void Change() {
        const bool growing = random() % 3 != 0;
        for (int i = 0; i < 12; ++i) {
            const std::string key = "key" + std::to_string(random() % 400);
            if (growing || random() % 4 == 0) {
                PutOne(key, std::string(random() % 60, static_cast<char>('a' + random() % 26)));
            } else {
                const Entry entry(key);
                t.tree->Remove(&entry);
                current.erase(key);
            }
        }
    }
    void PutOne(const std::string& key, const std::string& value) {
        t.Put(key, value);
        current[key] = value;
    }

    TreeInMemory& t;
    std::mt19937 random;
};

struct Case {
    const char* what;
    std::size_t pageMemory;
};
constexpr Case kCases[] = {
    {"all pages wait", std::size_t{1} << 20}, {"some are written before a commit", 9000}, {"none waits", 0}};
constexpr int kSteps = 40;

/// Sets what is global for one test.
class BTreeCrash : public ::testing::Test {
protected:
    ~BTreeCrash() override {
        IAPageMemory = usual;
        IASyncOnCommit = true;
    }

private:
    const std::size_t usual = IAPageMemory;
};

Bytes EmptyTree() {
    TreeInMemory t(kPageSize);
    t.Make();
    t.storage->Commit();
    return *t.bytes;
}

void ExpectSound(TreeInMemory& t, const Model& state) {
    ASSERT_EQ(VerifyStorage(*t.storage->GetStoreStream()).violations, std::vector<std::string>());
    ASSERT_EQ(VerifyBTree(*t.storage, t.header, Entry()).violations, std::vector<std::string>());
    ASSERT_EQ(MembersOf(*t.tree), MembersOf(state));
}

/// Opens what is left, finds one of the states that it may show, checks all of it, and works on with it.
void ExpectOneOf(const std::vector<Model>& states, std::size_t from, Bytes left) {
    TreeInMemory t(kPageSize, std::make_shared<Bytes>(std::move(left)));
    t.Open();
    const Entry key("state");
    const auto number = t.tree->Get(&key);
    const std::size_t shown = number == nullptr ? 0 : std::stoul(static_cast<Entry&>(*number).value);
    ASSERT_TRUE(shown >= from && shown < states.size())
        << "shows commit " << shown << ", not one of " << from << " to " << states.size() - 1;
    ExpectSound(t, states[shown]);
    TreeLife afterwards(t, states[shown], 99);
    for (int step = 0; step < 4; ++step) afterwards.Step();
    afterwards.Commit();
    ExpectSound(t, afterwards.current);
}

TEST_F(BTreeCrash, TheDiskDiesAtAnyWrite) {
    const Bytes start = EmptyTree();
    for (const auto& [what, pageMemory] : kCases) {
        IAPageMemory = pageMemory;
        for (unsigned seed = 0; seed < 2; ++seed) {
            bool died = true;
            // Without waiting pages there are ten times as many writes, nearly all alike.
            for (std::uint64_t allowed = 0; died; allowed += pageMemory == 0 ? 23 : 1) {
                SCOPED_TRACE(std::string(what) + ", seed " + std::to_string(seed) +
                             ", after writes: " + std::to_string(allowed));
                const auto disk = std::make_shared<FaultyDisk>(start);
                disk->dieAtWrite = allowed;
                TreeInMemory t(kPageSize);
                t.Open(std::make_unique<FaultyStoreStream>(disk));
                TreeLife life(t, {}, seed);
                died = false;
                try {
                    for (int step = 0; step < kSteps; ++step) life.Step();
                } catch (const DiskDied&) {
                    died = true;
                }
                std::mt19937 random(static_cast<unsigned>(allowed));
                ExpectOneOf(life.states, life.committed, disk->AfterCrash(random));
                ExpectOneOf(life.states, life.committed, *disk->seen);
                if (HasFailure()) return;
            }
        }
    }
}

TEST_F(BTreeCrash, AProcessIsKilledAtAnyWrite) {
    KilledProcess process;
    const Bytes start = EmptyTree();
    const std::string_view file(reinterpret_cast<const char*>(start.data()), start.size());
    TreeInMemory twin(kPageSize, std::make_shared<Bytes>(start));
    twin.Open();
    TreeLife reference(twin, {}, 5);
    for (int step = 0; step < kSteps; ++step) reference.Step();

    bool killed = true;
    for (int allowed = 0; killed; ++allowed) {
        SCOPED_TRACE(allowed);
        lorvale::testing::writeFile(process.Path(), file);
        killed = process.Run(allowed, [](auto stream, auto& progress) {
            IASyncOnCommit = false;
            TreeInMemory t(kPageSize);
            t.Open(std::move(stream));
            TreeLife life(t, {}, 5);
            for (int step = 0; step < kSteps; ++step) {
                life.Step();
                progress = life.committed;
            }
        });
        ExpectOneOf(reference.states, process.Progress(), process.File());
        if (HasFailure()) return;
    }
    EXPECT_EQ(process.Progress(), reference.committed);
}

}  // namespace
}  // namespace brindle::testing
