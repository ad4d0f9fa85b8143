// The ordered set beside its peers: 1,000,000 records of a 12-byte key and a 12-byte value.  The number can be
// changed by the environment variable LORVALE_BENCH_RECORDS, the memory for pages, in MiB, by
// LORVALE_BENCH_PAGES.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>
#include <optional>
#include <random>
#include <vector>

#include "bench/toolkit/OrderedStores.h"

namespace brindle::bench {
namespace {

std::size_t NumberIn(const char* variable, std::size_t otherwise) {
    const char* const wanted = std::getenv(variable);
    return wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : otherwise;
}

std::size_t Records() {
    static const std::size_t records = NumberIn("LORVALE_BENCH_RECORDS", 1'000'000);
    return records;
}

const std::size_t pageMemory = IAPageMemory = NumberIn("LORVALE_BENCH_PAGES", IAPageMemory >> 20) << 20;

Field FieldOf(std::size_t number) {
    Field field;
    field.fill('x');
    for (std::size_t i = 0; i < 8; ++i)
        field[i] = static_cast<char>("0123456789abcdef"[number >> (28 - 4 * i) & 15]);
    return field;
}

/// The numbers of the records in an order that looks like none.
const std::vector<std::size_t>& Shuffled() {
    static const std::vector<std::size_t> numbers = [] {
        std::vector<std::size_t> made(Records());
        std::iota(made.begin(), made.end(), std::size_t{0});
        std::shuffle(made.begin(), made.end(), std::mt19937_64(1));
        return made;
    }();
    return numbers;
}

std::filesystem::path EmptyFolder(const std::string& name) {
    const auto folder =
        std::filesystem::temp_directory_path() / ("lorvale-bench-" + std::to_string(::getpid())) / name;
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    return folder;
}

template <class Store>
std::size_t ScanCount(Store& store) {
    std::size_t count = 0;
    store.Scan([&count](char first) { count += first != '\0' ? 1 : 0; });
    return count;
}

template <class Store>
void FillRandom(Store& store) {
    std::size_t since = 0;
    for (const std::size_t number : Shuffled()) {
        store.Put(FieldOf(number), FieldOf(number));
        if (++since % 10'000 == 0) store.Commit();
    }
    store.Commit();
}

template <class Store>
void FillSorted(Store& store) {
    for (std::size_t number = 0; number < Records(); ++number) store.Put(FieldOf(number), FieldOf(number));
    store.Commit();
}

/// Times `fill` on an empty store; making the store, counting and taking it away are left out.
template <class Store>
void MeasureFilling(benchmark::State& state, const char* folderName, void (*fill)(Store&)) {
    for (auto _ : state) {
        state.PauseTiming();
        const auto folder = EmptyFolder(std::string(Store::kName) + folderName);
        std::optional<Store> store;
        store.emplace(folder, true);
        state.ResumeTiming();
        fill(*store);
        state.PauseTiming();
        if (ScanCount(*store) != Records()) state.SkipWithError("wrong count");
        store.reset();
        std::filesystem::remove_all(folder);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(Records()));
}

template <class Store>
void BM_InsertSorted(benchmark::State& state) {
    MeasureFilling<Store>(state, "-sorted", FillSorted<Store>);
}

template <class Store>
void BM_InsertRandom(benchmark::State& state) {
    MeasureFilling<Store>(state, "-random", FillRandom<Store>);
}

/// A store filled at random, made once for all that only read.
template <class Store>
const std::filesystem::path& FilledFolder() {
    static const std::filesystem::path folder = [] {
        const auto made = EmptyFolder(std::string(Store::kName) + "-filled");
        Store store(made, true);
        FillRandom(store);
        return made;
    }();
    return folder;
}

template <class Store>
void BM_GetRandom(benchmark::State& state) {
    Store store(FilledFolder<Store>(), false);
    if (ScanCount(store) != Records()) state.SkipWithError("wrong count");  // and warms up
    for (auto _ : state)
        for (const std::size_t number : Shuffled())
            if (store.Get(FieldOf(number)) != FieldOf(number)[0]) state.SkipWithError("wrong value");
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(Records()));
}

/// The first scan of a store that was just opened.
template <class Store>
void BM_ScanCold(benchmark::State& state) {
    FilledFolder<Store>();
    for (auto _ : state) {
        Store store(FilledFolder<Store>(), false);
        if (ScanCount(store) != Records()) state.SkipWithError("wrong count");
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(Records()));
}

template <class Store>
void BM_ScanWarm(benchmark::State& state) {
    Store store(FilledFolder<Store>(), false);
    ScanCount(store);
    for (auto _ : state)
        if (ScanCount(store) != Records()) state.SkipWithError("wrong count");
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(Records()));
}

#ifdef HAVE_LMDB
#define LORVALE_BENCH_LMDB(name) \
    BENCHMARK(name<LmdbStore>)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
#else
#define LORVALE_BENCH_LMDB(name)
#endif
#ifdef HAVE_LEVELDB
#define LORVALE_BENCH_LEVELDB(name) \
    BENCHMARK(name<LevelStore>)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
#else
#define LORVALE_BENCH_LEVELDB(name)
#endif
#define LORVALE_BENCH_ALL(name)                                                                       \
    BENCHMARK(name<OurStore>)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime(); \
    LORVALE_BENCH_LMDB(name)                                                                          \
    LORVALE_BENCH_LEVELDB(name)

LORVALE_BENCH_ALL(BM_InsertSorted)
LORVALE_BENCH_ALL(BM_InsertRandom)
LORVALE_BENCH_ALL(BM_GetRandom)
LORVALE_BENCH_ALL(BM_ScanCold)
LORVALE_BENCH_ALL(BM_ScanWarm)

/// Removes what FilledFolder() has made, at the end of the program.
const struct Cleanup {
    ~Cleanup() {
        std::filesystem::remove_all(std::filesystem::temp_directory_path() /
                                    ("lorvale-bench-" + std::to_string(::getpid())));
    }
} cleanup;

}  // namespace
}  // namespace brindle::bench
