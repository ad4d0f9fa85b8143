#include "lorvale/toolkit/retrieval/router.h"

#include <gtest/gtest.h>

#include <cmath>

#include "lorvale/toolkit/corpus.h"
#include "tests/support/FailureText.h"
#include "tests/support/IndexFixture.h"
#include "tests/support/StoredForm.h"
#include "tests/support/TestSupport.h"

namespace brindle::testing {
namespace {

/// Documents by name.
class NamedDocs : public IACluster {
public:
    explicit NamedDocs(std::vector<std::string> docs) : names(std::move(docs)) {}
    std::unique_ptr<IADoc> GetNextDoc() override {
        return next < names.size() ? std::make_unique<StringDoc>(names[next++]) : nullptr;
    }
    void Reset() override { next = 0; }

private:
    const std::vector<std::string> names;
    std::size_t next = 0;
};

class RouterTest : public ::testing::Test {
protected:
    RouterTest() { t.Make(); }
    bool Train(IARouter& router) {
        IACluster* const clusters[] = {&sea, &bread};
        return router.InitializeClusters(clusters);
    }

    const Texts texts = {{"s1", "ferry sea wind"},   {"s2", "ferry sails sea"},
                         {"s3", "storm wind sea"},   {"b1", "bread oven salt"},
                         {"b2", "salt flour bread"}, {"both", "sea salt"},
                         {"new", "flour oven"},      {"wind", "wind"},
                         {"alien", "tax"},           {"empty", ""}};
    InMemory<VectorIndex> t{texts};
    NamedDocs sea{{"s1", "s2", "s3", "both"}}, bread{{"b1", "b2", "both", "empty"}};
};

TEST_F(RouterTest, DocumentsGoWhereTheirExamplesAre) {
    IARouter router(t.index.get());
    EXPECT_EQ(router.WhichCluster(std::make_unique<StringDoc>("s1").get(), false), -1);
    EXPECT_EQ(t.index->GetDocCount(), 0u);
    EXPECT_FALSE(Train(router));
    EXPECT_EQ(failureOf([&] { Train(router); }), "QFLT Can't reset # of clusters in SetClusterCount");
    EXPECT_EQ(failureOf([] { IARouter(nullptr).InitializeClusters({}); }),
              "QFLT Can't reset # of clusters in SetClusterCount");
    const std::uint32_t count = t.index->GetDocCount();
    EXPECT_EQ(count, 7u) << "one example is in both";
    const std::pair<const char*, std::int32_t> rows[] = {{"s1", 0},   {"b2", 1},    {"new", 1},
                                                         {"wind", 0}, {"alien", 0}, {"empty", 0}};
    for (const auto& [name, cluster] : rows) {
        const StringDoc doc{name};
        EXPECT_EQ(router.WhichCluster(&doc, false), cluster) << name;
        EXPECT_EQ(t.index->GetDocCount(), count) << "it leaves no trace";
    }
    EXPECT_EQ(router.LastSimilarity(), 0.0f);
    // Added, its vector turns the centroid: a word that was new is known there from now on.
    const StringDoc fresh("new"), wind("wind");
    const TWVector before = router.GetClusterVector(1);
    EXPECT_EQ(router.WhichCluster(&fresh, true), 1);
    EXPECT_EQ(t.index->GetDocCount(), count + 1);
    EXPECT_GT(router.WhichCluster(&fresh, false), 0);
    EXPECT_GT(router.LastSimilarity(), 0.7f);
    EXPECT_NEAR(router.GetClusterVector(1).Similarity(router.GetClusterVector(1)), 1, 1e-6);
    EXPECT_NE(router.GetClusterVector(1).GetComponents(), before.GetComponents());
    EXPECT_EQ(VerifyIndex((t.index->Flush(), *t.index)).violations, std::vector<std::string>());
}

TEST_F(RouterTest, CentroidIsTheSumStepByStep) {
    IARouter router(t.index.get());
    Train(router);
    VectorAccessor accessor(t.index.get());
    accessor.Initialize();
    std::map<std::uint32_t, double> sum;
    for (const char* const name : {"s1", "s2", "s3", "both"}) {
        const StringDoc doc{name};
        const auto vector = accessor.GetTWVector(&doc);
        for (const auto& [id, weight] : vector->GetComponents()) sum[id] += double{weight};
        double squares = 0;
        for (const auto& [id, weight] : sum) squares += weight * weight;
        for (auto& [id, weight] : sum) weight /= std::sqrt(squares);
    }
    const auto& found = router.GetClusterVector(0).GetComponents();
    ASSERT_EQ(found.size(), sum.size());
    for (const auto& [id, weight] : found) EXPECT_NEAR(weight, sum[id], 1e-6);
}

TEST_F(RouterTest, IsStoredWithItsIndex) {
    IARouter router(t.index.get());
    EXPECT_EQ(failureOf([&] { router.Store(); }), "VRNI router not initialized");
    router.Restore();
    EXPECT_EQ(router.GetClusterCount(), 0u) << "nothing is stored yet";
    const Texts few = {{"a", "one"}, {"b", "two"}};
    InMemory<VectorIndex> small(few);
    small.Make();
    NamedDocs a{{"a"}}, b{{"b"}};
    IACluster* const clusters[] = {&a, &b};
    IARouter tiny(small.index.get());
    tiny.InitializeClusters(clusters);
    tiny.Store();
    EXPECT_EQ(tiny.StoreSize(), 16u);
    EXPECT_EQ(hexOf(readBlock(*small.storage, small.storage->TOC_Get(IADefaultRouterName), 16)),
              "0000000201013f80000001023f800000");
    small.FlushAndCommit();
    small.Open();
    IARouter again(small.index.get());
    again.Restore();
    EXPECT_EQ(again.GetClusterCount(), 2u);
    EXPECT_EQ(again.WhichCluster(std::make_unique<StringDoc>("b").get(), false), 1);
    EXPECT_EQ(failureOf([&] { again.Restore(); }), "VRAI router already initialized");
}

TEST_F(RouterTest, CancellingLeavesNoClusters) {
    for (int allowed = 0;; ++allowed) {
        int reports = 0;
        IARouter router(t.index.get(), [&](float percent) {
            EXPECT_LE(percent, 100);
            return percent < 100 && ++reports > allowed;
        });
        const bool cancelled = Train(router);
        EXPECT_EQ(router.GetClusterCount(), cancelled ? 0u : 2u);
        if (!cancelled) break;
        ASSERT_LT(allowed, 10);
    }
}

TEST(UFSClusters, SortFilesByFolders) {
    const lorvale::testing::TemporaryFolder folder;
    std::filesystem::create_directories(folder / "sea/far");
    std::filesystem::create_directories(folder / "land");
    lorvale::testing::writeFile(folder / "sea/one", "ferry and wind");
    lorvale::testing::writeFile(folder / "sea/far/two", "storm and ferry");
    lorvale::testing::writeFile(folder / "land/three", "bread and salt");
    lorvale::testing::writeFile(folder / "four", "a storm of wind");
    const auto storage = IAMakeStorage(std::make_unique<RAMStoreStream>());
    storage->Initialize();
    VectorIndex index(storage.get(), std::make_unique<UFSCorpus>(), std::make_unique<SimpleAnalysis>());
    index.Initialize();
    UFSCluster land(&index, (folder / "land").string()), sea(&index, (folder / "sea").string());
    EXPECT_EQ(sea.GetCorpus(), index.GetCorpus());
    IACluster* const clusters[] = {&land, &sea};
    IARouter router(&index);
    EXPECT_FALSE(router.InitializeClusters(clusters));
    EXPECT_EQ(index.GetDocCount(), 3u);
    const UFSDoc four((folder / "four").string());
    EXPECT_EQ(router.WhichCluster(&four, false), 1);
    EXPECT_EQ(IACluster().GetNextDoc(), nullptr);
    EXPECT_EQ(failureOf([&] { UFSCluster(&index, "/nowhere"); }), "VCUE error getting stat info");
}

}  // namespace
}  // namespace brindle::testing
