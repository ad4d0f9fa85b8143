#include "lorvale/toolkit/retrieval/boolean_query.h"

#include "toolkit/retrieval/WordPostings.h"

namespace brindle {

namespace {

/// All words of a query as one text.  Its terms have been looked up for the words already, as a rule.
class JoinedQuery : public IARankedQuery {
public:
    explicit JoinedQuery(IABooleanQueryTermNodeList& termNodes) : nodes(termNodes) {
        std::string text;
        for (std::uint32_t n = 0; n < nodes.Count(); ++n) text += nodes[n].GetWord() + " ";
        SetTextQuery(text);
    }
    bool ComputeTermScaleFactors() override {
        for (const auto& entry : GetEntries()) {
            const RQEntry* const known = FindInNodes(entry->term->View());
            if (known == nullptr) return IARankedQuery::ComputeTermScaleFactors();
            entry->scaleFactor = known->scaleFactor;
        }
        return false;
    }

private:
    const RQEntry* FindInNodes(std::string_view term) {
        for (std::uint32_t n = 0; n < nodes.Count(); ++n)
            if (const RQEntry* const entry = nodes[n].GetRankedQuery()->Find(term)) return entry;
        return nullptr;
    }
    IABooleanQueryTermNodeList& nodes;
};

}  // namespace

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
    for (std::uint32_t n = 0; n < termNodes->Count(); ++n) {
        IABooleanQueryTermNode& node = (*termNodes)[n];
        node.rankedQuery = std::make_unique<IARankedQuery>();
        IARankedQuery& query = *node.rankedQuery;
        query.SetIndices(termIndices);
        query.SetSimilarity(similarity);
        query.SetProgress(progress);
        query.SetTextQuery(node.GetWord());
        if (query.Initialize()) return false;
    }
    WeighNodes(termIndices);
    // A term that was trimmed from a word would be missing in every document.
    for (std::uint32_t n = 0; n < termNodes->Count() && !parser.HasUnicodeWords(); ++n)
        trim(*(*termNodes)[n].rankedQuery);
    return true;
}

/// A term's weight goes to the first word that begins with the term's bytes: most stems are such beginnings.
void IABooleanQuery::WeighNodes(std::span<TermIndex* const> indices) {
    JoinedQuery joined(*termNodes);
    joined.SetIndices(indices);
    joined.SetSimilarity(similarity);
    joined.Initialize();
    for (const auto& entry : joined.GetEntries()) {
        for (std::uint32_t n = 0; n < termNodes->Count(); ++n) {
            if (!(*termNodes)[n].GetWord().starts_with(entry->term->View())) continue;
            (*termNodes)[n].weight = entry->weight;
            break;
        }
    }
}

void IABooleanQuery::InitializeQuery(InvertedIndex& index, std::uint32_t i) {
    for (std::uint32_t n = 0; n < termNodes->Count(); ++n) {
        IABooleanQueryTermNode& node = (*termNodes)[n];
        node.postings =
            std::make_unique<WordPostings>(*node.rankedQuery, index, i, *similarity, parser.HasUnicodeWords());
        node.alreadyTrue = false;
    }
    tree->ResetMins();
}

bool IABooleanQuery::MayRepeatDocuments() const {
    for (std::uint32_t n = 0; n < termNodes->Count(); ++n)
        if ((*termNodes)[n].postings->MayRepeat()) return true;
    return false;
}

std::uint32_t IABooleanQuery::GetMin() {
    const std::uint32_t next = tree->GetMin();
    for (std::uint32_t n = 0; n < termNodes->Count(); ++n) (*termNodes)[n].alreadyTrue = false;
    return next;
}

}  // namespace brindle
