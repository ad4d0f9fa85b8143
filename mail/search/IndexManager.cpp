#include <algorithm>
#include <utility>

#include "lorvale/defaults.h"
#include "lorvale/message.h"
#include "lorvale/search/index_manager.h"
#include "lorvale/store/message_store.h"
#include "mail/search/BooleanSearchString.h"
#include "mail/search/MboxIndex.h"
#include "mail/search/MboxSearch.h"
#include "mail/search/StoreIndexer.h"

namespace lorvale {

namespace {

constexpr std::uint32_t kMaximumHits = 100;

std::uint32_t maximumSearchHits() {
    const auto wanted = Defaults::sharedInstance().integerForKey("MaximumSearchHits");
    return wanted < 1 ? kMaximumHits : static_cast<std::uint32_t>(std::min<std::int64_t>(wanted, UINT32_MAX));
}

std::shared_ptr<MboxIndex> openIndexOf(const MessageStore& store) {
    const auto* const indexer = StoreIndexer::ofStore(store);
    return indexer != nullptr ? indexer->_index() : nullptr;
}

}  // namespace

IndexManager& IndexManager::indexManager() {
    static auto& manager = *new IndexManager;  // stores may outlive the end of main
    return manager;
}

IndexManager::IndexManager() = default;
IndexManager::~IndexManager() = default;

std::string IndexManager::pathForIndexInStore(const MessageStore& store) {
    return MboxIndexFile::pathInStore(store);
}

bool IndexManager::indexExistsForStore(const MessageStore& store) {
    return MboxIndexFile(pathForIndexInStore(store)).exists();
}

void IndexManager::removeIndexForStore(const MessageStore& store) {
    MboxIndexFile(pathForIndexInStore(store)).remove();
}

std::shared_ptr<MboxIndex> IndexManager::mboxIndexForStore(const std::shared_ptr<MessageStore>& store,
                                                           bool create) {
    if (!create && !indexExistsForStore(*store)) return nullptr;
    return MboxIndex::initWithStore(store);
}

void IndexManager::registerIndexedStore(const std::shared_ptr<MessageStore>& store) {
    const MutexLock lock(_mutex);
    if (std::ranges::find(_indexedStores, store.get(), &Indexed::identity) == _indexedStores.end())
        _indexedStores.push_back({store.get(), store});
}

void IndexManager::unregisterIndexedStore(const MessageStore& store) {
    const MutexLock lock(_mutex);
    std::erase_if(_indexedStores, [&](const auto& each) { return each.identity == &store; });
}

std::vector<std::shared_ptr<MessageStore>> IndexManager::indexedStores() const {
    const MutexLock lock(_mutex);
    std::vector<std::shared_ptr<MessageStore>> stores;
    for (const auto& each : _indexedStores)
        if (auto store = each.store.lock()) stores.push_back(std::move(store));
    return stores;
}

std::optional<MessageList> IndexManager::messagesInStore(const std::shared_ptr<MessageStore>& store,
                                                         std::string_view containingString,
                                                         std::vector<float>* ranks, bool booleanSearch,
                                                         std::string* errorString) {
    return performSearchInStore(store, containingString, ranks, booleanSearch, errorString);
}

std::optional<MessageList> IndexManager::performSearchInStore(const std::shared_ptr<MessageStore>& store,
                                                              std::string_view forString,
                                                              std::vector<float>* ranks, bool booleanSearch,
                                                              std::string* errorString) {
    // A store without an open index falls back to all that have one: who asks for it by name gets an answer
    // while its own index is still being made.
    const bool isAlone = store != nullptr && isSearchable(*store);
    const auto stores = isAlone ? std::vector{store} : indexedStores();
    auto found = search(stores, {.text = std::string(forString), .isBoolean = booleanSearch});
    if (!found.error.empty() && errorString != nullptr) *errorString = found.error;
    if (!found.hits) return std::nullopt;
    std::vector<std::shared_ptr<Message>> messages;
    std::vector<float> scores;
    for (auto& hit : *found.hits) {
        scores.push_back(hit.score);
        messages.push_back(std::move(hit.message));
    }
    if (ranks != nullptr && !scores.empty()) *ranks = std::move(scores);
    return MessageList(std::move(messages));
}

MessageHits IndexManager::search(std::span<const std::shared_ptr<MessageStore>> stores,
                                 const MessageQuery& query) {
    std::vector<std::shared_ptr<MboxIndex>> indexes;
    for (const auto& store : stores)
        if (auto index = store != nullptr ? openIndexOf(*store) : nullptr) indexes.push_back(std::move(index));
    auto request = query;
    if (request.maximumHits == 0) request.maximumHits = maximumSearchHits();
    auto found = searchIndexes(indexes, request);
    for (const auto& store : stores) {
        auto* const indexer = store != nullptr ? StoreIndexer::ofStore(*store) : nullptr;
        const auto index = indexer != nullptr ? indexer->_index() : nullptr;
        if (index != nullptr && index->isDamaged()) indexer->wakeThread();  // which makes it anew
    }
    return found;
}

std::string IndexManager::processBooleanSearchString(std::string_view typed) {
    return lorvale::processBooleanSearchString(typed);
}

bool IndexManager::waitUntilIdle(MessageStore& store, std::chrono::steady_clock::time_point deadline) {
    auto* const indexer = StoreIndexer::ofStore(store);
    return indexer == nullptr || indexer->waitUntilIdle(deadline);
}

bool IndexManager::isSearchable(const MessageStore& store) {
    return openIndexOf(store) != nullptr;
}

std::uint32_t IndexManager::indexedCount(const MessageStore& store) {
    const auto index = openIndexOf(store);
    return index != nullptr ? index->count() : 0;
}

bool IndexManager::hasAllMessages(const MessageStore& store) {
    return MboxIndexFile(pathForIndexInStore(store)).isMarkedComplete();
}

IndexManager::Progress IndexManager::progress(const MessageStore& store) {
    const auto* const indexer = StoreIndexer::ofStore(store);
    return indexer != nullptr ? indexer->progress() : Progress();
}

}  // namespace lorvale
