#pragma once
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/index/postings.h"
#include "lorvale/toolkit/index/term_index.h"

namespace brindle {

/// A list of fewer postings stays in the term's record.
inline constexpr std::uint32_t ImmediatePostingThreshold = 128;
/// A compaction commits whenever it has been through that share of the terms.
inline constexpr std::uint32_t ExpungeMaxPercentPerUpdate = 10;

/// A term with its postings.  Stored: the term, termID, documentCount, maxDocFreq, the postings, of which there
/// are documentCount.  "ab" as term 3, twice in document 5:  02 61 62 03 01 02 0A 02
class LORVALE_EXPORT InvertedTermInfo : public TermInfo {
public:
    InvertedTermInfo() = default;
    using TermInfo::TermInfo;
    ~InvertedTermInfo() override;

    std::unique_ptr<IAStorable> DeepCopy() const override;
    std::uint32_t StoreSize() const override;
    void Store(IAOutputBlock* output) const override;
    /// Of this class and of the next: what is stored is one of the two by its documentCount.
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override;
    void DeepCopying(const IAStorable* source) override;
    std::uint32_t StoredSize(std::span<const std::uint8_t> stored) const override;
    /// The first of the chain of blocks, 0 if there is none.
    virtual std::uint32_t FirstBlock() const { return 0; }

    /// The highest frequency of any posting.
    std::uint32_t GetMaxDocFreq() const { return maxDocFreq; }
    std::uint32_t PostingCount() const { return postings.Count(); }
    const FreqPostingList& Postings() const { return postings; }
    /// In blocks: all but those in the record.
    std::uint32_t ChainCount() const { return documentCount - postings.Count(); }

protected:
    friend class FreqPSImpl;
    friend class InvertedIndex;
    /// Reads what follows documentCount.
    virtual void RestoringPostings(IAInputBlock* input);

    std::uint32_t maxDocFreq = 0;
    FreqPostingList postings;      // all of them, or the tail that is not yet in a block
    std::uint64_t chainStamp = 0;  // when the record was read, as its index counts; 0 if that is not known
};

/// A term with so many postings that most are in a chain of blocks.  Stored: the term, termID, documentCount,
/// the number of postings here, firstBlock, lastBlock, maxDocFreq, the postings.
class LORVALE_EXPORT InvertedBlockTermInfo : public InvertedTermInfo {
public:
    InvertedBlockTermInfo() = default;
    using InvertedTermInfo::InvertedTermInfo;
    ~InvertedBlockTermInfo() override;

    std::unique_ptr<IAStorable> DeepCopy() const override;
    std::uint32_t StoreSize() const override;
    void Store(IAOutputBlock* output) const override;
    void DeepCopying(const IAStorable* source) override;
    std::uint32_t FirstBlock() const override { return firstBlock; }
    std::uint32_t LastBlock() const { return lastBlock; }

protected:
    friend class InvertedIndex;
    void RestoringPostings(IAInputBlock* input) override;

    std::uint32_t firstBlock = 0;
    std::uint32_t lastBlock = 0;
};

/// The index with a list of postings for each term.
///
/// Deleting a document sets a bit.  Its postings go when their term is looked up next (in an index that is open
/// for writing), or with Compact(), which clears the bits in the end; until then its number is not handed out
/// again.
class LORVALE_EXPORT InvertedIndex : public virtual TermIndex {
public:
    InvertedIndex();
    InvertedIndex(IAStorage* storage, std::unique_ptr<IACorpus> corpus, std::unique_ptr<IAAnalysis> analysis,
                  std::uint32_t indexType = InvertedIndexType, std::uint32_t indexRoot = 0);
    ~InvertedIndex() override;

    void Initialize() override;
    void Open() override;
    /// Removes all postings of deleted documents and commits the storage, with a commit after each tenth of the
    /// terms, so that little is lost if it is interrupted.
    void Compact() override;
    void* IANarrowInternal(const void* classID) override;
    /// The record holds no postings of deleted documents.
    std::unique_ptr<TermInfo> GetTermInfo(const IATerm* term) override;
    bool ValidateTermInfos(bool raise) override;
    void ResetPostings(TermInfo* info) override;

