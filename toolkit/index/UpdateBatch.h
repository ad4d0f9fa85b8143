#pragma once
#include <cstdint>
#include <memory>
#include <set>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "lorvale/toolkit/index/records.h"
#include "toolkit/index/DocInversion.h"
#include "toolkit/index/TermTable.h"

namespace brindle {

/// A document that waits for the next flush.
struct DocUpdate {
    std::unique_ptr<IADoc> document;
    std::uint32_t docID = 0;
    std::uint32_t total = 0;  // of its frequencies
    std::vector<std::pair<std::uint32_t, std::uint32_t>>
        vector;  // term's number here, frequency; may not be kept
};

/// By document; a document alone serves as a key.
struct DocUpdateOrder {
    using is_transparent = void;
    static const IADoc& DocOf(const DocUpdate& update) { return *update.document; }
    static const IADoc& DocOf(const IADoc& doc) { return doc; }
    template <class A, class B>
    bool operator()(const A& a, const B& b) const {
        return DocOf(a).LessThan(&DocOf(b));
    }
};

/// What waits for the next flush: for each term the postings that it gains, and the documents.  A posting costs
/// 12 bytes, a term some 40.  Used under the index's mutex.
class UpdateBatch {
public:
    struct TermUpdate {
        std::uint32_t addCount = 0;
        std::uint32_t delCount = 0;
        std::uint32_t lastAddition = 0;  // place of the last one, plus 1
        std::uint32_t termID = 0;        // known when the term has been flushed
    };

    bool HasDoc(const IADoc& doc) const { return docs.find(doc) != docs.end(); }
    /// `keepVector`: remember which terms the document has.
    void AddDoc(std::unique_ptr<IADoc> doc, std::uint32_t docID, DocInversion& inversion, bool keepVector);
    TermUpdate& UpdateOf(std::string_view term) { return terms[terms.Number(term)]; }

    std::uint32_t TermCount() const { return terms.Count(); }
    std::uint32_t DocCount() const { return static_cast<std::uint32_t>(docs.size()); }

    /// The numbers of the terms, in the order of terms.
    std::vector<std::uint32_t> TermsInOrder();
    std::string_view TermOf(std::uint32_t number) const { return terms.TermOf(number); }
    TermUpdate& operator[](std::uint32_t number) { return terms[number]; }
    /// The postings that a term gains, in the order in which they came; good until the next call.
    std::span<const FreqPosting> AdditionsTo(const TermUpdate& update);
    std::set<DocUpdate, DocUpdateOrder>& Docs() { return docs; }

    void Clear();

private:
    struct Addition {
        FreqPosting posting;
        std::uint32_t before;  // place of the same term's one before, plus 1
    };

    TermTable<TermUpdate> terms;
    std::vector<Addition> additions;  // of all terms, as they came: writing one touches nothing but its end
    std::set<DocUpdate, DocUpdateOrder> docs;
    std::vector<FreqPosting> gathered;
};

}  // namespace brindle
