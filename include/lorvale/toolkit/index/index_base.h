#pragma once
#include <cstdint>
#include <memory>
#include <span>

#include "lorvale/export.h"
#include "lorvale/toolkit/analysis/analysis.h"
#include "lorvale/toolkit/corpus/corpus.h"
#include "lorvale/toolkit/storage/exception.h"
#include "lorvale/toolkit/storage/mutex.h"
#include "lorvale/toolkit/storage/storage.h"

namespace brindle {

// What kind of index a file holds.  The last character is the version of its format.
inline constexpr std::uint32_t TermIndexType = IATag("Ter2");
inline constexpr std::uint32_t InvertedIndexType = IATag("Inv6");
inline constexpr std::uint32_t VectorIndexType = IATag("Vec4");
inline constexpr std::uint32_t InVecIndexType = IATag("I&V2");

/// The name under which an index without a root block of its own is found in its storage.
inline constexpr const char* IADefaultIndexName = "IADefaultIndex";

/// The tags of what an index is made of.  The first four are stored, at the head of the root block.
struct LORVALE_EXPORT IAIndexTypes {
    static constexpr std::uint32_t StoredSize = 16;

    IAIndexTypes() = default;
    IAIndexTypes(std::uint32_t storage, std::uint32_t corpus, std::uint32_t analysis, std::uint32_t index)
        : storageType(storage), corpusType(corpus), analysisType(analysis), indexType(index) {}

    void Store(IAOutputBlock* output) const;
    void Restore(IAInputBlock* input);
    /// Whether what is stored may be opened as what is here: all four are the same and none is 0.  A storage
    /// of today, "Bud1", also accepts "Bud0".
    bool Equal(const IAIndexTypes& stored) const;

    std::uint32_t storageType = 0, corpusType = 0, analysisType = 0, indexType = 0;
    std::uint32_t orderedSetType = OrderedStorableSetType;
};

/// Reads the tags of an index without opening it.
LORVALE_EXPORT void IAReadIndexTypes(IAStorage* storage, std::uint32_t rootBlock, IAIndexTypes* types);

/// A search index: ties a storage, a corpus and an analysis together, and keeps a root block in the storage
/// that says what it is.  What it stores beyond that is up to its subclasses.
///
/// Initialize() or Open() comes first, once; everything raises "index not open" (IndexNotOpen) before.  Changes
/// become visible to readers with Flush() and durable when the owner of the storage then commits it.  There is
/// no close: deleting the index writes nothing.  One whose making or opening has raised is not open; it may be
/// opened again.
class LORVALE_EXPORT IAIndex : public IAObject {
public:
    /// For a shared base: the class that is furthest down calls Constructing().
    IAIndex();
    /// The storage is borrowed for life.  A root block of 0 stands for the one named IADefaultIndexName.
    IAIndex(IAStorage* storage, std::unique_ptr<IACorpus> corpus, std::unique_ptr<IAAnalysis> analysis,
            std::uint32_t indexType, std::uint32_t indexRoot = 0);
    IAIndex(const IAIndex&) = delete;
    IAIndex& operator=(const IAIndex&) = delete;
    ~IAIndex() override;

    /// Makes a new, empty index.
    virtual void Initialize();
    virtual void Open();
    /// Walks the documents of the corpus and of the index side by side, adds what is missing here, deletes what
    /// is gone there, and flushes.
    virtual void Update();
    virtual void AddDoc(std::unique_ptr<IADoc> doc) = 0;
    virtual void RenameDoc(const IADoc* oldDoc, const IADoc* newDoc) = 0;
    virtual void DeleteDoc(const IADoc* doc) = 0;
    /// Writes what was changed into the storage.
    virtual void Flush();
    virtual void Compact();
    /// Folds other, opened and flushed indexes into this one.  They are not changed.
    virtual void Merge(std::span<IAIndex* const> sources) = 0;
    virtual bool IsDocIndexed(const IADoc* doc) = 0;
    virtual std::uint32_t GetDocCount() = 0;
    /// In the order of the documents; the second one from the first document not less than `from`.
    virtual std::unique_ptr<IADocIterator> GetDocIterator() = 0;
    virtual std::unique_ptr<IADocIterator> GetDocIterator(const IADoc* from) = 0;
    /// This object as the class whose IAClassID() is given, or null.  IANarrow() of the classes calls it.
    virtual void* IANarrowInternal(const void* classID);
    /// What a query's text goes through: the preferred analysis, or else the index's own.
    virtual const IAAnalysis* GetQueryAnalysis() const;

    IAStorage* GetStorage() const { return storage; }
    IACorpus* GetCorpus() const { return corpus.get(); }
    IAAnalysis* GetAnalysis() const { return analysis.get(); }
    std::uint32_t GetIndexType() const { return indexType; }
    std::uint32_t GetIndexRoot() const { return indexRoot; }
    void GetIndexTypes(IAIndexTypes* types) const;
    bool IsOpen() const { return isOpen; }
    IAMutex* GetMutex() const { return mutex.get(); }

    /// How many distinct terms of a document count: 2000.  Text behind the last of them is not read.
    std::uint32_t GetMaxDocumentSize() const { return maxDocumentSize; }
    void SetMaxDocumentSize(std::uint32_t terms) { maxDocumentSize = terms; }
    /// When the root was written last, in seconds since 1970.
    std::uint32_t UpdateTime() const;
    const IAAnalysis* GetPreferredAnalysis() const { return preferredAnalysis; }
    /// Borrowed; null for none.
    void SetPreferredAnalysis(const IAAnalysis* preferred);

    static const void* IAClassID();
    static IAIndex* IANarrow(IAIndex* index);

protected:
    /// Does nothing the second time, so that every class with a shared base may call it.
    void Constructing(IAStorage* storage, std::unique_ptr<IACorpus> corpus,
                      std::unique_ptr<IAAnalysis> analysis, std::uint32_t indexType, std::uint32_t indexRoot);

    // The steps for subclasses, each of which calls its base's first.

    /// Bytes to ask for the root block.
    virtual std::uint32_t RootSize();
    virtual void StoreRoot(IAOutputBlock* output);
    /// Raises "invalid index" (IndexInvalid) for an index of other types.
    virtual void RestoreRoot(IAInputBlock* input);
    /// Makes what a new index has beyond its root.
    virtual void Initializing();

    void CheckOpen() const;

    /// Each level's Initialize() and Open() begin with one: what raises midway leaves the index as it was, not
    /// open.
    class LORVALE_EXPORT OpeningScope {
    public:
        explicit OpeningScope(IAIndex& ofIndex);
        OpeningScope(const OpeningScope&) = delete;
        OpeningScope& operator=(const OpeningScope&) = delete;
        ~OpeningScope();

    private:
        const IALock lock;
        IAIndex& index;
        const bool wasOpen;
        const int exceptions;
    };

private:
    void WriteRoot();

    std::uint32_t updateTime = 0;
    std::uint32_t corpusRoot = 0;    // the corpus's own block
    std::uint32_t analysisRoot = 0;  // the analysis's
    bool isOpen = false;
    const std::unique_ptr<IAMutex> mutex;
    bool constructed = false;
    const IAAnalysis* preferredAnalysis = nullptr;  // borrowed
    IAStorage* storage = nullptr;                   // borrowed
    std::unique_ptr<IACorpus> corpus;
    std::unique_ptr<IAAnalysis> analysis;
    std::uint32_t indexType = 0;
    std::uint32_t indexRoot = 0;
    std::uint32_t maxDocumentSize = 2000;
};

}  // namespace brindle
