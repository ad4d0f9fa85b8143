#include "lorvale/toolkit/retrieval/invec_accessor.h"

#include <algorithm>
#include <cmath>

#include "lorvale/toolkit/storage/block.h"
#include "toolkit/retrieval/RankedSearchRun.h"

namespace brindle {

namespace {

constexpr std::uint32_t kHighestFrequency = 65'535;

bool areInOneIndex(std::span<const RankedQueryDoc> docs) {
    return !docs.empty() && std::ranges::all_of(docs, [&](const RankedQueryDoc& doc) {
        return doc.index == docs.front().index;
    });
}

}  // namespace

InVecAccessor::InVecAccessor(std::span<InVecIndex* const> ofIndices, std::uint32_t type)
    : InvertedAccessor(std::vector<InvertedIndex*>(ofIndices.begin(), ofIndices.end()), type),
      VectorAccessor(std::vector<VectorIndex*>(ofIndices.begin(), ofIndices.end()), type) {}

InVecAccessor::~InVecAccessor() = default;

void InVecAccessor::MakeMaxWeightCodec() {
    const float factor = GetSimilarity()->GetTotalDocs() > 1 ? GetSimilarity()->MaxTermScaleFactor() : 1.0f;
    const double most = double{GetSimilarity()->TermWeight(factor, kHighestFrequency)};
    for (std::size_t i = 0; i < maxWeightDecoder.size(); ++i)
        maxWeightDecoder[i] = static_cast<float>(static_cast<double>(i) * most / 255);
    maxWeightEncodingFactor = static_cast<float>(255 / most);
}

void InVecAccessor::CacheTermStats(std::span<const TermInfo* const> termInfos) {
    VectorAccessor::CacheTermStats(termInfos);
    CacheMaxWeight(termInfos);
}

void InVecAccessor::CacheMaxWeight(std::span<const TermInfo* const> termInfos) {
    std::uint32_t frequency = 0;
    float scale = 0;
    for (std::uint32_t i = 0; i < termInfos.size(); ++i) {
        if (termInfos[i] == nullptr) continue;
        if (frequency == 0) scale = TermScaleFactor(i, termInfos[i]->GetTermID());
        frequency = std::max(frequency, static_cast<const InvertedTermInfo*>(termInfos[i])->GetMaxDocFreq());
    }
    const float weight = GetSimilarity()->TermWeight(scale, std::min(frequency, kHighestFrequency));
    const double rounded = std::floor(double{weight} * double{maxWeightEncodingFactor} + 0.5);
    SetByte(termMaxWeights, termInfos, static_cast<std::uint8_t>(std::clamp(rounded, 0.0, 255.0)));
}

void InVecAccessor::Initializing() {
    InvertedAccessor::Initializing();
    IAAssertion(termMaxWeights.empty(), "termMaxWeights already initialized", IAAssertionFailure);
    MakeMaxWeightCodec();
    termMaxWeights = MakeTables();
    VectorAccessor::Initializing();  // which tells of each term
}

std::uint32_t InVecAccessor::InitsSize() {
    return InvertedAccessor::InitsSize() + VectorAccessor::InitsSize() + TablesSize(termMaxWeights);
}

void InVecAccessor::StoringInits(IAOutputBlock* output) {
    InvertedAccessor::StoringInits(output);
    VectorAccessor::StoringInits(output);
    StoreTables(termMaxWeights, output);
}

void InVecAccessor::RestoringInits(IAInputBlock* input) {
    InvertedAccessor::RestoringInits(input);
    VectorAccessor::RestoringInits(input);
    MakeMaxWeightCodec();
    termMaxWeights = RestoreTables(input);
}

void InVecAccessor::UpdatingInits(IAInputBlock* input) {
    InvertedAccessor::UpdatingInits(input);
    VectorAccessor::UpdatingInits(input);
    MakeMaxWeightCodec();
    termMaxWeights = RestoreOldTables(input);
}

void InVecAccessor::ExtendingInits() {
    InvertedAccessor::ExtendingInits();
    VectorAccessor::ExtendingInits();
    GiveRoom(termMaxWeights);
    ForEachNewTerm([this](std::span<const TermInfo* const> infos) { CacheMaxWeight(infos); });
}

RankedHits InVecAccessor::Search(IAQuery& query, std::uint32_t maxHits, std::uint32_t topTerms,
                                 const RankedProgressFn& fn, std::uint32_t frequency) {
    const auto docs = query.GetQueryDocs();
    if (query.HasQueryText() || !areInOneIndex(docs))
        return InvertedAccessor::Search(query, maxHits, topTerms, fn, frequency);
    return SearchByVectors(docs, maxHits, topTerms, fn, frequency);
}

RankedHit::Terms InVecAccessor::GetDocTopic(const RankedQueryDoc& doc, std::uint32_t most,
                                            const RankedProgressFn& fn, std::uint32_t frequency) {
    return VectorAccessor::GetDocTopic(doc, most, fn, frequency);
}

RankedHit::Terms InVecAccessor::GetTermsRelated(std::string_view term, std::uint32_t most,
                                                const RankedProgressFn& fn, std::uint32_t frequency) {
    return VectorAccessor::GetTermsRelated(term, most, fn, frequency);
}

TWVector InVecAccessor::SumOf(std::span<const RankedQueryDoc> docs, std::uint32_t indexNumber) const {
    TWVectorAdder adder;
    for (const RankedQueryDoc& doc : docs) adder.Add(GetTWVector(doc.document, indexNumber));
    return adder.Sum();
}

void InVecAccessor::TrimQueryVector(TWVector& vector, std::uint32_t indexNumber) const {
    const std::uint32_t size = TrimmedQuerySize(vector.GetDocumentLength());
    if (size >= vector.GetDocumentLength()) return;
    const auto& bytes = termMaxWeights[indexNumber];
    std::vector<std::pair<float, TWComponent>> powers;
    for (const TWComponent& component : vector.GetComponents()) {
        const std::uint8_t byte = component.termID < bytes.size() ? bytes[component.termID] : std::uint8_t{0};
        powers.emplace_back(component.weight * maxWeightDecoder[byte], component);
    }
    std::ranges::stable_sort(powers, std::greater(), &std::pair<float, TWComponent>::first);
    std::vector<TWComponent> kept(size);
    std::transform(powers.begin(), powers.begin() + size, kept.begin(),
                   [](const auto& each) { return each.second; });
    vector.SetComponents(std::move(kept));
    vector.SortByTerm();
}

RankedHits InVecAccessor::SearchByVectors(std::span<const RankedQueryDoc> docs, std::uint32_t maxHits,
                                          std::uint32_t topTerms, const RankedProgressFn& fn,
                                          std::uint32_t frequency) {
    CheckInitialized();
    if (maxHits == 0) return {};
    const auto all = TermIndices();
    const auto found = std::ranges::find(all, docs.front().index);
    IAAssertion(found != all.end(), "index offset equal count", IAAssertionFailure);
    const auto number = static_cast<std::uint32_t>(found - all.begin());
    TWVector vector = SumOf(docs, number);
    TrimQueryVector(vector, number);

    RankedSearchRun run(*this, maxHits, topTerms, fn, frequency);
    {
        const Phase phase(2, run.Report().Steps());
        IAQuery query;
        query.SetIndices(all);
        query.SetSimilarity(GetSimilarity());
        query.SetProgress(&run.Report().Steps());
        for (const auto& [termID, weight] : vector.GetComponents()) {
            if (weight == 0) continue;  // as the sum of documents without terms
            auto entry = std::make_unique<RQEntry>((*found)->GetIDTerm(termID));
            entry->weight = weight;
            query.Put(std::move(entry));
        }
        if (query.ComputeTermScaleFactors() || query.Count() == 0) return {};
        if (run.Search(query)) return {};
    }
    return run.TakeHits();
}

}  // namespace brindle
