#include "lorvale/toolkit/retrieval/inverted_accessor.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "lorvale/toolkit/storage/block.h"
#include "toolkit/index/DocLengths.h"
#include "toolkit/retrieval/RankedSearchRun.h"
#include "toolkit/retrieval/TablesProgress.h"

namespace brindle {

// The tables, behind the head that all accessors have: for each index maxDocID in 32 bits and that many norms
// of one byte; then normSum and normCount.

InvertedAccessor::InvertedAccessor(std::span<InvertedIndex* const> ofIndices, std::uint32_t type)
    : invertedIndices(ofIndices.begin(), ofIndices.end()) {
    RankedAccessor::Constructing(std::vector<TermIndex*>(ofIndices.begin(), ofIndices.end()), type);
}

InvertedAccessor::~InvertedAccessor() = default;

std::uint8_t InvertedAccessor::DocNormByte(std::uint32_t documentLength) {
    return static_cast<std::uint8_t>(std::min(std::trunc(std::sqrt(4.0 * documentLength)) + 1, 255.0));
}

void InvertedAccessor::Initializing() {
    IAAssertion(docNorms.empty(), "docNorms alreay allocated!", IAAssertionFailure);
    TablesProgress progress(*invertedIndices.front());
    std::uint32_t total = 0;
    for (InvertedIndex* const index : invertedIndices) total += index->GetDocCount();
    const Phase phase(total, progress);
    Norms made;
    normSum = normCount = 0;
    for (InvertedIndex* const index : invertedIndices) {
        auto& norms = made.emplace_back(index->GetMaxDocID(), std::uint8_t{0});
        ForEachDocLength(*index, [&](std::uint32_t docID, std::uint32_t length) {
            if (docID >= norms.size()) return;  // it was added a moment ago
            norms[docID] = DocNormByte(length);
            normSum += norms[docID];
            ++normCount;
            progress.StepCheck(1);
        });
    }
    docNorms = std::move(made);
    ComputeAverage();
}

void InvertedAccessor::InitializeFrom(std::span<const InvertedAccessor* const> others) {
    IAAssertion(!IsInitialized(), "accessor already initialized!", IAAccessorAlreadyInitialized);
    Norms copies;
    normSum = normCount = 0;
    for (const InvertedAccessor* const other : others) {
        copies.insert(copies.end(), other->docNorms.begin(), other->docNorms.end());
        normSum += other->normSum;
        normCount += other->normCount;
    }
    IAAssertion(copies.size() == GetIndexCount(), "accessor init invalid", IAAccessorInitInvalid);
    docNorms = std::move(copies);
    ComputeAverage();
    SetInitialized();
}

void InvertedAccessor::ComputeAverage() {
    averageNorm = static_cast<float>(static_cast<double>(normSum) / std::max<std::uint32_t>(normCount, 1));
}

std::uint32_t InvertedAccessor::InitsSize() {
    return std::accumulate(docNorms.begin(), docNorms.end(), std::uint32_t{8},
                           [](std::uint32_t sum, const auto& norms) {
                               return sum + 4 + static_cast<std::uint32_t>(norms.size());
                           });
}

void InvertedAccessor::StoringInits(IAOutputBlock* output) {
    IAAssertion(!docNorms.empty(), "docNorms not allocated!", IAAssertionFailure);
    for (const auto& norms : docNorms) {
        output->WriteUInt32(static_cast<std::uint32_t>(norms.size()));
        output->WriteBuffer(norms.data(), static_cast<std::uint32_t>(norms.size()));
    }
    output->WriteUInt32(normSum);
    output->WriteUInt32(normCount);
}

/// The stored norms of one index, with room for more.
std::vector<std::uint8_t> InvertedAccessor::ReadNorms(IAInputBlock* input, std::uint32_t stored,
                                                      std::uint32_t room) {
    IAAssertion(stored <= input->Remaining(), "accessor init invalid", IAAccessorInitInvalid);
    std::vector<std::uint8_t> norms(room);
    input->ReadBuffer(norms.data(), stored);
    return norms;
}

void InvertedAccessor::TakeTables(Norms norms, IAInputBlock* input) {
    normSum = input->ReadUInt32();
    normCount = input->ReadUInt32();
    docNorms = std::move(norms);
    ComputeAverage();
}

void InvertedAccessor::RestoringInits(IAInputBlock* input) {
    IAAssertion(docNorms.empty(), "docNorms alreay allocated!", IAAssertionFailure);
    Norms read;
    for (InvertedIndex* const index : invertedIndices) {
        const std::uint32_t maxDocID = input->ReadUInt32();
        IAAssertion(maxDocID == index->GetMaxDocID(), "accessor init invalid", IAAccessorInitInvalid);
        read.push_back(ReadNorms(input, maxDocID, maxDocID));
    }
    TakeTables(std::move(read), input);
}

void InvertedAccessor::UpdatingInits(IAInputBlock* input) {
    IAAssertion(docNorms.empty(), "docNorms alreay allocated!", IAAssertionFailure);
    Norms read;
    for (InvertedIndex* const index : invertedIndices) {
        const std::uint32_t oldMaxDocID = input->ReadUInt32();
        read.push_back(ReadNorms(input, oldMaxDocID, std::max(oldMaxDocID, index->GetMaxDocID())));
    }
    TakeTables(std::move(read), input);
}

/// Numbers that have no norm yet get one, but for those whose document has been deleted since.
void InvertedAccessor::ExtendingInits() {
    for (std::uint32_t i = 0; i < GetIndexCount(); ++i) {
        InvertedIndex& index = *invertedIndices[i];
        auto& norms = docNorms[i];
        for (std::uint32_t id = 1; id < norms.size(); ++id) {
            if (norms[id] != 0) continue;
            const auto doc = index.FindIDDoc(id);
            const auto info = doc != nullptr ? index.GetDocInfo(doc.get(), true) : nullptr;
            if (info == nullptr) continue;
            norms[id] = DocNormByte(info->GetDocumentLength());
            normSum += norms[id];
            ++normCount;
        }
    }
    ComputeAverage();
}

std::uint32_t InvertedAccessor::TrimmedQuerySize(std::uint32_t terms) const {
    if (terms < minTerms) return terms;
    if (terms > 2 * std::uint64_t{maxTerms} || minTerms >= maxTerms) return maxTerms;
    const auto beyond = static_cast<float>(terms - minTerms);
    const float quotient = beyond / static_cast<float>(4 * (maxTerms - minTerms));
    const float cut = quotient * beyond;
    return static_cast<std::uint32_t>(static_cast<float>(terms) - cut);
}

void InvertedAccessor::TrimRankedQuery(IAQuery& query) const {
    const std::uint32_t size = TrimmedQuerySize(query.Count());
    if (size >= query.Count()) return;
    std::vector<std::pair<float, const RQEntry*>> powers;
    for (const auto& entry : query.GetEntries()) {
        std::uint32_t frequency = 0;
        for (const auto& info : entry->termInfos)
            if (info != nullptr)
                frequency = std::max(frequency, static_cast<const InvertedTermInfo&>(*info).GetMaxDocFreq());
        powers.emplace_back(GetSimilarity()->TermScorePower(entry->weight, entry->scaleFactor, frequency),
                            entry.get());
    }
    std::ranges::stable_sort(powers, std::greater(), &std::pair<float, const RQEntry*>::first);
    std::vector<const RQEntry*> gone;
    for (std::size_t i = size; i < powers.size(); ++i) gone.push_back(powers[i].second);
    std::ranges::sort(gone);
    query.RemoveIf([&](const RQEntry& entry) { return std::ranges::binary_search(gone, &entry); });
}

RankedHits InvertedAccessor::Search(IAQuery& query, std::uint32_t maxHits, std::uint32_t topTerms,
                                    const RankedProgressFn& fn, std::uint32_t frequency) {
    CheckInitialized();
    if (maxHits == 0) return {};
    RankedSearchRun run(*this, maxHits, topTerms, fn, frequency);
    {
        const Phase phase(2, run.Report().Steps());
        if (run.Report().Initialize(query, TermIndices(), *GetSimilarity())) return {};
        TrimRankedQuery(query);
        if (run.Search(query)) return {};
    }
    return run.TakeHits();
}

/// Looks the words up; false if the search is cancelled.
bool InvertedAccessor::SetUpBoolean(Progress& progress) {
    const Phase phase(booleanQuery.Count(), progress);
    const auto trim = [this](IARankedQuery& query) { TrimRankedQuery(query); };
    return booleanQuery.SetUpQuery(invertedIndices, *GetSimilarity(), &progress, trim) &&
           !progress.IsCancelled();
}

RankedHits InvertedAccessor::RankedSearchBoolean(std::string_view text, std::uint32_t maxHits,
                                                 const RankedProgressFn& fn, std::uint32_t frequency) {
    CheckInitialized();
    booleanQuery.SetUnicodeWords(std::ranges::any_of(invertedIndices, [](const InvertedIndex* index) {
        return index->GetQueryAnalysis()->HasUnicodeWords();
    }));
    if (maxHits == 0 || !booleanQuery.Initialize(text)) return {};
    RankedSearchRun run(*this, maxHits, 0, fn, frequency);
    {
        Progress& steps = run.Report().Steps();
        const Phase phase(2, steps);
        if (!SetUpBoolean(steps)) return {};
        if (run.SearchBoolean(booleanQuery)) return {};
    }
    return run.TakeHits();
}

}  // namespace brindle
