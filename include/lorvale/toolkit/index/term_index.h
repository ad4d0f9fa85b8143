#pragma once
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/index/index_base.h"
#include "lorvale/toolkit/index/records.h"

namespace brindle {

class DocInversion;
class Progress;
class TFMap;
class UpdateBatch;

/// The index that all real ones build on: numbers for terms and documents, four tables that lead each way, and
/// changes that wait in memory until a budget of bytes is passed.
///
/// What it has is of two kinds.  Flushed is what readers see, and what can be deleted and renamed.  Waiting are
/// documents since the last flush; a flush comes with Flush(), Merge(), Compact(), or when the budget is
/// passed.
///
/// Any number of threads may add documents, whose analysis runs outside of the index's mutex, and read
/// meanwhile. All other changes hold the mutex from start to end.  A change that raises midway leaves an index
/// that is good for nothing but to be deleted, together with what its storage has not committed; AddDoc() and
/// RenameDoc() that raise IndexDocAlreadyIndexed, InvalidDocument or OrderedStorableSetEntryTooBig have changed
/// nothing.
class LORVALE_EXPORT TermIndex : public IAIndex {
public:
    /// What a posting that waits is reckoned at.
    static constexpr std::uint32_t MemBytesPerPosting = 60;

    TermIndex();
    TermIndex(IAStorage* storage, std::unique_ptr<IACorpus> corpus, std::unique_ptr<IAAnalysis> analysis,
              std::uint32_t indexType = TermIndexType, std::uint32_t indexRoot = 0);
    ~TermIndex() override;

    void Initialize() override;
    void Open() override;
    void AddDoc(std::unique_ptr<IADoc> doc) override { AddDoc(std::move(doc), nullptr); }
    /// Raises "index document already indexed" (IndexDocAlreadyIndexed) for a document that is there or waits
    /// already, OrderedStorableSetEntryTooBig for one that is stored in more than 2 KB, or with such a term.
    void AddDoc(std::unique_ptr<IADoc> doc, std::uint32_t* docID);
    void RenameDoc(const IADoc* oldDoc, const IADoc* newDoc) override;
    /// Raises "invalid document" (InvalidDocument) for one that is not there; one that waits is not there yet.
    void DeleteDoc(const IADoc* doc) override;
    void Flush() override;
    void Merge(std::span<IAIndex* const> sources) override;
    bool IsDocIndexed(const IADoc* doc) override;
    std::uint32_t GetDocCount() override;
    std::unique_ptr<IADocIterator> GetDocIterator() override;
    std::unique_ptr<IADocIterator> GetDocIterator(const IADoc* from) override;
    void* IANarrowInternal(const void* classID) override;

    /// Drops pages of the tables that are only kept for speed.
    virtual void Purge();
    /// A copy of the term's record, or null.
    virtual std::unique_ptr<TermInfo> GetTermInfo(const IATerm* term);
    // Whether each record leads where it should.  With `raise` what is wrong raises.
    virtual bool ValidateTermInfos(bool raise);
    virtual bool ValidateDocInfos(bool raise);
    /// The sum of floor(sqrt(4 * length)) + 1 over all documents.
    virtual std::uint32_t GetNorm();
    /// Removes the postings of deleted documents from the term's list.  Raises in this class, which has none.
    virtual void ResetPostings(TermInfo* info);
    /// Fills the i-th map with the terms of the i-th document: here by analysing its text again, as a query is
    /// analysed.  There are as many maps as documents.  The call is one step of the progress, which may be
    /// null.  True if it was cancelled.
    virtual bool GetTFMaps(std::span<const IADoc* const> documents, std::span<TFMap> maps, Progress* progress);

