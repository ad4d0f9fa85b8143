/// The lists of a store: building, filtering, focus, sorting, flags, deleting and taking back.
#include <algorithm>
#include <numeric>
#include <unordered_set>
#include <utility>

#include "lorvale/message.h"
#include "lorvale/platform/user_interface.h"
#include "lorvale/store/message_store.h"
#include "lorvale/values/range.h"
#include "mail/stores/MessageLists.h"
#include "mail/stores/MessageSort.h"

namespace lorvale {

void removeMessages(MessageList& from, const MessageList& gone) {
    std::unordered_set<const Message*> going;
    for (const auto& message : gone) going.insert(message.get());
    std::erase_if(from, [&](const auto& message) { return going.contains(message.get()); });
}

const MessageList& MessageStore::allMessages() const {
    static const MessageList none;
    return _allMessages ? *_allMessages : none;
}

const MessageList& MessageStore::filteredMessages() const {
    return _filteredMessages;
}

std::size_t MessageStore::indexOfMessage(const Message& message) const {
    const auto& all = allMessages();
    const auto found = std::ranges::find(all, &message, &std::shared_ptr<Message>::get);
    return found != all.end() ? static_cast<std::size_t>(found - all.begin()) : kNotFound;
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
    return {totalCount(), _allMessagesSize};
}

CountAndSize MessageStore::deletedCountAndSize() const {
    return {_deletedMessages ? _deletedMessages->size() : 0, _deletedMessagesSize};
}

CountAndSize MessageStore::unreadCountAndSize() const {
    return {_unreadMessages ? _unreadMessages->size() : 0, _unreadMessagesSize};
}

std::uint32_t MessageStore::sizeOfMessages(const MessageList& messages) const {
    return std::accumulate(messages.begin(), messages.end(), std::uint32_t{0},
                           [](std::uint32_t sum, const auto& message) { return sum + message->messageSize(); });
}

void MessageStore::rebuildMessageLists() {
    _resetAllMessages();
    const auto self = shared_from_this();
    for (const auto& message : allMessages()) message->setMessageStore(self);
    _allMessagesSize = sizeOfMessages(allMessages());
    _buildUnreadList();
    _buildDeletedList();
    rebuildFilteredMessageList();
}

void MessageStore::_buildUnreadList() {
    _unreadMessages.emplace();
    std::ranges::copy_if(allMessages(), std::back_inserter(*_unreadMessages), [](const auto& message) {
        const auto flags = message->messageFlags();
        return flags && !flags->isRead() && !flags->isDeleted();
    });
    _unreadMessagesSize = sizeOfMessages(*_unreadMessages);
}

void MessageStore::_buildDeletedList() {
    _deletedMessages.emplace();
    std::ranges::copy_if(allMessages(), std::back_inserter(*_deletedMessages), [](const auto& message) {
        const auto flags = message->messageFlags();
        return flags && flags->isDeleted();
    });
    _deletedMessagesSize = sizeOfMessages(*_deletedMessages);
}

void MessageStore::rebuildFilteredMessageList() {
    if (excludeRead()) {
        _filteredMessages = _unreadMessages.value_or(MessageList());
    } else {
        _filteredMessages = allMessages();
        if (!includeDeleted() && _deletedMessages && !_deletedMessages->empty()) {
            removeMessages(_filteredMessages, *_deletedMessages);
        }
    }
    _sortMessages();
    _flags.isFocused = false;
}

void MessageStore::setFocusedMessages(const std::optional<MessageList>& messages) {
    if (!messages) {
        rebuildFilteredMessageList();
    } else {
        // Assigning first: the list may be our own.
        _filteredMessages = *messages;
        _flags.isFocused = true;
    }
    structureDidChange();
}

void MessageStore::setExcludeRead(bool exclude) {
    if (exclude == excludeRead()) return;
    _flags.excludeRead = exclude;
    rebuildFilteredMessageList();
    structureDidChange();
}

void MessageStore::setIncludeDeleted(bool include) {
    if (include == includeDeleted()) return;
    _flags.includeDeleted = include;
    rebuildFilteredMessageList();
    structureDidChange();
}

void MessageStore::_sortMessages() {
    sortMessages(_filteredMessages, sortOrder(), *this);
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
    deleteMessages({message});
}

void MessageStore::deleteMessages(MessageList messages) {
    const auto size = sizeOfMessages(messages);
    MessageFlags flags;
    flags.setDeleted(true);
    flags.setRead(true);
    const std::string_view keys[] = {MessageIsDeleted, MessageIsUnread};
    setFlags(flags, keys, messages);
    deleteStack.push_back(messages);
    if (!_deletedMessages) _buildDeletedList();
    _deletedMessages->insert(_deletedMessages->end(), messages.begin(), messages.end());
    if (_unreadMessages) removeMessages(*_unreadMessages, messages);
    _deletedMessagesSize += size;
    // The whole size, whether the messages were unread or not, so that the sum can wrap below 0.  Stores that
    // keep it right themselves while they set the flags count on this step as it is; the next
    // _buildUnreadList() sets it right for all.
    _unreadMessagesSize -= size;
    if (includeDeleted()) return;
    removeMessages(_filteredMessages, messages);
    structureDidChange();
}

void MessageStore::undeleteMessage(const std::shared_ptr<Message>& message) {
    undeleteMessages({message});
}

void MessageStore::undeleteMessages(MessageList messages) {
    MessageFlags flags;  // not deleted; whether they were read before they were deleted nobody knows any more
    const std::string_view keys[] = {MessageIsDeleted};
    setFlags(flags, keys, messages);
    if (_deletedMessages) removeMessages(*_deletedMessages, messages);
    _deletedMessagesSize -= sizeOfMessages(messages);
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
