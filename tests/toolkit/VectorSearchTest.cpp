#include <gtest/gtest.h>

#include "tests/support/FailureText.h"
#include "tests/support/IndexHistory.h"
#include "tests/support/SearchFixture.h"
#include "tests/support/StoredForm.h"

namespace brindle::testing {
namespace {

using Weights = std::map<std::string, double>;

double lengthOf(const Weights& weights) {
    double squares = 0;
    for (const auto& [word, weight] : weights) squares += weight * weight;
    return std::sqrt(squares);
}
Weights normalized(Weights weights) {
    const double length = lengthOf(weights);
    for (auto& [word, weight] : weights) weight /= length != 0 ? length : 1;
    return weights;
}
double dot(const Weights& a, const Weights& b) {
    double sum = 0;
    for (const auto& [word, weight] : a)
        if (const auto there = b.find(word); there != b.end()) sum += weight * there->second;
    return sum;
}
Weights plus(Weights a, const Weights& b) {
    for (const auto& [word, weight] : b) a[word] += weight;
    return a;
}

/// Vectors of documents in plain maps and double precision, as docs/search.md tells them.  The one thing that
/// it does not keep exact is the scale of a term, which is rounded to one of 256 values.
struct NaiveVectors {
    std::map<std::string, Words> docs;
    bool isExact = false;