    std::uint32_t GetTermCount();
    /// The next ID to be handed out, greater than all there have been.
    std::uint32_t GetMaxTermID();
    std::uint32_t GetMaxDocID();
    /// Raises "invalid termID" (InvalidTermID).
    std::unique_ptr<IATerm> GetIDTerm(std::uint32_t termID);
    /// Raises "invalid docID" (InvalidDocID).
    std::unique_ptr<IADoc> GetIDDoc(std::uint32_t docID);
    /// The same; null for an unknown ID.
    std::unique_ptr<IADoc> FindIDDoc(std::uint32_t docID);
    /// Of TermInfo, by term; the second one from the first term not less than `from`.
    std::unique_ptr<IAOrderedStorableIterator> GetTermInfoIterator();
    std::unique_ptr<IAOrderedStorableIterator> GetTermInfoIterator(const IATerm* from);
    /// A copy of the document's record.  Null for an unknown one if that is allowed; else it raises "invalid
    /// document" (InvalidDocument).
    std::unique_ptr<DocInfo> GetDocInfo(const IADoc* doc, bool missingAllowed);
    /// Of DocInfo, by document.
    std::unique_ptr<IAOrderedStorableIterator> GetDocInfoIterator();
    std::unique_ptr<IAOrderedStorableIterator> GetDocInfoIterator(const IADoc* from);
    /// Of IDDoc, the highest number first.
    std::unique_ptr<IAOrderedStorableIterator> GetIDDocIterator();
    /// ValidateDocInfos() and, if that passed and unless `docsOnly`, ValidateTermInfos().  The result is that
    /// of the documents alone.
    bool Validate(bool raise, bool docsOnly);
    IAOrderedStorableSet* GetTermInfoSet() const { return termInfoSet.get(); }
    IAOrderedStorableSet* GetiDTermMap() const { return iDTermMap.get(); }
    // Header blocks of the four tables.
    std::uint32_t GetDocInfoSetRoot() const { return docInfoSetRoot; }
    std::uint32_t GetIDDocMapRoot() const { return iDDocMapRoot; }
    std::uint32_t GetTermInfoSetRoot() const { return termInfoSetRoot; }
    std::uint32_t GetIDTermMapRoot() const { return iDTermMapRoot; }

    /// A flush comes with the first change after postings for more bytes than that wait: 1,000,000.
    std::uint32_t GetBytesForUpdate() const { return bytesForUpdate; }
    void SetBytesForUpdate(std::uint32_t bytes) { bytesForUpdate = bytes; }
    /// Postings that wait.
    std::uint32_t GetUpdateCount();
    void SetUpdateCount(std::uint32_t count);
    /// Told the percentage of a flush, merge or compaction, under the index's mutex, at most every so many
    /// ticks of clock().  There is no cancelling these.
    using FlushProgressFn = std::function<void(float percent)>;
    const FlushProgressFn& GetFlushProgressFn() const { return flushProgressFn; }
    void SetFlushProgressFn(FlushProgressFn fn) { flushProgressFn = std::move(fn); }
    std::uint32_t GetFlushProgressFreq() const { return flushProgressFreq; }
    void SetFlushProgressFreq(std::uint32_t ticks) { flushProgressFreq = ticks; }

    static const void* IAClassID();
    static TermIndex* IANarrow(IAIndex* index);

protected:
    void Constructing(IAStorage* storage, std::unique_ptr<IACorpus> corpus,
                      std::unique_ptr<IAAnalysis> analysis, std::uint32_t indexType, std::uint32_t indexRoot);

    std::uint32_t RootSize() override;
    void StoreRoot(IAOutputBlock* output) override;
    void RestoreRoot(IAInputBlock* input) override;
    void Initializing() override;

    // What a term's and a document's record hold is up to subclasses.  Called under the index's mutex, but for
    // the two that make a record.

