#pragma once
#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "lorvale/toolkit/index/term_index.h"
#include "toolkit/index/Probes.h"

namespace brindle {

/// A source's next term.
struct TermHead {
    std::size_t source;
    std::unique_ptr<TermInfo> info;  // null at the end
    std::unique_ptr<IAOrderedStorableIterator> rest;
};

/// The terms of several indexes in one order; of equal terms the sources come in theirs.
class TermHeads {
public:
    explicit TermHeads(std::span<TermIndex* const> indices) {
        for (TermIndex* const index : indices) {
            auto iterator = index->GetTermInfoIterator();
            auto first = RecordOf<TermInfo>(iterator->Next());
            heads.push_back({heads.size(), std::move(first), std::move(iterator)});
        }
    }

    /// Null when all are through.
    const TermHead* Least() const {
        const TermHead* least = nullptr;
        for (const TermHead& head : heads)
            if (head.info != nullptr && (least == nullptr || head.info->LessThan(least->info.get())))
                least = &head;
        return least;
    }
    /// All that stand at the same term as the least one: for each index its record, or null.
    std::vector<const TermInfo*> LeastInAll() const {
        const TermHead* const least = Least();
        std::vector<const TermInfo*> infos;
        for (const TermHead& head : heads)
            infos.push_back(head.info != nullptr && head.info->Equal(least->info.get()) ? head.info.get()
                                                                                        : nullptr);
        return infos;
    }
    void Advance(std::size_t source) { heads[source].info = RecordOf<TermInfo>(heads[source].rest->Next()); }

private:
    std::vector<TermHead> heads;
};

}  // namespace brindle
