// The checker of an index.  It reads the tables by their iterators and decodes lists by itself, block by block.
#include "lorvale/toolkit/index/verify_index.h"

#include <algorithm>
#include <sstream>
#include <unordered_map>
#include <unordered_set>

#include "lorvale/toolkit/index/vector_index.h"
#include "lorvale/toolkit/storage/verify_btree.h"
#include "toolkit/index/Probes.h"
#include "toolkit/index/RecordLimits.h"

namespace brindle {

namespace {

constexpr std::size_t kMostFindings = 100;

class IndexChecker {
public:
    explicit IndexChecker(TermIndex& toCheck)
        : index(toCheck), lists(InvertedIndex::IANarrow(&toCheck)), vectors(VectorIndex::IANarrow(&toCheck)) {}

    IndexReport Run() {
        const IALock lock(index.GetMutex());
        CheckTables();
        // Without sound tables a walk through them would only say so again, many times.
        if (report.Sound()) {
            Guarded("documents", [this] { CheckDocuments(); });
            Guarded("document numbers", [this] { CheckDocIDs(); });
            Guarded("terms", [this] { CheckTerms(); });
            Guarded("term numbers", [this] { CheckTermIDs(); });
            CheckLengths();
            CheckVectorTerms();
        }
        if (report.violations.size() == kMostFindings) report.violations.push_back("and more");
        return std::move(report);
    }

private:
    template <class... Parts>
    void Violation(const Parts&... parts) {
        if (report.violations.size() >= kMostFindings) return;
        std::ostringstream text;
        (text << ... << parts);
        report.violations.push_back(text.str());
    }

    template <class Work>
    void Guarded(const char* what, Work work) {
        try {
            work();
        } catch (const IAException& failure) {
            Violation(what, ": ", failure.What());
        }
    }

    void CheckTables();
    void CheckDocuments();
    void CheckDocIDs();
    void CheckTerms();
    void CheckTerm(const TermInfo& info, const std::string& name);
    void CheckList(const InvertedTermInfo& info, const std::string& name);
    void CheckVector(const VectorDocInfo& info);
    void CheckTermIDs();
    void CheckLengths();
    void CheckVectorTerms();
    template <class Each>
    void WalkPostings(const InvertedTermInfo& info, const std::string& name, Each each);

    struct Document {
        std::uint64_t stated = 0;  // its length
        std::uint64_t counted = 0;
    };

