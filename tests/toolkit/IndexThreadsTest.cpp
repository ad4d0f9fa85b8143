#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "lorvale/toolkit/retrieval.h"
#include "tests/support/FailureText.h"
#include "tests/support/IndexHistory.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolkitThreads.h"
#include "toolkit/index/VectorStream.h"

namespace brindle::testing {
namespace {

/// A vector is that of its document, and may be gone a moment later.
void ReadVectors(VectorIndex& index) {
    for (VectorStream documents(index); documents.Next();) EXPECT_EQ(documents.Components().size(), 3u);
    VectorAccessor accessor(&index);
    accessor.InitializeAnew();
    accessor.RankedSearch("all w3", {}, 5);
}

/// Three threads add documents, one deletes some and flushes, two read lists all the while.
template <class Index>
void ShareAnIndex() {
    const ToolkitThreads threads;
    const auto folder = lorvale::testing::TemporaryFolder();
    Texts texts;
    for (int i = 0; i < 1200; ++i)
        texts["d" + std::to_string(1000 + i)] =
            "all all w" + std::to_string(i % 7) + " own" + std::to_string(i);
    InMemory<Index> t(texts);
    t.Attach(std::make_unique<UFSStoreStream>((folder / "index").c_str()));
    t.storage->Initialize();
    t.index->Initialize();
    t.index->SetBytesForUpdate(20'000);

    std::atomic<int> next = 0;
    std::atomic<bool> done = false;
    const auto add = [&] {
        for (int i = next++; i < 1200; i = next++) t.Add("d" + std::to_string(1000 + i));
    };
    const auto read = [&] {
        const IATerm term("all");
        while (!done) {
            const auto info = t.index->GetTermInfo(&term);
            if (info == nullptr) continue;
            std::uint32_t last = 0;
            const auto stream = t.index->GetFreqPostings(info.get());
            for (FreqPosting posting; stream->Next(&posting); last = posting.docID) {
                EXPECT_GT(posting.docID, last);
                EXPECT_EQ(posting.freq, 2u);
            }
            t.index->GetDocCount();
            if constexpr (std::is_base_of_v<VectorIndex, Index>) ReadVectors(*t.index);
        }
    };
    std::vector<std::thread> adders, readers;
    for (int i = 0; i < 2; ++i) readers.emplace_back(read);
    for (int i = 0; i < 3; ++i) adders.emplace_back(add);
    int deleted = 0;
    while (next < 1200) {
        t.index->Flush();
        const auto doc = t.index->GetDocIterator()->GetNextDoc();
        if (doc == nullptr || deleted == 50) continue;
        t.index->DeleteDoc(doc.get());
        ++deleted;
    }
    for (auto& thread : adders) thread.join();
    t.FlushAndCommit();
    done = true;
    for (auto& thread : readers) thread.join();
    EXPECT_EQ(t.index->GetDocCount(), 1200u - static_cast<unsigned>(deleted));
    EXPECT_EQ(t.ListOf("all").documentCount, t.index->GetDocCount());
    EXPECT_EQ(VerifyIndex(*t.index).violations, std::vector<std::string>());
}

/// Two threads search, each with an accessor of its own that it stores, reads again and brings up to date,
/// while others add documents, delete some and commit.
TEST(AccessorThreads, SearchersShareAGrowingIndex) {
    const ToolkitThreads threads;
    const auto folder = lorvale::testing::TemporaryFolder();
    Texts texts;
    for (int i = 0; i < 600; ++i)
        texts["d" + std::to_string(1000 + i)] =
            "all w" + std::to_string(i % 7) + " w" + std::to_string(i % 5) + " own" + std::to_string(i);
    IndexInMemory t(texts);
    t.Attach(std::make_unique<UFSStoreStream>((folder / "index").c_str()));
    t.storage->Initialize();
    t.index->Initialize();
    t.index->SetBytesForUpdate(10'000);

    std::atomic<int> next = 0;
    std::atomic<bool> done = false;
    const auto add = [&] {
        for (int i = next++; i < 600; i = next++) t.Add("d" + std::to_string(1000 + i));
    };
    const auto search = [&](const char* block) {
        const std::uint32_t root = t.storage->GetNamedBlock(block);
        for (bool stored = false, last = false; !last;) {
            last = done;
            InvertedAccessor accessor(t.index.get());
            if (!stored)
                accessor.StoreInitialization(t.storage.get(), root);
            else if (accessor.IsInitializationValid(t.storage.get(), root))
                EXPECT_THAT(failureOf([&] { accessor.Initialize(t.storage.get(), root); }),
                            ::testing::AnyOf("", "VAIV invalid initialization", "VAIV accessor init invalid"));
            else
                accessor.Update(t.storage.get(), root);
            stored = true;
            if (!accessor.IsInitialized()) continue;  // it changed meanwhile
            const auto hits = accessor.RankedSearch("all w3 w4", {}, 20, 2);
            for (const auto& hit : hits) EXPECT_FALSE(hit->GetMatchingTerms().empty());
            accessor.RankedSearchBoolean("all & (w1 | w2) ! w4", 20);
            if (!hits.empty()) {
                const RankedQueryDoc example{hits[0]->GetDocument(), t.index.get()};
                accessor.RankedSearch("", std::span(&example, 1), 3);
                accessor.GetDocTopic(example, 3);
            }
            accessor.Store(t.storage.get(), root);
            const auto all = accessor.RankedSearch("all", {}, 1000).size();
            EXPECT_TRUE(!last || all == t.index->GetDocCount());
        }
    };
    std::vector<std::thread> adders, searchers;
    for (const char* block : {"one", "two"}) searchers.emplace_back(search, block);
    for (int i = 0; i < 2; ++i) adders.emplace_back(add);
    for (int deleted = 0; next < 600;) {
        t.FlushAndCommit();
        const auto doc = t.index->GetDocIterator()->GetNextDoc();
        if (doc == nullptr || deleted == 20) continue;
        t.index->DeleteDoc(doc.get());
        ++deleted;
    }
    for (auto& thread : adders) thread.join();
    t.FlushAndCommit();
    done = true;
    for (auto& thread : searchers) thread.join();
    EXPECT_EQ(VerifyIndex(*t.index).violations, std::vector<std::string>());
}

TEST(IndexThreads, AddersAndReadersShareAnIndex) {
    ShareAnIndex<InvertedIndex>();
    ShareAnIndex<InVecIndex>();
}

}  // namespace
}  // namespace brindle::testing