    virtual std::unique_ptr<TermInfo> MakeTermInfo(std::unique_ptr<IATerm> term, std::uint32_t termID) const;
    /// Adds postings, in ascending order behind those that are there.  May answer another record.
    virtual std::unique_ptr<TermInfo> UpdateTermInfo(std::unique_ptr<TermInfo> info,
                                                     std::span<const FreqPosting> additions,
                                                     std::uint32_t delCount);
    /// Adds what the source has of the term, its document IDs raised by `base`.
    virtual std::unique_ptr<TermInfo> MergeTermInfo(std::unique_ptr<TermInfo> ours, const TermInfo& theirs,
                                                    TermIndex& source, std::uint32_t base);
    virtual void MergeDocIDs(TermIndex& source, std::uint32_t base);
    virtual std::uint32_t MergeTermCost() const { return 10; }
    virtual std::uint32_t MergeDocCost() const { return 10; }
    virtual std::unique_ptr<DocInfo> MakeDocInfo(std::unique_ptr<IADoc> document, std::uint32_t docID) const;
    /// Whether UpdateDocInfo() and MergeDocInfo() want components and term IDs, which cost time and memory.
    virtual bool KeepsVectors() const { return false; }
    virtual void UpdateDocInfo(DocInfo& info, TFVector& vector);
    /// Pairs of a term's ID in the source and here, by the former; empty unless KeepsVectors().
    using TermMap = std::vector<std::pair<std::uint32_t, std::uint32_t>>;
    virtual void MergeDocInfo(DocInfo& made, const DocInfo& old, TermIndex& source, const TermMap& termMap);
    /// Right before a flush writes the tables.
    virtual void FinishingUpdate();
    virtual void DeletingDoc(const DocInfo& info);
    /// For a subclass that knows how many documents a term has lost.
    virtual void DeletingPostings(std::unique_ptr<IATerm> term, std::uint32_t count);
    virtual void FlushUpdates();

    /// What FlushUpdates() and others report to.
    std::unique_ptr<Progress> MakeFlushProgress() const;
    /// From IDs back to terms; all that leaves with a term that no document holds any more.
    void RemoveIDTerms(const std::vector<std::uint32_t>& termIDs);
    void CountUpdates(std::uint32_t postings) { updateCount += postings; }
    void RaiseMaxDocID(std::uint32_t atLeast);

    std::unique_ptr<IAOrderedStorableSet> docInfoSet;
    std::unique_ptr<IAOrderedStorableSet> iDDocMap;
    std::unique_ptr<IAOrderedStorableSet> termInfoSet;
    std::unique_ptr<IAOrderedStorableSet> iDTermMap;

private:
    void MakeSets();
    void MaybeFlushUpdates();
    void CheckNewDoc(const IADoc& doc);
    void Enter(std::unique_ptr<IADoc> doc, DocInversion& inversion, std::uint32_t* docID);
    void FlushTermUpdates(Progress& progress);
    void FlushDocUpdates(Progress& progress);
    std::unique_ptr<DocInfo> FindDocInfo(const IADoc* doc);
    std::vector<std::uint32_t> BasesFor(std::span<TermIndex* const> sources);
    void StartMerge(std::size_t count);
    std::unique_ptr<IAOrderedStorableSet> MakeMergeMap() const;
    void MergeTermInfos(std::span<TermIndex* const> sources, std::span<const std::uint32_t> bases,
                        Progress& progress);
    void MergeTerm(const TermInfo& theirs, TermIndex& source, std::size_t number, std::uint32_t base);
    void MergeDocInfos(TermIndex& source, std::size_t number, std::uint32_t base, Progress& progress);
    TermMap TakeTermMap(std::size_t number, Progress& progress);
    void MergeDocs(TermIndex& source, std::uint32_t base, const TermMap& termMap, Progress& progress);

    std::vector<std::unique_ptr<IAOrderedStorableSet>> mergeMaps;  // one for each source of a merge under way
    std::vector<std::uint32_t> mergeMapRoots;  // their header blocks; 0 for one that is done
    std::uint32_t updateCount = 0;
    std::unique_ptr<UpdateBatch> updates;
    std::uint32_t docInfoSetRoot = 0;
    std::uint32_t iDDocMapRoot = 0;
    std::uint32_t termInfoSetRoot = 0;
    std::uint32_t iDTermMapRoot = 0;
    std::atomic<std::uint32_t> maxDocID{0};   // the next one to hand out
    std::atomic<std::uint32_t> maxTermID{0};  // likewise
    FlushProgressFn flushProgressFn;
    std::uint32_t flushProgressFreq = 0xFFFFFFFF;
    std::uint32_t bytesForUpdate = 1'000'000;
};

/// A term and the number of documents that hold it.
struct FreqTerm {
    std::uint32_t frequency;
    std::unique_ptr<IATerm> term;
};
/// The terms that most documents hold, at most `most` of them, the highest number first.  Reads all records.
LORVALE_EXPORT std::vector<FreqTerm> GetHighFreqTerms(TermIndex* index, std::uint32_t most);

}  // namespace brindle
