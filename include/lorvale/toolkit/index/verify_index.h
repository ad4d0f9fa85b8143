#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/index/term_index.h"

namespace brindle {

/// What a look through an index has found.
struct LORVALE_EXPORT IndexReport {
    /// Broken rules, one sentence each; empty for a sound index.  Ends early, saying so, when there are very
    /// many.
    std::vector<std::string> violations;

    std::uint32_t terms = 0;
    std::uint32_t documents = 0;
    std::uint64_t postings = 0;          ///< in all lists, those of deleted documents too
    std::uint64_t postingBlocks = 0;     ///< outside of the records
    std::uint64_t components = 0;        ///< of all vectors
    std::uint32_t deletedDocuments = 0;  ///< whose postings may still be there

    bool Sound() const { return violations.empty(); }
};

/// Checks every rule of the flushed part of an open index: its four tables and that they lead to each other,
/// the numbers handed out, the lengths of documents; of an inverted index each list of postings, its blocks,
/// counts and order; of a vector index each vector and how many have a term.  Reads all of it.  Changes
/// nothing. Damage ends in violations.
LORVALE_EXPORT IndexReport VerifyIndex(TermIndex& index);

}  // namespace brindle
