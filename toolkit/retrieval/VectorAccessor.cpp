#include "lorvale/toolkit/retrieval/vector_accessor.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "lorvale/toolkit/storage/block.h"
#include "toolkit/index/TermHeads.h"
#include "toolkit/retrieval/HitQueue.h"
#include "toolkit/retrieval/TablesProgress.h"
#include "toolkit/retrieval/VectorSearchRun.h"

namespace brindle {

VectorAccessor::VectorAccessor(std::span<VectorIndex* const> ofIndices, std::uint32_t type)
    : vectorIndices(ofIndices.begin(), ofIndices.end()) {
    RankedAccessor::Constructing(std::vector<TermIndex*>(ofIndices.begin(), ofIndices.end()), type);
}

VectorAccessor::VectorAccessor(VectorIndex* index, TermIndex* background)
    : VectorAccessor(index, BackgroundType) {
    const Similarity statistics(std::span(&background, 1));
    MakeScaleFactorCodec(statistics);
    termScaleFactors = MakeTables();
    const auto infos = index->GetTermInfoIterator();
    while (const auto own = RecordOf<TermInfo>(infos->Next())) {
        const auto there = background->GetTermInfo(own->GetTerm());
        const TermInfo* const counted = there != nullptr ? there.get() : own.get();
        const TermInfo* const known = own.get();
        SetByte(termScaleFactors, std::span(&known, 1),
                EncodeScaleFactor(counted->GetDocumentCount(), statistics));
    }
    SetInitialized();
}

VectorAccessor::~VectorAccessor() = default;

/// All factors lie between 1, of a term in every document, and that of a term in one.
void VectorAccessor::MakeScaleFactorCodec(const Similarity& statistics) {
    const double most = statistics.GetTotalDocs() > 1 ? double{statistics.MaxTermScaleFactor()} : 1.0;
    for (std::size_t i = 0; i < scaleFactorDecoder.size(); ++i)
        scaleFactorDecoder[i] = static_cast<float>(1 + static_cast<double>(i) * (most - 1) / 255);
    scaleFactorEncodingFactor = most > 1 ? static_cast<float>(255 / (most - 1)) : 0;
}

std::uint8_t VectorAccessor::EncodeScaleFactor(std::uint32_t documentCount,
                                               const Similarity& statistics) const {
    if (scaleFactorEncodingFactor == 0 || documentCount == 0) return 0;
    const double beyond = double{statistics.TermScaleFactor(documentCount)} - 1;
    return static_cast<std::uint8_t>(
        std::clamp(std::floor(beyond * double{scaleFactorEncodingFactor} + 0.5), 0.0, 255.0));
}

void VectorAccessor::SetByte(ByteTables& tables, std::span<const TermInfo* const> termInfos,
                             std::uint8_t value) {
    for (std::size_t i = 0; i < tables.size(); ++i) {
        if (termInfos[i] == nullptr) continue;
        const std::uint32_t id = termInfos[i]->GetTermID();
        if (id < tables[i].size()) tables[i][id] = value;  // else it was added a moment ago
    }
}

void VectorAccessor::CacheTermStats(std::span<const TermInfo* const> termInfos) {
    UpdateCacheTermStats(termInfos);
}

void VectorAccessor::UpdateCacheTermStats(std::span<const TermInfo* const> termInfos) {
    SetByte(termScaleFactors, termInfos,
            EncodeScaleFactor(Similarity::TotalDocCount(termInfos), *GetSimilarity()));
}

VectorAccessor::ByteTables VectorAccessor::MakeTables() const {
    ByteTables tables;
    for (VectorIndex* const index : vectorIndices) tables.emplace_back(index->GetMaxTermID(), std::uint8_t{0});
    return tables;
}

void VectorAccessor::Initializing() {
    IAAssertion(termScaleFactors.empty(), "termScaleFactors already initialized", IAAssertionFailure);
    MakeScaleFactorCodec(*GetSimilarity());
    termScaleFactors = MakeTables();
    TablesProgress progress(*vectorIndices.front());
    std::uint32_t total = 0;
    for (VectorIndex* const index : vectorIndices) total += index->GetTermCount();
    const Phase phase(total, progress);
    TermHeads heads(TermIndices());
    while (heads.Least() != nullptr) {
        const auto infos = heads.LeastInAll();
        CacheTermStats(infos);
        for (std::size_t i = 0; i < infos.size(); ++i) {
            if (infos[i] == nullptr) continue;
            heads.Advance(i);
            progress.StepCheck(1);
        }
    }
}

std::uint32_t VectorAccessor::TablesSize(const ByteTables& tables) {
    return std::accumulate(tables.begin(), tables.end(), std::uint32_t{0},
                           [](std::uint32_t sum, const auto& table) {
                               return sum + 4 + static_cast<std::uint32_t>(table.size());
                           });
}

void VectorAccessor::StoreTables(const ByteTables& tables, IAOutputBlock* output) {
    for (const auto& table : tables) {
        output->WriteUInt32(static_cast<std::uint32_t>(table.size()));
        output->WriteBuffer(table.data(), static_cast<std::uint32_t>(table.size()));
    }
}

VectorAccessor::ByteTables VectorAccessor::RestoreTables(IAInputBlock* input) const {
    ByteTables tables = RestoreOldTables(input);
    for (std::size_t i = 0; i < tables.size(); ++i)
        IAAssertion(tables[i].size() == vectorIndices[i]->GetMaxTermID(), "accessor init invalid",
                    IAAccessorInitInvalid);
    return tables;
}

VectorAccessor::ByteTables VectorAccessor::RestoreOldTables(IAInputBlock* input) const {
    ByteTables tables(vectorIndices.size());
    for (auto& table : tables) {
        const std::uint32_t count = input->ReadUInt32();
        IAAssertion(count <= input->Remaining(), "accessor init invalid", IAAccessorInitInvalid);
        table.resize(count);
        input->ReadBuffer(table.data(), count);
    }
    return tables;
}

std::uint32_t VectorAccessor::InitsSize() {
    return TablesSize(termScaleFactors);
}

void VectorAccessor::StoringInits(IAOutputBlock* output) {
    IAAssertion(!termScaleFactors.empty(), "termScaleFactors not initialized", IAAssertionFailure);
    StoreTables(termScaleFactors, output);
}

void VectorAccessor::RestoringInits(IAInputBlock* input) {
    IAAssertion(termScaleFactors.empty(), "termScaleFactors already initialized", IAAssertionFailure);
    MakeScaleFactorCodec(*GetSimilarity());
    termScaleFactors = RestoreTables(input);
}

void VectorAccessor::UpdatingInits(IAInputBlock* input) {
    IAAssertion(termScaleFactors.empty(), "termScaleFactors already initialized", IAAssertionFailure);
    MakeScaleFactorCodec(*GetSimilarity());
    termScaleFactors = RestoreOldTables(input);
    oldTermCounts.clear();
    for (const auto& table : termScaleFactors)
        oldTermCounts.push_back(static_cast<std::uint32_t>(table.size()));
}

void VectorAccessor::GiveRoom(ByteTables& tables) const {
    for (std::size_t i = 0; i < tables.size(); ++i)
        tables[i].resize(std::max<std::size_t>(tables[i].size(), vectorIndices[i]->GetMaxTermID()));
}

void VectorAccessor::ExtendingInits() {
    GiveRoom(termScaleFactors);
    ForEachNewTerm([this](std::span<const TermInfo* const> infos) { UpdateCacheTermStats(infos); });
}

void VectorAccessor::ForEachNewTerm(const std::function<void(std::span<const TermInfo* const>)>& use) const {
    for (std::size_t i = 0; i < vectorIndices.size(); ++i) {
        for (std::uint32_t id = oldTermCounts[i]; id < vectorIndices[i]->GetMaxTermID(); ++id) {
            const IDTerm key(id);
            const auto found = RecordOf<IDTerm>(vectorIndices[i]->GetiDTermMap()->Get(&key));
            if (found == nullptr) continue;
            std::vector<std::unique_ptr<TermInfo>> owned;
            std::vector<const TermInfo*> infos;
            for (VectorIndex* const index : vectorIndices) {
                owned.push_back(index->TermIndex::GetTermInfo(found->GetValue()));
                infos.push_back(owned.back().get());
            }
            use(infos);
        }
    }
}

RankedHits VectorAccessor::Search(IAQuery& query, std::uint32_t maxHits, std::uint32_t topTerms,
                                  const RankedProgressFn& fn, std::uint32_t frequency) {
    CheckInitialized();
    if (maxHits == 0) return {};
    VectorSearchRun run(*this, maxHits, topTerms, fn, frequency);
    {
        const Phase phase(2, run.Report().Steps());
        if (run.Report().Initialize(query, TermIndices(), *GetSimilarity())) return {};
        if (run.Search(query, vectorIndices)) return {};
    }
    return run.TakeHits();
}

std::uint32_t VectorAccessor::NumberOf(const IAIndex* index) const {
    const auto all = TermIndices();
    const auto found = std::ranges::find(all, index);
    IAAssertion(found != all.end(), "term weight vector is null", IAAssertionFailure);
    return static_cast<std::uint32_t>(found - all.begin());
}

std::unique_ptr<TWVector> VectorAccessor::GetTWVector(const IADoc* document, std::uint32_t indexNumber) const {
    CheckInitialized();
    const auto counted = vectorIndices[indexNumber]->GetTFVector(document);
    std::vector<TWComponent> components;
    components.reserve(counted->GetDocumentLength());
    for (const auto& [termID, freq] : counted->GetComponents())
        components.push_back({termID, GetSimilarity()->TermWeight(TermScaleFactor(indexNumber, termID), freq)});
    auto vector = std::make_unique<TWVector>(std::move(components));
    vector->Normalize();
    return vector;
}

TWVector VectorAccessor::MakeTWVector(const IAQuery& query, std::uint32_t indexNumber) const {
    std::vector<TWComponent> components;
    for (const auto& entry : query.GetEntries())
        if (const TermInfo* const info = entry->InfoIn(indexNumber))
            components.push_back({info->GetTermID(), entry->weight});
    TWVector vector(std::move(components));
    vector.SortByTerm();
    return vector;
}

RankedHit::Terms VectorAccessor::GetDocTopic(const RankedQueryDoc& doc, std::uint32_t maxTerms,
                                             const RankedProgressFn&, std::uint32_t) {
    const auto vector = GetTWVector(doc.document, NumberOf(doc.index));
    vector->SortByWeight();
    RankedHit::Terms terms;
    for (const TWComponent& component : vector->GetComponents()) {
        if (terms.size() >= maxTerms) break;
        terms.push_back(doc.index->GetIDTerm(component.termID));
    }
    return terms;
}

RankedHit::Terms VectorAccessor::GetTermsRelated(std::string_view term, std::uint32_t maxTerms,
                                                 const RankedProgressFn& fn, std::uint32_t frequency) {
    CheckInitialized();
    const RankedHits hits = RankedSearch(term, {}, 3, 1, fn, frequency);
    TWVector sum;
    for (const auto& hit : hits) sum = sum.Sum(*GetTWVector(hit->GetDocument(), NumberOf(hit->GetIndex())));
    WeightedTermQueue queue(maxTerms);
    for (const auto& [termID, weight] : sum.GetComponents()) {
        const IDTerm key(termID);
        const auto known = TermIndices()[NumberOf(hits.front()->GetIndex())]->GetiDTermMap()->Get(&key);
        const auto* const named = static_cast<const IDTerm*>(known.get());
        if (named != nullptr && named->GetValue()->View() != term) queue.Update(*named->GetValue(), weight);
    }
    return queue.TakeTerms();
}

}  // namespace brindle
