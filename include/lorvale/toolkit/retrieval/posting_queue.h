#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/index/inverted_index.h"
#include "lorvale/toolkit/index/postings.h"
#include "lorvale/toolkit/retrieval/query.h"

namespace brindle {

/// Where one term of a query stands: its next posting, and the stream that delivers those behind it.
struct FreqPSHead {
    FreqPosting posting;
    std::unique_ptr<FreqPS> stream;
    const RQEntry* entry = nullptr;  // borrowed from the query

    /// Goes to the next posting; false at the end.
    bool Advance() { return stream->Next(&posting); }
};

/// The postings of all terms of a query in one index, in ascending order of documents.  Of several for one
/// document the one that was put last comes first.  One thread.
class LORVALE_EXPORT FreqPSQueue : public IAObject {
public:
    /// Of all terms that have a record for the index, which is the indexNumber-th one of the query.  The query
    /// outlives the queue.
    FreqPSQueue(const IAQuery& query, InvertedIndex& index, std::uint32_t indexNumber);
    ~FreqPSQueue() override;

    bool IsEmpty() const { return heads.empty(); }
    std::uint32_t Count() const { return static_cast<std::uint32_t>(heads.size()); }
    const FreqPSHead& First() const { return heads.back(); }
    const FreqPSHead& Last() const { return heads.front(); }
    FreqPSHead Pop();
    void Put(FreqPSHead head);
    /// Moves the first head to its next posting, and to its new place; drops it at its end.
    void AdvanceFirst();

private:
    void SinkLast();

    std::vector<FreqPSHead> heads;  // the first one at the back
};

}  // namespace brindle
