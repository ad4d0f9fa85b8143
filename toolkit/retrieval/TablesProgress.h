#pragma once
#include "lorvale/toolkit/index/term_index.h"
#include "lorvale/toolkit/retrieval/progress.h"

namespace brindle {

/// Tells an accessor's first index, as if it was flushed, how far the accessor's tables are.  Nobody can cancel
/// it.
class TablesProgress : public Progress {
public:
    explicit TablesProgress(const TermIndex& index) : Progress(index.GetFlushProgressFreq(), Told(index)) {}

private:
    static Function Told(const TermIndex& index) {
        const auto fn = index.GetFlushProgressFn();
        if (fn == nullptr) return nullptr;
        return [fn](float percent) {
            fn(percent);
            return false;
        };
    }
};

}  // namespace brindle
