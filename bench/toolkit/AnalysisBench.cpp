// From bytes to terms, in MB of text a second.  LORVALE_MAILBOX names a flat mailbox whose bodies are read;
// without it the text is made up, so that its figures compare with themselves only.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "bench/toolkit/MailboxBodies.h"
#include "lorvale/search/unicode_analysis.h"
#include "lorvale/toolkit/analysis.h"
#include "lorvale/toolkit/corpus.h"

namespace {

using namespace brindle;
using Texts = std::vector<std::string>;

Texts madeUp() {
    const std::string_view syllables[] = {"re",  "con", "mail", "box", "tion", "ing",
                                          "the", "of",  "ed",   "ly",  "ment", "s"};
    std::minstd_rand random(1);
    Texts texts(2000);
    for (std::string& text : texts) {
        for (int word = 0; word < 600; ++word) {
            for (auto left = 1 + random() % 3; left != 0; --left)
                text += syllables[random() % std::size(syllables)];
            text += random() % 12 == 0 ? ".\n" : " ";
        }
    }
    return texts;
}

const Texts& sample() {
    static const Texts texts = [] {
        const char* const mailbox = std::getenv("LORVALE_MAILBOX");
        return mailbox != nullptr ? bodiesOf(mailbox) : madeUp();
    }();
    return texts;
}

std::string resource(const char* name) {
    return std::string(LORVALE_SOURCE_DIR "/resources/") + name;
}

/// All terms of the sample, as an index takes them.
void analyse(benchmark::State& state, const IAAnalysis& analysis) {
    std::size_t terms = 0, bytes = 0, first = 0;
    for (auto _ : state) {
        terms = bytes = 0;
        for (const std::string& text : sample()) {
            const auto stream = analysis.MakeTokenStream(std::make_unique<StringDocText>(text));
            for (IATermView term; stream->NextTerm(term);) {
                benchmark::DoNotOptimize(term.text);
                ++terms;
            }
            bytes += text.size();
        }
        if (first == 0) first = terms;
        if (terms != first || terms == 0) state.SkipWithError("another number of terms");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(terms));
}

void BM_Simple(benchmark::State& state) {
    analyse(state, SimpleAnalysis());
}
BENCHMARK(BM_Simple)->Unit(benchmark::kMillisecond);

void BM_OneByte(benchmark::State& state) {
    analyse(state, OneByteAnalysis());
}
BENCHMARK(BM_OneByte)->Unit(benchmark::kMillisecond);

void BM_EnglishWithoutLists(benchmark::State& state) {
    analyse(state, EnglishAnalysis());
}
BENCHMARK(BM_EnglishWithoutLists)->Unit(benchmark::kMillisecond);

void BM_English(benchmark::State& state) {
    analyse(state,
            EnglishAnalysis(resource("EnglishStopwords").c_str(), resource("EnglishSubstitutions").c_str()));
}
BENCHMARK(BM_English)->Unit(benchmark::kMillisecond);

void BM_Unicode(benchmark::State& state) {
    analyse(state, lorvale::UnicodeAnalysis(resource("EnglishStopwords").c_str(),
                                            resource("EnglishSubstitutions").c_str()));
}
BENCHMARK(BM_Unicode)->Unit(benchmark::kMillisecond);

/// One object a token, as a caller gets them who keeps some.
void BM_EnglishTokens(benchmark::State& state) {
    const EnglishAnalysis analysis(resource("EnglishStopwords").c_str(),
                                   resource("EnglishSubstitutions").c_str());
    std::size_t bytes = 0;
    for (auto _ : state) {
        bytes = 0;
        for (const std::string& text : sample()) {
            const auto stream = analysis.MakeTokenStream(std::make_unique<StringDocText>(text));
            while (stream->GetNextToken() != nullptr) continue;
            bytes += text.size();
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}
BENCHMARK(BM_EnglishTokens)->Unit(benchmark::kMillisecond);

}  // namespace
