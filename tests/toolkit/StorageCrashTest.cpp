// The promise of the storage: whatever happens, reopening shows the last commit in full, and work goes on.
#include <gtest/gtest.h>

#include "tests/support/FaultyDisk.h"
#include "tests/support/KilledProcess.h"
#include "tests/toolkit/StorageHistory.h"

namespace brindle {
namespace {

using testing::Bytes;
using testing::differenceFrom;
using testing::FaultyDisk;
using testing::FaultyStoreStream;
using testing::KilledProcess;
using testing::StorageHistory;
using testing::StorageModel;

std::unique_ptr<IAStorage> storageOn(const std::shared_ptr<FaultyDisk>& disk) {
    return IAMakeStorage(std::make_unique<FaultyStoreStream>(disk));
}

std::string firstViolation(IAStoreStream& stream) {
    const auto report = VerifyStorage(stream);
    return report.Sound() ? "" : report.violations.front();
}

/// Opens what is left, finds one of the states that it may show, checks every rule, and works on with it.
void expectOneOf(const std::vector<StorageModel>& states, std::size_t from,
                 const std::shared_ptr<FaultyDisk>& disk) {
    const auto storage = storageOn(disk);
    storage->Open(true);
    ASSERT_EQ(firstViolation(*storage->GetStoreStream()), "");
    std::string differences;
    for (std::size_t i = from; i < states.size(); ++i) {
        const std::string difference = differenceFrom(states[i], *storage);
        if (!difference.empty()) {
            differences += difference + "; ";
            continue;
        }
        StorageHistory afterwards(*storage, states[i], 99);
        for (int step = 0; step < 8; ++step) afterwards.step();
        afterwards.commit();
        EXPECT_EQ(differenceFrom(afterwards.current, *storage), "") << "when work went on";
        EXPECT_EQ(firstViolation(*storage->GetStoreStream()), "") << "when work went on";
        return;
    }
    FAIL() << "none of " << states.size() - from << " states: " << differences;
}

Bytes emptyStorage() {
    const auto disk = std::make_shared<FaultyDisk>();
    storageOn(disk)->Initialize();
    return *disk->seen;
}

TEST(StorageCrash, TheDiskDiesAtAnyWrite) {
    const Bytes start = emptyStorage();
    for (unsigned seed = 0; seed < 1000; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const bool machine = random() % 3 != 0;  // else only the process dies, which needs no sync
        IASyncOnCommit = machine;
        const auto disk = std::make_shared<FaultyDisk>(start);
        disk->dieAtWrite = random() % (seed % 2 == 0 ? 30 : 300);
        const auto storage = storageOn(disk);
        storage->Open(true);
        StorageHistory history(*storage, {}, seed);
        try {
            for (int step = 0; step < 150; ++step) history.step();
        } catch (const testing::DiskDied&) {
        }
        IASyncOnCommit = true;
        const Bytes left = machine ? disk->AfterCrash(random) : *disk->seen;
        expectOneOf(history.states, history.committed, std::make_shared<FaultyDisk>(left));
        if (HasFailure()) return;
    }
}

/// Every kind of operation meets a full disk, the program goes on with the same storage, and the machine may
/// crash at any time: a commit that failed half-way must leave both states whole.
TEST(StorageCrash, TheDiskIsFullForAWhile) {
    const Bytes start = emptyStorage();
    for (unsigned seed = 0; seed < 500; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const auto disk = std::make_shared<FaultyDisk>(start);
        disk->failAtWrite = 1 + random() % 60;
        disk->failures = 1 + random() % 20;
        const auto storage = storageOn(disk);
        storage->Open(true);
        StorageHistory history(*storage, {}, seed);
        for (int step = 0; step < 80; ++step) {
            try {
                history.step();
            } catch (const IAException& failure) {
                ASSERT_EQ(failure.GetCode(), StoreFull) << failure.What();
            }
            if (step % 10 == 9)
                expectOneOf(history.states, history.committed,
                            std::make_shared<FaultyDisk>(disk->AfterCrash(random)));
            if (HasFailure()) return;
        }
        disk->failures = 0;
        history.commit();
        ASSERT_EQ(differenceFrom(history.current, *storage), "");
        expectOneOf(history.states, history.committed, std::make_shared<FaultyDisk>(*disk->seen));
        if (HasFailure()) return;
    }
}

TEST(StorageCrash, AProcessIsKilledAtAnyWrite) {
    KilledProcess process;
    constexpr int kSteps = 40;
    for (unsigned seed = 0; seed < 60; ++seed) {
        SCOPED_TRACE(seed);
        MakeFileStorage(process.Path().c_str())->Initialize();
        // The same life on a disk that does not fail tells what the states were.
        const auto disk = std::make_shared<FaultyDisk>(emptyStorage());
        const auto twin = storageOn(disk);
        twin->Open(true);
        StorageHistory reference(*twin, {}, seed);
        for (int step = 0; step < kSteps; ++step) reference.step();

        process.Run(static_cast<int>(seed * 7 % 110), [&](auto stream, auto& progress) {
            IASyncOnCommit = false;
            const auto storage = IAMakeStorage(std::move(stream));
            storage->Open(true);
            StorageHistory history(*storage, {}, seed);
            for (int step = 0; step < kSteps; ++step) {
                progress = history.committed;
                history.step();
            }
        });
        expectOneOf(reference.states, process.Progress(), std::make_shared<FaultyDisk>(process.File()));
        if (HasFailure()) return;
    }
}

TEST(StorageCrash, ACommitSyncsBeforeAndAfterTheSwitch) {
    const auto disk = std::make_shared<FaultyDisk>(emptyStorage());
    const auto storage = storageOn(disk);
    storage->Open(true);
    storage->Commit();
    EXPECT_EQ(disk->syncs, 2u);
    IASyncOnCommit = false;
    storage->Commit();
    IASyncOnCommit = true;
    EXPECT_EQ(disk->syncs, 2u);
}

}  // namespace
}  // namespace brindle
