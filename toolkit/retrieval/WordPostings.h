#pragma once
#include <cstdint>
#include <memory>
#include <span>

#include "lorvale/toolkit/retrieval/posting_queue.h"
#include "toolkit/index/PostingStream.h"
#include "toolkit/retrieval/TermWeights.h"

namespace brindle {

/// The documents of a word of a boolean query in one index, in ascending order.
///
/// Nearly every word is one term: its postings are looked at in runs, as they come decoded from a block.  A
/// word of several terms gives a document once for each of them that stands in it; or, with `allTerms`, only
/// the documents in which all of them stand, once.
class WordPostings {
public:
    static constexpr std::uint32_t NoMore = 0xFFFFFFFF;

    /// Borrows the query, in which the index is the i-th one.
    WordPostings(const IAQuery& query, InvertedIndex& index, std::uint32_t i, const Similarity& similarity,
                 bool allTerms);

    /// The document of the next posting; NoMore at the end.
    std::uint32_t Next() const { return next; }
    /// Goes to the first posting of that document or a later one.
    void SkipTo(std::uint32_t document);
    /// What the next posting weighs; goes on behind it.
    double Take();
    bool MayRepeat() const { return many != nullptr && together == 0; }

private:
    struct Run {
        Run(const RQEntry& entry, InvertedIndex& index, const InvertedTermInfo& info,
            const Similarity& similarity);
        FreqPSImpl stream;
        TermWeights weights;
    };
    void Show();
    void ShowCommon();
    double TakeFirst();
    /// Drops the first postings of the run.
    void Drop(std::size_t count);

    const Similarity& similarity;
    std::uint32_t next = NoMore;
    std::span<const FreqPosting> ahead;  // of the one term
    std::unique_ptr<Run> one;
    std::unique_ptr<FreqPSQueue> many;  // of several terms; else null
    std::uint32_t together = 0;         // how many terms a document has to have; 0 for any
};

}  // namespace brindle
