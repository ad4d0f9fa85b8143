#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/support/StoredForm.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolkitThreads.h"

namespace brindle {
namespace {

/// Two threads read, one through the storage's stream and one through a clone, while a third writes and
/// commits.
TEST(StorageThreads, ReadWhileOneWrites) {
    const testing::ToolkitThreads threads;
    const lorvale::testing::TemporaryFolder folder;
    const auto storage = MakeFileStorage((folder / "store").c_str());
    storage->Initialize();
    IASyncOnCommit = false;
    std::vector<std::uint32_t> fixed;
    for (std::uint32_t i = 0; i < 50; ++i) {
        fixed.push_back(storage->Allocate());
        testing::writeBlock(*storage, fixed.back(), std::string(100 + i * 100, static_cast<char>('A' + i)));
    }
    storage->Commit();
    const auto clone = storage->GetStoreStream()->Clone();
    std::atomic<bool> done = false;
    std::atomic<int> wrong = 0;
    const auto readAll = [&](IAStoreStream* stream) {
        while (!done)
            for (std::uint32_t i = 0; i < fixed.size(); ++i) {
                IAInputBlock block(storage.get(), fixed[i], stream);
                for (std::uint32_t n = 0; n < 100 + i * 100; ++n) wrong += block.ReadByte() != 'A' + i;
            }
    };
    std::thread first(readAll, nullptr);
    std::thread second(readAll, clone.get());
    for (int round = 0; round < 60; ++round) {
        const auto id = storage->GetNamedBlock("changing");
        testing::writeBlock(*storage, id, std::string(static_cast<std::size_t>(round) * 97, 'w'));
        if (round % 3 == 0) storage->Commit();
        if (round % 5 == 0) storage->RemoveNamedBlock("changing");
    }
    done = true;
    first.join();
    second.join();
    IASyncOnCommit = true;
    EXPECT_EQ(wrong, 0);
    EXPECT_TRUE(VerifyStorage(*clone).Sound());
}

}  // namespace
}  // namespace brindle
