#include <gtest/gtest.h>

#include "lorvale/toolkit/retrieval/progress.h"
#include "tests/support/FailureText.h"
#include "tests/support/IndexFixture.h"
#include "tests/support/StoredForm.h"
#include "tests/support/TestSupport.h"
#include "toolkit/index/RecordLimits.h"

namespace brindle::testing {
namespace {

TEST(Postings, CodingAndPagesOfLists) {
    const struct {
        std::vector<FreqPosting> postings;
        std::string stored;
    } rows[] = {{{{5, 1}}, "0b"},
                {{{5, 3}}, "0a03"},
                {{{5, 1}, {7, 1}}, "0b05"},
                {{{64, 1}, {128, 200}}, "81018001c801"}};
    for (const auto& row : rows) {
        EXPECT_EQ(FreqPostingsStoreSize(row.postings) * 2, row.stored.size());
        FreqPostingList list;
        list.Append(row.postings);
        EXPECT_EQ(list.Decoded(), row.postings);
        EXPECT_EQ(list.StoreSize() * 2, row.stored.size());
    }
    // A page takes 4096 bytes and not one more: 8, two for the first number, then one for each.
    std::vector<FreqPosting> many;
    for (std::uint32_t id = 100; many.size() < 5000; ++id) many.push_back({id, 1});
    const FreqPostingsPage page = FreqPostingsPaginate(many);
    EXPECT_EQ(page.size, IADiskBlockSize);
    EXPECT_EQ(page.count, 4087u);
    EXPECT_EQ(failureOf([] { FreqPostingsPaginate({}); }), "QFLT posting with zero length result");
}

class IndexTest : public ::testing::Test {
protected:
    /// `count` documents that all hold "all", and each an own word.
    void AddDocuments(std::uint32_t count) {
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::string name = "d" + std::to_string(1000 + texts.size());
            texts[name] = "all all own" + name;
            t.Add(name);
        }
    }
    const InvertedTermInfo& RecordOfAll() {
        const IATerm term("all");
        record = t.index->GetTermInfo(&term);
        return static_cast<const InvertedTermInfo&>(*record);
    }

