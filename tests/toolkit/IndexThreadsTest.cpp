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

/// An index in a file that grows while other threads work with it.
template <class Index>
class BusyIndex {
public:
    /// All documents begin with the same words.
    BusyIndex(int count, const std::string& words) : documents(count) {
        for (int i = 0; i < documents; ++i)
            texts[NameOf(i)] = words + " w" + std::to_string(i % 7) + " v" + std::to_string(i % 5) + " own" +
                               std::to_string(i);
        t.Attach(std::make_unique<UFSStoreStream>((folder / "index").c_str()));
        t.storage->Initialize();
        t.index->Initialize();
        t.index->SetBytesForUpdate(15'000);
    }
    /// Some threads add all documents, this one commits all the while and deletes a few, and the others run
    /// until `done`.
    void Grow(int adders, unsigned deletions, const std::vector<std::function<void()>>& others) {
        std::vector<std::thread> adding, working;
        for (const auto& other : others) working.emplace_back(other);
        for (int i = 0; i < adders; ++i)
            adding.emplace_back([this] {
                for (int next = added++; next < documents; next = added++) t.Add(NameOf(next));
            });
        unsigned deleted = 0;
        while (added < documents) {
            t.FlushAndCommit();
            const auto doc = t.index->GetDocIterator()->GetNextDoc();
            if (doc == nullptr || deleted == deletions) continue;
            t.index->DeleteDoc(doc.get());
            ++deleted;
        }
        for (auto& thread : adding) thread.join();
        t.FlushAndCommit();
        done = true;
        for (auto& thread : working) thread.join();
        EXPECT_EQ(t.index->GetDocCount(), static_cast<unsigned>(documents) - deleted);
        EXPECT_EQ(t.ListOf("all").documentCount, t.index->GetDocCount());
        EXPECT_EQ(VerifyIndex(*t.index).violations, std::vector<std::string>());
    }

private:
    static std::string NameOf(int number) { return "d" + std::to_string(1000 + number); }

    const ToolkitThreads threads;
    const lorvale::testing::TemporaryFolder folder;
    const int documents;
    std::atomic<int> added = 0;
    Texts texts;

public:
    InMemory<Index> t{texts};
    std::atomic<bool> done = false;
};

template <class Index>
void ReadWhileItGrows() {
    BusyIndex<Index> busy(1200, "all all");
    const auto read = [&] {
        const IATerm term("all");
        while (!busy.done) {
            const auto info = busy.t.index->GetTermInfo(&term);
            if (info == nullptr) continue;
            std::uint32_t last = 0;
            const auto stream = busy.t.index->GetFreqPostings(info.get());
            for (FreqPosting posting; stream->Next(&posting); last = posting.docID) {
                EXPECT_GT(posting.docID, last);
                EXPECT_EQ(posting.freq, 2u);
            }
            if constexpr (std::is_base_of_v<VectorIndex, Index>) {
                // A vector is that of its document, and may be gone a moment later.
                for (VectorStream documents(*busy.t.index); documents.Next();)
                    EXPECT_EQ(documents.Components().size(), 4u);
                VectorAccessor accessor(busy.t.index.get());
                accessor.InitializeAnew();
                accessor.RankedSearch("all w3", {}, 5);
            }
        }
    };
    busy.Grow(3, 50, {read, read});
}

TEST(IndexThreads, AddersAndReadersShareAnIndex) {
    ReadWhileItGrows<InvertedIndex>();
    ReadWhileItGrows<InVecIndex>();
}

/// Each searcher has an accessor of its own that it stores, reads again and brings up to date.
TEST(AccessorThreads, SearchersShareAGrowingIndex) {
    BusyIndex<InvertedIndex> busy(600, "all");
    auto& t = busy.t;
    const auto search = [&](const char* block) {
        const std::uint32_t root = t.storage->GetNamedBlock(block);
        for (bool stored = false, last = false; !last;) {
            last = busy.done;
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
            const auto hits = accessor.RankedSearch("all w3 v4", {}, 20, 2);
            for (const auto& hit : hits) EXPECT_FALSE(hit->GetMatchingTerms().empty());
            accessor.RankedSearchBoolean("all & (w1 | w2) ! v4", 20);
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
    busy.Grow(2, 20, {[&] { search("one"); }, [&] { search("two"); }});
}

}  // namespace
}  // namespace brindle::testing
