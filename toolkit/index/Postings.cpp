#include "lorvale/toolkit/index/postings.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "lorvale/toolkit/storage/exception.h"
#include "toolkit/index/PostingCoding.h"
#include "toolkit/index/RecordLimits.h"

namespace brindle {

namespace {

std::uint8_t* Put(FreqPosting posting, std::uint32_t previous, std::uint8_t* to) {
    return PutPair(posting.docID, posting.freq, previous, to);
}

/// Reads `count` postings that rise from `previous`, to the front of `to`.  Answers the end of the bytes read,
/// or null for what is no such list.
const std::uint8_t* Take(std::uint32_t count, std::uint32_t previous, const std::uint8_t* from,
                         const std::uint8_t* end, FreqPosting* to) {
    std::uint32_t docID = previous;
    std::uint32_t base = 0;  // the first difference is to 0
    for (FreqPosting* const last = to + count; to != last; ++to) {
        std::uint32_t delta = 0, freq = 0;
        if ((from = TakePair(from, end, delta, freq)) == nullptr) return nullptr;
        const std::uint32_t next = base + delta;
        if (next <= docID || next >= kDocIDLimit) return nullptr;
        docID = base = next;
        *to = {docID, freq};
    }
    return from;
}

/// The bytes that `count` postings may take of what is left of a block.
std::vector<std::uint8_t> BytesFor(std::uint32_t count, IAInputBlock* input) {
    const std::uint32_t left = input->Remaining();
    IAAssertion(count <= left, "postings damaged", IndexInvalid);
    std::vector<std::uint8_t> bytes(std::min<std::uint64_t>(left, std::uint64_t{count} * kMaxPostingSize));
    input->ReadBuffer(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    return bytes;
}

}  // namespace

FreqPS::~FreqPS() = default;

std::uint32_t FreqPostingsStoreSize(std::span<const FreqPosting> postings) {
    std::uint32_t size = 0, previous = 0;
    for (const FreqPosting posting : postings) {
        size += FreqPostingStoreSize(posting, previous);
        previous = posting.docID;
    }
    return size;
}

void FreqPostingsStore(std::span<const FreqPosting> postings, IAOutputBlock* output) {
    std::array<std::uint8_t, kMaxPostingSize> bytes;
    std::uint32_t previous = 0;
    for (const FreqPosting posting : postings) {
        const std::uint8_t* const end = Put(posting, previous, bytes.data());
        output->WriteBuffer(bytes.data(), static_cast<std::uint32_t>(end - bytes.data()));
        previous = posting.docID;
    }
}

std::vector<FreqPosting> FreqPostingsRestore(std::uint32_t count, IAInputBlock* input) {
    const std::vector<std::uint8_t> bytes = BytesFor(count, input);
    std::vector<FreqPosting> postings(count);
    IAAssertion(Take(count, 0, bytes.data(), bytes.data() + bytes.size(), postings.data()) != nullptr,
                "postings damaged", IndexInvalid);
    return postings;
}

void FreqPostingsRemove(std::vector<FreqPosting>& postings, const BitArray& deleted) {
    std::erase_if(postings, [&](FreqPosting each) { return FreqPostingIsDeleted(deleted, each.docID); });
}

void FreqPostingsRename(std::span<FreqPosting> postings, std::uint32_t base) {
    for (FreqPosting& posting : postings) {
        IAAssertion(base < kDocIDLimit && posting.docID < kDocIDLimit - base, "too many documents",
                    IAAssertionFailure);
        posting.docID += base;
    }
}

FreqPostingsPage FreqPostingsPaginate(std::span<const FreqPosting> postings) {
    IAAssertion(!postings.empty(), "posting with zero length result", IAAssertionFailure);
    FreqPostingsPage page{1, FreqPostingsBlockOverhead + FreqPostingStoreSize(postings.front())};
    for (; page.count < postings.size(); ++page.count) {
        const std::uint32_t size = FreqPostingStoreSize(postings[page.count], postings[page.count - 1].docID);
        if (page.size + size > IADiskBlockSize) break;
        page.size += size;
    }
    return page;
}

void FreqPostingsStoreBlock(IAStorage* storage, std::uint32_t block, std::uint32_t size,
                            std::span<const FreqPosting> postings, std::uint32_t nextBlock) {
    IAOutputBlock output(storage, block, size);
    output.WriteUInt32(nextBlock);
    output.WriteUInt32(static_cast<std::uint32_t>(postings.size()));
    FreqPostingsStore(postings, &output);
}

std::uint32_t FreqPostingsRestoreBlock(IAStorage* storage, std::uint32_t block,
                                       std::vector<FreqPosting>& postings) {
    IAInputBlock input(storage, block);
    const std::uint32_t nextBlock = input.ReadUInt32();
    const std::uint32_t count = input.ReadUInt32();
    const std::vector<std::uint8_t> bytes = BytesFor(count, &input);
    const std::size_t before = postings.size();
    postings.resize(before + count);
    const std::uint32_t previous = before == 0 ? 0 : postings[before - 1].docID;
    IAAssertion(count > 0 && Take(count, previous, bytes.data(), bytes.data() + bytes.size(),
                                  postings.data() + before) != nullptr,
                "postings damaged", IndexInvalid);
    return nextBlock;
}

void FreqPostingList::Append(std::span<const FreqPosting> postings) {
    std::array<std::uint8_t, kMaxPostingSize> coded;
    for (const FreqPosting posting : postings) {
        IAAssertion(posting.docID > last && posting.docID < kDocIDLimit && posting.freq > 0,
                    "postings out of order", IAAssertionFailure);
        const std::uint8_t* const end = Put(posting, last, coded.data());
        bytes.append(reinterpret_cast<const char*>(coded.data()), static_cast<std::size_t>(end - coded.data()));
        last = posting.docID;
        ++count;
    }
}

std::vector<FreqPosting> FreqPostingList::Decoded() const {
    std::vector<FreqPosting> postings(count);
    const auto* const begin = reinterpret_cast<const std::uint8_t*>(bytes.data());
    Take(count, 0, begin, begin + bytes.size(),
         postings.data());  // of these bytes it is known that they are right
    return postings;
}

void FreqPostingList::Clear() {
    bytes.clear();
    count = 0;
    last = 0;
}

void FreqPostingList::Store(IAOutputBlock* output) const {
    output->WriteBuffer(bytes.data(), StoreSize());
}

void FreqPostingList::Restore(std::uint32_t storedCount, IAInputBlock* input) {
    IAAssertion(storedCount < ImmediatePostingThreshold, "postings damaged", IndexInvalid);
    std::array<std::uint8_t, ImmediatePostingThreshold * kMaxPostingSize> coded;
    std::uint8_t* to = coded.data();
    std::uint32_t docID = 0;
    for (std::uint32_t i = 0; i < storedCount; ++i) {
        const std::uint32_t delta = VInt32Read(input);
        const std::uint32_t freq = (delta & 1) != 0 ? 1 : VInt32Read(input);
        // What is written here again is what was read, but for numbers that no list holds.
        IAAssertion(delta > 1 && freq > 0 && docID < kDocIDLimit - (delta >> 1), "postings damaged",
                    IndexInvalid);
        docID += delta >> 1;
        to = PutVInt32(delta, to);
        if ((delta & 1) == 0) to = PutVInt32(freq, to);
    }
    bytes.assign(reinterpret_cast<const char*>(coded.data()), static_cast<std::size_t>(to - coded.data()));
    count = storedCount;
    last = docID;
}

}  // namespace brindle
