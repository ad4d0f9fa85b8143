#include <algorithm>
#include <utility>

#include "lorvale/defaults.h"
#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/store/message_cache.h"
#include "lorvale/store/message_store.h"

namespace lorvale {

namespace {

constexpr std::int32_t kUsualMessages = 50, kUsualDataSize = 1'048'576;

std::int32_t settingNamed(std::string_view key) {
    return static_cast<std::int32_t>(
        std::clamp<std::int64_t>(Defaults::sharedInstance().integerForKey(key), -1, INT32_MAX));
}

}  // namespace

MessageCacheManager& MessageCacheManager::manager() {
    // Never destroyed: a store that lives until the end of the process still takes its messages out.
    static auto& manager = *new MessageCacheManager(settingNamed("MessageCacheMaximumMessages"),
                                                    settingNamed("MessageCacheMaximumDataSize"));
    return manager;
}

MessageCacheManager::MessageCacheManager(std::int32_t maximumMessages, std::int32_t maximumDataSize)
    : _maximumMessages(maximumMessages == 0 ? kUsualMessages : maximumMessages),
      _maximumDataSize(maximumDataSize == 0 ? kUsualDataSize : maximumDataSize) {}

MessageCacheManager::~MessageCacheManager() = default;

MessageCacheManager::Messages MessageCacheManager::takeSurplus(Messages& messages,
                                                               const Message& viewed) const {
    Messages surplus;
    const auto take = [&messages, &surplus](Messages::iterator message) {
        surplus.push_back(std::move(*message));
        messages.erase(message);
    };
    // One message comes, so one goes.
    if (_maximumMessages > 0 && messages.size() > static_cast<std::size_t>(_maximumMessages))
        take(messages.begin());
    if (_maximumDataSize == kNoLimit) return surplus;
    const auto weight = [&](const auto& message) {
        return message.get() == &viewed ? 0 : message->cachedDataSize();
    };
    for (;;) {
        std::size_t sum = 0;
        for (const auto& message : messages) sum += weight(message);
        if (sum <= static_cast<std::size_t>(_maximumDataSize)) return surplus;
        take(std::ranges::max_element(messages, {}, weight));
    }
}

void MessageCacheManager::viewedMessage(const std::shared_ptr<Message>& message) {
    if (message == nullptr) return;
    Messages surplus;
    {
        const MutexLock lock(_mutex);
        std::erase(_messages, message);
        _messages.push_back(message);
        surplus = takeSurplus(_messages, *message);
    }
    for (const auto& each : surplus) each->flushCachedData();
}

void MessageCacheManager::flushAllCachedData() {
    Messages all;
    {
        const MutexLock lock(_mutex);
        all.swap(_messages);
    }
    for (const auto& each : all) each->flushCachedData();
}

void MessageCacheManager::removeObjectsFromCache(const MessageList& messages) {
    {
        const MutexLock lock(_mutex);
        std::erase_if(_messages, [&](const auto& message) { return messages.indexOf(*message) != kNotFound; });
    }
    for (auto i = messages.size(); i > 0; --i) messages[i - 1]->flushCachedData();
}

void MessageCacheManager::removeObjectsFromCacheForStore(const MessageStore& store) {
    Messages leaving;
    {
        const MutexLock lock(_mutex);
        const auto gone = std::stable_partition(_messages.begin(), _messages.end(), [&](const auto& message) {
            const auto its = message->messageStore();
            return its != nullptr && its.get() != &store;
        });
        leaving.assign(gone, _messages.end());
        _messages.erase(gone, _messages.end());
    }
    // Without the lock, since the last share of a message may go here.
    for (std::size_t i = 0; i < leaving.size(); ++i) debugLog("flushing a message from the cache");
}

std::size_t MessageCacheManager::count() const {
    const MutexLock lock(_mutex);
    return _messages.size();
}

}  // namespace lorvale
