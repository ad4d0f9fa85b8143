#include "lorvale/toolkit/retrieval/tf_map.h"

#include <algorithm>

#include "lorvale/toolkit/index/term_index.h"
#include "lorvale/toolkit/retrieval/progress.h"
#include "toolkit/index/TermTable.h"

namespace brindle {

TFMap::TFMap() = default;
TFMap::TFMap(TFMap&& other) noexcept = default;
TFMap& TFMap::operator=(TFMap&& other) noexcept = default;
TFMap::~TFMap() = default;

bool TFMap::AddDocText(const TermIndex& index, std::unique_ptr<IADocText> text, Progress* progress) {
    const auto stream = index.GetQueryAnalysis()->MakeTokenStream(std::move(text));
    for (IATermView term; stream->NextTerm(term);) {
        const std::uint32_t known = counts != nullptr ? counts->Count() : 0;
        Add(term.View(), 1);
        if (progress != nullptr && progress->StepCheck(counts->Count() - known)) return true;
        if (counts->Count() >= index.GetMaxDocumentSize()) break;
    }
    return false;
}

void TFMap::Add(std::string_view term, std::uint32_t frequency) {
    if (counts == nullptr) counts = std::make_unique<TermTable<std::uint32_t>>();
    (*counts)[counts->Number(term)] += frequency;
    entries.clear();
}

std::span<TFMap::Entry> TFMap::Entries() {
    if (!entries.empty() || counts == nullptr) return entries;
    for (const auto& counted : counts->Entries()) entries.push_back({counts->TermOf(counted), counted.about});
    std::ranges::sort(entries, {}, &Entry::term);
    return entries;
}

}  // namespace brindle
