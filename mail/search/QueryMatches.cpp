#include "lorvale/search/query_matches.h"

#include <memory>
#include <set>
#include <string>

#include "lorvale/toolkit/analysis/token_stream.h"
#include "mail/search/IndexAnalysis.h"
#include "mail/search/MboxDoc.h"
#include "mail/search/ToolkitHooks.h"

namespace lorvale {

namespace {

template <class Use>
void forEachTerm(const brindle::IAAnalysis& analysis, std::string_view text, Use use) {
    const auto terms =
        analysis.MakeTokenStream(std::make_unique<MboxDocText>(std::make_shared<const std::string>(text)));
    for (brindle::IATermView term; terms->NextTerm(term);) use(term);
}

}  // namespace

std::vector<Range> queryMatches(std::string_view query, std::string_view text) {
    installToolkitHooks();
    const auto analysis = chosenIndexAnalysis().make();
    std::set<std::string, std::less<>> wanted;
    forEachTerm(*analysis, query, [&](const auto& term) { wanted.emplace(term.View()); });
    std::vector<Range> matches;
    forEachTerm(*analysis, text, [&](const auto& term) {
        if (!wanted.contains(term.View())) return;
        // The end lies behind marks that are no part of the word.
        auto word = text.substr(term.startPosition, term.endPosition - term.startPosition);
        while (!word.empty() && std::string_view(",.'`").find(word.back()) != std::string_view::npos)
            word.remove_suffix(1);
        matches.push_back({term.startPosition, word.size()});
    });
    return matches;
}

}  // namespace lorvale
