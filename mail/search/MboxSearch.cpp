#include "mail/search/MboxSearch.h"

#include <algorithm>
#include <utility>

#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/store/message_store.h"
#include "mail/search/BooleanSearchString.h"
#include "mail/search/MboxDoc.h"
#include "mail/search/ToolkitHooks.h"

namespace lorvale {

namespace {

using Indexes = std::vector<std::shared_ptr<MboxIndex>>;

constexpr std::uint32_t kTopTerms = 10;
constexpr std::uint32_t kProgressFrequency = 30;  // ticks; nobody listens
/// So often a search is tried over a file that another process keeps writing.
constexpr int kAttempts = 3;

struct Named {
    std::string messageID;
    std::shared_ptr<MessageStore> store;
    float score;
};

/// One search of several indexes.  Under MboxMutex::shared().
class SearchRun {
public:
    SearchRun(const Indexes& indexes, const MessageQuery& query, std::string text)
        LORVALE_REQUIRES(MboxMutex::shared())
        : _query(query), _text(std::move(text)) {
        for (const auto& index : indexes)
            if (auto* const inverted = index->_invertedIndex()) _open.push_back({index, inverted});
    }

    bool hasIndexes() const { return !_open.empty(); }

    std::vector<Named> run() LORVALE_REQUIRES(MboxMutex::shared()) {
        if (_open.size() == 1) return namesOf(hitsOf(_open.front().index->accessor()));
        std::vector<brindle::InvertedIndex*> inverted;
        std::vector<const brindle::InvertedAccessor*> alone;  // which have the norms
        for (const auto& each : _open) {
            inverted.push_back(each.inverted);
            alone.push_back(&each.index->accessor());
        }
        brindle::InvertedAccessor accessor(inverted, MboxIndex::kAccessorType);
        accessor.InitializeFrom(alone);
        return namesOf(hitsOf(accessor));
    }

private:
    struct Open {
        std::shared_ptr<MboxIndex> index;
        brindle::InvertedIndex* inverted;
    };

    brindle::RankedHits hitsOf(brindle::InvertedAccessor& accessor) const {
        return _query.isBoolean
                   ? accessor.RankedSearchBoolean(_text, _query.maximumHits, nullptr, kProgressFrequency)
                   : accessor.RankedSearch(_text, {}, _query.maximumHits, kTopTerms, nullptr,
                                           kProgressFrequency);
    }

    std::vector<Named> namesOf(const brindle::RankedHits& hits) const LORVALE_REQUIRES(MboxMutex::shared()) {
        std::vector<Named> names;
        names.reserve(hits.size());
        for (const auto& hit : hits) {
            const auto found = std::ranges::find(_open, hit->GetIndex(), &Open::inverted);
            const auto& doc = static_cast<const MboxDoc&>(*hit->GetDocument());
            names.push_back(
                {doc.messageID().value_or(std::string()), found->index->corpus().store(), hit->GetScore()});
        }
        return names;
    }

    const MessageQuery& _query;
    const std::string _text;
    std::vector<Open> _open;
};

std::optional<std::vector<Named>> searchOnce(const Indexes& indexes, const MessageQuery& query) {
    const RecursiveMutexLock lock(MboxMutex::shared());
    SearchRun run(indexes, query, query.isBoolean ? processBooleanSearchString(query.text) : query.text);
    if (!run.hasIndexes()) return std::nullopt;
    return run.run();
}

bool areOutdated(const Indexes& indexes) {
    return std::ranges::any_of(indexes, [](const auto& index) { return index->isOutdated(); });
}

/// What another process has written meanwhile may have been read in pieces of two states.
std::optional<std::vector<Named>> searchSteadily(const Indexes& indexes, const MessageQuery& query) {
    for (int attempt = 1;; ++attempt) {
        try {
            auto found = searchOnce(indexes, query);
            if (attempt == kAttempts || !areOutdated(indexes)) return found;
        } catch (const brindle::IAException&) {
            if (attempt == kAttempts || !areOutdated(indexes)) throw;
        }
    }
}

/// Which of the indexes a search fails on.
void noteDamage(const Indexes& indexes, const MessageQuery& query) {
    for (const auto& index : indexes) {
        try {
            searchOnce({index}, query);
        } catch (const brindle::IAException&) {
            index->noteDamage();
        }
    }
}

}  // namespace

MessageHits searchIndexes(const Indexes& indexes, const MessageQuery& query) {
    MessageHits result;
    std::optional<std::vector<Named>> found;
    try {
        found = searchSteadily(indexes, query);
    } catch (const brindle::IAException& exception) {
        logBrindleException(exception);
        result.error = exception.What();
        result.hits.emplace();
        if (exception.GetCode() != brindle::IAAccessorInvalidQuery) noteDamage(indexes, query);
    }
    if (!found) return result;
    auto& hits = result.hits.emplace();
    for (auto& [messageID, store, score] : *found) {
        auto message = store != nullptr ? store->messageForMessageID(messageID) : nullptr;
        hits.push_back({std::move(message), std::move(store), score});
    }
    return result;
}

}  // namespace lorvale