    /// The term's postings.  The stream works on its own copy of the record, sees the documents of this moment,
    /// goes on when the index changes meanwhile, and does not outlive the index.  Any thread.
    std::unique_ptr<FreqPS> GetFreqPostings(const TermInfo* info);
    std::uint32_t GetDeletedDocCount();
    /// Whether the document's bit is set.
    bool IsDocDeleted(std::uint32_t docID);
    /// Clears the document's bit.
    void ResetDeletedDoc(const DocInfo* info);

    static const void* IAClassID();
    static InvertedIndex* IANarrow(IAIndex* index);

protected:
    void Constructing(IAStorage* storage, std::unique_ptr<IACorpus> corpus,
                      std::unique_ptr<IAAnalysis> analysis, std::uint32_t indexType, std::uint32_t indexRoot);

    std::uint32_t RootSize() override;
    void StoreRoot(IAOutputBlock* output) override;
    void RestoreRoot(IAInputBlock* input) override;
    void Initializing() override;
    std::unique_ptr<TermInfo> MakeTermInfo(std::unique_ptr<IATerm> term, std::uint32_t termID) const override;
    std::unique_ptr<TermInfo> UpdateTermInfo(std::unique_ptr<TermInfo> info,
                                             std::span<const FreqPosting> additions,
                                             std::uint32_t delCount) override;
    std::unique_ptr<TermInfo> MergeTermInfo(std::unique_ptr<TermInfo> ours, const TermInfo& theirs,
                                            TermIndex& source, std::uint32_t base) override;
    void MergeDocIDs(TermIndex& source, std::uint32_t base) override;
    std::uint32_t MergeTermCost() const override { return TermIndex::MergeTermCost() * 2; }
    void FinishingUpdate() override;
    void DeletingDoc(const DocInfo& info) override;
    void DeletingPostings(std::unique_ptr<IATerm> term, std::uint32_t count) override;

    /// Sets the document's bit.
    void DeletingDocInternal(const DocInfo& info);

private:
    friend class FreqPSImpl;

    /// The bits of deleted documents, to be read for as long as the caller likes; null if none is set.
    std::shared_ptr<const BitArray> SharedDeletedDocs();
    /// The same, to be changed: a copy, if somebody may be reading them.  Under chainMutex.
    BitArray& OwnDeletedDocs();
    void SetDeletedBit(std::uint32_t docID);

    // InvertedIndexLists.cpp
    void UpdatePostingBlocks(InvertedBlockTermInfo& info, std::span<const FreqPosting> additions);
    /// Calls `use` with the postings of each block, which it may change, and of the record.
    void ForEachRun(const InvertedTermInfo& info, IAStorage* from, bool freeBlocks,
                    const std::function<void(std::vector<FreqPosting>&)>& use);
    bool HasDeletedPostings(const InvertedTermInfo& info, const BitArray& deleted);
    std::unique_ptr<TermInfo> ExpungePostings(std::unique_ptr<TermInfo> info, const BitArray& deleted);
    /// The same for an index that cannot be written: a record of its own, which is in no table.
    std::unique_ptr<TermInfo> LiveCopy(std::unique_ptr<TermInfo> info, const BitArray& deleted);
    /// Expunges and stores a term's record.  Answers it, or null if no document is left; the term has then left
    /// the table, and its ID is told.
    std::unique_ptr<TermInfo> ExpungeTerm(std::unique_ptr<TermInfo> info, const BitArray& deleted,
                                          std::uint32_t* goneID);
    void ExpungeAll(Progress& progress);
    void Commit();

    // Guards the chains of blocks and the bits for a moment each, so that readers do not wait for a whole
    // flush. Taken after the index's mutex and before those of the tables.
    const std::unique_ptr<IAMutex> chainMutex;
    std::uint32_t deletedDocsBlock = 0;
    std::shared_ptr<BitArray> deletedDocs;
    bool deletedDocsShared = false;              // somebody has been given these
    std::atomic<std::uint32_t> deletedCount{0};  // bits set in it
    std::atomic<std::uint64_t> chainChanges{1};  // grows when blocks of a chain are given back
};

}  // namespace brindle
