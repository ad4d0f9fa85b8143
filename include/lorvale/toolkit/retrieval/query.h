#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/index/term_index.h"
#include "lorvale/toolkit/retrieval/progress.h"
#include "lorvale/toolkit/retrieval/similarity.h"
#include "lorvale/toolkit/retrieval/tf_map.h"

namespace brindle {

/// One term of a query.
struct RQEntry : IAStruct {
    explicit RQEntry(std::unique_ptr<IATerm> ownTerm) : term(std::move(ownTerm)) {}
    RQEntry(const RQEntry&) = delete;
    RQEntry& operator=(const RQEntry&) = delete;
    ~RQEntry() override;

    std::unique_ptr<IATerm> term;
    std::vector<std::unique_ptr<TermInfo>>
        termInfos;          // one for each index of the query, null where it has no record
    float scaleFactor = 0;  // how much the term tells, by its rarity
    float weight = 0;       // its share in the query

    const TermInfo* InfoIn(std::uint32_t index) const {
        return index < termInfos.size() ? termInfos[index].get() : nullptr;
    }
};

/// A document that serves as an example, and the index in which it stands.  Both are borrowed.
struct RankedQueryDoc {
    const IADoc* document = nullptr;
    TermIndex* index = nullptr;
};

/// A weighted set of terms, taken from a text, from example documents, or from both.
///
/// Each source is a vector of unit length over its terms, and the weight of a term in the query is the sum of
/// its components in them.  All that is set is borrowed until the next call that sets it.  One thread at a
/// time.
class LORVALE_EXPORT IAQuery : public IAObject {
public:
    using Entries = std::vector<std::unique_ptr<RQEntry>>;

    IAQuery();
    IAQuery(const IAQuery&) = delete;
    IAQuery& operator=(const IAQuery&) = delete;
    ~IAQuery() override;

    void SetIndices(std::span<TermIndex* const> indices) { indexList.assign(indices.begin(), indices.end()); }
    std::span<TermIndex* const> GetIndices() const { return indexList; }
    std::uint32_t GetNumberOfIndices() const { return static_cast<std::uint32_t>(indexList.size()); }
    void SetSimilarity(const Similarity* newSimilarity) { similarity = newSimilarity; }
    const Similarity* GetSimilarity() const { return similarity; }
    /// May be null.
    void SetProgress(Progress* newProgress) { progress = newProgress; }
    Progress* GetProgress() const { return progress; }
    /// Is told each term that is looked up; may be null.
    void SetTermReport(std::function<void(const IATerm&)> report) { termReport = std::move(report); }

    /// Fills the query from its sources, and looks its terms up: those that no index has leave it.  True if it
    /// was cancelled.
    virtual bool Initialize();

    /// In the order of terms.
    const Entries& GetEntries() const { return entries; }
    /// How many different terms the sources have, those included that no index knows.
    std::uint32_t GetSourceTermCount() const { return sourceTermCount; }
    std::uint32_t Count() const { return static_cast<std::uint32_t>(entries.size()); }
    /// The entry of a term, or null.
    RQEntry* Find(std::string_view term) const;
    /// Takes an entry in, unless there is one of its term, and answers the one that is there then.
    RQEntry& Put(std::unique_ptr<RQEntry> entry);
    void Remove(const RQEntry* entry);
    /// Removes the entries for which `goes` answers true.
    void RemoveIf(const std::function<bool(const RQEntry&)>& goes);

    virtual std::unique_ptr<IADocText> GetQueryText() const;
    /// False for a query by example documents alone.
    virtual bool HasQueryText() const { return false; }
    virtual std::span<const RankedQueryDoc> GetQueryDocs() const;
    /// Looks all terms up.  True if it was cancelled.
    virtual bool ComputeTermScaleFactors();

private:
    void CountText(TFMap& map) const;
    bool CountDocs(std::span<TFMap> maps) const;
    bool LookUp(RQEntry& entry) const;
    void AddTerms(std::span<TFMap> maps);
    void Weigh(TFMap& map) const;
    void AddWeights(TFMap& map);

    Entries entries;
    std::uint32_t sourceTermCount = 0;
    std::vector<TermIndex*> indexList;
    const Similarity* similarity = nullptr;
    Progress* progress = nullptr;
    std::function<void(const IATerm&)> termReport;
};

/// A query by a text in memory, of which it keeps a copy, and by example documents.
class LORVALE_EXPORT IARankedQuery : public IAQuery {
public:
    ~IARankedQuery() override;
    void SetTextQuery(std::string_view text) { queryText = text; }
    void SetQueryDoc(std::span<const RankedQueryDoc> docs) { queryDocs = docs; }
    std::unique_ptr<IADocText> GetQueryText() const override;
    bool HasQueryText() const override { return !queryText.empty(); }
    std::span<const RankedQueryDoc> GetQueryDocs() const override { return queryDocs; }

private:
    std::string queryText;
    std::span<const RankedQueryDoc> queryDocs;
};

/// A query by a text of any kind, which is copied whenever it is read, and by example documents.
class LORVALE_EXPORT IADocTextQuery : public IAQuery {
public:
    ~IADocTextQuery() override;
    /// Null for none.
    void SetDocTextQuery(const IADocText* text) { queryText = text; }
    void SetQueryDoc(std::span<const RankedQueryDoc> docs) { queryDocs = docs; }
    std::unique_ptr<IADocText> GetQueryText() const override;
    bool HasQueryText() const override { return queryText != nullptr; }
    std::span<const RankedQueryDoc> GetQueryDocs() const override { return queryDocs; }

private:
    const IADocText* queryText = nullptr;
    std::span<const RankedQueryDoc> queryDocs;
};

}  // namespace brindle
