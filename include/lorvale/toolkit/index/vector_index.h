#pragma once
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <span>

#include "lorvale/export.h"
#include "lorvale/toolkit/index/inverted_index.h"
#include "lorvale/toolkit/index/term_index.h"

namespace brindle {

/// A document with the block of its vector.  Stored: the document, docID, documentLength, vectorBlockID.
class LORVALE_EXPORT VectorDocInfo : public DocInfo {
public:
    using DocInfo::DocInfo;
    VectorDocInfo() = default;
    ~VectorDocInfo() override;

    /// 0 before the document is flushed.
    std::uint32_t GetVectorBlockID() const { return vectorBlockID; }
    void SetVectorBlockID(std::uint32_t block) { vectorBlockID = block; }

    std::unique_ptr<IAStorable> DeepCopy() const override;
    std::uint32_t StoreSize() const override;
    void Store(IAOutputBlock* output) const override;
    std::unique_ptr<IAStorable> Restore(IAInputBlock* input) const override;
    void DeepCopying(const IAStorable* source) override;
    void Restoring(IAInputBlock* input, const IAStorable* prototype) override;
    std::uint32_t StoredSize(std::span<const std::uint8_t> stored) const override;

private:
    std::uint32_t vectorBlockID = 0;
};

/// The index that keeps for each document which terms it has, and how often, so that this can be told without
/// analysing its text again.
///
/// A vector is a block of the storage: the number of components as a VInt32, then these, as TFVector stores
/// them.  A deletion reads the vector and frees its block at once; the records of its terms are corrected with
/// the next flush.
class LORVALE_EXPORT VectorIndex : public virtual TermIndex {
public:
    VectorIndex();
    VectorIndex(IAStorage* storage, std::unique_ptr<IACorpus> corpus, std::unique_ptr<IAAnalysis> analysis,
                std::uint32_t indexType = VectorIndexType, std::uint32_t indexRoot = 0);
    ~VectorIndex() override;

    void* IANarrowInternal(const void* classID) override;
    /// A vector without components is invalid, and so is one whose term IDs do not rise.
    bool ValidateDocInfos(bool raise) override;
    /// From the vectors; each distinct term is looked up once.
    bool GetTFMaps(std::span<const IADoc* const> documents, std::span<TFMap> maps, Progress* progress) override;

    /// Raises "invalid document" (InvalidDocument) for one that is not there.  Any thread.
    virtual std::unique_ptr<TFVector> GetTFVector(const IADoc* doc);
    /// Calls ResetPostings() for each term that deleted documents had, which are then not corrected by the next
    /// flush: for an index that has postings, too.
    void ExpungeTermPostings();

    /// The vector in a block of this storage; raises "term vector damaged" (IndexInvalid).
    std::unique_ptr<TFVector> ReadTFVector(std::uint32_t block);
    static std::unique_ptr<TFVector> ReadTFVector(IAStorage* storage, std::uint32_t block);
    void WriteTFVector(const TFVector& vector, std::uint32_t block);

    static const void* IAClassID();
    static VectorIndex* IANarrow(IAIndex* index);

protected:
    void Constructing(IAStorage* storage, std::unique_ptr<IACorpus> corpus,
                      std::unique_ptr<IAAnalysis> analysis, std::uint32_t indexType, std::uint32_t indexRoot);

    std::unique_ptr<DocInfo> MakeDocInfo(std::unique_ptr<IADoc> document, std::uint32_t docID) const override;
    bool KeepsVectors() const override { return true; }
    void UpdateDocInfo(DocInfo& info, TFVector& vector) override;
    void MergeDocInfo(DocInfo& made, const DocInfo& old, TermIndex& source, const TermMap& termMap) override;
    std::uint32_t MergeDocCost() const override { return TermIndex::MergeDocCost() * 10; }
    void DeletingDoc(const DocInfo& info) override;
    void FlushUpdates() override;

private:
    friend class VectorStream;

    void StoreVector(DocInfo& info, const TFVector& vector);
    void FlushTermIdUpdates();
    std::unique_ptr<IATerm> FindIDTerm(std::uint32_t termID);

    // Held while a document's record is looked up and its vector read, and while both go, so that no reader is
    // led to a block that holds something else by then.  Taken after the index's mutex and before those of
    // the tables.
    const std::unique_ptr<IAMutex> vectorMutex;
    std::atomic<std::uint64_t> vectorsGone{0};             // grows when a block of a vector is given back
    std::map<std::uint32_t, std::uint32_t> termIdUpdates;  // how many deleted documents each term has lost
};

/// The index with both: a list of postings for each term, and a vector for each document.
///
/// What a deletion leaves behind is that of InvertedIndex: its documents count for their terms until these are
/// looked up or the index is compacted.
class LORVALE_EXPORT InVecIndex : public InvertedIndex, public VectorIndex {
public:
    InVecIndex(IAStorage* storage, std::unique_ptr<IACorpus> corpus, std::unique_ptr<IAAnalysis> analysis,
               std::uint32_t indexType = InVecIndexType, std::uint32_t indexRoot = 0);
    ~InVecIndex() override;

    /// Asks the inverted side first.
    void* IANarrowInternal(const void* classID) override;

    static const void* IAClassID();
    static InVecIndex* IANarrow(IAIndex* index);

protected:
    void DeletingDoc(const DocInfo& info) override;
};

}  // namespace brindle