    Texts texts;
    IndexInMemory t{texts};
    std::unique_ptr<TermInfo> record;
};

TEST_F(IndexTest, ShortListsStayInTheRecordLongOnesMoveToBlocks) {
    t.Make();
    AddDocuments(127);
    t.index->Flush();
    EXPECT_EQ(RecordOfAll().FirstBlock(), 0u);
    EXPECT_EQ(RecordOfAll().PostingCount(), 127u);
    EXPECT_EQ(t.index->GetMaxDocID(), 128u);  // the next one: the first document was 1
    AddDocuments(1);
    t.index->Flush();
    EXPECT_NE(RecordOfAll().FirstBlock(), 0u);
    EXPECT_EQ(RecordOfAll().PostingCount(), 0u);
    const std::uint32_t block = RecordOfAll().FirstBlock();
    AddDocuments(100);
    t.index->Flush();
    EXPECT_EQ(RecordOfAll().PostingCount(), 100u);
    AddDocuments(28);
    t.index->Flush();
    EXPECT_EQ(RecordOfAll().PostingCount(), 0u);
    EXPECT_EQ(RecordOfAll().FirstBlock(), block);
    EXPECT_EQ(t.ListOf("all").postings.size(), 256u);
}

TEST_F(IndexTest, DeletedPostingsGoWhenTheirTermIsLookedUp) {
    texts = {{"a", "x both"}, {"b", "both"}};
    t.MakeWithAll();
    const IATerm both("both"), x("x");
    const auto before = t.index->GetTermInfo(&both);
    t.Delete("a");
    EXPECT_EQ(t.index->TermIndex::GetTermInfo(&both)->GetDocumentCount(), 2u);
    FreqPosting posting;
    const auto stream = t.index->GetFreqPostings(before.get());
    EXPECT_TRUE(stream->Next(&posting) && posting.docID == 2 && !stream->Next(&posting));
    EXPECT_EQ(t.index->GetTermInfo(&both)->GetDocumentCount(), 1u);
    EXPECT_EQ(t.index->GetTermInfo(&x), nullptr);
    EXPECT_EQ(t.index->GetTermCount(), 1u);
    EXPECT_EQ(t.index->GetDeletedDocCount(), 1u);
    // Its number comes again only after a compaction.
    texts["c"] = "new";
    t.Add("c");
    t.index->SetBytesForUpdate(0);  // written with the next change, without the rest of a Flush()
    EXPECT_EQ(failureOf([&] { t.Delete("nobody"); }), "VCID invalid document");
    const StringDoc c("c");
    EXPECT_EQ(t.index->GetDocInfo(&c, false)->GetDocID(), 3u);
    t.Delete("c");
    EXPECT_TRUE(t.index->IsDocDeleted(3));
    t.index->Compact();
    EXPECT_EQ(t.index->GetDeletedDocCount(), 0u);
    EXPECT_EQ(t.index->GetMaxDocID(), 3u);
}

TEST_F(IndexTest, StreamGoesOnWhenItsBlocksAreGivenBack) {
    t.Make();
    AddDocuments(2500);
    t.index->Flush();
    const auto stream = t.index->GetFreqPostings(&RecordOfAll());
    FreqPosting posting;
    for (int i = 0; i < 10; ++i) ASSERT_TRUE(stream->Next(&posting));
    t.Delete("d3400");
    RecordOfAll();  // looks the term up, which makes its list anew
    AddDocuments(200);
    t.index->Flush();
    std::uint32_t count = 10;
    for (std::uint32_t last = posting.docID; stream->Next(&posting); last = posting.docID, ++count)
        ASSERT_GT(posting.docID, last);
    EXPECT_GE(count, 2499u);
}

TEST_F(IndexTest, ReadOnlyIndexAnswersWithoutDeletedDocuments) {
    t.Make();
    AddDocuments(300);
    t.index->Flush();
    t.Delete("d1007");
    t.FlushAndCommit();
    t.Open(false);
    const auto list = t.ListOf("all");
    EXPECT_EQ(list.documentCount, 299u);
    EXPECT_EQ(list.postings.size(), 299u);
    EXPECT_EQ(t.ListOf("ownd1007").documentCount, 0u);
}

TEST_F(IndexTest, FlushComesWhenTheBudgetIsPassed) {
    t.Make();
    EXPECT_EQ(t.index->GetBytesForUpdate(), 1'000'000u);
    t.index->SetBytesForUpdate(999'960);  // 16,666 times 60: used up is not passed
    for (const auto& [count, flushed] : {std::pair(16'666u, false), std::pair(16'667u, true)}) {
        t.index->SetUpdateCount(count);
        AddDocuments(1);
        EXPECT_EQ(t.index->GetUpdateCount(), flushed ? 2u : count + 2);
    }
}

TEST_F(IndexTest, LaterTermsOfALongDocumentDoNotCount) {
    t.Make();
    t.index->SetMaxDocumentSize(3);
    texts["a"] = "one two two three one four";
    t.Add("a");
    t.index->Flush();
    const StringDoc a("a");
    EXPECT_EQ(t.index->GetDocInfo(&a, false)->GetDocumentLength(), 4u);
    EXPECT_EQ(t.ListOf("four").documentCount, 0u);
}

TEST_F(IndexTest, RefusalsChangeNothing) {
    const StringDoc a("a"), b("b"), unknown("u"), endless(std::string(3000, 'x'));
    texts = {{"a", "one"}, {"b", "two"}, {std::string(endless.View()), ""}, {"t", std::string(900, 'y')}};
    EXPECT_EQ(failureOf([&] { t.Attach(std::make_unique<MemoryStoreStream>(t.bytes)), t.Add("a"); }),
              "VINO index not open");
    t.Make();
    EXPECT_EQ(failureOf([&] { t.index->Initialize(); }), "VIAO index already open");
    t.Add("a");
    EXPECT_EQ(failureOf([&] { t.Add("a"); }), "VIAI index document already indexed");
    EXPECT_EQ(failureOf([&] { t.index->DeleteDoc(&a); }), "VCID invalid document");
    t.Add("b");
    t.index->Flush();
    EXPECT_EQ(failureOf([&] { t.Add("a"); }), "VIAI index document already indexed");
    EXPECT_EQ(failureOf([&] { t.index->RenameDoc(&a, &b); }), "VIAI Index Contains New Document Already");
    EXPECT_EQ(failureOf([&] { t.index->RenameDoc(&unknown, &a); }).substr(0, 4), "VIAI");
    EXPECT_EQ(failureOf([&] { t.index->RenameDoc(&unknown, &unknown); }), "VCID invalid document");
    EXPECT_EQ(failureOf([&] { t.index->RenameDoc(&a, &endless); }).substr(0, 4), "VSBE");
    EXPECT_EQ(failureOf([&] { t.Add(endless.View()); }).substr(0, 4), "VSBE");
    const std::string longest(kMaxDocumentStoreSize - 2, 'z');  // behind two bytes that tell its length
    texts[longest] = "";
    t.Add(longest);
    EXPECT_EQ(failureOf([&] { t.index->GetIDDoc(9); }), "VIID invalid docID");
    EXPECT_EQ(failureOf([&] { t.index->GetIDTerm(9); }), "VIIT invalid termID");
    IAIndex* const itself[] = {t.index.get()};
    EXPECT_EQ(failureOf([&] { t.index->Merge(itself); }), "VIIV invalid index");
    t.index->Flush();
    EXPECT_EQ(VerifyIndex(*t.index).violations, std::vector<std::string>());
    EXPECT_EQ(t.index->GetDocCount(), 3u);
}

TEST_F(IndexTest, UpdateBringsTheIndexInLineWithItsCorpus) {
    t.Make();
    AddDocuments(5);
    t.index->Update();
    texts.erase("d1001");
    texts["d0"] = "first";
    texts["d9"] = "last";
    t.index->Update();
    EXPECT_EQ(t.index->GetDocCount(), 6u);
    EXPECT_EQ(t.ListOf("all").documentCount, 4u);
    texts.clear();
    t.index->Update();
    EXPECT_EQ(t.index->GetDocCount(), 0u);
}

TEST_F(IndexTest, MergedDocumentsAreNumberedBehindAllNumbersOfTheirSource) {
    t.Make();
    texts = {{"a", "x y"}, {"b", "y z"}};
    IndexInMemory source(texts);
    source.MakeWithAll();
    texts["c"] = "z";
    source.Delete("b");
    source.index->Flush();
    IAIndex* const sources[] = {source.index.get()};
    t.index->Merge(sources);
    t.Add("c");  // must not take the number of the deleted one
    t.index->Flush();
    const StringDoc a("a");
    EXPECT_EQ(t.index->GetDocInfo(&a, false)->GetDocID(), 2u);
    EXPECT_EQ(t.ListOf("z").postings, (Words{{"c", 1}}));
    EXPECT_EQ(t.ListOf("y").postings, (Words{{"a", 1}}));
    EXPECT_EQ(VerifyIndex(*t.index).violations, std::vector<std::string>());
}

TEST_F(IndexTest, OnlyTheSameKindOfIndexIsOpened) {
    t.Make();
    AddDocuments(1);
    t.FlushAndCommit();
    const std::uint32_t root = t.storage->TOC_Get(IADefaultIndexName);
    const Bytes before = *t.bytes;
    std::uint32_t at = 0;
    {
        const IALock lock(t.storage->GetMutex());
        at = t.storage->GetReadAddress(root);
    }
    // The version before had no time.
    t.bytes->at(at + 15) = '5';
    t.bytes->erase(t.bytes->begin() + at + 16, t.bytes->begin() + at + 20);
    t.bytes->insert(t.bytes->begin() + at + 60, 4, 0);
    t.Open();
    EXPECT_EQ(t.index->UpdateTime(), 0u);
    EXPECT_EQ(t.ListOf("all").documentCount, 1u);
    t.FlushAndCommit();
    IAIndexTypes types;
    IAReadIndexTypes(t.storage.get(), root, &types);
    EXPECT_EQ(types.indexType, InvertedIndexType);
    for (const std::uint32_t place : {0u, 4u, 8u, 15u}) {
        *t.bytes = before;
        t.bytes->at(at + place) = place == 15 ? '4' : 1;
        EXPECT_EQ(failureOf([&] { t.Open(); }), "VIIV invalid index");
        // It is not half open, and may be tried again.
        EXPECT_EQ(failureOf([&] { t.index->GetDocCount(); }), "VINO index not open");
        EXPECT_EQ(failureOf([&] { t.index->Open(); }), "VIIV invalid index");
    }
    EXPECT_FALSE(IAIndexTypes(1, 1, 0, 1).Equal(IAIndexTypes(1, 1, 0, 1)));
    EXPECT_TRUE(IAIndexTypes(IATag("Bud1"), 1, 1, 1).Equal(IAIndexTypes(IATag("Bud0"), 1, 1, 1)));
}

TEST_F(IndexTest, HighFrequencyTermsComeHighestFirst) {
    texts = {{"a", "x y z"}, {"b", "y z"}, {"c", "w y z"}};
    t.MakeWithAll();
    std::string found;
    for (const std::uint32_t most : {3u, 1u})
        for (const auto& each : GetHighFreqTerms(t.index.get(), most))
            found += std::string(each.term->View()) + std::to_string(each.frequency) + " ";
    EXPECT_EQ(found, "z3 y3 x1 y3 ");  // of equal ones the first to come stays
    EXPECT_TRUE(GetHighFreqTerms(t.index.get(), 0).empty());
}

/// The worked example of the documents is a real index: its lines "block n: bytes" are what its blocks begin
/// with.
TEST_F(IndexTest, DocumentedExampleIsARealIndex) {
    texts = {{"a", "x y x"}, {"b", "y"}};
    t.MakeWithAll();
    t.storage->Commit();
    int blocks = 0;
    for (const std::string& line :
         lorvale::testing::documentedLines("docs/formats.md", {"### A small index, byte by byte"})) {
        if (!line.starts_with("    block ")) continue;
        const auto block = static_cast<std::uint32_t>(std::stoul(line.substr(10)));
        const std::size_t begin = line.find(": ") + 2;
        std::string bytes = line.substr(begin, line.find("  ", begin) - begin);
        std::erase(bytes, ' ');
        EXPECT_EQ(hexOf(readBlock(*t.storage, block, bytes.size() / 2)), bytes) << line;
        ++blocks;
    }
    EXPECT_EQ(blocks, 7);
}

TEST(Records, NarrowingAndStoredForms) {
    EXPECT_EQ(hexOf(storedForm(DocInfo(std::make_unique<StringDoc>("a"), 300))), "0161ac0200");
    EXPECT_EQ(hexOf(storedForm(IDTerm(7, std::make_unique<IATerm>("ab")))), "07026162");
    EXPECT_TRUE(IDTerm(8).LessThan(std::make_unique<IDTerm>(7).get()));
    EXPECT_EQ(hexOf(storedForm(TIDRename(1, 2))), "0102");
}

}  // namespace
}  // namespace brindle::testing
