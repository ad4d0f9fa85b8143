#pragma once
#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "lorvale/toolkit/retrieval/inverted_accessor.h"
#include "toolkit/index/PostingStream.h"
#include "toolkit/retrieval/HitQueue.h"
#include "toolkit/retrieval/SearchProgress.h"
#include "toolkit/retrieval/TermWeights.h"

namespace brindle {

/// A term of a query in one document.
struct TermMatch {
    const RQEntry* entry;
    std::uint32_t freq;
};

/// One search of an accessor, from an initialized query to the best hits.
///
/// A document is fetched by its number only when it becomes a hit for good.  What would enter the queue is
/// noted first, with the scores alone deciding; and of what was noted only those are fetched in the end that
/// reach the lowest score that is left.  Hits below it could not have changed the outcome: each of them would
/// have had to leave before any of the others.  Where more than scores decide, because a subclass filters or a
/// document may come by way of two indexes, every hit is fetched at once.
class RankedSearchRun {
public:
    RankedSearchRun(InvertedAccessor& forAccessor, std::uint32_t most, std::uint32_t terms,
                    const RankedProgressFn& fn, std::uint32_t frequency);

    SearchProgress& Report() { return progress; }
    /// All indexes.  True if it was cancelled.
    bool Search(const IAQuery& query);
    bool SearchBoolean(IABooleanQuery& query);
    /// After a search that was not cancelled.
    RankedHits TakeHits();

private:
    static constexpr std::uint32_t WindowSize = 4096;

    /// The postings of one term and what each adds to a score.
    struct TermCursor {
        TermCursor(const RQEntry& ofEntry, InvertedIndex& index, const InvertedTermInfo& info,
                   const Similarity& similarity);
        const RQEntry* entry;
        FreqPSImpl stream;
        TermWeights weights;
        double bm25Weight;
    };
    /// A posting in the window, kept where hits have to name their terms.
    struct WindowMatch {
        std::uint32_t slot;
        TermMatch match;
    };
    /// A document whose score would let it into the queue.
    struct Candidate {
        std::uint32_t docID;
        float score;
        std::uint32_t firstMatch, matchCount;
    };

    template <class Scan>
    bool SearchIndex(std::uint32_t indexNumber, std::uint32_t queryTerms, Scan scan);
    bool ScanPostings();
    bool ScanTree(IABooleanQuery& query);
    void FillWindow(std::uint32_t base);
    void AddPosting(TermCursor& cursor, std::uint32_t slot, FreqPosting posting);
    bool EmptyWindow(std::uint32_t base);
    float PivotedScore(float sum, std::uint32_t matchCount, std::uint8_t norm) const;
    /// Whether a document of that score would be a hit, as far as is known now.
    bool Takes(float score) const {
        return isEager ? queue.Takes(score) : gate.size() < maxHits || gate.front() < score;
    }
    void Offer(std::uint32_t docID, float score, std::span<const TermMatch> matches);
    std::span<const TermMatch> MatchesOf(std::uint32_t slot);
    void AddHit(const Candidate& candidate);
    void Drain();
    bool StepTo(std::uint32_t docID);
    RankedHit::Terms TopTerms(std::span<const TermMatch> matches) const;
    void MakeBM25Tables();

    InvertedAccessor& accessor;
    const Similarity& similarity;
    const std::uint32_t maxHits;
    const std::uint32_t topTerms;
    const bool isReporting;
    SearchProgress progress;
    RankedHitQueue queue;
    const bool isBM25;

    // Of the index that is searched now.
    InvertedIndex* index = nullptr;
    const std::vector<std::uint8_t>* norms = nullptr;
    bool isEager = false;      // fetch every hit at once
    bool hasRejected = false;  // IsHit() said no to a hit that was not fetched at once
    std::uint32_t maxDocID = 0;
    std::uint32_t lastDocID = 0;  // up to which the progress counts
    float factor = 0;             // of coordination
    std::vector<std::unique_ptr<TermCursor>> cursors;
    std::vector<float> gate;  // scores of what would be in the queue, as a heap, the lowest first
    std::vector<Candidate> candidates;
    std::vector<TermMatch> candidateMatches;

    // Documents from some number on, by their distance to it.
    std::vector<float> sums;
    std::vector<std::uint32_t> matchCounts;
    std::array<std::uint64_t, WindowSize / 64> touched{};  // bits
    std::vector<WindowMatch> windowMatches;                // by term, then by document
    std::vector<std::size_t> windowMatchEnds;              // of each term
    std::vector<TermMatch> matchesOfOne;

    std::array<double, 256> divisors{};     // by norm
    std::array<double, 256> bm25Lengths{};  // k1 * (1 - b + b * length / average), by norm
};

}  // namespace brindle
