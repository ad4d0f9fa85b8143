#include "toolkit/retrieval/WordPostings.h"

#include <algorithm>

namespace brindle {

WordPostings::Run::Run(const RQEntry& entry, InvertedIndex& index, const InvertedTermInfo& info,
                       const Similarity& similarity)
    : stream(index, IADeepCopyOf(info)), weights(entry, similarity) {}

WordPostings::WordPostings(const IAQuery& query, InvertedIndex& index, std::uint32_t i,
                           const Similarity& ofSimilarity)
    : similarity(ofSimilarity) {
    const auto isHere = [i](const auto& entry) { return entry->InfoIn(i) != nullptr; };
    const auto& entries = query.GetEntries();
    if (std::ranges::count_if(entries, isHere) > 1) {
        many = std::make_unique<FreqPSQueue>(query, index, i);
    } else if (const auto at = std::ranges::find_if(entries, isHere); at != entries.end()) {
        const auto& info = static_cast<const InvertedTermInfo&>(*(*at)->InfoIn(i));
        one = std::make_unique<Run>(**at, index, info, similarity);
        ahead = one->stream.Ahead();
    }
    Show();
}

void WordPostings::Show() {
    if (many != nullptr)
        next = many->IsEmpty() ? NoMore : many->First().posting.docID;
    else
        next = ahead.empty() ? NoMore : ahead.front().docID;
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
    const FreqPSHead& head = many->First();
    const double weight = TermWeights(*head.entry, similarity).Of(head.posting.freq);
    many->AdvanceFirst();
    Show();
    return weight;
}

}  // namespace brindle
