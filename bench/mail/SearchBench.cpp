// Searches of an indexed directory mailbox through the public call, the best 100 as messages.  The mailbox is
// named by LORVALE_INDEXED and was made, for one, by
//     mailhost import MAIL box.mbox && mailhost index box.mbox
// It is only read.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/search.h"
#include "lorvale/store.h"

namespace {

using namespace lorvale;
using Clock = std::chrono::steady_clock;

constexpr auto kQueries = std::to_array<const char*>(
    {"perl",         "linux kernel", "spam filter",   "razor",          "install package",
     "mailing list", "windows",      "money",         "network driver", "sound card",
     "apache",       "python",       "java",          "license",        "government",
     "university",   "patch",        "compile error", "mp3 player",     "hard disk"});

std::shared_ptr<TarnMbox> openMailbox() {
    const char* const path = std::getenv("LORVALE_INDEXED");
    if (path == nullptr) return nullptr;
    setLogSink([](std::string_view) {});
    auto store = TarnMbox::initWithPath(path, /*readOnly=*/true);
    if (store != nullptr) IndexManager::waitUntilIdle(*store, Clock::now() + std::chrono::seconds(60));
    return store != nullptr && IndexManager::isSearchable(*store) ? store : nullptr;
}

std::size_t search(const std::shared_ptr<TarnMbox>& store, std::size_t number) {
    const auto found = IndexManager::indexManager().messagesInStore(store, kQueries[number % kQueries.size()]);
    return found ? found->size() : 0;
}

void BM_SearchOpenMailbox(benchmark::State& state) {
    const auto store = openMailbox();
    if (store == nullptr) return state.SkipWithError("LORVALE_INDEXED names no indexed mailbox");
    search(store, 0);  // which also makes the norms
    std::vector<double> times;
    std::size_t number = 0, found = 0;
    for (auto _ : state) {
        const auto start = Clock::now();
        found += search(store, number++);
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    std::ranges::sort(times);
    state.counters["median_ms"] = times[times.size() / 2];
    state.counters["hits"] = static_cast<double>(found) / static_cast<double>(number);
    state.counters["messages"] = static_cast<double>(store->totalCount());
    store->close();
}
BENCHMARK(BM_SearchOpenMailbox)->Unit(benchmark::kMillisecond);

void BM_OpenSearchAndClose(benchmark::State& state) {
    std::size_t number = 0;
    for (auto _ : state) {
        const auto store = openMailbox();
        if (store == nullptr) return state.SkipWithError("LORVALE_INDEXED names no indexed mailbox");
        benchmark::DoNotOptimize(search(store, number++));
        store->close();
    }
}
BENCHMARK(BM_OpenSearchAndClose)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
