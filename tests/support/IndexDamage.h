#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "lorvale/toolkit/retrieval.h"
#include "tests/support/IndexFixture.h"

namespace brindle::testing {

/// A small real index with everything in it: short lists, a chain of blocks, vectors, deleted documents.
template <class Index>
class DamagedIndex {
public:
    using Subject = InMemory<Index>;

    DamagedIndex() {
        for (int i = 0; i < 300; ++i)
            texts["d" + std::to_string(1000 + i)] =
                "all often" + std::to_string(i % 3) + " w" + std::to_string(i);
        texts["new"] = "all fresh w7";
        Subject t(texts);
        t.Make();
        t.index->SetBytesForUpdate(20'000);
        for (int i = 0; i < 300; ++i) t.Add("d" + std::to_string(1000 + i));
        t.index->Flush();
        t.Delete("d1001");
        t.Delete("d1150");
        t.FlushAndCommit();
        whole = *t.bytes;
    }

    /// Changes bytes, each told by three bytes of its place and the new value, and then uses everything that an
    /// index offers.  Lets nothing out but what is not an IAException.
    void DamageAndUse(std::span<const std::uint8_t> changes) const {
        Bytes damaged = whole;
        for (; changes.size() >= 4; changes = changes.subspan(4)) {
            const std::size_t place = std::size_t{changes[0]} << 16 | std::size_t{changes[1]} << 8 | changes[2];
            damaged[place % damaged.size()] = changes[3];
        }
        const std::function<void(Subject&)> uses[] = {
            [](Subject& t) { VerifyIndex(*t.index); },
            [](Subject& t) {
                for (const char* word : {"all", "often1", "w299", "absent"}) t.ListOf(word);
                t.index->GetNorm();
                t.index->Validate(true, false);
                GetHighFreqTerms(t.index.get(), 5);
            },
            [](Subject& t) {
                InvertedAccessor accessor(t.index.get());
                accessor.StoreInitialization();
                accessor.RankedSearch("all often1 w7", {}, 10, 2);
                accessor.RankedSearchBoolean("all & often2 ! w299", 10);
                accessor.GetTermsRelated("w7", 3);
            },
            [](Subject& t) {
                if constexpr (std::is_base_of_v<VectorIndex, Index>) {
                    const StringDoc doc("d1100");
                    const RankedQueryDoc example{&doc, t.index.get()};
                    InVecAccessor accessor(t.index.get());
                    accessor.StoreInitialization();
                    accessor.RankedSearch("", std::span(&example, 1), 10, 2);
                    accessor.GetDocTopic(example, 3);
                    VectorAccessor byVectors(t.index.get());
                    byVectors.InitializeAnew();
                    byVectors.RankedSearch("all often1 w7", std::span(&example, 1), 10, 2);
                    t.index->ExpungeTermPostings();
                }
            },
            [](Subject& t) {
                t.Add("new");
                t.Delete("d1100");
                t.FlushAndCommit();
                t.index->Compact();
            },
            [this](Subject& t) {
                Subject target(texts);
                target.Make();
                IAIndex* const sources[] = {t.index.get()};
                target.index->Merge(sources);
                VerifyIndex(*target.index);
            },
        };
        for (const auto& use : uses) {
            Subject t(texts, std::make_shared<Bytes>(damaged));
            try {
                t.Open();
                use(t);
            } catch (const IAException&) {
            }
        }
    }

    Texts texts;
    Bytes whole;
};
using IndexToDamage = DamagedIndex<InvertedIndex>;

}  // namespace brindle::testing
