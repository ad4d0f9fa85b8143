#pragma once
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/retrieval/hits.h"
#include "lorvale/toolkit/retrieval/sentence_parser.h"
#include "lorvale/toolkit/retrieval/vector_accessor.h"

namespace brindle {

/// Finds the sentences of a text that best stand for it: those most like the text as a whole.
///
/// A parser cuts the text into extents, each becomes a document of a temporary index, and the whole text is the
/// query.  At most 1000 extents get a rank.  One thread.
class LORVALE_EXPORT IADocumentAbstractor : public IAObject {
public:
    static constexpr std::uint32_t MostHits = 1000;

    /// All is borrowed for life.  The storage is made new with Summarize(): a storage over a RAMStoreStream for
    /// one.  Without an analysis a SimpleAnalysis serves.
    IADocumentAbstractor(IAStorage* indexStorage, const IAAnalysis* textAnalysis, IAExtentParser* textParser)
        : storage(indexStorage), analysis(textAnalysis), parser(textParser) {}
    ~IADocumentAbstractor() override;

    void SetStorage(IAStorage* newStorage) { storage = newStorage; }
    void SetAnalysis(const IAAnalysis* newAnalysis) { analysis = newAnalysis; }
    void SetParser(IAExtentParser* newParser) { parser = newParser; }

    /// Reads the parser to its end.  `fn` is told how much of the text is done, at each extent; true cancels,
    /// and there is no result then.  With a background index terms count by how rare they are there.
    void Summarize(const Progress::Function& fn = nullptr,
                   std::uint32_t frequency = IAExtentParser::DefaultFrequency, TermIndex* background = nullptr);

    std::uint32_t GetNumberOfExtents() const { return static_cast<std::uint32_t>(extents.size()); }
    /// One slot for each extent, in the order of the text; null for one that has nothing in common with the
    /// rest. Each knows its rank, 0 for the most telling one, and its hit with the terms that say why.  They
    /// are good until the next Summarize(), as long as the text.
    std::span<const std::unique_ptr<IAExtentDoc>> GetExtents() const { return extents; }

private:
    bool AddExtents(VectorIndex& index, const Progress::Function& fn, std::uint32_t frequency);
    void FindAbstracts(VectorIndex& index, TermIndex* background);

    IAStorage* storage;
    const IAAnalysis* analysis;  // null for a SimpleAnalysis
    IAExtentParser* parser;
    std::vector<std::unique_ptr<IAExtentDoc>> extents;
    RankedHits hits;
};

/// The `most` extents of the lowest ranks, in the order of the text.
LORVALE_EXPORT std::vector<const IAExtentDoc*> BestExtents(const IADocumentAbstractor& abstractor,
                                                           std::uint32_t most);

}  // namespace brindle
