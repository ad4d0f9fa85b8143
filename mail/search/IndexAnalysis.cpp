#include "mail/search/IndexAnalysis.h"

#include <algorithm>
#include <array>
#include <numeric>

#include "lorvale/defaults.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/search/unicode_analysis.h"

namespace lorvale {

namespace {

/// With the lists of English words, where they are there.
template <class Analysis>
std::unique_ptr<brindle::IAAnalysis> make() {
    const auto stopwords = pathForResource("EnglishStopwords");
    const auto substitutions = pathForResource("EnglishSubstitutions");
    return std::make_unique<Analysis>(stopwords ? stopwords->c_str() : nullptr,
                                      substitutions ? substitutions->c_str() : nullptr);
}

constexpr auto kAnalyses = std::to_array<IndexAnalysis>({
    {"Eng1", IndexedForm::cString, make<brindle::EnglishAnalysis>},
    {"Uni1", IndexedForm::utf8, make<UnicodeAnalysis>},
});

std::uint32_t numberOf(std::string_view tag) {
    return std::accumulate(tag.begin(), tag.end(), std::uint32_t{0}, [](std::uint32_t number, char sign) {
        return number << 8 | static_cast<unsigned char>(sign);
    });
}

}  // namespace

const IndexAnalysis* indexAnalysisWithTag(std::uint32_t tag) {
    const auto* const found =
        std::ranges::find(kAnalyses, tag, [](const auto& each) { return numberOf(each.tag); });
    return found != kAnalyses.end() ? found : nullptr;
}

const IndexAnalysis& chosenIndexAnalysis() {
    const auto wanted = Defaults::sharedInstance().stringForKey(kIndexAnalysisKey);
    const auto* const found = std::ranges::find(kAnalyses, wanted, &IndexAnalysis::tag);
    if (found != kAnalyses.end()) return *found;
    if (!wanted.empty())
        log("There is no analysis \"%@\"; indexes are made with \"%@\"", wanted, kAnalyses.front().tag);
    return kAnalyses.front();
}

}  // namespace lorvale
