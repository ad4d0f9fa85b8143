#include "lorvale/toolkit/retrieval/boolean_query.h"

namespace brindle {

IABooleanQuery::IABooleanQuery() : termNodes(std::make_unique<IABooleanQueryTermNodeList>()) {}
IABooleanQuery::~IABooleanQuery() = default;

bool IABooleanQuery::Initialize(std::string_view text) {
    tree = nullptr;
    termNodes = std::make_unique<IABooleanQueryTermNodeList>();
    if (text.empty()) return false;
    parser.SetText(text);
    auto parsed = parser.Parse(*termNodes);
    if (parsed == nullptr) return false;
    parsed->Validate();
    tree = std::move(parsed);
    return true;
}

bool IABooleanQuery::SetUpQuery(std::span<InvertedIndex* const> indices, const Similarity& newSimilarity,
                                Progress* progress, const std::function<void(IARankedQuery&)>& trim) {
    similarity = &newSimilarity;
    const std::vector<TermIndex*> termIndices(indices.begin(), indices.end());
    for (std::uint32_t i = 0; i < termNodes->Count(); ++i) {
        IABooleanQueryTermNode& node = (*termNodes)[i];
        node.rankedQuery = std::make_unique<IARankedQuery>();
        IARankedQuery& query = *node.rankedQuery;
        query.SetIndices(termIndices);
        query.SetSimilarity(similarity);
        query.SetProgress(progress);
        query.SetTextQuery(node.GetWord());
        if (query.Initialize()) return false;
        if (query.Count() != 0) trim(query);
    }
    return true;
}

void IABooleanQuery::InitializeQuery(InvertedIndex& index, std::uint32_t i) {
    for (std::uint32_t n = 0; n < termNodes->Count(); ++n) {
        IABooleanQueryTermNode& node = (*termNodes)[n];
        node.postingQueue = std::make_unique<FreqPSQueue>(*node.rankedQuery, index, i);
        node.alreadyTrue = false;
    }
    tree->ResetMins();
}

std::uint32_t IABooleanQuery::GetMin() {
    const std::uint32_t next = tree->GetMin();
    for (std::uint32_t n = 0; n < termNodes->Count(); ++n) (*termNodes)[n].alreadyTrue = false;
    return next;
}

}  // namespace brindle
