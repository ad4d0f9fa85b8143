/// The list of a mailbox on a server, its flags, and what the server tells of both.
#include <algorithm>
#include <utility>

#include "base/files/FileSystem.h"
#include "lorvale/imap/store.h"
#include "lorvale/imap/words.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/store/message_cache.h"
#include "lorvale/values/format.h"
#include "lorvale/values/range.h"
#include "mail/imap/Digits.h"
#include "mail/imap/ServerLock.h"
#include "mail/imap/StoreNames.h"
#include "mail/imap/Survivors.h"

namespace lorvale {

IMAPStore::Numbers IMAPStore::numbersOf(const MessageList& messages) const {
    Numbers numbers;
    for (const auto& message : messages) {
        if (isStandard()) {
            const auto* const listed = dynamic_cast<const IMAPMessage*>(message.get());
            if (const auto uid = listed != nullptr ? numberIn(listed->uid()) : std::nullopt)
                numbers.push_back(*uid);
        } else if (const auto number = numberOfMessage(*message); number != 0) {
            numbers.push_back(static_cast<std::uint32_t>(number));
        }
    }
    return numbers;
}

void IMAPStore::setFlags(const MessageFlags& flags, std::span<const std::string_view> havingKeys,
                         const MessageList& forMessages) {
    bool wasSent = false;
    for (auto key = havingKeys.rbegin(); key != havingKeys.rend(); ++key) {
        const bool isOfReading = *key == MessageIsUnread;
        if (!isOfReading && *key != MessageIsDeleted) continue;
        const bool state = isOfReading ? flags.isRead() : flags.isDeleted();
        for (const auto& message : forMessages) {
            const auto own = message->messageFlags();
            if (isOfReading)
                own->setRead(state);
            else
                own->setDeleted(state);
        }
        _buildUnreadList();
        if (!_pushStateToServer) continue;
        ++_flagChanges;
        if (!checkConnectionToServer()) continue;
        const ServerTurn turn(*_lock);
        _connection->storeFlag(isOfReading ? IMAPFlagSeen : IMAPFlagDeleted, state, numbersOf(forMessages));
        wasSent = true;
    }
    if (wasSent) messageFlagsDidChange(forMessages);
}

void IMAPStore::deleteMessages(MessageList messages) {
    MessageStore::deleteMessages(messages);
    _buildUnreadList();
    messageFlagsDidChange(messages);
}

void IMAPStore::undeleteMessages(MessageList messages) {
    MessageStore::undeleteMessages(messages);
    _buildUnreadList();
    messageFlagsDidChange(messages);
}

bool IMAPStore::copyMessages(const MessageList& messages, std::string_view toMailboxNamed) {
    _refusal.clear();
    const auto numbers = numbersOf(messages);
    if (numbers.size() != messages.size() || !checkConnectionToServer()) return false;
    const ServerTurn turn(*_lock);
    const bool isTaken = _connection->copyMessageNumbers(numbers, toMailboxNamed);
    _refusal = _connection->refusal();
    return isTaken;
}

void IMAPStore::setMessages(const Messages& messages, const Messages& added) {
    const auto self = shared_from_this();
    for (const auto& message : added) message->setMessageStore(self);
    if (isStandard() && _pushStateToServer) _arrived.insert(_arrived.end(), added.begin(), added.end());
    setAllMessages(messages);
    _hasLists = true;
    rebuildMessageLists();
    addMessagesToIndex(added);
    structureDidChange();
}

void IMAPStore::_flushAllData() {
    setLists({});
    _hasLists = false;
}

/// What the lists of the four fetches have at one place makes one message, whether or not they belong together:
/// a server that leaves a message out of one of them shifts that list.  What reaches beyond the shortest list
/// is left out.
IMAPStore::Messages IMAPStore::_fetchMessagesWithNumbers(const Numbers& numbers) {
    const auto flags = _connection->fetchFlags(numbers);
    const auto sizes = _connection->fetchSizes(numbers);
    const auto uids = _connection->fetchUIDs(numbers);
    const auto envelopes = _connection->fetchEnvelopes(numbers);
    Messages messages;
    if (!flags || !sizes || !uids || !envelopes) return messages;
    const auto count = std::min({flags->size(), sizes->size(), uids->size(), envelopes->size()});
    for (std::size_t i = 0; i < count; ++i) {
        auto message = IMAPMessage::messageWithCachedHeaders((*envelopes)[i], (*flags)[i],
                                                             numberIn((*sizes)[i]).value_or(0));
        message->setUID((*uids)[i]);
        message->setMessageStore(shared_from_this());
        messages.push_back(std::move(message));
    }
    return messages;
}

void IMAPStore::newMessagesHaveArrived(std::string_view recent, std::string_view total) {
    if (!_isSynchronized && !isStandard()) return;
    if (!RunLoop::isMainThread()) {
        // Lists change in the main thread alone.
        userAgentOrAbsent().performInMainThread(
            [weak = weak_from_this(), recent = std::string(recent), total = std::string(total)] {
                const auto self = std::static_pointer_cast<IMAPStore>(weak.lock());
                if (self && !self->isClosed()) self->newMessagesHaveArrived(recent, total);
            });
        return;
    }
    if (isStandard()) {
        // By the numbers alone nobody can tell what was expunged meanwhile.
        const auto count = numberIn(total).value_or(0);
        if (std::exchange(_toldTotal, count) != count && count != totalCount()) contentsDidChange();
        return;
    }
    if (const auto count = numberIn(total)) appendNew(*count);
}

void IMAPStore::appendNew(std::size_t total) {
    const ServerTurn turn(*_lock);
    const auto before = totalCount();
    if (total <= before || total > kMostMessages) return;
    Numbers numbers;
    for (auto number = before + 1; number <= total; ++number)
        numbers.push_back(static_cast<std::uint32_t>(number));
    const MessageList added = _fetchMessagesWithNumbers(numbers);
    setAllMessages(allMessages().appending(added));
    rebuildMessageLists();
    _connection->storeFlag(IMAPFlagRecent, false, numbers);
    if (added.empty()) return;
    userAgentOrAbsent().performInMainThread([weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->queueStructureDidChange();
    });
    addMessagesToIndex(added);
    updateIndex();
}

/// The list is compared with the server's again, also when that is just being done: what was asked before the
/// change does not tell of it.
void IMAPStore::contentsDidChange() {
    ++_contentChanges;
    _isSynchronized = false;
    if (_connected && !isClosed()) startSynchronizing();
}

void IMAPStore::messagesWereDeleted(std::span<const std::string> numbers) {
    if (isStandard()) {
        _toldTotal = 0;  // as many as before may be others
        contentsDidChange();
    } else if (_isSynchronized) {
        removeExpunged(numbers);
    }
}

/// Each number is one of the list as it was when that message went.  Who is told before of what will go is
/// found by the number and the place of that number, which is right as long as the numbers do not fall.
void IMAPStore::removeExpunged(std::span<const std::string> numbers) {
    const ServerTurn turn(*_lock);
    const auto all = allMessages();
    Messages announced, gone;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const auto number = numberIn(numbers[i]);
        if (!number || *number - 1 + i >= all.size()) continue;
        announced.push_back(all[*number - 1 + i]);
    }
    messagesWillBeCompacted(announced);
    removeMessagesFromIndex(announced);
    Survivors survivors(all.size());
    for (const auto& each : numbers) {
        const auto number = numberIn(each);
        if (!number || *number > survivors.count()) continue;
        const auto& message = all[survivors.take(*number)];
        const auto file = cacheFileOf(static_cast<IMAPMessage&>(*message).uid());
        if (!file.empty() && FileSystem::current().exists(file)) (void)FileSystem::current().remove(file);
        gone.push_back(message);
    }
    if (gone.empty()) return;
    MessageCacheManager::manager().removeObjectsFromCache(gone);
    Messages left;
    for (std::size_t i = 0; i < all.size(); ++i)
        if (survivors.has(i)) left.push_back(all[i]);
    setAllMessages(left);
    rebuildMessageLists();
    updateIndex();
    queueStructureDidChange();
}

