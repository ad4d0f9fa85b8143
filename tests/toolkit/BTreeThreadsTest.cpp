#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/support/BTreeFixture.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolkitThreads.h"

namespace brindle::testing {
namespace {

/// Two threads read a tree while a third one changes, flushes and commits it, and one more reads a tree of its
/// own in the same storage through a clone of the stream.
TEST(BTreeThreads, ReadersAndAWriterShareATree) {
    const ToolkitThreads threads;
    const auto folder = lorvale::testing::TemporaryFolder();
    TreeInMemory t(256);
    t.Attach(std::make_unique<UFSStoreStream>((folder / "tree").c_str()));
    t.storage->Initialize();
    t.tree->Initialize(t.storage.get(), t.storage->AllocateNamedBlock("tree"), false);
    BTree own(std::make_unique<Entry>(), 256);
    const std::uint32_t ownHeader = t.storage->Allocate();
    own.Initialize(t.storage.get(), ownHeader, true);
    for (int i = 1000; i < 1300; ++i) {
        t.Put(std::to_string(i), "steady");  // these stay; the writer's keys are longer
        own.Put(std::make_unique<Entry>(std::to_string(i), "own"));
    }
    own.Flush();
    t.FlushAndCommit();

    std::atomic<bool> done = false;
    const auto reader = [&](IAOrderedStorableSet& set) {
        while (!done) {
            int steady = 0;
            for (const auto& member : MembersOf(set)) steady += member.first.size() == 4 ? 1 : 0;
            EXPECT_EQ(steady, 300);
            const Entry key("1234");
            EXPECT_NE(set.Get(&key), nullptr);
        }
    };
    std::thread first([&] { reader(*t.tree); });
    std::thread second([&] { reader(*t.tree); });
    std::thread third([&] { reader(own); });
    for (int i = 0; i < 600; ++i) {
        const std::string key = std::to_string(1000 + i % 300) + "+";
        const Entry probe(key);
        if (i < 300)
            t.Put(key, "passing");
        else
            t.tree->Remove(&probe);
        if (i % 50 == 0) t.FlushAndCommit();
    }
    done = true;
    for (std::thread* thread : {&first, &second, &third}) thread->join();
    EXPECT_EQ(t.tree->Count(), 300u);
    EXPECT_EQ(t.tree->Check().violations, std::vector<std::string>());
}

}  // namespace
}  // namespace brindle::testing
