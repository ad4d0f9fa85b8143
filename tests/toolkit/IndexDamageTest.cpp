#include "tests/support/IndexDamage.h"

#include <gmock/gmock.h>

#include <random>

#include "tests/support/FailureText.h"

namespace brindle::testing {
namespace {

template <class Index>
void DamageAnyBytes() {
    const DamagedIndex<Index> index;
    std::mt19937 random(5);
    for (int round = 0; round < 80; ++round) {
        std::vector<std::uint8_t> changes(4 * (1 + random() % 4));
        for (std::uint8_t& byte : changes) byte = static_cast<std::uint8_t>(random());
        index.DamageAndUse(changes);
    }
}

TEST(IndexDamage, AnyByteRaisesAnIAExceptionAtMost) {
    DamageAnyBytes<InvertedIndex>();
    DamageAnyBytes<InVecIndex>();
}

TEST(IndexDamage, TheCheckNamesTheBrokenRule) {
    const IndexToDamage source;
    // The last posting of the chain of "all" counts three instead of once.
    IndexInMemory t(source.texts, std::make_shared<Bytes>(source.whole));
    t.Open();
    const IATerm term("all");
    const auto info = t.index->TermIndex::GetTermInfo(&term);
    const std::uint32_t block = static_cast<InvertedTermInfo&>(*info).FirstBlock();
    std::vector<FreqPosting> postings;
    const std::uint32_t next = FreqPostingsRestoreBlock(t.storage.get(), block, postings);
    postings.back().freq = 3;
    postings.erase(postings.begin());
    FreqPostingsStoreBlock(t.storage.get(), block, FreqPostingsPaginate(postings).size, postings, next);
    EXPECT_THAT(VerifyIndex(*t.index).violations,
                ::testing::IsSupersetOf({::testing::HasSubstr("term \"all\" has 299 postings and says 300"),
                                         ::testing::HasSubstr("a highest frequency of 3 and says 1"),
                                         ::testing::HasSubstr("words in the lists and says")}));
}

TEST(IndexDamage, PostingsThatDoNotRiseAreFound) {
    const IndexToDamage source;
    IndexInMemory t(source.texts, std::make_shared<Bytes>(source.whole));
    t.Open();
    const IATerm term("all");
    const auto info = t.index->TermIndex::GetTermInfo(&term);
    const std::uint32_t block = static_cast<InvertedTermInfo&>(*info).FirstBlock();
    const FreqPosting once{5, 1};
    FreqPostingsStoreBlock(t.storage.get(), block, 100, std::span(&once, 1), block);
    const auto stream = t.index->GetFreqPostings(info.get());
    FreqPosting posting;
    const auto readAll = [&] {
        while (stream->Next(&posting)) continue;
    };
    EXPECT_EQ(failureOf(readAll), "VIIV postings damaged");
    EXPECT_EQ(failureOf([&] { t.index->GetTermInfo(&term); }), "VIIV postings damaged");
    const FreqPosting twice[] = {{5, 1}, {5, 1}};
    FreqPostingsStoreBlock(t.storage.get(), block, 100, twice, 0);
    EXPECT_EQ(failureOf([&] { t.index->GetTermInfo(&term); }), "VIIV postings damaged");
    FreqPostingList list;
    EXPECT_EQ(failureOf([&] { list.Append(twice); }), "QFLT postings out of order");
}

}  // namespace
}  // namespace brindle::testing
