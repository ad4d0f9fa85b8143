#include "toolkit/retrieval/WordPostings.h"

#include <algorithm>

namespace brindle {

WordPostings::Run::Run(const RQEntry& entry, InvertedIndex& index, const InvertedTermInfo& info,
                       const Similarity& similarity)
    : stream(index, IADeepCopyOf(info)), weights(entry, similarity) {}

WordPostings::WordPostings(const IAQuery& query, InvertedIndex& index, std::uint32_t i,
                           const Similarity& ofSimilarity, bool allTerms)
    : similarity(ofSimilarity) {
    const auto isHere = [i](const auto& entry) { return entry->InfoIn(i) != nullptr; };
    const auto& entries = query.GetEntries();
    const auto here = static_cast<std::uint32_t>(std::ranges::count_if(entries, isHere));
    if (allTerms && here < query.GetSourceTermCount()) return;
    if (here > 1) {
        if (allTerms) together = here;
        many = std::make_unique<FreqPSQueue>(query, index, i);
    } else if (const auto at = std::ranges::find_if(entries, isHere); at != entries.end()) {
        const auto& info = static_cast<const InvertedTermInfo&>(*(*at)->InfoIn(i));
        one = std::make_unique<Run>(**at, index, info, similarity);
        ahead = one->stream.Ahead();
    }
    Show();
}

void WordPostings::Show() {
    if (together != 0) return ShowCommon();
    if (many != nullptr)
        next = many->IsEmpty() ? NoMore : many->First().posting.docID;
    else
        next = ahead.empty() ? NoMore : ahead.front().docID;
}

/// The queue holds each term until its end, so that the first and the last one in it tell whether all agree.
void WordPostings::ShowCommon() {
    while (many->Count() == together && many->First().posting.docID != many->Last().posting.docID)
        many->AdvanceFirst();
    next = many->Count() == together ? many->First().posting.docID : NoMore;
}

void WordPostings::Drop(std::size_t count) {
    one->stream.Skip(count);
    ahead = ahead.subspan(count);
    if (ahead.empty()) ahead = one->stream.Ahead();
    Show();
}

void WordPostings::SkipTo(std::uint32_t document) {
    if (many != nullptr) {
        while (next < document) {
            many->AdvanceFirst();
            Show();
        }
        return;
    }
    while (next < document) {
        // It is near, as a rule: the steps double until they are beyond it.
        std::size_t low = 0, step = 1;
        while (low + step < ahead.size() && ahead[low + step].docID < document) low += step, step *= 2;
        const auto end = ahead.begin() + static_cast<std::ptrdiff_t>(std::min(low + step + 1, ahead.size()));
        const auto at = std::ranges::lower_bound(ahead.begin() + static_cast<std::ptrdiff_t>(low), end,
                                                 document, {}, &FreqPosting::docID);
        Drop(static_cast<std::size_t>(at - ahead.begin()));
    }
}

double WordPostings::Take() {
    if (many == nullptr) {
        const double weight = one->weights.Of(ahead.front().freq);
        Drop(1);
        return weight;
    }
    double weight = TakeFirst();
    for (std::uint32_t taken = 1; taken < together; ++taken) weight += TakeFirst();
    Show();
    return weight;
}

double WordPostings::TakeFirst() {
    const FreqPSHead& head = many->First();
    const double weight = TermWeights(*head.entry, similarity).Of(head.posting.freq);
    many->AdvanceFirst();
    return weight;
}

}  // namespace brindle
