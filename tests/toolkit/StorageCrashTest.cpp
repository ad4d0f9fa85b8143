// The promise of the storage: whatever happens, reopening shows the last commit in full, and work goes on.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>

#include "lorvale/toolkit/storage.h"
#include "tests/support/FaultyDisk.h"
#include "tests/support/KilledProcess.h"
#include "tests/support/StoredForm.h"

namespace brindle::testing {
namespace {

/// What a storage should hold.
struct StorageModel {
    std::map<std::uint32_t, std::optional<std::string>> blocks;  // nullopt: no content one could rely on
    std::map<std::string, std::uint32_t> names;
};

constexpr const char* kNames[] = {"", "a", "b", "IADefaultIndex", "name with a space", "\xFF\xFE"};

std::string randomBytes(std::mt19937& random) {
    static constexpr std::size_t kMost[] = {1, 33, 33, 200, 200, 5000, 20'000};
    std::string bytes(random() % kMost[random() % std::size(kMost)], '\0');
    auto byte = random();
    for (char& c : bytes) c = static_cast<char>(byte += 37);
    return bytes;
}

/// The first difference between the storage and the model; empty if there is none.
std::string differenceFrom(const StorageModel& model, IAStorage& storage) {
    for (const char* name : kNames) {
        const auto found = model.names.find(name);
        const std::uint32_t id = found == model.names.end() ? 0 : found->second;
        if (storage.TOC_Get(name) != id) return std::string("the name ") + name;
    }
    try {
        for (const auto& [id, bytes] : model.blocks)
            if (bytes && readBlock(storage, id, bytes->size()) != *bytes)
                return "the bytes of block " + std::to_string(id);
    } catch (const IAException& failure) {
        return failure.What();
    }
    return "";
}

/// A random life of a storage, followed by a model.  The same seed on the same state gives the same life.
class StorageHistory {
public:
    StorageHistory(IAStorage& ofStorage, StorageModel start, unsigned seed)
        : random(seed), current(start), states{std::move(start)}, storage(ofStorage) {}

    void step() {
        const auto choice = random() % 20;
        if (choice < 12) return write();
        if (choice < 14) return name();
        if (choice == 14) return compact();
        if (choice < 18) return commit();
        const std::uint32_t id = someBlock();
        if (isNamed(id)) return;
        storage.Deallocate(id);
        current.blocks.erase(id);
    }
    void commit() {
        committing([&] { storage.Commit(); });
    }

    std::mt19937 random;
    StorageModel current;
    std::vector<StorageModel> states;  // all that have, or may have, been committed; the start is the first
    std::size_t committed = 0;         // the latest of them that surely was

private:
    void write() {
        const std::uint32_t id = someBlock();
        const std::string bytes = randomBytes(random);
        current.blocks[id] = std::nullopt;
        writeBlock(storage, id, bytes);
        current.blocks[id] = bytes;
    }
    void name() {
        const char* const name = kNames[random() % std::size(kNames)];
        if (random() % 3 == 0) {
            const auto id = current.names.contains(name) ? current.names[name] : 0;
            if (storage.RemoveNamedBlock(name) != (id != 0)) throw std::logic_error("RemoveNamedBlock");
            current.names.erase(name);
            current.blocks.erase(id);
            return;
        }
        const std::uint32_t id = storage.GetNamedBlock(name);
        if (current.names.emplace(name, id).second) current.blocks[id] = std::nullopt;
        if (current.names[name] != id) throw std::logic_error("GetNamedBlock");
    }
    /// What a failure leaves may be the last state or this one.  A block of its own tells the states apart, in
    /// which unwritten blocks look like freed ones.
    template <class Call>
    void committing(Call call) {
        const std::uint32_t id = storage.GetNamedBlock("state");
        current.names["state"] = id;
        current.blocks[id] = std::nullopt;
        const auto number = std::to_string(states.size());
        writeBlock(storage, id, number);
        current.blocks[id] = number;
        states.push_back(current);
        call();
        committed = states.size() - 1;
    }
    /// Compacting commits if it moves anything.
    void compact() {
        const std::size_t before = committed;
        committing([&] { storage.Compact(); });
        committed = before;
    }
    std::uint32_t someBlock() {
        if (current.blocks.empty() || random() % 4 == 0) {
            const std::uint32_t id = storage.Allocate();
            current.blocks[id] = std::nullopt;
            return id;
        }
        return std::next(current.blocks.begin(), static_cast<long>(random() % current.blocks.size()))->first;
    }
    bool isNamed(std::uint32_t id) const {
        return std::any_of(current.names.begin(), current.names.end(),
                           [&](const auto& it) { return it.second == id; });
    }

    IAStorage& storage;
};

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
        } catch (const DiskDied&) {
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
}  // namespace brindle::testing
