#include "toolkit/index/PostingStream.h"

#include <algorithm>

#include "toolkit/index/Probes.h"

namespace brindle {

FreqPSImpl::FreqPSImpl(InvertedIndex& ofIndex, std::unique_ptr<InvertedTermInfo> ofRecord)
    : index(ofIndex), record(std::move(ofRecord)), deleted(index.SharedDeletedDocs()) {
    nextBlock = record->FirstBlock();
    chainLeft = nextBlock != 0 ? record->ChainCount() : 0;
}

FreqPSImpl::~FreqPSImpl() = default;

bool FreqPSImpl::Refill() {
    while (record != nullptr) {
        if (!buffer.empty()) lastDelivered = buffer.back().docID;
        buffer.clear();
        at = 0;
        if (chainLeft > 0)
            ReadBlock();
        else
            TakeTail();
        Sift();
        if (!buffer.empty()) return true;
    }
    return false;
}

void FreqPSImpl::ReadBlock() {
    const IALock lock(index.chainMutex.get());
    if (record->chainStamp != index.chainChanges) {
        Relocate();
        if (chainLeft == 0) return;
    }
    nextBlock = FreqPostingsRestoreBlock(index.GetStorage(), nextBlock, buffer);
    if (buffer.size() > chainLeft) buffer.resize(chainLeft);  // what is behind was appended later
    chainLeft -= static_cast<std::uint32_t>(buffer.size());
    IAAssertion(chainLeft == 0 || nextBlock != 0, "postings damaged", IndexInvalid);
}

void FreqPSImpl::Relocate() {
    const std::uint64_t stamp = index.chainChanges;
    const TermProbe probe(record->GetTerm());
    record = RecordOf<InvertedTermInfo>(index.GetTermInfoSet()->Get(&probe));
    nextBlock = record != nullptr ? record->FirstBlock() : 0;
    chainLeft = nextBlock != 0 ? record->ChainCount() : 0;
    lastRead = 0;
    if (record != nullptr) record->chainStamp = stamp;
}

void FreqPSImpl::TakeTail() {
    buffer = record->Postings().Decoded();
    record = nullptr;
}

void FreqPSImpl::Sift() {
    if (buffer.empty()) return;
    // Within a block they rise.  From block to block that is not known before this, and a damaged chain that
    // led to the same blocks over and over would hardly end.
    IAAssertion(buffer.front().docID > lastRead, "postings damaged", IndexInvalid);
    lastRead = buffer.back().docID;
    if (buffer.front().docID <= lastDelivered)
        std::erase_if(buffer, [this](FreqPosting each) { return each.docID <= lastDelivered; });
    if (deleted != nullptr) FreqPostingsRemove(buffer, *deleted);
}

}  // namespace brindle
