#include "toolkit/index/UpdateBatch.h"

#include <algorithm>

namespace brindle {

void UpdateBatch::AddDoc(std::unique_ptr<IADoc> doc, std::uint32_t docID, DocInversion& inversion,
                         bool keepVector) {
    DocUpdate update{std::move(doc), docID, inversion.total, {}};
    for (const auto& entry : inversion.terms.Entries()) {
        const std::uint32_t number = terms.Number(inversion.terms.TermOf(entry), entry.hash);
        TermUpdate& term = terms[number];
        additions.push_back({{docID, entry.about}, term.lastAddition});
        term.lastAddition = static_cast<std::uint32_t>(additions.size());
        ++term.addCount;
        if (keepVector) update.vector.emplace_back(number, entry.about);
    }
    docs.insert(std::move(update));
}

std::vector<std::uint32_t> UpdateBatch::TermsInOrder() {
    // The first eight bytes as a number decide most comparisons.
    struct Key {
        std::uint64_t prefix;
        std::uint32_t number;
    };
    std::vector<Key> keys;
    keys.reserve(TermCount());
    for (std::uint32_t number = 0; number < TermCount(); ++number) {
        std::uint64_t prefix = 0;
        const std::string_view term = TermOf(number);
        for (std::size_t i = 0; i < 8; ++i)
            prefix = prefix << 8 | (i < term.size() ? static_cast<std::uint8_t>(term[i]) : 0u);
        keys.push_back({prefix, number});
    }
    std::ranges::sort(keys, [this](const Key& a, const Key& b) {
        return a.prefix != b.prefix ? a.prefix < b.prefix : TermOf(a.number) < TermOf(b.number);
    });
    std::vector<std::uint32_t> numbers(keys.size());
    std::ranges::transform(keys, numbers.begin(), &Key::number);
    return numbers;
}

std::span<const FreqPosting> UpdateBatch::AdditionsTo(const TermUpdate& update) {
    gathered.resize(update.addCount);
    std::uint32_t place = update.lastAddition;
    for (auto at = gathered.rbegin(); at != gathered.rend(); ++at) {
        *at = additions[place - 1].posting;
        place = additions[place - 1].before;
    }
    return gathered;
}

void UpdateBatch::Clear() {
    terms.Clear();
    additions.clear();
    docs.clear();
}

}  // namespace brindle
