/// The lists of a store: building, filtering, focus, sorting, flags, deleting and taking back.
#include <algorithm>
#include <numeric>
#include <utility>

#include "lorvale/message.h"
#include "lorvale/platform/user_interface.h"
#include "lorvale/store/message_cache.h"
#include "lorvale/store/message_store.h"
#include "lorvale/values/range.h"
#include "mail/stores/MessageSort.h"

namespace lorvale {

namespace {

bool isUnread(const MessageFlags& flags) {
    return !flags.isRead() && !flags.isDeleted();
}

bool isDeleted(const MessageFlags& flags) {
    return flags.isDeleted();
}

MessageList messagesWith(const MessageList& messages, bool (*wanted)(const MessageFlags&)) {
    std::vector<std::shared_ptr<Message>> found;
    std::ranges::copy_if(messages, std::back_inserter(found),
                         [&](const auto& message) { return wanted(*message->currentFlags()); });
    return found;
}

}  // namespace

MessageStore::Lists MessageStore::lists() const {
    std::shared_ptr<const Lists> now;
    {
        const MutexLock lock(_mutex);
        now = _lists;
    }
    return now ? *now : Lists();
}

void MessageStore::setLists(Lists lists) {
    auto next = std::make_shared<const Lists>(std::move(lists));
    const MutexLock lock(_mutex);
    _lists.swap(next);  // the old ones, perhaps the last share of many messages, go without the lock
}

void MessageStore::setAllMessages(MessageList messages) {
    // Before any other thread sees them.
    if (const auto self = weak_from_this().lock())
        for (const auto& message : messages) message->setMessageStore(self);
    auto next = lists();
    next.allSize = sizeOfMessages(messages);
    next.all = std::move(messages);
    setLists(std::move(next));
}

MessageList MessageStore::allMessages() const {
    return lists().all;
}

MessageList MessageStore::filteredMessages() const {
    return lists().filtered;
}

std::size_t MessageStore::indexOfMessage(const Message& message) const {
    return allMessages().indexOf(message);
}

std::size_t MessageStore::numberOfMessage(const Message& message) const {
    const auto index = indexOfMessage(message);
    return index == kNotFound ? 0 : index + 1;
}

std::shared_ptr<Message> MessageStore::messageForMessageID(std::string_view messageID) {
    const auto all = allMessages();
    for (std::size_t i = all.size(); i > 0; --i) {
        const auto& message = all[i - 1];
        const auto headers = message->headers();
        const bool wasLoaded = headers->hasAllHeaders();
        const bool found = message->messageID() == messageID;
        if (!wasLoaded && !headers->headersChanged()) headers->flushCachedData();
        if (found) return message;
    }
    return nullptr;
}

std::size_t MessageStore::count() const {
    return filteredMessages().size();
}

std::size_t MessageStore::totalCount() const {
    return allMessages().size();
}

std::size_t MessageStore::unreadCount() const {
    return unreadCountAndSize().count;
}

CountAndSize MessageStore::totalCountAndSize() const {
    const auto now = lists();
    return {now.all.size(), now.allSize};
}

CountAndSize MessageStore::deletedCountAndSize() const {
    const auto now = lists();
    return now.deleted ? CountAndSize{now.deleted->size(), now.deletedSize} : countMessages(isDeleted);
}

CountAndSize MessageStore::unreadCountAndSize() const {
    const auto now = lists();
    return now.unread ? CountAndSize{now.unread->size(), now.unreadSize} : countMessages(isUnread);
}

CountAndSize MessageStore::countMessages(bool (*counts)(const MessageFlags&)) const {
    const auto counted = messagesWith(allMessages(), counts);
    return {counted.size(), sizeOfMessages(counted)};
}

std::uint32_t MessageStore::sizeOfMessages(const MessageList& messages) const {
    return std::accumulate(messages.begin(), messages.end(), std::uint32_t{0},
                           [](std::uint32_t sum, const auto& message) { return sum + message->messageSize(); });
}

void MessageStore::rebuildMessageLists() {
    if (isClosed()) return;  // what was closed does not come back
    _resetAllMessages();
    setAllMessages(allMessages());  // where nothing was reset, sizes may have changed
    _buildUnreadList();
    _buildDeletedList();
    rebuildFilteredMessageList();
}

void MessageStore::_buildUnreadList() {
    auto next = lists();
    next.unread = messagesWith(next.all, isUnread);
    next.unreadSize = sizeOfMessages(*next.unread);
    setLists(std::move(next));
}

void MessageStore::_buildDeletedList() {
    auto next = lists();
    next.deleted = messagesWith(next.all, isDeleted);
    next.deletedSize = sizeOfMessages(*next.deleted);
    setLists(std::move(next));
}

void MessageStore::rebuildFilteredMessageList() {
    auto next = lists();
    if (excludeRead()) {
        next.filtered = next.unread.value_or(MessageList());
    } else {
        next.filtered = next.all;
        if (!includeDeleted() && next.deleted) next.filtered = next.filtered.removing(*next.deleted);
    }
    next.filtered = _sortMessages(next.filtered);
    setLists(std::move(next));
    _isFocused = false;
}

void MessageStore::setFocusedMessages(const std::optional<MessageList>& messages) {
    if (!messages) {
        rebuildFilteredMessageList();
    } else {
        auto next = lists();
        next.filtered = *messages;
        setLists(std::move(next));
        _isFocused = true;
    }
    structureDidChange();
}

void MessageStore::setExcludeRead(bool exclude) {
    if (exclude == excludeRead()) return;
    _excludeRead = exclude;
    rebuildFilteredMessageList();
    structureDidChange();
}

void MessageStore::setIncludeDeleted(bool include) {
    if (include == includeDeleted()) return;
    _includeDeleted = include;
    rebuildFilteredMessageList();
    structureDidChange();
}

MessageList MessageStore::_sortMessages(const MessageList& messages) const {
    return sortedMessages(messages, sortOrder(), *this);
}

void MessageStore::setFlags(const MessageFlags& flags, std::span<const std::string_view> havingKeys,
                            const std::shared_ptr<Message>& forMessage) {
    setFlags(flags, havingKeys, MessageList{forMessage});
}

void MessageStore::setRead(bool read, const std::shared_ptr<Message>& forMessage) {
    // Viewers call this for whatever message they show, with either value, and count on it that showing a
    // message again does not make it unread; marking unread goes through the form for many messages.
    const auto flags = forMessage->messageFlags();
    if (flags && flags->isRead()) return;
    setRead(read, MessageList{forMessage});
}

void MessageStore::setRead(bool read, const MessageList& forMessages) {
    MessageFlags flags;
    flags.setRead(read);
    const std::string_view keys[] = {MessageIsUnread};
    setFlags(flags, keys, forMessages);
}

void MessageStore::setRepliedTo(bool repliedTo, const std::shared_ptr<Message>& forMessage) {
    setRepliedTo(repliedTo, MessageList{forMessage});
}

void MessageStore::setRepliedTo(bool repliedTo, const MessageList& forMessages) {
    MessageFlags flags;
    flags.setRepliedTo(repliedTo);
    const std::string_view keys[] = {MessageWasRepliedTo};
    setFlags(flags, keys, forMessages);
}

void MessageStore::setPriority(std::uint32_t priority, const std::shared_ptr<Message>& forMessage) {
    setPriority(priority, MessageList{forMessage});
}

void MessageStore::setPriority(std::uint32_t priority, const MessageList& forMessages) {
    MessageFlags flags;
    flags.setPriority(priority);
    const std::string_view keys[] = {MessagePriorityLevel};
    setFlags(flags, keys, forMessages);
}

void MessageStore::deleteMessage(const std::shared_ptr<Message>& message) {
    deleteMessages(MessageList{message});
}

void MessageStore::deleteMessages(MessageList messages) {
    const auto size = sizeOfMessages(messages);
    MessageFlags flags;
    flags.setDeleted(true);
    flags.setRead(true);
    const std::string_view keys[] = {MessageIsDeleted, MessageIsUnread};
    setFlags(flags, keys, messages);
    deleteStack.push_back(messages);
    if (!lists().deleted) _buildDeletedList();
    MessageCacheManager::manager().removeObjectsFromCache(messages);
    auto next = lists();
    next.deleted = next.deleted->appending(messages);
    if (next.unread) next.unread = next.unread->removing(messages);
    next.deletedSize += size;
    // The whole size, whether the messages were unread or not, so that the sum can wrap below 0.  Stores that
    // keep it right themselves while they set the flags count on this step as it is; the next
    // _buildUnreadList() sets it right for all.
    next.unreadSize -= size;
    if (!includeDeleted()) next.filtered = next.filtered.removing(messages);
    setLists(std::move(next));
    if (!includeDeleted()) structureDidChange();
}

void MessageStore::undeleteMessage(const std::shared_ptr<Message>& message) {
    undeleteMessages(MessageList{message});
}

void MessageStore::undeleteMessages(MessageList messages) {
    MessageFlags flags;  // not deleted; whether they were read before they were deleted nobody knows any more
    const std::string_view keys[] = {MessageIsDeleted};
    setFlags(flags, keys, messages);
    auto next = lists();
    if (next.deleted) next.deleted = next.deleted->removing(messages);
    next.deletedSize -= sizeOfMessages(messages);
    setLists(std::move(next));
    if (includeDeleted()) return;
    rebuildFilteredMessageList();
    structureDidChange();
}

std::optional<MessageList> MessageStore::undeleteLastDeletedMessages() {
    if (deleteStack.empty()) {
        currentUserInterface().beep();
        return std::nullopt;
    }
    auto messages = deleteStack.back();
    undeleteMessages(messages);
    // An observer of the change may have emptied the stack.
    if (!deleteStack.empty()) deleteStack.pop_back();
    return messages;
}

void MessageStore::invalidateDeleteStack() {
    deleteStack.clear();
}

}  // namespace lorvale
