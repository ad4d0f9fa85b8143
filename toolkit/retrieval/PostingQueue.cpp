#include <utility>

#include "lorvale/toolkit/retrieval/posting_queue.h"

namespace brindle {

FreqPSQueue::FreqPSQueue(const IAQuery& query, InvertedIndex& index, std::uint32_t indexNumber) {
    for (const auto& entry : query.GetEntries()) {
        const TermInfo* const info = entry->InfoIn(indexNumber);
        if (info == nullptr) continue;
        FreqPSHead head{{}, index.GetFreqPostings(info), entry.get()};
        if (head.Advance()) Put(std::move(head));
    }
}

FreqPSQueue::~FreqPSQueue() = default;

FreqPSHead FreqPSQueue::Pop() {
    FreqPSHead first = std::move(heads.back());
    heads.pop_back();
    return first;
}

void FreqPSQueue::Put(FreqPSHead head) {
    heads.push_back(std::move(head));
    SinkLast();
}

void FreqPSQueue::AdvanceFirst() {
    if (heads.back().Advance())
        SinkLast();
    else
        heads.pop_back();
}

/// Moves the head at the back in front of those for the same document or later ones.
void FreqPSQueue::SinkLast() {
    for (std::size_t i = heads.size() - 1; i > 0 && heads[i - 1].posting.docID < heads[i].posting.docID; --i)
        std::swap(heads[i - 1], heads[i]);
}

}  // namespace brindle
