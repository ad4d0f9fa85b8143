#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/message/list.h"
#include "lorvale/platform/mutex.h"

namespace lorvale {

class MessageStore;

/// Bounds the memory that loaded headers and bodies take: a host reports each message that it shows, and the
/// manager drops what was loaded of others.  The messages themselves stay with whoever holds them; the manager
/// holds a share of those that it has been told of.
///
/// Keep a message that is being edited out of it: a change of headers goes with what is dropped.  Any thread;
/// as a rule the main one.
class LORVALE_EXPORT MessageCacheManager {
public:
    static constexpr std::int32_t kNoLimit = -1;

    /// The one of the process, with the limits of the user defaults "MessageCacheMaximumMessages" (else 50) and
    /// "MessageCacheMaximumDataSize" (else 1048576 bytes; -1 for no limit) as they are when it is first used.
    static MessageCacheManager& manager();
    /// 0 stands for the usual limits, and a negative number of messages for no limit.
    explicit MessageCacheManager(std::int32_t maximumMessages = 0, std::int32_t maximumDataSize = 0);
    ~MessageCacheManager();
    MessageCacheManager(const MessageCacheManager&) = delete;
    MessageCacheManager& operator=(const MessageCacheManager&) = delete;

    /// Makes it the youngest.  With more messages than the limit the oldest one is flushed and leaves.  While
    /// the others together are larger than the limit of size, as far as Message::cachedDataSize() tells, the
    /// largest of them is flushed and leaves; the one being viewed never is.  Null does nothing.
    void viewedMessage(const std::shared_ptr<Message>& message);
    void flushAllCachedData();
    /// Each is flushed, whether it was known here or not.
    void removeObjectsFromCache(const MessageList& messages);
    /// They leave and are not flushed; also those whose store is gone.
    void removeObjectsFromCacheForStore(const MessageStore& store);

    std::size_t count() const;

private:
    using Messages = std::vector<std::shared_ptr<Message>>;
    /// Takes those out that have to go.
    Messages takeSurplus(Messages& messages, const Message& viewed) const;

    const std::int32_t _maximumMessages, _maximumDataSize;
    mutable Mutex _mutex;                           // not held while a message is flushed
    Messages _messages LORVALE_GUARDED_BY(_mutex);  // oldest first
};

}  // namespace lorvale