void IMAPStore::receivedFlags(const IMAPValue& flags, std::string_view forMessage) {
    if (!_isSynchronized) return;
    const auto all = allMessages();
    const auto number = numberIn(forMessage);
    // The last message counts as none here, as it always has: its flags come with the next look at all.
    const bool isKnown = number && (*number < all.size() || (isStandard() && *number == all.size()));
    if (!isKnown) return;
    static_cast<IMAPMessage&>(*all[*number - 1]).setIMAPFlags(flags);
    scheduleFlagsChanged();
}

/// A burst of flags is looked at once.
void IMAPStore::scheduleFlagsChanged() {
    const auto loop = RunLoop::main();
    if (_flagsCall != 0) loop->cancel(_flagsCall);
    _flagsCall = loop->perform([weak = weak_from_this()] {
        if (const auto self = std::static_pointer_cast<IMAPStore>(weak.lock())) self->messageFlagsChanged();
    });
}

void IMAPStore::messageFlagsChanged() {
    _flagsCall = 0;
    if (isClosed()) return;
    _buildDeletedList();
    _buildUnreadList();
    rebuildFilteredMessageList();
    messageFlagsDidChange(allMessages());
    queueStructureDidChange();
}

void IMAPStore::connectionWasDisconnected() {
    _connected = false;
}

void IMAPStore::logResponse(std::string_view) {
    std::string text;
    {
        const MutexLock lock(_stateMutex);
        if (_statusMessageFormat.empty() || _statusMessageCount >= _statusMessageMaximum) return;
        ++_statusMessageCount;
        text = formatText(_statusMessageFormat, _statusMessageCount, _statusMessageMaximum);
    }
    showStatus(text);
}

}  // namespace lorvale
