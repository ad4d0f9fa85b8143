#pragma once
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/toolkit/corpus/doc.h"

namespace brindle {

class Progress;
class TermIndex;
template <class About>
class TermTable;

/// How often each term stands in one source of a query, and later what it weighs there.  One thread.
class LORVALE_EXPORT TFMap : public IAObject {
public:
    struct Entry {
        std::string_view term;  // the map's
        std::uint32_t frequency;
        float weight = 0;
    };

    TFMap();
    TFMap(TFMap&& other) noexcept;
    TFMap& operator=(TFMap&& other) noexcept;
    ~TFMap() override;

    /// Counts the terms of a text as the index's queries see them.  Like a document a source has no more
    /// distinct terms than the index allows: it stops at the last one of them.  Each new term is a step of the
    /// progress, which may be null.  True if it was cancelled.
    bool AddDocText(const TermIndex& index, std::unique_ptr<IADocText> text, Progress* progress = nullptr);
    /// Adds to what is known of a term; copies it.
    void Add(std::string_view term, std::uint32_t frequency);

    /// In the order of terms; good until more is added.
    std::span<Entry> Entries();

private:
    std::unique_ptr<TermTable<std::uint32_t>> counts;  // holds the terms; null while there are none
    std::vector<Entry> entries;                        // empty when something was added since
};

}  // namespace brindle
