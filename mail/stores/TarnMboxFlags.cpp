/// A directory mailbox: lists, status, deleting and taking back, attributes.
#include <algorithm>
#include <utility>

#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/store/tarn_mbox.h"
#include "mail/stores/TableOfContents.h"

namespace lorvale {

namespace {

TOCMessage& listed(const std::shared_ptr<Message>& message) {
    return static_cast<TOCMessage&>(*message);
}

bool countsAsUnread(const TOCMessage& message) {
    return !message.isRead() && !message.isDeleted();
}

template <class Wanted>
MessageList messagesOf(const MessageList& messages, Wanted wanted) {
    std::vector<std::shared_ptr<Message>> found;
    std::ranges::copy_if(messages, std::back_inserter(found),
                         [&](const auto& message) { return wanted(listed(message)); });
    return found;
}

/// What the message itself keeps of a flag, whether or not the table has room for it.
void setOwnFlag(Message& message, std::string_view key, const MessageFlags& flags) {
    // These two stand in the table: a message that holds no flags needs none for them.
    if (key == MessageIsUnread) {
        message.currentFlags()->setRead(flags.isRead());
    } else if (key == MessageIsDeleted) {
        message.currentFlags()->setDeleted(flags.isDeleted());
    } else if (key == MessageWasRepliedTo) {
        message.messageFlags()->setRepliedTo(flags.wasRepliedTo());
    } else if (key == MessageIsEncrypted) {
        message.messageFlags()->setEncrypted(flags.isEncrypted());
    } else if (key == MessagePriorityLevel) {
        message.messageFlags()->setPriority(flags.priority());
    } else if (const auto value = flags.valueForKey(key)) {
        message.messageFlags()->setObject(*value, key);
    }
}

}  // namespace

void TarnMbox::_resetAllMessages() {
    setAllMessages(_toc->messages());
}

void TarnMbox::_buildUnreadList() {
    auto next = lists();
    next.unread = messagesOf(next.all, countsAsUnread);
    next.unreadSize = sizeOfMessages(*next.unread);
    setLists(std::move(next));
}

void TarnMbox::_buildDeletedList() {
    auto next = lists();
    next.deleted = messagesOf(next.all, [](const TOCMessage& message) { return message.isDeleted(); });
    next.deletedSize = sizeOfMessages(*next.deleted);
    setLists(std::move(next));
}

void TarnMbox::rebuildMessageLists() {
    if (_toc == nullptr) return;
    MessageStore::rebuildMessageLists();
    _listsAreExact = true;
}

/// The lists with more messages at the end of the mailbox, as a rebuild would make them.
void TarnMbox::_listAppended(const MessageList& added) {
    if (!_listsAreExact || isFocused() || sortOrder() != MessageStoreSortByNumber || !lists().unread) {
        rebuildMessageLists();
        return;
    }
    const auto unread = messagesOf(added, countsAsUnread);
    const auto deleted = messagesOf(added, [](const TOCMessage& message) { return message.isDeleted(); });
    auto next = lists();
    next.all = _toc->messages();
    next.allSize += sizeOfMessages(added);
    next.unread = next.unread->appending(unread);
    next.unreadSize += sizeOfMessages(unread);
    next.deleted = next.deleted->appending(deleted);
    next.deletedSize += sizeOfMessages(deleted);
    next.filtered = next.filtered.appending(excludeRead()      ? unread
                                            : includeDeleted() ? added
                                                               : added.removing(deleted));
    setLists(std::move(next));
}

std::shared_ptr<TOCMessage> TarnMbox::_TOCMessageForMessage(const std::shared_ptr<Message>& message) const {
    if (auto own = std::dynamic_pointer_cast<TOCMessage>(message); own && own->isListed()) return own;
    log("TarnMbox: TOCMessageForMessage called with bogus message argument");
    return TOCMessage::TOCMessageFromMessage(*message);
}

std::shared_ptr<MessageFlags> TarnMbox::flagsForMessage(Message& message) {
    const auto* const record = dynamic_cast<const TOCMessage*>(&message);
    if (record == nullptr) return std::make_shared<MessageFlags>();
    return std::make_shared<MessageFlags>((record->isRead() ? 0 : MessageFlags::kUnread) |
                                          (record->isDeleted() ? MessageFlags::kDeleted : 0));
}

void TarnMbox::setFlags(const MessageFlags& flags, std::span<const std::string_view> havingKeys,
                        const MessageList& forMessages) {
    if (!mayChange()) return;
    std::vector<std::shared_ptr<Message>> changed, nowUnread, nowRead;
    bool any = false;
    for (const auto& message : forMessages) {
        const auto record = _TOCMessageForMessage(message);
        if (record == nullptr) continue;
        const bool wasUnread = countsAsUnread(*record);
        for (const auto key : havingKeys) {
            if (key == MessageIsUnread && record->isRead() != flags.isRead()) {
                record->setIsRead(flags.isRead());
                changed.push_back(message);
                any = true;
            } else if (key == MessageIsDeleted) {
                record->setIsDeleted(flags.isDeleted());
                any = true;
            }
            setOwnFlag(*message, key, flags);
        }
        if (record != message || wasUnread == countsAsUnread(*record)) continue;
        (wasUnread ? nowRead : nowUnread).push_back(message);
    }
    auto next = lists();
    if (next.unread) {
        next.unread = next.unread->removing(nowRead).appending(nowUnread);
        next.unreadSize += sizeOfMessages(nowUnread) - sizeOfMessages(nowRead);
    }
    setLists(std::move(next));
    if (!any) return;
    _listsAreExact = false;
    _updateStoreAttributes();
    if (!changed.empty()) messageFlagsDidChange(changed);
}

void TarnMbox::deleteMessages(MessageList messages) {
    if (!mayChange()) return;
    // What is marked already must not count twice.
    messages = messagesOf(messages.removing(messages.removing(allMessages())),
                          [](const TOCMessage& message) { return !message.isDeleted(); });
    if (messages.empty()) return;
    MessageStore::deleteMessages(messages);
    messageFlagsDidChange(messages);
}

void TarnMbox::undeleteMessages(MessageList messages) {
    if (!mayChange()) return;
    messages = messagesOf(messages.removing(messages.removing(allMessages())),
                          [](const TOCMessage& message) { return message.isDeleted(); });
    if (messages.empty()) return;
    MessageStore::undeleteMessages(messages);
    _updateStoreAttributes();
    messageFlagsDidChange(messages);
}

void TarnMbox::_updateStoreAttributes() {
    const auto self = weak_from_this().lock();
    if (!self) return;
    NotificationQueue::defaultQueue().enqueueNotification(
        {std::string(MessageStoreAttributesChanged), self, {}}, PostingStyle::whenIdle);
}

bool TarnMbox::_storeAttributes() {
    bool changed = false;
    const auto store = [&](std::string_view key, std::size_t value) {
        const auto text = std::to_string(value);
        if (userInfo()[key].string() == text) return;
        userInfo().set(key, text);
        changed = true;
    };
    store(MessageStoreUnreadCount, unreadCount());
    store(MessageStoreDeletedCount, deletedCountAndSize().count);
    store(MessageStoreTotalCount, _toc->count());
    // The size of the deleted messages goes under this name, too, and stays there.  It looks like a mistake,
    // but viewers of mailboxes that are not open have always read it here.
    store(MessageStoreTotalCount, deletedCountAndSize().size);
    store(MessageStoreTotalSize, totalCountAndSize().size);
    if (changed) userInfo().set(MessageStoreIsDirty, "Yes");
    return changed;
}

}  // namespace lorvale
