#include "lorvale/toolkit/retrieval/abstractor.h"

#include <gtest/gtest.h>

#include "lorvale/toolkit/storage.h"
#include "tests/support/IndexFixture.h"

namespace brindle::testing {
namespace {

/// A text cut into sentences, and what an abstractor makes of it.
struct Abstract {
    explicit Abstract(std::string ofText, const Progress::Function& fn = nullptr,
                      TermIndex* background = nullptr)
        : text(std::move(ofText)) {
        abstractor.Summarize(fn, 0, background);
    }
    std::vector<std::string> Best(std::uint32_t most) const {
        std::vector<std::string> sentences;
        for (const auto* const extent : BestExtents(abstractor, most)) sentences.push_back(extent->GetExtent());
        return sentences;
    }

    std::string text;
    std::unique_ptr<IAStorage> storage = IAMakeStorage(std::make_unique<RAMStoreStream>());
    IAANSISentenceParser parser{text};
    IADocumentAbstractor abstractor{storage.get(), nullptr, &parser};
};

constexpr const char* kText =
    "The ferry sails at noon. Of it. Tickets for the ferry are sold at noon in the harbour. "
    "Bring bread! The harbour has a ferry and sells tickets at noon.";

TEST(Abstractor, FindsWhatIsMostLikeTheWhole) {
    const Abstract abstract(kText);
    const auto extents = abstract.abstractor.GetExtents();
    ASSERT_EQ(extents.size(), 5u);
    EXPECT_EQ(extents[1], nullptr) << "no word of three letters";
    std::set<std::uint32_t> ranks;
    for (std::size_t i = 0; i < extents.size(); ++i) {
        if (extents[i] == nullptr) continue;
        EXPECT_EQ(extents[i]->GetExtentNumber(), i + 1);
        ASSERT_NE(extents[i]->GetRankedHit(), nullptr);
        ranks.insert(extents[i]->GetRank());
        for (const auto& other : extents) {
            if (other == nullptr || other->GetRank() > extents[i]->GetRank()) continue;
            EXPECT_GE(other->GetRankedHit()->GetScore(), extents[i]->GetRankedHit()->GetScore());
        }
    }
    EXPECT_EQ(ranks, (std::set<std::uint32_t>{0, 1, 2, 3}));
    EXPECT_EQ(extents[3]->GetRank(), 3u) << "it shares nothing with the others";
    EXPECT_EQ(abstract.Best(1), abstract.Best(1));
    EXPECT_EQ(abstract.Best(2).size(), 2u);
    EXPECT_EQ(abstract.Best(2)[1], "The harbour has a ferry and sells tickets at noon.");
    EXPECT_LE(extents[2]->GetRankedHit()->GetMatchingTerms().size(), 8u);
    EXPECT_TRUE(Abstract("").abstractor.GetExtents().empty());
    EXPECT_EQ(Abstract("one long text without an end").abstractor.GetNumberOfExtents(), 1u);
}

TEST(Abstractor, TellsHowFarItIsAndStopsWhenTold) {
    std::vector<float> told;
    Abstract abstract(kText, [&](float percent) { return told.push_back(percent), false; });
    EXPECT_EQ(told.size(), 5u);
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
    EXPECT_EQ(told.back(), 100.0f);
    for (std::size_t allowed = 0; allowed < 5; ++allowed) {
        std::size_t reports = 0;
        Abstract cancelled(kText, [&](float) { return ++reports > allowed; });
        EXPECT_TRUE(cancelled.abstractor.GetExtents().empty()) << allowed;
        EXPECT_EQ(reports, allowed + 1);
    }
}

TEST(Abstractor, BackgroundSaysWhatIsRare) {
    // Beside a collection full of ferries a sentence with one is no more about ferries than about its bread.
    const std::string text = "Ferry bread. Ferry sails. Ferry sells sails and tickets.";
    Texts texts;
    for (int i = 0; i < 100; ++i) texts["d" + std::to_string(i)] = "ferry sails number" + std::to_string(i);
    IndexInMemory background(texts);
    background.MakeWithAll();
    const Abstract alone(text), beside(text, nullptr, background.index.get());
    const auto scoreOf = [](const Abstract& abstract, std::size_t i) {
        return abstract.abstractor.GetExtents()[i]->GetRankedHit()->GetScore();
    };
    EXPECT_LT(scoreOf(beside, 0) / scoreOf(beside, 1), scoreOf(alone, 0) / scoreOf(alone, 1));
}

TEST(Abstractor, AThousandSentencesGetARank) {
    std::string text;
    for (int i = 0; i < 1100; ++i)
        text += "Word " + std::string(3 + static_cast<std::size_t>(i) / 100, 'x') + " here.  ";
    const Abstract abstract(text);
    const auto extents = abstract.abstractor.GetExtents();
    EXPECT_EQ(extents.size(), 1100u);
    EXPECT_EQ(std::count(extents.begin(), extents.end(), nullptr), 100);
}

}  // namespace
}  // namespace brindle::testing
