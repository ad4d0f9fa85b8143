#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/index/records.h"
#include "lorvale/toolkit/storage/bit_array.h"
#include "lorvale/toolkit/storage/block.h"

namespace brindle {

// A list of postings is stored in ascending order of documents.  Each posting is the difference of its docID to
// the one before, or to 0 for the first of a list and of a block, in VInt32s:
//   freq 1          2 * difference + 1
//   another freq    2 * difference, freq
// Document 5 once:  0B    Document 5 three times:  0A 03    After document 5, document 7 once:  05

/// The bytes that each takes behind one of `previous`.
constexpr std::uint32_t FreqPostingStoreSize(FreqPosting posting, std::uint32_t previous = 0) {
    const std::uint32_t delta = (posting.docID - previous) * 2;
    return posting.freq == 1 ? VInt32Size(delta + 1) : VInt32Size(delta) + VInt32Size(posting.freq);
}
LORVALE_EXPORT std::uint32_t FreqPostingsStoreSize(std::span<const FreqPosting> postings);
LORVALE_EXPORT void FreqPostingsStore(std::span<const FreqPosting> postings, IAOutputBlock* output);
/// Raises "postings damaged" (IndexInvalid) for what is no list of `count` postings.
LORVALE_EXPORT std::vector<FreqPosting> FreqPostingsRestore(std::uint32_t count, IAInputBlock* input);
/// The bits of deleted documents; those beyond the array are clear.
inline bool FreqPostingIsDeleted(const BitArray& deleted, std::uint32_t docID) {
    return docID < deleted.Length() && deleted.Get(docID);
}
/// Removes the postings of the documents whose bit is set.
LORVALE_EXPORT void FreqPostingsRemove(std::vector<FreqPosting>& postings, const BitArray& deleted);
/// Adds `base` to the document IDs.
LORVALE_EXPORT void FreqPostingsRename(std::span<FreqPosting> postings, std::uint32_t base);

// A posting block, one of a chain: big-endian 32-bit fields, then the postings.
//   offset  size
//        0     4  block ID of the next block, 0 for the last one
//        4     4  the number of postings here, at least 1
//        8        the postings, the first one's difference being its docID
inline constexpr std::uint32_t FreqPostingsBlockOverhead = 8;

/// How many of the postings fit one block of IADiskBlockSize, and the size of that block.  There is at least
/// one.
struct FreqPostingsPage {
    std::uint32_t count, size;
};
LORVALE_EXPORT FreqPostingsPage FreqPostingsPaginate(std::span<const FreqPosting> postings);
LORVALE_EXPORT void FreqPostingsStoreBlock(IAStorage* storage, std::uint32_t block, std::uint32_t size,
                                           std::span<const FreqPosting> postings, std::uint32_t nextBlock);
/// Appends the block's postings to `postings`, which may be in the middle of a list: its docIDs go on rising.
/// Answers the next block.  Raises "postings damaged" (IndexInvalid).
LORVALE_EXPORT std::uint32_t FreqPostingsRestoreBlock(IAStorage* storage, std::uint32_t block,
                                                      std::vector<FreqPosting>& postings);

/// A short list of postings, kept as it is stored, so that a record in a table is read and extended without
/// looking at all of them.
class LORVALE_EXPORT FreqPostingList {
public:
    std::uint32_t Count() const { return count; }
    std::uint32_t StoreSize() const { return static_cast<std::uint32_t>(bytes.size()); }
    /// Behind the last one; raises "postings out of order" (IAAssertionFailure) otherwise.
    void Append(std::span<const FreqPosting> postings);
    std::vector<FreqPosting> Decoded() const;
    void Clear();

    void Store(IAOutputBlock* output) const;
    /// Raises "postings damaged" (IndexInvalid) for what is no list of that count.
    void Restore(std::uint32_t storedCount, IAInputBlock* input);

private:
    std::string bytes;
    std::uint32_t count = 0;
    std::uint32_t last = 0;  // the last docID
};

/// A stream of one term's postings, in ascending order of documents and without deleted ones.
class LORVALE_EXPORT FreqPS : public IAObject {
public:
    ~FreqPS() override;
    /// False at the end.
    virtual bool Next(FreqPosting* posting) = 0;
};

}  // namespace brindle
