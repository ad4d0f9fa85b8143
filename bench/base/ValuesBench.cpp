// Byte and text scanning beside what the C library does over the same bytes.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>

#include "base/text/DataScanner.h"
#include "base/text/DataUtils.h"
#include "lorvale/values/date.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/text.h"

namespace lorvale {
namespace {

constexpr std::size_t kSize = 1 << 20;

/// Lines of header-like ASCII text, with `marker` in place of one letter in each line.
std::string lines(std::string_view marker = "o") {
    const std::string line = "Received: fr" + std::string(marker) +
                             "m mail.example (mail.example [10.1.2.3]) by host.example; Thu\n";
    std::string text;
    while (text.size() < kSize) text += line;
    return text;
}

void setBytes(benchmark::State& state, std::size_t size) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(size));
}

void BM_Memcpy(benchmark::State& state) {
    const auto text = lines();
    for (auto _ : state) {
        std::string copy(text);
        benchmark::DoNotOptimize(copy.data());
    }
    setBytes(state, text.size());
}
BENCHMARK(BM_Memcpy);

void BM_DecodeCStringAscii(benchmark::State& state) {
    const auto text = lines();
    for (auto _ : state)
        if (decodeCString(text).size() != text.size()) state.SkipWithError("wrong length");
    setBytes(state, text.size());
}
BENCHMARK(BM_DecodeCStringAscii);

void BM_DecodeCStringShortAscii(benchmark::State& state) {
    const auto text = lines().substr(0, 60);
    for (auto _ : state) benchmark::DoNotOptimize(decodeCString(text).size());
    setBytes(state, text.size());
}
BENCHMARK(BM_DecodeCStringShortAscii);

void BM_DecodeCStringWithHighBytes(benchmark::State& state) {
    const auto text = lines("\xF6");
    for (auto _ : state)
        if (decodeCString(text).size() <= text.size()) state.SkipWithError("wrong length");
    setBytes(state, text.size());
}
BENCHMARK(BM_DecodeCStringWithHighBytes);

void BM_DecodeLatin2(benchmark::State& state) {
    const auto text = lines("\xB1");
    for (auto _ : state)
        if (!decode(text, StringEncoding::isoLatin2)) state.SkipWithError("refused");
    setBytes(state, text.size());
}
BENCHMARK(BM_DecodeLatin2);

void BM_DecodeIso2022JP(benchmark::State& state) {
    const auto text = lines("\x1B$BF|K\\\x1B(B");
    for (auto _ : state)
        if (!decode(text, StringEncoding::iso2022JP)) state.SkipWithError("refused");
    setBytes(state, text.size());
}
BENCHMARK(BM_DecodeIso2022JP);

void BM_ValidateUtf8(benchmark::State& state) {
    const auto text = lines("ö");
    for (auto _ : state)
        if (!isValidUtf8(text)) state.SkipWithError("refused");
    setBytes(state, text.size());
}
BENCHMARK(BM_ValidateUtf8);

void BM_FoldCase(benchmark::State& state) {
    const auto text = lines(state.range(0) == 0 ? "o" : "Ö");
    for (auto _ : state)
        if (foldCase(text).size() != text.size()) state.SkipWithError("wrong length");
    setBytes(state, text.size());
}
BENCHMARK(BM_FoldCase)->ArgName("unicode")->Arg(0)->Arg(1);

void BM_CompareIgnoringCase(benchmark::State& state) {
    const auto text = lines(), other = asciiLowered(text);
    for (auto _ : state)
        if (compareIgnoringCase(text, other) != 0) state.SkipWithError("not equal");
    setBytes(state, text.size());
}
BENCHMARK(BM_CompareIgnoringCase);

void BM_MemchrLineEnds(benchmark::State& state) {
    const auto text = lines();
    for (auto _ : state) {
        std::size_t count = 0;
        const auto* const end = text.data() + text.size();
        for (const auto* at = text.data(); at < end; ++count)
            at = static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at))) + 1;
        benchmark::DoNotOptimize(count);
    }
    setBytes(state, text.size());
}
BENCHMARK(BM_MemchrLineEnds);

void BM_ScannerLines(benchmark::State& state) {
    const auto data = Data::copyOf(lines());
    for (auto _ : state) {
        DataScanner scanner(data);
        std::size_t count = 0;
        for (; scanner.scanUpToData("\n"); ++count) scanner.incrementLocation();
        benchmark::DoNotOptimize(count);
    }
    setBytes(state, data.size());
}
BENCHMARK(BM_ScannerLines);

void BM_ScannerTokens(benchmark::State& state) {
    const auto data = Data::copyOf(lines());
    const ByteSet punctuation("()<>@,;:\\\"[] \n");
    for (auto _ : state) {
        DataScanner scanner(data);
        std::size_t count = 0;
        while (scanner.nextTokenWithPunctuation(punctuation)) ++count;
        benchmark::DoNotOptimize(count);
    }
    setBytes(state, data.size());
}
BENCHMARK(BM_ScannerTokens);

void BM_SearchIgnoringCase(benchmark::State& state) {
    const auto data = Data::copyOf(lines());
    for (auto _ : state)
        if (rangeOfCString(data, "no such words", kCaseInsensitiveSearch).found()) state.SkipWithError("found");
    setBytes(state, data.size());
}
BENCHMARK(BM_SearchIgnoringCase);

void BM_ReadDate(benchmark::State& state) {
    for (auto _ : state)
        if (!Date::dateWithString("Thu, 22 Aug 2002 18:26:25 +0700", "%a, %e %b %Y %H:%M:%S %z"))
            state.SkipWithError("refused");
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ReadDate);

void BM_WriteDate(benchmark::State& state) {
    const Date date(1'030'013'183, 7200);
    for (auto _ : state) benchmark::DoNotOptimize(date.descriptionWithCalendarFormat("%a %b %e %H:%M:%S %Y"));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WriteDate);

}  // namespace
}  // namespace lorvale
