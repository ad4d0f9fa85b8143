#pragma once
#include <cstdint>

#include "toolkit/index/TermTable.h"

namespace brindle {

class IAAnalysis;
class IADoc;
class IAIndex;

/// The distinct terms of one document, and how often each stands there.
class DocInversion {
public:
    /// Analyses the document's text, as far as the index's largest document size allows.  Raises
    /// OrderedStorableSetEntryTooBig for a term that no record can hold.
    void Invert(const IADoc& doc, const IAIndex& index);

    /// The entries, by term, of the frequency.
    TermTable<std::uint32_t> terms;
    /// The sum of the frequencies.
    std::uint32_t total = 0;
};

}  // namespace brindle
