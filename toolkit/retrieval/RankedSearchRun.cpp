#include "toolkit/retrieval/RankedSearchRun.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <functional>
#include <limits>

namespace brindle {

namespace {

constexpr double kBM25k1 = 1.2;
constexpr double kBM25b = 0.75;

/// About the length that has a norm: the middle of those that do.
double LengthOfNorm(std::uint32_t norm) {
    const double root = (norm - 0.5) / 2;
    return root * root;
}

}  // namespace

RankedSearchRun::TermCursor::TermCursor(const RQEntry& ofEntry, InvertedIndex& index,
                                        const InvertedTermInfo& info, const Similarity& similarity)
    : entry(&ofEntry), stream(index, IADeepCopyOf(info)), weights(ofEntry, similarity) {
    const double count = info.GetDocumentCount();
    const double total = std::max(double{similarity.GetTotalDocs()}, count);
    bm25Weight = entry->weight / entry->scaleFactor * std::log(1 + (total - count + 0.5) / (count + 0.5));
}

RankedSearchRun::RankedSearchRun(InvertedAccessor& forAccessor, std::uint32_t most, std::uint32_t terms,
                                 const RankedProgressFn& fn, std::uint32_t frequency)
    : accessor(forAccessor),
      similarity(*forAccessor.GetSimilarity()),
      maxHits(most),
      topTerms(terms),
      isReporting(fn != nullptr),
      progress(fn, frequency),
      queue(forAccessor, most),
      isBM25(forAccessor.GetWeighting() == RankedWeighting::bm25) {
    // In one expression each: a norm's share of the average first.
    constexpr double kSlope = 0.55f, kPivot = 0.45f;
    for (std::uint32_t norm = 0; norm < divisors.size(); ++norm)
        divisors[norm] = kSlope * (norm / double{accessor.averageNorm}) + kPivot;
}

bool RankedSearchRun::Search(const IAQuery& query) {
    sums.assign(WindowSize, 0);
    matchCounts.assign(WindowSize, 0);
    if (isBM25) MakeBM25Tables();
    Progress& steps = progress.Steps();
    const Phase phase(accessor.GetIndexCount(), steps);
    for (std::uint32_t i = 0; i < accessor.GetIndexCount(); ++i) {
        const auto scan = [&] {
            cursors.clear();
            for (const auto& entry : query.GetEntries())
                if (const TermInfo* const info = entry->InfoIn(i))
                    cursors.push_back(std::make_unique<TermCursor>(
                        *entry, *index, static_cast<const InvertedTermInfo&>(*info), similarity));
            return ScanPostings();
        };
        if (SearchIndex(i, query.Count(), scan)) return true;
    }
    return false;
}

void RankedSearchRun::MakeBM25Tables() {
    double sum = 0;
    for (const auto& each : accessor.docNorms)
        for (const std::uint8_t norm : each) sum += norm > 0 ? LengthOfNorm(norm) : 0;
    const double average = std::max(sum / std::max<std::uint32_t>(accessor.normCount, 1), 1e-9);
    for (std::uint32_t norm = 0; norm < bm25Lengths.size(); ++norm)
        bm25Lengths[norm] = kBM25k1 * (1 - kBM25b + kBM25b * LengthOfNorm(norm) / average);
}

template <class Scan>
bool RankedSearchRun::SearchIndex(std::uint32_t indexNumber, std::uint32_t queryTerms, Scan scan) {
    index = accessor.invertedIndices[indexNumber];
    norms = &accessor.docNorms[indexNumber];
    factor = similarity.CoordinationFactor(queryTerms);
    maxDocID = index->GetMaxDocID();
    Phase phase(maxDocID, progress.Steps());
    isEager = isEager || accessor.hitsAreFiltered || accessor.GetIndexCount() > 1;
    for (;;) {
        hasRejected = false;
        lastDocID = 0;
        gate.clear();
        candidates.clear();
        candidateMatches.clear();
        if (progress.Steps().Check() || scan()) return true;
        Drain();
        if (!hasRejected) return false;
        // Scores alone do not decide here after all.  The queue holds nothing but hits of this index.
        accessor.hitsAreFiltered = isEager = true;
        queue.TakeHits();
        phase.Restart();
    }
}

bool RankedSearchRun::ScanPostings() {
    for (;;) {
        std::uint32_t base = std::numeric_limits<std::uint32_t>::max();
        std::erase_if(cursors, [](const auto& cursor) { return cursor->stream.Ahead().empty(); });
        for (const auto& cursor : cursors) base = std::min(base, cursor->stream.Ahead().front().docID);
        if (cursors.empty()) return false;
        base -= base % 64;
        FillWindow(base);
        if (EmptyWindow(base)) return true;
    }
}

/// Each term adds to the documents in turn, so that a sum is made in the order of terms.
void RankedSearchRun::FillWindow(std::uint32_t base) {
    windowMatches.clear();
    windowMatchEnds.clear();
    for (const auto& cursor : cursors) {
        for (auto ahead = cursor->stream.Ahead(); !ahead.empty(); ahead = cursor->stream.Ahead()) {
            std::size_t taken = 0;
            for (; taken < ahead.size() && ahead[taken].docID - base < WindowSize; ++taken)
                AddPosting(*cursor, ahead[taken].docID - base, ahead[taken]);
            cursor->stream.Skip(taken);
            if (taken < ahead.size()) break;
        }
        windowMatchEnds.push_back(windowMatches.size());
    }
}

inline void RankedSearchRun::AddPosting(TermCursor& cursor, std::uint32_t slot, FreqPosting posting) {
    double weight;
    if (isBM25) {
        const std::uint8_t norm = posting.docID < norms->size() ? (*norms)[posting.docID] : 0;
        weight = cursor.bm25Weight * (posting.freq * (kBM25k1 + 1)) / (posting.freq + bm25Lengths[norm]);
    } else {
        weight = cursor.weights.Of(posting.freq);
    }
    sums[slot] = static_cast<float>(sums[slot] + weight);
    ++matchCounts[slot];
    touched[slot / 64] |= std::uint64_t{1} << slot % 64;
    if (topTerms > 0) windowMatches.push_back({slot, {cursor.entry, posting.freq}});
}

/// Scores the documents of the window and clears it.
bool RankedSearchRun::EmptyWindow(std::uint32_t base) {
    for (std::uint32_t word = 0; word < touched.size(); ++word) {
        std::uint64_t bits = touched[word];
        if (bits == 0) continue;
        touched[word] = 0;
        for (; bits != 0; bits &= bits - 1) {
            const std::uint32_t slot = word * 64 + static_cast<std::uint32_t>(std::countr_zero(bits));
            const std::uint32_t docID = base + slot;
            const float sum = sums[slot];
            const std::uint32_t matchCount = matchCounts[slot];
            sums[slot] = 0;
            matchCounts[slot] = 0;
            const std::uint8_t norm = docID < norms->size() ? (*norms)[docID] : 0;
            if (norm == 0) continue;  // flushed after the accessor was initialized
            const float score = isBM25 ? sum : PivotedScore(sum, matchCount, norm);
            if (Takes(score)) Offer(docID, score, MatchesOf(slot));
        }
        if (isReporting && StepTo(base + word * 64 + 63)) {
            touched.fill(0);
            return true;
        }
    }
    return false;
}

float RankedSearchRun::PivotedScore(float sum, std::uint32_t matchCount, std::uint8_t norm) const {
    const auto score = static_cast<float>(sum / divisors[norm]);
    if (!accessor.IsRankedCoordinated()) return score;
    return Similarity::CoordinationScore(static_cast<float>(double{score} / accessor.averageNorm), matchCount,
                                         factor);
}

std::span<const TermMatch> RankedSearchRun::MatchesOf(std::uint32_t slot) {
    matchesOfOne.clear();
    if (topTerms == 0) return {};
    auto begin = windowMatches.begin();
    for (const std::size_t endPlace : windowMatchEnds) {
        const auto end = windowMatches.begin() + static_cast<std::ptrdiff_t>(endPlace);
        const auto at = std::ranges::lower_bound(begin, end, slot, {}, &WindowMatch::slot);
        if (at != end && at->slot == slot) matchesOfOne.push_back(at->match);
        begin = end;
    }
    return matchesOfOne;
}

void RankedSearchRun::Offer(std::uint32_t docID, float score, std::span<const TermMatch> matches) {
    candidates.push_back({docID, score, static_cast<std::uint32_t>(candidateMatches.size()),
                          static_cast<std::uint32_t>(matches.size())});
    candidateMatches.insert(candidateMatches.end(), matches.begin(), matches.end());
    if (isEager) return Drain();
    if (gate.size() == maxHits) {
        std::ranges::pop_heap(gate, std::greater());
        gate.pop_back();
    }
    gate.push_back(score);
    std::ranges::push_heap(gate, std::greater());
}

/// Makes hits of what was noted, as far as it is still good enough.
void RankedSearchRun::Drain() {
    const bool isFull = !isEager && gate.size() == maxHits;
    for (const Candidate& candidate : candidates)
        if (!isFull || candidate.score >= gate.front()) AddHit(candidate);
    candidates.clear();
    candidateMatches.clear();
}

void RankedSearchRun::AddHit(const Candidate& candidate) {
    if (!queue.Takes(candidate.score)) return;
    std::unique_ptr<IADoc> document = index->FindIDDoc(candidate.docID);
    if (document == nullptr) return;  // deleted meanwhile
    progress.SetDocument(index, std::move(document));
    if (!accessor.IsHit(index, progress.GetDocument())) {
        hasRejected = hasRejected || !isEager;
        return;
    }
    const auto matches = std::span(candidateMatches).subspan(candidate.firstMatch, candidate.matchCount);
    queue.AddHit(
        std::make_unique<RankedHit>(index, *progress.GetDocument(), candidate.score, TopTerms(matches)));
}

RankedHit::Terms RankedSearchRun::TopTerms(std::span<const TermMatch> matches) const {
    WeightedTermQueue heaviest(topTerms);
    for (const auto& [entry, freq] : matches)
        heaviest.Update(*entry->term, similarity.TermWeight(entry->scaleFactor, freq) * entry->weight);
    return heaviest.TakeTerms();
}

/// True if the search is cancelled.  Whoever is told is told of the hits so far.
bool RankedSearchRun::StepTo(std::uint32_t docID) {
    Progress& steps = progress.Steps();
    docID = std::clamp(docID, lastDocID, std::max(lastDocID, maxDocID));
    steps.Step(docID - lastDocID);
    lastDocID = docID;
    if (steps.IsReportDue()) Drain();
    return steps.Check();
}

bool RankedSearchRun::SearchBoolean(IABooleanQuery& query) {
    Progress& steps = progress.Steps();
    const Phase phase(accessor.GetIndexCount(), steps);
    for (std::uint32_t i = 0; i < accessor.GetIndexCount(); ++i) {
        const auto scan = [&] {
            query.InitializeQuery(*index, i);
            isEager = isEager || query.MayRepeatDocuments();
            return ScanTree(query);
        };
        if (SearchIndex(i, query.Count(), scan)) return true;
        query.ResetMins();
    }
    return false;
}

bool RankedSearchRun::ScanTree(IABooleanQuery& query) {
    for (std::uint32_t docID = query.GetMin(); docID != IAQueryTree::NoMore; docID = query.GetMin()) {
        float score = 0;
        std::uint32_t matchCount = 0;
        if (query.Evaluate(docID, score, matchCount)) {
            const std::uint8_t norm = docID < norms->size() ? (*norms)[docID] : 0;
            if (norm != 0) {
                score = PivotedScore(score, matchCount, norm);
                if (Takes(score)) Offer(docID, score, {});
            }
        }
        if (isReporting && StepTo(docID)) return true;
    }
    return false;
}

RankedHits RankedSearchRun::TakeHits() {
    progress.Complete();
    return queue.TakeHits();
}

}  // namespace brindle
