// What is alike: searching by vectors and by examples, sorting by example, and abstracts.  On the bodies of the
// flat mailbox that LORVALE_MAILBOX names.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bench/toolkit/MailSample.h"
#include "lorvale/toolkit.h"
#include "toolkit/index/VectorStream.h"

namespace {

using namespace brindle;

constexpr int kClusters = 20, kExamples = 20;

std::string resource(const char* name) {
    return std::string(LORVALE_SOURCE_DIR "/resources/") + name;
}

std::unique_ptr<IAAnalysis> english() {
    return std::make_unique<EnglishAnalysis>(resource("EnglishStopwords").c_str(),
                                             resource("EnglishSubstitutions").c_str());
}

StringDoc documentAt(std::size_t number) {
    return StringDoc(std::to_string(number % sample().texts.size()));
}

/// An index of lists and vectors over all of the sample, in memory, and the accessors of its three kinds.
struct Indexed {
    Indexed()
        : storage(IAMakeStorage(std::make_unique<RAMStoreStream>())),
          index(storage.get(), std::make_unique<SampleCorpus>(), english()) {
        storage->Initialize();
        index.Initialize();
        for (std::size_t i = 0; i < sample().texts.size(); ++i)
            index.AddDoc(std::make_unique<StringDoc>(documentAt(i)));
        index.Flush();
        storage->Commit();
        vectors = std::make_unique<VectorAccessor>(&index);
        vectors->InitializeAnew();
        lists = std::make_unique<InvertedAccessor>(&index);
        lists->InitializeAnew();
        both = std::make_unique<InVecAccessor>(&index);
        both->InitializeAnew();
        for (std::size_t i = 0; i < sample().texts.size(); ++i) {
            const auto doc = documentAt(i);
            const auto vector = index.GetTFVector(&doc);
            components += vector->GetDocumentLength();
            bytes += vector->ComponentsSize() + VInt32Size(vector->GetDocumentLength());
        }
    }
    std::unique_ptr<IAStorage> storage;
    InVecIndex index;
    std::unique_ptr<VectorAccessor> vectors;
    std::unique_ptr<InvertedAccessor> lists;
    std::unique_ptr<InVecAccessor> both;
    std::size_t components = 0, bytes = 0;  // of the stored vectors
};

Indexed& indexed() {
    static Indexed all;
    return all;
}

bool isReady(benchmark::State& state) {
    if (sample().texts.empty()) state.SkipWithError("LORVALE_MAILBOX names no mailbox");
    return !sample().texts.empty();
}

/// One pass over all vectors, whatever the query.
void BM_VectorSearch(benchmark::State& state) {
    if (!isReady(state)) return;
    const auto& queries = sample().queries[state.range(0)];
    Indexed& all = indexed();
    std::size_t asked = 0, found = 0;
    for (auto _ : state) found += all.vectors->RankedSearch(queries[asked++ % queries.size()], {}, 100).size();
    if (found == 0) state.SkipWithError("nothing found");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(all.bytes));
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(all.components));
}
BENCHMARK(BM_VectorSearch)->DenseRange(1, 3)->Unit(benchmark::kMillisecond);

/// The bound: all documents listed, their vectors read and decoded, and nothing else.
void BM_ReadVectors(benchmark::State& state) {
    if (!isReady(state)) return;
    Indexed& all = indexed();
    for (auto _ : state) {
        std::size_t components = 0;
        for (VectorStream documents(all.index); documents.Next();) components += documents.Components().size();
        if (components != all.components) state.SkipWithError("another number of components");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(all.bytes));
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(all.components));
}
BENCHMARK(BM_ReadVectors)->Unit(benchmark::kMillisecond);

enum class By { listsAndText, listsAndExample, vectorOfExample };

/// Messages like one message: its text as the query of a search in lists, the message as an example there, and
/// its stored vector.
template <By by>
void BM_Alike(benchmark::State& state) {
    if (!isReady(state)) return;
    Indexed& all = indexed();
    std::size_t asked = 0, found = 0;
    for (auto _ : state) {
        const std::size_t number = asked++ * 37 % sample().texts.size();
        const StringDoc doc = documentAt(number);
        const RankedQueryDoc example{&doc, &all.index};
        if (by == By::listsAndText)
            found += all.lists->RankedSearch(sample().texts[number], {}, 100).size();
        else if (by == By::listsAndExample)
            found += all.lists->RankedSearch(std::string_view(), {&example, 1}, 100).size();
        else
            found += all.both->RankedSearch(std::string_view(), {&example, 1}, 100).size();
    }
    if (found == 0) state.SkipWithError("nothing found");
}
BENCHMARK_TEMPLATE(BM_Alike, By::listsAndText)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Alike, By::listsAndExample)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Alike, By::vectorOfExample)->Unit(benchmark::kMicrosecond);

/// Documents of given numbers.
class SampleCluster : public IACluster {
public:
    SampleCluster(const IAIndex* index, std::size_t firstNumber)
        : IACluster(index), first(firstNumber), next(firstNumber) {}
    std::unique_ptr<IADoc> GetNextDoc() override {
        return next < first + kExamples ? std::make_unique<StringDoc>(documentAt(next++)) : nullptr;
    }
    void Reset() override { next = first; }

private:
    const std::size_t first;
    std::size_t next;
};

/// Of messages that are in the index.
void BM_Route(benchmark::State& state) {
    if (!isReady(state)) return;
    Indexed& all = indexed();
    std::vector<std::unique_ptr<SampleCluster>> made;
    std::vector<IACluster*> clusters;
    for (std::size_t i = 0; i < kClusters; ++i) {
        made.push_back(std::make_unique<SampleCluster>(&all.index, i * kExamples));
        clusters.push_back(made.back().get());
    }
    IARouter router(&all.index);
    router.InitializeClusters(clusters);
    std::size_t sorted = 0;
    for (auto _ : state) {
        const StringDoc doc = documentAt(kClusters * kExamples + sorted++);
        if (router.WhichCluster(&doc, false) < 0) state.SkipWithError("no cluster");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Route)->Unit(benchmark::kMicrosecond);

/// Of a text of 20 kB.
void BM_Abstract(benchmark::State& state) {
    if (!isReady(state)) return;
    std::string text;
    for (std::size_t i = 0; text.size() < 20'000; ++i) text += sample().texts[i];
    text.resize(20'000);
    const auto analysis = english();
    std::size_t told = 0;
    for (auto _ : state) {
        std::string copy = text;
        IAANSISentenceParser parser(copy, resource("EnglishAbbreviations").c_str());
        const auto storage = IAMakeStorage(std::make_unique<RAMStoreStream>());
        IADocumentAbstractor abstractor(storage.get(), analysis.get(), &parser);
        abstractor.Summarize();
        told += BestExtents(abstractor, 3).size();
    }
    if (told == 0) state.SkipWithError("nothing to tell");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(BM_Abstract)->Unit(benchmark::kMillisecond);

}  // namespace