    TermIndex& index;
    InvertedIndex* const lists;  // the same one, if it has lists
    VectorIndex* const vectors;  // the same one, if it has vectors
    IndexReport report;
    std::unordered_map<std::uint32_t, Document> documents;     // by ID
    std::unordered_map<std::uint32_t, std::string> termsByID;  // of the records
    std::unordered_set<std::uint32_t> blocks;                  // of all chains and vectors
    std::unordered_map<std::uint32_t, std::uint32_t> holders;  // vectors with the term, by its ID
};

std::string Named(const TermInfo& info) {
    std::string name = "term \"";
    for (const char c : info.GetTerm()->View()) name += c >= 0x20 && c < 0x7F ? c : '?';
    return name + '"';
}

void IndexChecker::CheckTables() {
    const IAStorage& storage = *index.GetStorage();
    const auto check = [&](const char* table, std::uint32_t root, const IAOrderedStorable& prototype) {
        const BTreeReport tree = VerifyBTree(const_cast<IAStorage&>(storage), root, prototype);
        for (const std::string& finding : tree.violations) Violation(table, ": ", finding);
    };
    if (vectors != nullptr)
        check("documents", index.GetDocInfoSetRoot(), VectorDocInfo(index.GetCorpus()->GetProtoDoc(), 0));
    else
        check("documents", index.GetDocInfoSetRoot(), DocInfo(index.GetCorpus()->GetProtoDoc(), 0));
    check("document numbers", index.GetIDDocMapRoot(), IDDoc(0, index.GetCorpus()->GetProtoDoc()));
    if (lists != nullptr)
        check("terms", index.GetTermInfoSetRoot(), InvertedTermInfo(index.GetAnalysis()->GetProtoTerm(), 0));
    else
        check("terms", index.GetTermInfoSetRoot(), TermInfo(index.GetAnalysis()->GetProtoTerm(), 0));
    check("term numbers", index.GetIDTermMapRoot(), IDTerm(0, index.GetAnalysis()->GetProtoTerm()));
}

void IndexChecker::CheckDocuments() {
    const auto infos = index.GetDocInfoIterator();
    while (const auto info = RecordOf<DocInfo>(infos->Next())) {
        ++report.documents;
        const std::uint32_t id = info->GetDocID();
        if (id == 0 || id >= index.GetMaxDocID()) Violation("document ", id, " has a number never handed out");
        if (!documents.try_emplace(id, Document{info->GetDocumentLength(), 0}).second)
            Violation("document ", id, " is there twice");
        const auto back = index.FindIDDoc(id);
        if (back == nullptr || !back->Equal(info->GetDocument()))
            Violation("document ", id, " is another one by its number");
        if (lists != nullptr && lists->IsDocDeleted(id))
            Violation("document ", id, " is there but marked deleted");
        if (vectors != nullptr) {
            const auto& record = static_cast<const VectorDocInfo&>(*info);
            Guarded("vectors", [&] { CheckVector(record); });
        }
    }
}

void IndexChecker::CheckVector(const VectorDocInfo& info) {
    const std::uint32_t id = info.GetDocID();
    if (!blocks.insert(info.GetVectorBlockID()).second)
        Violation("document ", id, ": block ", info.GetVectorBlockID(), " is in two places");
    const auto vector = vectors->ReadTFVector(info.GetVectorBlockID());
    if (!vector->Validate(false)) Violation("document ", id, ": the terms of its vector do not rise");
    if (vector->TotalFrequency() != info.GetDocumentLength())
        Violation("document ", id, " has ", vector->TotalFrequency(), " words in its vector and says ",
                  info.GetDocumentLength());
    for (const TFComponent& component : vector->GetComponents()) ++holders[component.termID];
    report.components += vector->GetDocumentLength();
}

void IndexChecker::CheckDocIDs() {
    std::uint32_t count = 0;
    const auto idDocs = index.GetIDDocIterator();
    while (const auto idDoc = RecordOf<IDDoc>(idDocs->Next())) {
        ++count;
        if (!documents.contains(idDoc->GetID())) Violation("number ", idDoc->GetID(), " leads to no document");
    }
    if (count != documents.size()) Violation(count, " numbers for ", documents.size(), " documents");
}

void IndexChecker::CheckTerms() {
    const auto infos = index.GetTermInfoIterator();
    while (const auto info = RecordOf<TermInfo>(infos->Next())) {
        ++report.terms;
        const std::string name = Named(*info);
        Guarded(name.c_str(), [&] { CheckTerm(*info, name); });
    }
}

void IndexChecker::CheckTerm(const TermInfo& info, const std::string& name) {
    const std::uint32_t id = info.GetTermID();
    if (id == 0 || id >= index.GetMaxTermID()) Violation(name, " has a number never handed out: ", id);
    if (!termsByID.try_emplace(id, info.GetTerm()->View()).second)
        Violation(name, " has the number of another term: ", id);
    if (info.GetDocumentCount() == 0) Violation(name, " is in no document");
    if (lists != nullptr)
        CheckList(static_cast<const InvertedTermInfo&>(info), name);
    else if (vectors != nullptr && holders[id] != info.GetDocumentCount())
        Violation(name, " is in ", holders[id], " vectors and says ", info.GetDocumentCount());
}

void IndexChecker::CheckList(const InvertedTermInfo& info, const std::string& name) {
    std::uint64_t count = 0;
    std::uint32_t highest = 0, previous = 0, alive = 0;
    WalkPostings(info, name, [&](FreqPosting posting) {
        ++count;
        highest = std::max(highest, posting.freq);
        if (posting.docID <= previous) Violation(name, ": document ", posting.docID, " out of order");
        previous = posting.docID;
        const auto document = documents.find(posting.docID);
        if (document != documents.end()) {
            document->second.counted += posting.freq;
            ++alive;
        } else if (!lists->IsDocDeleted(posting.docID)) {
            Violation(name, ": document ", posting.docID, " is unknown and not marked deleted");
        }
    });
    report.postings += count;
    if (count != info.GetDocumentCount())
        Violation(name, " has ", count, " postings and says ", info.GetDocumentCount());
    if (vectors != nullptr && holders[info.GetTermID()] != alive)
        Violation(name, " is in ", holders[info.GetTermID()], " vectors and in the list of ", alive,
                  " documents");
    if (highest != info.GetMaxDocFreq())
        Violation(name, " has a highest frequency of ", highest, " and says ", info.GetMaxDocFreq());
}

template <class Each>
void IndexChecker::WalkPostings(const InvertedTermInfo& info, const std::string& name, Each each) {
    std::uint32_t last = 0;
    for (std::uint32_t block = info.FirstBlock(); block != 0;) {
        if (!blocks.insert(block).second) return Violation(name, ": block ", block, " is in two places");
        ++report.postingBlocks;
        std::vector<FreqPosting> postings;
        last = block;
        block = FreqPostingsRestoreBlock(index.GetStorage(), block, postings);
        std::ranges::for_each(postings, each);
    }
    std::ranges::for_each(info.Postings().Decoded(), each);
    if (info.FirstBlock() != 0 && last != static_cast<const InvertedBlockTermInfo&>(info).LastBlock())
        Violation(name, ": the chain ends in block ", last, ", not in the one named last");
}

void IndexChecker::CheckTermIDs() {
    std::uint32_t count = 0;
    const auto idTerms = index.GetiDTermMap()->MakeIterator();
    while (const auto idTerm = RecordOf<IDTerm>(idTerms->Next())) {
        ++count;
        const auto term = termsByID.find(idTerm->GetID());
        if (term == termsByID.end() || term->second != idTerm->GetValue()->View())
            Violation("number ", idTerm->GetID(), " leads to a term of another number");
    }
    if (count != termsByID.size()) Violation(count, " numbers for ", termsByID.size(), " terms");
}

void IndexChecker::CheckLengths() {
    if (lists == nullptr) return;
    for (const auto& [id, document] : documents)
        if (document.stated != document.counted)
            Violation("document ", id, " has ", document.counted, " words in the lists and says ",
                      document.stated);
}

void IndexChecker::CheckVectorTerms() {
    for (const auto& [id, count] : holders)
        if (!termsByID.contains(id)) Violation(count, " vectors have the unknown term ", id);
}

}  // namespace

IndexReport VerifyIndex(TermIndex& index) {
    return IndexChecker(index).Run();
}

}  // namespace brindle
