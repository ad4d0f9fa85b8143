#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/support/IndexHistory.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolkitThreads.h"

namespace brindle::testing {
namespace {

/// Three threads add documents, one deletes some and flushes, two read lists all the while.
TEST(IndexThreads, AddersAndReadersShareAnIndex) {
    const ToolkitThreads threads;
    const auto folder = lorvale::testing::TemporaryFolder();
    Texts texts;
    for (int i = 0; i < 1200; ++i)
        texts["d" + std::to_string(1000 + i)] =
            "all all w" + std::to_string(i % 7) + " own" + std::to_string(i);
    IndexInMemory t(texts);
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

}  // namespace
}  // namespace brindle::testing
