#pragma once
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "lorvale/toolkit/index/term_index.h"
#include "toolkit/index/TermTable.h"

namespace brindle {

/// How often each term stands in one source of a query, and later what it weighs there.
class TFMap {
public:
    struct Entry {
        std::string_view term;
        std::uint32_t frequency;
        float weight = 0;
    };

    /// Counts the terms of a text as the index's queries see them.  Like a document a source has no more
    /// distinct terms than the index allows: it stops at the last one of them.
    void AddDocText(const TermIndex& index, std::unique_ptr<IADocText> text) {
        const auto stream = index.GetQueryAnalysis()->MakeTokenStream(std::move(text));
        for (IATermView term; stream->NextTerm(term);) {
            ++counts[counts.Number(term.View())];
            if (counts.Count() >= index.GetMaxDocumentSize()) break;
        }
    }
    /// To be called when all is counted.
    void Sort();

    /// In the order of terms.
    std::vector<Entry>& Entries() { return entries; }
    const std::vector<Entry>& Entries() const { return entries; }

private:
    TermTable<std::uint32_t> counts;  // holds the terms
    std::vector<Entry> entries;
};

}  // namespace brindle
