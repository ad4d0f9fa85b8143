#pragma once
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "lorvale/toolkit/index/inverted_index.h"

namespace brindle {

/// The postings of one term, read block by block.
///
/// It sees what its record knows of, whatever is appended meanwhile.  When blocks have been given back
/// meanwhile, by an expunge in another thread or by a second look-up of the term, it looks the term up again
/// and goes on behind the last document it has delivered.
class FreqPSImpl final : public FreqPS {
public:
    FreqPSImpl(InvertedIndex& ofIndex, std::unique_ptr<InvertedTermInfo> ofRecord);
    ~FreqPSImpl() override;

    bool Next(FreqPosting* posting) override {
        if (at == buffer.size() && !Refill()) return false;
        *posting = buffer[at++];
        return true;
    }
    /// What comes next, as many as there are at hand; none at the end.  Skip() takes them.
    std::span<const FreqPosting> Ahead() {
        if (at == buffer.size() && !Refill()) return {};
        return std::span(buffer).subspan(at);
    }
    void Skip(std::size_t count) { at += count; }

private:
    bool Refill();
    void ReadBlock();
    void Relocate();
    void TakeTail();
    /// Drops what was delivered before or is deleted.
    void Sift();

    InvertedIndex& index;
    std::unique_ptr<InvertedTermInfo> record;  // null when its postings have been taken, too
    std::shared_ptr<const BitArray> deleted;   // null if there are none
    std::vector<FreqPosting> buffer;
    std::size_t at = 0;
    std::uint32_t nextBlock = 0;
    std::uint32_t chainLeft = 0;      // postings still to come from the chain
    std::uint32_t lastRead = 0;       // docID, since the list was begun
    std::uint32_t lastDelivered = 0;  // docID
};

}  // namespace brindle
