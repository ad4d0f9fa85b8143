// The storage and what it rests on.  Run from a release build; LORVALE_BENCH_DIR names the folder for the
// files, since what a sync costs depends on the device.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <vector>

#include "lorvale/toolkit/storage.h"
#include "tests/support/MemoryStoreStream.h"

namespace {

using namespace brindle;

class BenchFile {
public:
    BenchFile() {
        const char* const named = std::getenv("LORVALE_BENCH_DIR");
        const std::filesystem::path folder = named != nullptr ? named : std::filesystem::temp_directory_path();
        path = folder / ("lorvale-bench-" + std::to_string(::getpid()));
    }
    ~BenchFile() { std::filesystem::remove(path); }
    std::filesystem::path path;
};

std::unique_ptr<IAStorage> memoryStorage() {
    auto storage =
        IAMakeStorage(std::make_unique<testing::MemoryStoreStream>(std::make_shared<testing::Bytes>()));
    storage->Initialize();
    return storage;
}

/// One small block changed and committed, in a storage of that many blocks.
void BM_Commit(benchmark::State& state) {
    const BenchFile file;
    const auto storage = MakeFileStorage(file.path.c_str());
    storage->Initialize();
    IASyncOnCommit = state.range(1) != 0;
    std::uint32_t id = 0;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        id = storage->Allocate();
        IAOutputBlock(storage.get(), id, 32).WriteUInt32(id);
    }
    storage->Commit();
    for (auto _ : state) {
        IAOutputBlock(storage.get(), id, 32).WriteUInt32(id);
        storage->Commit();
    }
    IASyncOnCommit = true;
    if (!VerifyStorage(*storage->GetStoreStream()).Sound()) state.SkipWithError("not sound");
}
BENCHMARK(BM_Commit)->ArgsProduct({{10, 10'000}, {0, 1}})->ArgNames({"blocks", "sync"})->UseRealTime();

void BM_Open(benchmark::State& state) {
    const BenchFile file;
    {
        const auto storage = MakeFileStorage(file.path.c_str());
        storage->Initialize();
        for (std::int64_t i = 0; i < state.range(0); ++i)
            IAOutputBlock(storage.get(), storage->Allocate(), 32).WriteUInt32(1);
        storage->Commit();
    }
    for (auto _ : state) {
        const auto storage = MakeFileStorage(file.path.c_str());
        storage->Open(true);
        benchmark::DoNotOptimize(storage.get());
    }
}
BENCHMARK(BM_Open)->Arg(10)->Arg(100'000)->ArgName("blocks");

constexpr std::uint32_t kBlock = 65536;

enum Path { kByByte, kInBulk, kMemcpy };

void BM_WriteBlock(benchmark::State& state) {
    const auto storage = memoryStorage();
    const auto id = storage->Allocate();
    const std::vector<std::uint8_t> bytes(kBlock, 7);
    std::vector<std::uint8_t> target(kBlock);
    for (auto _ : state) {
        if (state.range(0) == kMemcpy) {
            std::memcpy(target.data(), bytes.data(), kBlock);
            benchmark::ClobberMemory();
            continue;
        }
        IAOutputBlock block(storage.get(), id, kBlock);
        if (state.range(0) == kInBulk)
            block.WriteBuffer(bytes.data(), kBlock);
        else
            for (const std::uint8_t byte : bytes) block.WriteByte(byte);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * kBlock);
}
BENCHMARK(BM_WriteBlock)->Arg(kByByte)->Arg(kInBulk)->Arg(kMemcpy)->ArgName("path");

void BM_ReadBlock(benchmark::State& state) {
    const auto storage = memoryStorage();
    const auto id = storage->Allocate();
    std::vector<std::uint8_t> bytes(kBlock, 7);
    {
        IAOutputBlock block(storage.get(), id, kBlock);
        block.WriteBuffer(bytes.data(), kBlock);
    }
    const std::vector<std::uint8_t> source(kBlock, 7);
    for (auto _ : state) {
        std::uint64_t sum = 0;
        if (state.range(0) == kMemcpy) {
            std::memcpy(bytes.data(), source.data(), kBlock);
            benchmark::ClobberMemory();
            continue;
        }
        IAInputBlock block(storage.get(), id);
        if (state.range(0) == kInBulk) {
            block.ReadBuffer(bytes.data(), kBlock);
            benchmark::ClobberMemory();
        } else {
            for (std::uint32_t i = 0; i < kBlock; ++i) sum += block.ReadByte();
            if (sum != kBlock * 7u) state.SkipWithError("wrong sum");
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * kBlock);
}
BENCHMARK(BM_ReadBlock)->Arg(kByByte)->Arg(kInBulk)->Arg(kMemcpy)->ArgName("path");

/// Numbers as posting lists have them: most are of one byte, some of two or three.
void BM_ReadVInts(benchmark::State& state) {
    const auto storage = memoryStorage();
    const auto id = storage->Allocate();
    std::mt19937 random(1);
    std::uint64_t expected = 0;
    std::uint32_t count = 0;
    {
        IAOutputBlock block(storage.get(), id, kBlock);
        for (std::uint32_t used = 0; used + 5 <= kBlock; ++count) {
            const auto value = static_cast<std::uint32_t>(random() >> (random() % 10 == 0 ? 12 : 26));
            VInt32Write(value, &block);
            used += VInt32Size(value);
            expected += value;
        }
    }
    for (auto _ : state) {
        IAInputBlock block(storage.get(), id);
        std::uint64_t sum = 0;
        for (std::uint32_t i = 0; i < count; ++i) sum += VInt32Read(&block);
        if (sum != expected) state.SkipWithError("wrong sum");
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * count);
}
BENCHMARK(BM_ReadVInts);

std::vector<std::uint32_t> shuffledKeys(std::size_t count) {
    std::vector<std::uint32_t> keys(count);
    for (std::size_t i = 0; i < count; ++i) keys[i] = static_cast<std::uint32_t>(i * 3);
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    return keys;
}

void BM_SkipListPut(benchmark::State& state) {
    const auto keys = shuffledKeys(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        UInt32Set set;
        for (const std::uint32_t key : keys) set.Put(key);
        benchmark::DoNotOptimize(set.First());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_SkipListPut)->Arg(100)->Arg(100'000);

void BM_SkipListFind(benchmark::State& state) {
    const auto keys = shuffledKeys(static_cast<std::size_t>(state.range(0)));
    UInt32Set set;
    for (const std::uint32_t key : keys) set.Put(key);
    for (auto _ : state) {
        std::uint32_t found = 0;
        for (const std::uint32_t key : keys) found += set.Member(key) && !set.Member(key + 1);
        if (found != keys.size()) state.SkipWithError("wrong members");
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0) * 2);
}
BENCHMARK(BM_SkipListFind)->Arg(100)->Arg(100'000);

/// The measure for the one above.
void BM_StdMapFind(benchmark::State& state) {
    const auto keys = shuffledKeys(static_cast<std::size_t>(state.range(0)));
    std::map<std::uint32_t, int> map;
    for (const std::uint32_t key : keys) map[key] = 0;
    for (auto _ : state) {
        std::uint32_t found = 0;
        for (const std::uint32_t key : keys) found += map.contains(key) && !map.contains(key + 1);
        if (found != keys.size()) state.SkipWithError("wrong members");
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0) * 2);
}
BENCHMARK(BM_StdMapFind)->Arg(100)->Arg(100'000);

void BM_Sort(benchmark::State& state) {
    const auto keys = shuffledKeys(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        auto copy = keys;
        IASort(copy.data(), static_cast<std::uint32_t>(copy.size()), 4, TFComponentOrder);
        if (copy.back() != (copy.size() - 1) * 3) state.SkipWithError("not sorted");
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_Sort)->Arg(100'000);

}  // namespace
