#include "toolkit/index/DocInversion.h"

#include "lorvale/toolkit/index/index_base.h"
#include "toolkit/index/RecordLimits.h"

namespace brindle {

void DocInversion::Invert(const IADoc& doc, const IAIndex& index) {
    terms.Clear();
    total = 0;
    const std::uint32_t limit = index.GetMaxDocumentSize();
    const auto stream = index.GetAnalysis()->MakeTokenStream(index.GetCorpus()->GetDocText(&doc));
    for (IATermView term; stream->NextTerm(term);) {
        IAAssertion(term.length <= kMaxTermLength, "term too long for an index", OrderedStorableSetEntryTooBig);
        ++terms[terms.Number(term.View())];
        ++total;
        if (terms.Count() >= limit) break;
    }
}

}  // namespace brindle
