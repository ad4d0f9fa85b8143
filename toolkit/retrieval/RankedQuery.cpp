#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>

#include "lorvale/toolkit/corpus/string_corpus.h"
#include "lorvale/toolkit/retrieval/query.h"
#include "lorvale/toolkit/storage/exception.h"

namespace brindle {

namespace {

std::string_view termOf(const std::unique_ptr<RQEntry>& entry) {
    return entry->term->View();
}

}  // namespace

RQEntry::~RQEntry() = default;
IAQuery::IAQuery() = default;
IAQuery::~IAQuery() = default;
IARankedQuery::~IARankedQuery() = default;
IADocTextQuery::~IADocTextQuery() = default;

std::unique_ptr<IADocText> IAQuery::GetQueryText() const {
    return nullptr;
}

std::span<const RankedQueryDoc> IAQuery::GetQueryDocs() const {
    return {};
}

std::unique_ptr<IADocText> IARankedQuery::GetQueryText() const {
    return std::make_unique<StringDocText>(queryText);
}

std::unique_ptr<IADocText> IADocTextQuery::GetQueryText() const {
    return queryText != nullptr ? queryText->DeepCopy() : nullptr;
}

RQEntry* IAQuery::Find(std::string_view term) const {
    const auto at = std::ranges::lower_bound(entries, term, {}, termOf);
    return at != entries.end() && termOf(*at) == term ? at->get() : nullptr;
}

RQEntry& IAQuery::Put(std::unique_ptr<RQEntry> entry) {
    const auto at = std::ranges::lower_bound(entries, termOf(entry), {}, termOf);
    if (at != entries.end() && termOf(*at) == termOf(entry)) return **at;
    return **entries.insert(at, std::move(entry));
}

void IAQuery::Remove(const RQEntry* entry) {
    RemoveIf([entry](const RQEntry& other) { return &other == entry; });
}

void IAQuery::RemoveIf(const std::function<bool(const RQEntry&)>& goes) {
    std::erase_if(entries, [&](const auto& entry) { return goes(*entry); });
}

/// A map for each example document and, behind them, one for the text.
bool IAQuery::Initialize() {
    entries.clear();
    sourceTermCount = 0;
    if (indexList.empty()) return false;
    std::vector<TFMap> maps(GetQueryDocs().size() + 1);
    CountText(maps.back());
    std::optional<Phase> phase;  // counting and looking up; without examples there is little to count
    if (progress != nullptr && maps.size() > 1) phase.emplace(2, *progress);
    if (CountDocs(std::span(maps).first(maps.size() - 1))) return true;
    AddTerms(maps);
    if (ComputeTermScaleFactors()) return true;
    for (TFMap& map : maps) {
        Weigh(map);
        AddWeights(map);
    }
    return false;
}

/// A text is counted once for each index.
void IAQuery::CountText(TFMap& map) const {
    for (TermIndex* const index : indexList)
        if (auto text = GetQueryText()) map.AddDocText(*index, std::move(text));
}

/// Asks each index for all of its documents at once.  True if it was cancelled.
bool IAQuery::CountDocs(std::span<TFMap> maps) const {
    if (maps.empty()) return false;
    const auto docs = GetQueryDocs();
    std::vector<TermIndex*> owners;
    for (const RankedQueryDoc& doc : docs) {
        IAAssertion(doc.index != nullptr && doc.document != nullptr, "query document without an index",
                    IAAssertionFailure);
        if (std::ranges::find(owners, doc.index) == owners.end()) owners.push_back(doc.index);
    }
    std::optional<Phase> phase;
    if (progress != nullptr) phase.emplace(static_cast<std::uint32_t>(owners.size()), *progress);
    for (TermIndex* const owner : owners) {
        std::vector<const IADoc*> documents;
        std::vector<std::size_t> places;
        for (std::size_t i = 0; i < docs.size(); ++i) {
            if (docs[i].index != owner) continue;
            documents.push_back(docs[i].document);
            places.push_back(i);
        }
        std::vector<TFMap> counted(documents.size());
        if (owner->GetTFMaps(documents, counted, progress)) return true;
        for (std::size_t i = 0; i < places.size(); ++i) maps[places[i]] = std::move(counted[i]);
    }
    return false;
}

void IAQuery::AddTerms(std::span<TFMap> maps) {
    std::vector<std::string_view> terms;
    for (TFMap& map : maps)
        std::ranges::transform(map.Entries(), std::back_inserter(terms), &TFMap::Entry::term);
    std::ranges::sort(terms);
    terms.erase(std::unique(terms.begin(), terms.end()), terms.end());
    for (const std::string_view term : terms)
        entries.push_back(std::make_unique<RQEntry>(std::make_unique<IATerm>(term)));
    sourceTermCount = Count();
}

bool IAQuery::ComputeTermScaleFactors() {
    std::optional<Phase> phase;
    if (progress != nullptr) phase.emplace(Count(), *progress);
    Entries found;
    for (auto& entry : entries) {
        if (LookUp(*entry)) found.push_back(std::move(entry));
        const IATerm& term = *(entry != nullptr ? entry : found.back())->term;
        if (termReport != nullptr) termReport(term);
        if (progress != nullptr && progress->StepCheck(1)) return entries.clear(), true;
    }
    entries = std::move(found);
    return false;
}

/// False if no index has the term.
bool IAQuery::LookUp(RQEntry& entry) const {
    entry.termInfos.clear();
    std::vector<const TermInfo*> infos;
    for (TermIndex* const index : indexList) {
        entry.termInfos.push_back(index->GetTermInfo(entry.term.get()));
        infos.push_back(entry.termInfos.back().get());
    }
    const auto first = std::ranges::find_if(infos, [](const TermInfo* info) { return info != nullptr; });
    if (first == infos.end()) return false;
    entry.scaleFactor = similarity->TermScaleFactor(infos);
    return true;
}

/// Gives the terms of a source their weights, as a vector of length 1.  Terms that left the query weigh
/// nothing.
void IAQuery::Weigh(TFMap& map) const {
    float sumOfSquares = 0;
    for (TFMap::Entry& counted : map.Entries()) {
        const RQEntry* const entry = Find(counted.term);
        counted.weight =
            entry != nullptr ? similarity->TermWeight(entry->scaleFactor, counted.frequency) : 0.0f;
        const double weight = counted.weight;
        sumOfSquares = static_cast<float>(sumOfSquares + weight * weight);
    }
    const double length = std::sqrt(static_cast<double>(sumOfSquares));
    for (TFMap::Entry& counted : map.Entries())
        counted.weight = length != 0 ? static_cast<float>(counted.weight / length) : 0.0f;
}

void IAQuery::AddWeights(TFMap& map) {
    for (const TFMap::Entry& counted : map.Entries()) {
        if (counted.weight == 0) continue;
        RQEntry* const entry = Find(counted.term);
        IAAssertion(entry != nullptr, "weight for non existing term!", IAAssertionFailure);
        entry->weight += counted.weight;
    }
}

}  // namespace brindle
