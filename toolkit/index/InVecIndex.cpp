#include "lorvale/toolkit/index/vector_index.h"

namespace brindle {

namespace {

const char kClassID = 0;

}  // namespace

InVecIndex::InVecIndex(IAStorage* indexStorage, std::unique_ptr<IACorpus> indexCorpus,
                       std::unique_ptr<IAAnalysis> indexAnalysis, std::uint32_t type, std::uint32_t root) {
    TermIndex::Constructing(indexStorage, std::move(indexCorpus), std::move(indexAnalysis), type, root);
}

InVecIndex::~InVecIndex() = default;

void InVecIndex::DeletingDoc(const DocInfo& info) {
    InvertedIndex::DeletingDocInternal(info);
    VectorIndex::DeletingDoc(info);
}

const void* InVecIndex::IAClassID() {
    return &kClassID;
}

void* InVecIndex::IANarrowInternal(const void* classID) {
    if (classID == IAClassID()) return this;
    void* const inverted = InvertedIndex::IANarrowInternal(classID);
    return inverted != nullptr ? inverted : VectorIndex::IANarrowInternal(classID);
}

InVecIndex* InVecIndex::IANarrow(IAIndex* index) {
    return index != nullptr ? static_cast<InVecIndex*>(index->IANarrowInternal(IAClassID())) : nullptr;
}

}  // namespace brindle