    double Scale(const std::string& word) const {
        double with = 0;
        for (const auto& [name, words] : docs) with += words.contains(word) ? 1 : 0;
        const double all = static_cast<double>(docs.size()), most = 1 + std::log(all);
        const double scale = 1 + std::log(all / with);
        return with == 0              ? 0
               : isExact || most == 1 ? scale
                                      : 1 + std::floor((scale - 1) * 255 / (most - 1) + 0.5) * (most - 1) / 255;
    }
    Weights VectorOf(const Words& words) const {
        Weights weights;
        for (const auto& [word, count] : words)
            if (const double scale = Scale(word); scale > 0) weights[word] = scale * std::log(count + 1.0);
        return normalized(weights);
    }
    /// Of all documents that share a word with the query.
    std::map<std::string, double> ScoresFor(const Weights& query) const {
        std::map<std::string, double> scores;
        for (const auto& [name, words] : docs)
            if (const double score = dot(query, VectorOf(words)); score > 0) scores[name] = score;
        return scores;
    }
};

/// The hits are the best of the judge's, and their scores are his, relative to the best.
void expectBest(const RankedHits& hits, const std::map<std::string, double>& scores, std::size_t maxHits) {
    std::vector<double> sorted;
    for (const auto& [name, score] : scores) sorted.push_back(score);
    std::sort(sorted.rbegin(), sorted.rend());
    ASSERT_EQ(hits.size(), std::min(maxHits, sorted.size()));
    std::set<std::string> names;
    for (std::size_t i = 0; i < hits.size(); ++i) {
        const std::string name = NameOf(*hits[i]);
        ASSERT_TRUE(scores.contains(name) && names.insert(name).second) << name;
        ASSERT_NEAR(hits[i]->GetScore(), scores.at(name) / sorted[0], 1e-5) << name;
        ASSERT_NEAR(hits[i]->GetScore(), sorted[i] / sorted[0], 1e-5);
        ASSERT_GE(hits[i > 0 ? i - 1 : 0]->GetScore(), hits[i]->GetScore());
    }
}

Weights wordsOf(const TWVector& vector, TermIndex& index) {
    Weights weights;
    for (const auto& [termID, weight] : vector.GetComponents())
        weights[std::string(index.GetIDTerm(termID)->View())] = double{weight};
    return weights;
}
void expectNear(const Weights& found, const Weights& expected, double tolerance) {
    ASSERT_EQ(found.size(), expected.size());
    for (const auto& [word, weight] : expected) ASSERT_NEAR(found.at(word), weight, tolerance) << word;
}

TEST(VectorSearch, AgreesWithTheJudgeAfterAnyHistory) {
    for (unsigned seed = 1; seed <= 3; ++seed) {
        History<VectorIndex> history(seed);
        std::mt19937 random(seed);
        for (int step = 0; step < 250; ++step) history.Step();
        VectorIndex& index = *history.subject.index;
        index.Flush();
        NaiveVectors judge, exact;
        exact.isExact = true;
        for (const std::string& name : history.Indexed()) judge.docs[name] = WordsOf(history.TextOf(name));
        exact.docs = judge.docs;
        VectorAccessor accessor(&index);
        accessor.Initialize();
        for (int i = 0; i < 25; ++i) {
            const auto [text, maxHits] = Question(random, i, i % 5 == 0 ? 60 : 4);
            SCOPED_TRACE(text + "for " + std::to_string(maxHits));
            // The weights of a query are not rounded.
            ASSERT_NO_FATAL_FAILURE(expectBest(accessor.RankedSearch(text, {}, maxHits),
                                               judge.ScoresFor(exact.VectorOf(WordsOf(text))), maxHits));
        }
        // With examples the query is the sum of their vectors; and what the rounding costs is bounded.
        std::vector<std::string> names(history.Indexed().begin(), history.Indexed().end());
        const StringDoc one(names[0]), two(names[1]);
        const RankedQueryDoc examples[] = {{&one, &index}, {&two, &index}};
        const Weights sum = plus(exact.VectorOf(judge.docs[names[0]]), exact.VectorOf(judge.docs[names[1]]));
        ASSERT_NO_FATAL_FAILURE(
            expectBest(accessor.RankedSearch("", examples, 1000), judge.ScoresFor(sum), 1000));
        const auto vector = wordsOf(*accessor.GetTWVector(&one), index);
        ASSERT_NO_FATAL_FAILURE(expectNear(vector, judge.VectorOf(judge.docs[names[0]]), 1e-6));
        ASSERT_NO_FATAL_FAILURE(expectNear(vector, exact.VectorOf(judge.docs[names[0]]), 0.02));
    }
}

using VectorTest = SearchTest<InVecIndex>;

TEST_F(VectorTest, ExampleOfAnIndexThatIsNotSearchedIsRefused) {
    InMemory<InVecIndex> other(texts);
    other.Make();
    const StringDoc doc("d103");
    const RankedQueryDoc stranger{&doc, other.index.get()};
    VectorAccessor accessor(t.index.get());
    accessor.Initialize();
    EXPECT_EQ(failureOf([&] { accessor.GetDocTopic(stranger, 2); }), "QFLT term weight vector is null");
    InVecAccessor both(t.index.get());
    both.Initialize();
    EXPECT_EQ(failureOf([&] { both.RankedSearch("", std::span(&stranger, 1), 3); }),
              "QFLT index offset equal count");
}

TEST_F(VectorTest, ExamplesAreSearchedForByListsWithTheirVectors) {
    std::string text = "all";
    for (int i = 0; i < 40; ++i) text += " w" + std::to_string(i % 11) + " own" + std::to_string(i * 4);
    Add("long", text);
    InVecAccessor accessor(t.index.get());
    accessor.Initialize();
    NaiveVectors judge;
    NaiveSearch lists;
    lists.indices.resize(1);
    for (const auto& [name, words] : texts) {
        judge.docs[name] = WordsOf(words);
        lists.indices[0].push_back({name, WordsOf(words)});
    }
    const double most = (1 + std::log(201.0)) * std::log(65536);
    for (const std::vector<const char*>& names : {std::vector{"d103"}, {"long"}, {"long", "d101"}}) {
        std::vector<StringDoc> docs;
        std::vector<RankedQueryDoc> examples;
        Weights sum;
        for (const char* const name : names) {
            docs.emplace_back(name);
            sum = plus(sum, judge.VectorOf(judge.docs[name]));
        }
        for (const StringDoc& doc : docs) examples.push_back({&doc, t.index.get()});
        sum = normalized(sum);
        // Trimmed by the most that each can add, in whole bytes; of equal ones the first number stays.
        std::vector<std::tuple<double, std::uint32_t, std::string>> powers;
        for (const auto& [word, weight] : sum) {
            std::uint32_t highest = 0;
            for (const auto& [name, words] : judge.docs)
                if (words.contains(word)) highest = std::max(highest, words.at(word));
            const double byte = std::floor(judge.Scale(word) * std::log(highest + 1.0) * 255 / most + 0.5);
            const IATerm term(word);
            powers.emplace_back(-std::floor(weight * byte * 1e5), t.index->GetTermInfo(&term)->GetTermID(),
                                word);
        }
        std::sort(powers.begin(), powers.end());
        powers.resize(accessor.TrimmedQuerySize(static_cast<std::uint32_t>(powers.size())));
        NaiveSearch::Query query;
        for (const auto& [power, id, word] : powers)
            query[word] = {lists.Scale(word), static_cast<float>(sum.at(word))};
        const auto expected = lists.SearchFor(query, 1000);
        const auto found = accessor.RankedSearch("", examples, 1000);
        ASSERT_EQ(found.size(), expected.size());
        std::map<std::string, float> scores(expected.begin(), expected.end());
        for (std::size_t i = 0; i < found.size(); ++i) {
            ASSERT_NEAR(found[i]->GetScore(), expected[i].second, 2e-5) << i;
            ASSERT_NEAR(found[i]->GetScore(), scores[NameOf(*found[i])], 2e-5) << NameOf(*found[i]);
        }
        // With a text it is the way of the inverted accessor.
        InvertedAccessor inverted(t.index.get());
        inverted.Initialize();
        const auto one = accessor.RankedSearch("w3", examples, 5),
                   two = inverted.RankedSearch("w3", examples, 5);
        ASSERT_EQ(one.size(), two.size());
        for (std::size_t i = 0; i < one.size(); ++i) ASSERT_EQ(one[i]->GetScore(), two[i]->GetScore());
    }
}

TEST_F(VectorTest, TablesAreStoredReadAgainAndExtended) {
    InVecAccessor made(t.index.get());
    made.StoreInitialization();
    Add("new", "all w3 fresh fresh");
    InVecAccessor stale(t.index.get()), fresh(t.index.get());
    stale.Update();
    const IATerm term("fresh");
    const auto id = t.index->GetTermInfo(&term)->GetTermID();
    fresh.InitializeAnew();
    EXPECT_EQ(stale.GetTermScaleFactors(0)[id], fresh.GetTermScaleFactors(0)[id]);
    EXPECT_EQ(stale.GetTermMaxWeights(0)[id], fresh.GetTermMaxWeights(0)[id]);
    EXPECT_GT(stale.GetTermMaxWeights(0)[id], 0);
    EXPECT_EQ(stale.GetTermScaleFactors(0).size(), t.index->GetMaxTermID());
    EXPECT_EQ(NameOf(*stale.RankedSearch("fresh", {}, 3)[0]), "new");
    stale.Store();
    InVecAccessor read(t.index.get());
    read.Initialize();
    EXPECT_EQ(read.GetTermScaleFactors(0), stale.GetTermScaleFactors(0));
    EXPECT_EQ(read.GetTermMaxWeights(0), stale.GetTermMaxWeights(0));
    VectorAccessor other(t.index.get());
    EXPECT_EQ(failureOf([&] { other.Initialize(); }), "VAIV invalid initialization");
}

TEST_F(VectorTest, HitsAreFilteredAndNameWhatWeighsMostInBoth) {
    struct OnlyLong : VectorAccessor {
        using VectorAccessor::VectorAccessor;
        bool IsHit(IAIndex*, const IADoc* doc) override {
            return static_cast<const StringDoc*>(doc)->View() == "long";
        }
    };
    std::string text = "own7";
    for (int i = 0; i < 50; ++i) text += " w3";
    Add("long", text);
    OnlyLong accessor(t.index.get());
    accessor.InitializeAnew();
    const auto hits = accessor.RankedSearch("own7 w3", {}, 9, 1);
    ASSERT_EQ(hits.size(), 1u);
    EXPECT_EQ(TermsOf(hits[0]->GetMatchingTerms()), "w3 ");  // own7 is rarer, and stands there once
}

TEST_F(VectorTest, BackgroundWeighsTermsByWhatIsRareThere) {
    const Texts few = {{"a", "all own3 odd"}, {"b", "own3"}, {"c", "odd w1"}};
    InMemory<VectorIndex> small(few);
    small.MakeWithAll();
    VectorAccessor accessor(small.index.get(), t.index.get());
    EXPECT_EQ(accessor.GetAccessorType(), IATag("Vec4"));
    const auto byteOf = [&](const char* word) {
        const IATerm term(word);
        return accessor.GetTermScaleFactors(0)[small.index->GetTermInfo(&term)->GetTermID()];
    };
    EXPECT_EQ(byteOf("all"), 0);
    EXPECT_EQ(byteOf("own3"), 255);
    EXPECT_EQ(byteOf("odd"), std::floor(std::log(200.0 / 2) * 255 / std::log(200.0) + 0.5));
    EXPECT_EQ(accessor.RankedSearch("own3", {}, 5).size(), 2u);
}

TEST_F(VectorTest, BothSidesOfAnIndexAreFound) {
    IAIndex* const index = t.index.get();
    EXPECT_EQ(InvertedIndex::IANarrow(index), static_cast<InvertedIndex*>(t.index.get()));
    EXPECT_EQ(VectorIndex::IANarrow(index), static_cast<VectorIndex*>(t.index.get()));
    EXPECT_EQ(InVecIndex::IANarrow(nullptr), nullptr);
    const Texts more = {{"more", "all"}};
    IndexInMemory inverted(more);
    inverted.MakeWithAll();
    EXPECT_EQ(VectorIndex::IANarrow(inverted.index.get()), nullptr);
    IAIndex* const sources[] = {inverted.index.get()};
    InMemory<VectorIndex> target(more);
    target.Make();
    EXPECT_EQ(failureOf([&] { target.index->Merge(sources); }), "VIIV invalid index");
    // What a deletion leaves behind: the bit and the record stay until the term is looked up, the vector goes.
    const StringDoc doc("d103");
    const auto vector = t.index->GetTFVector(&doc);
    EXPECT_EQ(vector->GetComponents().size(), 3u);
    t.Delete("d103");
    EXPECT_EQ(failureOf([&] { t.index->GetTFVector(&doc); }), "VCID invalid document");
    t.index->Flush();
    const IATerm own("own3");
    EXPECT_EQ(t.index->TermIndex::GetTermInfo(&own)->GetDocumentCount(), 1u);
    EXPECT_EQ(t.index->GetTermInfo(&own), nullptr);
    // A term that is looked up between a deletion and the flush has left by then.
    t.Delete("d104");
    EXPECT_EQ(t.CountOf("own4"), 0u);
    t.FlushAndCommit();
    EXPECT_EQ(VerifyIndex(*t.index).violations, std::vector<std::string>());
}

TEST(VectorFormat, BlocksAreAsDocumented) {
    // Terms 1 to 7, of which the document "z" has the third once and the seventh twice.
    const Texts texts = {{"a", "ta tb tc td te tf tg"}, {"z", "tg tc tg"}};
    InMemory<InVecIndex> t(texts);
    t.MakeWithAll();
    EXPECT_TRUE(t.index->Validate(true, false));
    const auto bytesOf = [&](std::uint32_t block, std::size_t count) {
        return hexOf(readBlock(*t.storage, block, count));
    };
    const StringDoc z("z");
    const auto info = t.index->GetDocInfo(&z, false);
    const std::uint32_t block = static_cast<const VectorDocInfo&>(*info).GetVectorBlockID();
    EXPECT_EQ(bytesOf(block, 4), "02070802");

    char time[9];
    std::snprintf(time, sizeof time, "%08x", t.index->UpdateTime());
    const std::string head = "00000001" + std::string(time), factors = "00000008 00ffff00 ffffff00";
    const auto expectTables = [&](IAAccessor& accessor, const char* name, std::string expected) {
        accessor.StoreInitialization(nullptr, t.storage->GetNamedBlock(name));
        std::erase(expected, ' ');
        EXPECT_EQ(bytesOf(t.storage->TOC_Get(name), expected.size() / 2), expected);
    };
    VectorAccessor byVectors(t.index.get());
    expectTables(byVectors, "v", hexOf("Vec0") + head + factors);
    InVecAccessor both(t.index.get());
    expectTables(
        both, "b",
        hexOf("I&V0") + head + "00000003 000604 0000000a 00000002" + factors + "00000008 00101009 1010100f");
    EXPECT_EQ(both.TermScaleFactor(0, 0xFFFFFF), 1.0f);
    EXPECT_NEAR(both.GetMaxWeightDecoder()[255], (1 + std::log(2)) * std::log(65536), 1e-4);

    // An empty vector is one byte and no valid one; IDs that repeat are none either.
    EXPECT_EQ(failureOf([&] { t.index->WriteTFVector({}, block), t.index->ValidateDocInfos(true); }),
              "QFLT term vector with length of zero");
    EXPECT_EQ(bytesOf(block, 1), "00");
    EXPECT_FALSE(t.index->Validate(false, false));
    t.index->WriteTFVector(TFVector({{3, 1}, {3, 2}}), block);
    EXPECT_EQ(failureOf([&] { t.index->ValidateDocInfos(true); }),
              "QFLT duplicate id in the term freq. vector");
    EXPECT_EQ(VerifyIndex(*t.index).violations.front(), "document 2: the terms of its vector do not rise");
}

TWVector vectorOf(std::vector<TWComponent> components) {
    return TWVector(std::move(components));
}
using Components = std::vector<TWComponent>;

TEST(TWVector, Operations) {
    const TWVector a({{1, 0.6f}, {4, 0.8f}}), b({{2, 0.6f}, {4, 0.8f}}), none;
    EXPECT_FLOAT_EQ(a.Similarity(b), 0.64f);
    EXPECT_EQ(a.Similarity(none), 0);
    const auto expect = [](const TWVector& found, const Components& expected) {
        ASSERT_EQ(found.GetDocumentLength(), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i) {
            EXPECT_EQ(found.GetComponents()[i].termID, expected[i].termID);
            EXPECT_NEAR(found.GetComponents()[i].weight, expected[i].weight, 1e-6) << i;
        }
    };
    expect(a.Sum(a), a.GetComponents());
    expect(a.Sum(none), a.GetComponents());
    const float s = 1 / std::sqrt(0.36f * 2 + 1.6f * 1.6f);
    expect(a.Sum(b), {{1, 0.6f * s}, {2, 0.6f * s}, {4, 1.6f * s}});
    expect(a.AddIntoAverage(b, 1, false), {{1, 0}, {2, 0.6f}, {4, 0.8f}});
    expect(a.AddIntoAverage(b, 1, true), {{1, 0}, {2, 0}, {4, 0}});
    expect(a.AddIntoAverage(b, 2, true), {{1, 1}, {2, 0}, {4, 0}});
    expect(a.AddWeighted(b, 1, -2), {{1, 1}, {2, 0}, {4, 0}});
    expect(a.AddWeightedAllowNegatives(b, 1, -1), {{1, std::sqrt(0.5f)}, {2, -std::sqrt(0.5f)}, {4, 0}});
    EXPECT_TRUE(a.AddWeightedAllowNegatives(b, 1, -1).HasNegativeComponents());
    EXPECT_EQ(failureOf([&] {
                  vectorOf({{7, -1}}).AddIntoAverage(a, 3, false);
              }),
              "QFLT vector has at least one negative component");
    TWVector cut({{1, -5}, {2, 3}, {3, 3}, {4, 4}});
    cut.Truncate(4);
    EXPECT_EQ(cut.GetDocumentLength(), 4u);
    TWVector byMagnitude = cut;
    cut.Truncate(2);
    EXPECT_EQ(cut.GetComponents(), (Components{{2, 3}, {4, 4}}));
    byMagnitude.TruncateByAbsoluteValue(2);
    EXPECT_EQ(byMagnitude.GetComponents(), (Components{{1, -5}, {4, 4}}));
    byMagnitude.SortByAbsoluteWeight();
    byMagnitude.SortByWeight();
    EXPECT_EQ(byMagnitude.GetComponents()[0].termID, 4u);
    TWVectorAdder adder;
    expect(adder.Sum(), {{0, 0}});
    for (const TWVector* const each : {&a, &none, &b}) adder.Add(std::make_unique<TWVector>(*each));
    expect(adder.Sum(), a.Sum(b).GetComponents());
    expect(adder.Sum(), {{0, 0}});
}

}  // namespace
}  // namespace brindle::testing
