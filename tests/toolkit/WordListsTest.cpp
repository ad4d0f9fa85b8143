#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "lorvale/search/unicode_analysis.h"
#include "lorvale/toolkit/analysis.h"
#include "lorvale/toolkit/corpus.h"
#include "lorvale/toolkit/retrieval.h"
#include "tests/support/FailureText.h"
#include "tests/support/StoredForm.h"
#include "tests/support/TestSupport.h"

namespace brindle::testing {
namespace {

std::string resource(const char* name) {
    return (lorvale::testing::sourceFolder() / "resources" / name).string();
}

std::string termsOf(const IAAnalysis& analysis, const std::string& text) {
    std::string terms;
    const auto stream = analysis.MakeTokenStream(std::make_unique<StringDocText>(text));
    for (IATermView term; stream->NextTerm(term);) (terms += terms.empty() ? "" : " ") += term.View();
    return terms;
}

TEST(EnglishLists, BringFormsOfOneWordTogether) {
    const EnglishAnalysis english(resource("EnglishStopwords").c_str(),
                                  resource("EnglishSubstitutions").c_str());
    std::istringstream families(
        "find found finds finding;write wrote written writing;child children;mouse mice;woman women;"
        "analysis analyses;phenomenon phenomena;nucleus nuclei;index indices indexes;bus buses;virus viruses;"
        "lens lenses;open opened opening opens;answer answered answering;study studies studied studying;"
        "deploy deployed deploying;agree agreed agreeing agrees;cancel cancelled canceled cancelling;"
        "panic panicked panicking;die died dying dies;quiz quizzes;large larger largest;big bigger biggest;"
        "easy easier easiest easily;good better best;bad worse worst;rapid rapidly;"
        "control controlled controls;occur occurred occurring");
    for (std::string family; std::getline(families, family, ';');) {
        std::istringstream words(family);
        std::string first, word;
        words >> first;
        EXPECT_NE(termsOf(english, first), "");
        while (words >> word) EXPECT_EQ(termsOf(english, word), termsOf(english, first)) << word;
    }
    EXPECT_EQ(
        termsOf(english, "It's what I don't think that they've been doing with all of the boxes, e.g. here."),
        "think box");
    EXPECT_EQ(termsOf(english, "don\xD5t"), "");
}

TEST(EnglishLists, SayEachThingOnce) {
    std::istringstream stops(lorvale::testing::readFile(resource("EnglishStopwords")));
    std::set<std::string> stopwords, words;
    for (std::string word; stops >> word;) EXPECT_TRUE(stopwords.insert(word).second) << word;
    EXPECT_GT(stopwords.size(), 500u);
    std::istringstream groups(lorvale::testing::readFile(resource("EnglishSubstitutions")));
    for (std::string group; std::getline(groups, group);) {
        ASSERT_EQ(group[0], StemmingDictionary::StemMark);
        std::istringstream members(group.substr(1));
        std::string stem, word;
        members >> stem;
        while (members >> word) {
            EXPECT_TRUE(words.insert(word).second) << word << " has two stems";
            EXPECT_FALSE(stopwords.contains(word)) << word << " is never looked up";
            EXPECT_NE(word, stem);
        }
    }
    EXPECT_GT(words.size(), 2000u);
}

/// The lines "left -> right" of the fenced block in docs/search.md.
std::vector<std::pair<std::string, std::string>> documented(const std::string& block) {
    std::vector<std::pair<std::string, std::string>> rows;
    for (const auto& line : lorvale::testing::documentedLines("docs/search.md", {"```" + block})) {
        const auto arrow = line.find(" -> ");
        rows.emplace_back(line.substr(0, arrow), line.substr(arrow + 4));
    }
    EXPECT_GT(rows.size(), 3u);
    return rows;
}

TEST(SearchDocument, ShowsWhatTextsQueriesAndSentencesBecome) {
    const EnglishAnalysis english(resource("EnglishStopwords").c_str(),
                                  resource("EnglishSubstitutions").c_str());
    for (const auto& [text, terms] : documented("terms")) EXPECT_EQ(termsOf(english, text), terms) << text;
    const lorvale::UnicodeAnalysis unicode(resource("EnglishStopwords").c_str(),
                                           resource("EnglishSubstitutions").c_str());
    for (const auto& [text, terms] : documented("unicode")) EXPECT_EQ(termsOf(unicode, text), terms) << text;
    for (const auto& [text, tree] : documented("queries")) {
        IABooleanQuery query;
        ASSERT_TRUE(query.Initialize(text));
        EXPECT_EQ(query.GetTree()->Describe(), tree);
    }
    for (auto [text, sentences] : documented("sentences")) {
        IAANSISentenceParser parser(text, resource("EnglishAbbreviations").c_str());
        std::string found;
        while (const auto extent = parser.GetNextExtent())
            found += (found.empty() ? "" : found.ends_with(' ') ? "| " : " | ") + extent->GetExtent();
        EXPECT_EQ(found, sentences);
    }
}

TEST(LetterTree, StoresItsWordsInTheOrderOfTheirLetters) {
    LetterTree tree;
    for (const char* const word : {"be", "an", "bad", "bet", "be", "", "1st", "Bad", "i"}) tree.Add(word);
    tree.Add(std::string(256, 'x'));
    tree.Add(std::string(255, 'y'));
    EXPECT_TRUE(tree.Contains("bad") && tree.Contains("i") && tree.Contains(std::string(255, 'y')));
    for (const char* const word : {"", "b", "ba", "bets", "1st", "Bad", "a"})
        EXPECT_FALSE(tree.Contains(word)) << word;
    EXPECT_FALSE(tree.Contains(std::string(256, 'x')));
    LetterTree other;  // 17 letters, of which the one in the middle tells them apart
    other.Add("internationalized");
    EXPECT_FALSE(other.Contains("internatxonalized"));
    const std::string stored = storedForm(tree);
    ASSERT_EQ(stored.size(), 4 + 16 + 256u);
    EXPECT_EQ(stored.substr(0, 4 + 16), std::string("\0\0\x01\x10", 4) + "an be bet bad i ");
}

TEST(LetterTree, ComesBackAsItWasStored) {
    const auto treeOf = [](const std::string& stored) {
        return withBlockOf(stored, [](IAInputBlock* block) { return std::make_unique<LetterTree>(block); });
    };
    const auto tree = treeOf(std::string("\0\0\0\x0E", 4) + "an be bet bad ");
    EXPECT_EQ(tree->StoreSize(), 4 + 14u);
    EXPECT_TRUE(tree->Contains("bet"));
    tree->EmptyTree();
    EXPECT_FALSE(tree->Contains("bet"));
    EXPECT_EQ(failureOf([&] { treeOf(std::string("\0\0\0\x0F", 4) + "an be bet bad "); }),
              "VSIV letter tree longer than its block");
}

TEST(CharStream, RemembersTheBlockBefore) {
    std::string text;
    for (int i = 0; i < 10'000; ++i) text += static_cast<char>('a' + i % 26);
    DocTextCharStream stream(std::make_unique<StringDocText>(text));
    const auto span = [&](std::uint32_t start, std::uint32_t end) {
        std::string copied(end > start ? end - start : 0, '\0');
        const std::string failure = failureOf([&] { stream.GetTextSpan(copied.data(), start, end); });
        return failure.empty() ? copied : failure;
    };
    stream.AdvanceTo(9'000);
    EXPECT_EQ(stream.CurrentPos(), 9'000u);
    EXPECT_EQ(span(8'192, 9'000), text.substr(8'192, 808));
    EXPECT_EQ(span(4'096, 8'192), text.substr(4'096, 4'096));
    EXPECT_EQ(span(8'000, 8'500), text.substr(8'000, 500));
    EXPECT_EQ(span(9'000, 9'000), "");
    EXPECT_EQ(span(4'095, 4'097), "VTSU request before buffers");
    EXPECT_EQ(span(8'999, 9'001), "QFLT requested char after buffer!");
    EXPECT_EQ(span(9, 8), "QFLT start position past end position");
    EXPECT_EQ(failureOf([&] { stream.AdvanceTo(8'999); }), "QFLT current position past requested");
    EXPECT_EQ(failureOf([&] { stream.AdvanceTo(10'001); }), "QFLT at end of stream");
    bool eos = false;
    EXPECT_EQ(stream.GetNextChar(&eos), '\0');
    EXPECT_TRUE(eos);
    EXPECT_EQ(stream.CurrentPos(), 10'000u);
    EXPECT_EQ(failureOf([] { FileCharStream().FileFromPath("/no/such/file"); }),
              "QFLT file not opened successfully");
    EXPECT_EQ(failureOf([] { StopwordFilter(nullptr, "").GetNextToken(); }), "VTNI no input tokenizer");
}

TEST(Term, ComparesBytesAndIsTerminated) {
    const std::string ascending[] = {"", "a", "ab", "abcd", "b", "\xD5"};
    for (std::size_t i = 0; i < std::size(ascending); ++i) {
        const IATerm a(ascending[i]);
        EXPECT_EQ(a.GetData()[a.GetLength()], 0);
        for (std::size_t j = 0; j < std::size(ascending); ++j) {
            const StringTerm b(ascending[j]);
            EXPECT_EQ(a.LessThan(&b), i < j);
            EXPECT_EQ(a.Equal(&b), i == j);
        }
    }
    EXPECT_EQ(IATerm::AllocatedSize(4), 8u);
    EXPECT_NE(dynamic_cast<StringTerm*>(StringTerm("x").DeepCopy().get()), nullptr);
}

TEST(StoredBytes, AreReadToTheLastAndNoFurther) {
    for (const std::string stored : {"\2ab", "\2a", "\2"}) {
        const auto restored = [&](const IAStorable& prototype) {
            return failureOf([&] {
                withBlockOf(stored,
                            [&](IAInputBlock* block) { EXPECT_EQ(prototype.Restore(block)->StoreSize(), 3u); });
            });
        };
        EXPECT_EQ(restored(IATerm()), stored.size() == 3 ? "" : "VSIV term longer than its block");
        EXPECT_EQ(restored(StringDoc()), stored.size() == 3 ? "" : "VSIV document longer than its block");
    }
}

TEST(StringCorpus, NamesDocumentsByTheirText) {
    StringCorpus corpus;
    EXPECT_EQ(corpus.GetCorpusType(), 0x53747230u);
    const StringDoc doc("abc"), prefix("ab");
    EXPECT_TRUE(prefix.LessThan(&doc) && !doc.LessThan(&prefix) && doc.Equal(IADeepCopyOf(doc).get()));
    const auto text = corpus.GetDocText(&doc);
    std::uint8_t buffer[2];
    EXPECT_EQ(text->GetNextBuffer(buffer, 2), 2u);
    EXPECT_EQ(text->DeepCopy()->GetNextBuffer(buffer, 2), 2u);
    EXPECT_EQ(buffer[0], 'a');
    EXPECT_EQ(text->GetNextBuffer(buffer, 2), 1u);
    EXPECT_EQ(text->GetNextBuffer(buffer, 2), 0u);
    EXPECT_EQ(text->GetNextBuffer(buffer, 2), 0u);
    EXPECT_EQ(corpus.GetDocIterator()->GetNextDoc(), nullptr);
}

}  // namespace
}  // namespace brindle::testing
