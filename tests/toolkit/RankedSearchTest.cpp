#include <gtest/gtest.h>

#include "tests/support/FailureText.h"
#include "tests/support/IndexHistory.h"
#include "tests/support/SearchFixture.h"
#include "tests/support/TestSupport.h"

namespace brindle::testing {
namespace {

/// The documents of an index as the judge wants them.
std::vector<NaiveSearch::Doc> DocsOf(IndexHistory& history) {
    history.subject.index->Flush();
    std::map<std::uint32_t, NaiveSearch::Doc> byID;
    const auto infos = history.subject.index->GetDocInfoIterator();
    while (const auto next = infos->Next()) {
        const auto& info = static_cast<const DocInfo&>(*next);
        const std::string name(static_cast<const StringDoc*>(info.GetDocument())->View());
        byID[info.GetDocID()] = {name, WordsOf(history.TextOf(name))};
    }
    std::vector<NaiveSearch::Doc> docs;
    docs.reserve(byID.size());
    for (auto& [id, doc] : byID) docs.push_back(std::move(doc));
    return docs;
}

void ExpectSame(const RankedHits& found, const NaiveSearch::Hits& expected) {
    ASSERT_EQ(found.size(), expected.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        ASSERT_EQ(NameOf(*found[i]), expected[i].first) << "at " << i;
        ASSERT_FLOAT_EQ(found[i]->GetScore(), expected[i].second) << "at " << i;
    }
}

/// An accessor that may leave documents out.
class FilteringAccessor : public InvertedAccessor {
public:
    using InvertedAccessor::InvertedAccessor;
    bool Passes(std::string_view name) const { return !filters || name.back() % 3 != 0; }
    bool IsHit(IAIndex*, const IADoc* doc) override {
        return Passes(static_cast<const StringDoc*>(doc)->View());
    }
    bool filters = false;
};

TEST(RankedSearch, AgreesWithTheJudgeAfterAnyHistory) {
    for (unsigned seed = 1; seed <= 2; ++seed) {
        SCOPED_TRACE(seed);
        IndexHistory history(seed);
        std::mt19937 random(seed);
        for (int round = 0; round < 2; ++round) {
            for (int step = 0; step < 120; ++step) history.Step();
            NaiveSearch judge;
            judge.indices = {DocsOf(history)};
            FilteringAccessor accessor(history.subject.index.get());
            judge.isHit = [&](const std::string& name) { return accessor.Passes(name); };
            accessor.Initialize();
            for (int i = 0; i < 60; ++i) {
                const Question question(random, i, i % 4 == 0 ? 150 : 4);
                SCOPED_TRACE(question.text + " for " + std::to_string(question.maxHits));
                accessor.SetRankedCoordination(judge.coordinated = i % 5 != 0);
                judge.bm25 = i % 15 == 0;
                accessor.SetWeighting(judge.bm25 ? RankedWeighting::bm25 : RankedWeighting::pivoted);
                accessor.filters = i % 8 < 4;
                ASSERT_NO_FATAL_FAILURE(ExpectSame(accessor.RankedSearch(question.text, {}, question.maxHits),
                                                   judge.Search(question.text, question.maxHits)));
            }
        }
    }
}

TEST(RankedSearch, DocumentOfTwoIndexesHoldsOnePlace) {
    IndexHistory one(11), two(12);
    std::mt19937 random(1);
    for (int step = 0; step < 300; ++step) one.Step(), two.Step();
    NaiveSearch judge;
    judge.indices = {DocsOf(one), DocsOf(two)};
    InvertedIndex* const indices[] = {one.subject.index.get(), two.subject.index.get()};
    InvertedAccessor accessor(indices);
    accessor.Initialize();
    for (int i = 0; i < 30; ++i) {
        const Question question(random, i, 5);
        SCOPED_TRACE(question.text);
        ASSERT_NO_FATAL_FAILURE(ExpectSame(accessor.RankedSearch(question.text, {}, question.maxHits),
                                           judge.Search(question.text, question.maxHits)));
    }
}

/// A query in the language of the parser, with all its parentheses, and what it means.
struct BooleanQuery {
    std::string text;
    std::function<bool(const Words&)> holds;
};
BooleanQuery RandomTree(std::mt19937& random, int depth, bool orOnly, std::vector<std::string>& nodes) {
    if (depth == 0 || random() % 4 == 0) {
        const std::string word = "w" + std::to_string(random() % 30);
        const auto known =
            std::ranges::find_if(nodes, [&](const auto& node) { return word.starts_with(node); });
        const std::string meant = known != nodes.end() ? *known : (nodes.push_back(word), word);
        return {word, [meant](const Words& words) { return words.contains(meant); }};
    }
    // What stands under an "or" is words and "or": then every word in a document that fulfils the query counts.
    const char sign = orOnly ? '|' : "&|!"[random() % 3];
    const BooleanQuery a = RandomTree(random, depth - 1, sign == '|', nodes);
    const BooleanQuery b = RandomTree(random, depth - 1, sign == '|', nodes);
    const auto holds = [sign, left = a.holds, right = b.holds](const Words& words) {
        if (sign == '&') return left(words) && right(words);
        return sign == '|' ? left(words) || right(words) : left(words) && !right(words);
    };
    return {"(" + a.text + sign + b.text + ")", holds};
}

TEST(BooleanSearch, AgreesWithTheJudge) {
    IndexHistory history(21);
    for (int step = 0; step < 500; ++step) history.Step();
    NaiveSearch judge;
    judge.indices = {DocsOf(history)};
    InvertedAccessor accessor(history.subject.index.get());
    accessor.Initialize();
    std::mt19937 random(2);
    for (int i = 0; i < 120; ++i) {
        std::vector<std::string> nodes;
        const BooleanQuery query = RandomTree(random, 3, false, nodes);
        const std::uint32_t maxHits = Question(random, i, 1).maxHits;
        SCOPED_TRACE(query.text);
        NaiveSearch::Query terms;
        for (const std::string& node : nodes) terms.merge(judge.QueryOf(node));
        const auto expected =
            judge.Best(maxHits, nodes.size(), [&](const NaiveSearch::Doc& doc, float& sum, int& matches) {
                for (const std::string& node : nodes) judge.AddWord(node, terms, doc, sum, matches);
                return query.holds(doc.words);
            });
        ASSERT_NO_FATAL_FAILURE(ExpectSame(accessor.RankedSearchBoolean(query.text, maxHits), expected));
    }
}

/// What every accessor promises, on an index with lists and vectors.
template <class Accessor>
class AccessorPromises : public SearchTest<InVecIndex> {};
using Accessors = ::testing::Types<InvertedAccessor, VectorAccessor, InVecAccessor>;
TYPED_TEST_SUITE(AccessorPromises, Accessors);

TYPED_TEST(AccessorPromises, HitsNameTheirTermsAndDocumentsTheirTopics) {
    TypeParam accessor(this->t.index.get());
    EXPECT_EQ(failureOf([&] { accessor.RankedSearch("all", {}, 5); }), "VANI accessor not initialized");
    EXPECT_EQ(failureOf([&] { accessor.Store(); }), "VANI accessor not initialized");
    accessor.Initialize();
    EXPECT_EQ(failureOf([&] { accessor.Initialize(); }), "VAAI accessor already initialized!");
    const auto hits = accessor.RankedSearch("all w3 own3 absent", {}, 1, 2);
    ASSERT_EQ(hits.size(), 1u);
    EXPECT_EQ(NameOf(*hits[0]), "d103");
    EXPECT_EQ(hits[0]->GetScore(), 1.0f);
    EXPECT_EQ(TermsOf(hits[0]->DeepCopy()->GetMatchingTerms()), "own3 w3 ");
    const StringDoc doc("d103");
    const RankedQueryDoc example{&doc, this->t.index.get()};
    EXPECT_EQ(TermsOf(accessor.GetDocTopic(example, 2)), "own3 w3 ");
    EXPECT_EQ(TermsOf(accessor.GetTermsRelated("own3", 2)), "w3 all ");
    EXPECT_EQ(NameOf(*accessor.RankedSearch("", std::span(&example, 1), 3)[0]), "d103");
    EXPECT_TRUE(accessor.RankedSearch("all", {}, 0).empty());
    EXPECT_TRUE(accessor.RankedSearch("absent", {}, 10).empty());
}

TYPED_TEST(AccessorPromises, CancellingAtAnyReportLeavesTheAccessorUsable) {
    TypeParam accessor(this->t.index.get());
    accessor.Initialize();
    const StringDoc doc("d103"), other("d150");
    const RankedQueryDoc examples[] = {{&doc, this->t.index.get()}, {&other, this->t.index.get()}};
    using Fn = RankedProgressFn;
    std::vector<std::function<std::size_t(const Fn&)>> operations = {
        [&](const Fn& fn) { return accessor.RankedSearch("all w3 w4", {}, 10, 2, fn, 0).size(); },
        [&](const Fn& fn) { return accessor.RankedSearch("all", examples, 10, 0, fn, 0).size(); },
        [&](const Fn& fn) { return accessor.GetDocTopic(examples[0], 2, fn, 0).size(); },
        [&](const Fn& fn) { return accessor.GetTermsRelated("own3", 2, fn, 0).size(); },
    };
    if constexpr (std::is_base_of_v<InvertedAccessor, TypeParam>)
        operations.emplace_back(
            [&](const Fn& fn) { return accessor.RankedSearchBoolean("all & (w3 | w4)", 10, fn, 0).size(); });
    int all = 0;
    for (const auto& operation : operations) {
        for (int allowed = 0;; ++allowed) {
            int reports = 0;
            const auto found = operation([&](const RankedProgress& report) {
                EXPECT_LE(report.GetPercent(), 100);
                if (report.GetPercent() < 100) ++reports;  // at the end there is nothing left to cancel
                return reports > allowed;
            });
            EXPECT_EQ(found == 0, reports > allowed);
            if (reports > allowed) continue;
            all += reports;
            // What a vector tells is there at once.
            EXPECT_GT(reports, (std::is_same_v<TypeParam, InvertedAccessor>) ? 3 : -1);
            break;
        }
    }
    EXPECT_GT(all, 20);
    EXPECT_EQ(accessor.RankedSearch("all", {}, 10).size(), 10u);
}

using AccessorTest = SearchTest<InvertedIndex>;

TEST_F(AccessorTest, TablesAreStoredReadAgainAndExtended) {
    InvertedAccessor made(t.index.get());
    EXPECT_FALSE(made.IsInitializationValid());
    made.StoreInitialization();
    t.FlushAndCommit();
    t.Open();
    {
        InvertedAccessor read(t.index.get());
        // The time is that of the last flush, which has changed unless both fell in one second.
        if (read.IsInitializationValid()) {
            read.Initialize();
            EXPECT_EQ(read.RankedSearch("all w3", {}, 300).size(), 200u);
        } else {
            EXPECT_EQ(failureOf([&] { read.Initialize(); }), "VAIV invalid initialization");
        }
    }
    Add("new", "all w3 w3");
    Add("gone", "all w3");
    Add("short", "all");
    t.Delete("gone");
    InvertedAccessor stale(t.index.get()), fresh(t.index.get()), other(t.index.get(), IATag("Else"));
    stale.Update();
    EXPECT_EQ(failureOf([&] { other.Update(); }), "VAUI invalid update operation");
    t.storage->RemoveNamedBlock(IADefaultAccessorName);
    fresh.Initialize();
    EXPECT_EQ(stale.GetDocNorms(0), fresh.GetDocNorms(0));
    EXPECT_EQ(stale.GetAverageNorm(), fresh.GetAverageNorm());
    stale.Store();
    Add("later", "all w3");
    EXPECT_EQ(fresh.RankedSearch("all", {}, 300).size(), 202u) << "not before the tables are extended";
    // A word of two terms stands for the documents of both, each of them once.
    EXPECT_EQ(fresh.RankedSearchBoolean("w3-w4", 300).size(), fresh.RankedSearch("w3 w4", {}, 300).size());
    EXPECT_EQ(failureOf([&] { fresh.RankedSearchBoolean("all &", 10); }), "VAIQ invalid query");
}

TEST(RankedSearch, TablesOfAnEmptyIndexGrow) {
    const Texts texts = {{"a", "x y"}};
    IndexInMemory t(texts);
    t.Make();
    InvertedAccessor empty(t.index.get());
    empty.StoreInitialization();
    t.Add("a");
    t.index->Flush();
    InvertedAccessor grown(t.index.get());
    grown.Update();
    EXPECT_EQ(grown.RankedSearch("x", {}, 5).size(), 1u);
    TermIndex* const indices[] = {t.index.get()};
    IARankedQuery query;
    query.SetIndices(indices);
    query.SetSimilarity(grown.GetSimilarity());
    query.SetTextQuery("x y");
    query.Initialize();
    const FreqPSQueue queue(query, *t.index, 0);  // of two heads for one document the one put last is first
    EXPECT_EQ(queue.First().entry->term->View(), "y");
}

TEST_F(AccessorTest, LongQueriesAreTrimmed) {
    InvertedAccessor accessor(t.index.get());
    const std::pair<std::uint32_t, std::uint32_t> rows[] = {
        {9, 9}, {10, 10}, {11, 10}, {20, 19}, {30, 27}, {50, 40}, {99, 49}, {100, 49}, {101, 50}, {5000, 50}};
    for (const auto& [terms, kept] : rows) EXPECT_EQ(accessor.TrimmedQuerySize(terms), kept) << terms;
    accessor.SetInvertedRankedQueryMinTerms(50);
    EXPECT_EQ(accessor.TrimmedQuerySize(50), 50u);
    for (const auto& [length, norm] : {std::pair(0u, 1), std::pair(1u, 3), std::pair(16128u, 254),
                                       std::pair(16129u, 255), std::pair(1'000'000u, 255)})
        EXPECT_EQ(InvertedAccessor::DocNormByte(length), norm) << length;
}

TEST(RankedSearch, DocumentedExampleIsWhatIsFound) {
    const Texts texts = {{"a", "mail box mail"}, {"b", "mail post"}, {"c", "post office"}};
    IndexInMemory t(texts);
    t.MakeWithAll();
    InvertedAccessor accessor(t.index.get());
    accessor.Initialize();
    std::vector<std::string> found;
    for (const auto& hit : accessor.RankedSearch("mail box", {}, 10)) {
        char score[32];
        std::snprintf(score, sizeof score, " %.4f", static_cast<double>(hit->GetScore()));
        found.push_back(NameOf(*hit) + score);
    }
    EXPECT_EQ(found, lorvale::testing::documentedLines("docs/search.md", {"```hits"}));
    // The words of a boolean query weigh what they do in a ranked one.
    IABooleanQuery query;
    ASSERT_TRUE(query.Initialize("mail & box"));
    InvertedIndex* const indices[] = {t.index.get()};
    ASSERT_TRUE(query.SetUpQuery(indices, *accessor.GetSimilarity(), nullptr, [](IARankedQuery&) {}));
    EXPECT_NEAR(query.GetNode(0).GetWeight(), 0.5565, 5e-5);
    EXPECT_NEAR(query.GetNode(1).GetWeight(), 0.8309, 5e-5);
}

/// Examples weigh as much as their texts: each is a source of its own, found by way of its index.
TEST_F(AccessorTest, ExampleDocumentsCountLikeTheirTexts) {
    Add("even", "uno due");
    Add("e1", "w3 w3 own3 all");
    Add("e2", "w4 all");
    InvertedAccessor accessor(t.index.get());
    accessor.Initialize();
    const StringDoc even("even");
    EXPECT_EQ(TermsOf(accessor.GetDocTopic({&even, t.index.get()}, 1)), "due ");  // of equals the first to come
    const StringDoc e1("e1"), e2("e2");
    const IADoc* const documents[] = {&e1, &e2};
    TFMap maps[2], moved;
    EXPECT_FALSE(t.index->GetTFMaps(documents, maps, nullptr));
    moved = std::move(maps[0]);
    ASSERT_EQ(moved.Entries().size(), 3u);
    EXPECT_EQ(moved.Entries()[2].term, "w3");
    EXPECT_EQ(moved.Entries()[2].frequency, 2u);
    EXPECT_EQ(failureOf([&] { t.index->GetTFMaps(documents, {}, nullptr); }), "QFLT not one map a document");

    const RankedQueryDoc examples[] = {{&e1, t.index.get()}, {&e2, t.index.get()}};
    const auto weightOf = [&](std::string_view text, std::span<const RankedQueryDoc> docs, const char* term) {
        IARankedQuery query;
        TermIndex* const indices[] = {t.index.get()};
        query.SetIndices(indices);
        query.SetSimilarity(accessor.GetSimilarity());
        query.SetTextQuery(text);
        query.SetQueryDoc(docs);
        EXPECT_FALSE(query.Initialize());
        const RQEntry* const entry = query.Find(term);
        return entry != nullptr ? entry->weight : 0;
    };
    for (const char* const term : {"all", "w3", "w4", "own3"})
        EXPECT_FLOAT_EQ(weightOf("all w4", examples, term),
                        weightOf(texts["e1"], {}, term) + 2 * weightOf("all w4", {}, term))
            << term;
    t.index->SetMaxDocumentSize(2);
    TFMap cut[2];
    EXPECT_FALSE(t.index->GetTFMaps(documents, cut, nullptr));
    EXPECT_EQ(cut[0].Entries().size(), 2u);
    const RankedQueryDoc nowhere{&e1, nullptr};
    EXPECT_EQ(failureOf([&] { accessor.RankedSearch("", std::span(&nowhere, 1), 5); }),
              "QFLT query document without an index");
}

TEST(SearchProgress, ReportsGrowingPercentagesAndAHundredOnce) {
    std::vector<float> told;
    Progress progress(0, [&](float percent) {
        told.push_back(percent);
        return false;
    });
    {
        const Phase outer(2, progress);
        {
            const Phase inner(4, progress);
            EXPECT_FALSE(progress.StepCheck(1));
            progress.Check();
        }
        progress.Check();
        const Phase second(2, progress);
        progress.StepCheck(1);
    }
    progress.Complete();
    progress.Complete();
    EXPECT_EQ(told, (std::vector<float>{0, 12.5, 50, 75, 100}));
}

}  // namespace
}  // namespace brindle::testing
