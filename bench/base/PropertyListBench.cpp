// Reading and writing large property lists, and attributes laid over long text.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "lorvale/values/attributed_text.h"
#include "lorvale/values/property_list.h"

namespace lorvale {
namespace {

/// Settings of 12 MB: letters as text or as data, or nothing but characters that need an entity, or small
/// values.
PropertyList settings(std::int64_t kind) {
    PropertyList list;
    std::string letter;
    while (letter.size() < 1'000'000) letter += "Subject: one line of a letter <anna@mail.example> & more\n";
    for (int i = 0; i < 12 && kind == 0; ++i) list.append(letter);
    for (int i = 0; i < 9 && kind == 1; ++i) list.append(Data::copyOf(letter));
    if (kind == 2) list.append(std::string(2'400'000, '&'));
    for (int i = 0; i < 150'000 && kind == 3; ++i)
        list.append(PropertyList::Dictionary{{"Number", i}, {"Name", "abc"}});
    return list;
}

void BM_WritePropertyList(benchmark::State& state) {
    const auto list = settings(state.range(0));
    std::size_t size = 0;
    for (auto _ : state) {
        size = list.xml().size();
        benchmark::DoNotOptimize(size);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}
BENCHMARK(BM_WritePropertyList)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);

void BM_ReadPropertyList(benchmark::State& state) {
    const auto list = settings(state.range(0));
    const auto file = Data(list.xml());
    for (auto _ : state)
        if (PropertyList::parse(file).value_or(PropertyList()) != list) state.SkipWithError("not the same");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(file.size()));
}
BENCHMARK(BM_ReadPropertyList)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);

enum Order : std::int64_t { firstToLast, lastToFirst, random };

void BM_LayAttributes(benchmark::State& state) {
    constexpr std::size_t kRuns = 100'000;
    std::vector<std::size_t> places(kRuns);
    std::iota(places.begin(), places.end(), std::size_t{0});
    if (state.range(0) == lastToFirst) std::ranges::reverse(places);
    if (state.range(0) == random) std::ranges::shuffle(places, std::mt19937(1));
    std::string text;
    for (std::size_t i = 0; i < kRuns; ++i) text += state.range(1) == 0 ? "abcdefghij" : "abcdefghi\u00e4";
    TextAttributes underlined;
    underlined.underline = 1;
    for (auto _ : state) {
        AttributedText attributed(text);
        for (const auto place : places) attributed.addAttributes({place * 10 + 3, 4}, underlined);
        if (attributed.runs().size() != 2 * kRuns + 1) state.SkipWithError("wrong runs");
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kRuns));
}
BENCHMARK(BM_LayAttributes)
    ->ArgsProduct({{firstToLast, lastToFirst, random}, {0, 1}})
    ->ArgNames({"order", "umlauts"})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace lorvale
