/// The thread that brings the list in line with the server and fills the mirror.
#include <algorithm>
#include <condition_variable>
#include <numeric>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/imap/store.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/run_loop.h"
#include "mail/imap/Digits.h"
#include "mail/imap/ServerLock.h"
#include "mail/imap/StoreNames.h"

namespace lorvale {

void IMAPStore::startSynchronizing() {
    // The thread may just be about to end: whoever changes the word first decides.
    auto work = Work::none;
    while (
        !_work.compare_exchange_weak(work, work == Work::none ? Work::running : Work::runningAndWantedAgain)) {
    }
    if (work != Work::none) return;
    try {
        _thread = Thread("imap", [store = std::static_pointer_cast<IMAPStore>(shared_from_this())](
                                     const std::stop_token&) mutable {
            int rounds = 0;
            do runLoggingExceptions("imap", [&] { store->synchronizeWithServer(); });
            while (!store->endWork(++rounds));
            store.reset();
        });
    } catch (...) {
        _work = Work::none;
        throw;
    }
}

/// False when the list has changed meanwhile and all is to be done again.  A server that tells of changes
/// without end has to wait for the next time that somebody looks for new mail.
bool IMAPStore::endWork(int afterRounds) {
    auto work = Work::running;
    if (goesOn() && _work.compare_exchange_strong(work, Work::none)) return true;
    _isSynchronized = false;
    const bool goesOnNow = goesOn() && afterRounds < kMostRounds;
    _work = goesOnNow ? Work::running : Work::none;
    return !goesOnNow;
}

/// Whoever comes first, the main thread with the call or the store with the end, decides whether it runs.
bool IMAPStore::callInMainThread(std::function<void(IMAPStore&)> call) {
    struct Call {
        std::mutex mutex;
        std::condition_variable changed;
        bool isTaken = false, isDone = false;
    };
    const auto state = std::make_shared<Call>();
    const auto self = std::static_pointer_cast<IMAPStore>(shared_from_this());
    userAgentOrAbsent().performInMainThread([state, weak = std::weak_ptr(self), call = std::move(call)] {
        {
            const std::lock_guard lock(state->mutex);
            if (std::exchange(state->isTaken, true)) return;
        }
        if (const auto store = weak.lock()) runLoggingExceptions("imap", [&] { call(*store); });
        const std::lock_guard lock(state->mutex);
        state->isDone = true;
        state->changed.notify_all();
    });
    std::unique_lock lock(state->mutex);
    while (!state->isDone) {
        state->changed.wait_for(lock, std::chrono::milliseconds(20));
        if (!state->isDone && !goesOn() && !std::exchange(state->isTaken, true)) return false;
    }
    return true;
}

void IMAPStore::synchronizeWithServer() {
    try {
        if (_connected) {
            _stayOffline = false;
        } else {
            _stayOffline = userAgentOrAbsent().queryUserForYesNoWithMessage(
                "The connection to the server could not be established.  Do you want to stay disconnected from "
                "this server or do you want to continue retrying as needed?",
                "Connect failed", "Stay Disconnected", "Continue Trying");
            // Whatever the answer was, this run goes on without the server.
            _stayOffline = true;
        }
        if (!_stayOffline && goesOn()) bringIntoLine();
    } catch (const std::exception& exception) {
        log("Exception occured while synchronizing mailbox: %@.", exception.what());
    }
    showStatus("");
    try {
        cacheMessagesFromServer();
    } catch (const std::exception& exception) {
        log("Exception occurred while caching...%@", exception.what());
    }
    showStatus("");
}

void IMAPStore::bringIntoLine() {
    const auto changes = _contentChanges.load();
    if (!_isSynchronized && !compareWithServer()) return;
    showStatus(_isSynchronized ? "Messages synchronized, updating flags..."
                               : "Done synchronizing messages, updating flags...");
    if (!goesOn() || !synchronizeFlagsWithServer()) return;
    _processPendedAppendData();
    _pushStateToServer = true;
    (void)callInMainThread([changes](IMAPStore& store) {
        // What the server told of meanwhile is not in the list yet.
        if (store._work == Work::running && store._contentChanges == changes) store._isSynchronized = true;
        store.updateIndex();
        store.tellOfNewMail();
    });
}

/// What the server calls the messages for which a key holds; nullopt when it does not tell.
std::optional<std::vector<std::string>> IMAPStore::namesFound(std::string_view key) {
    if (!isStandard()) return _connection->search(key);
    const auto numbers = _connection->searchNumbers(IMAPSearchKeys().add(key));
    if (!numbers) return std::nullopt;
    std::vector<std::string> names;
    names.reserve(numbers->size());
    for (const auto number : *numbers) names.push_back(std::to_string(number));
    return names;
}

/// Those of all messages, in their order; nullopt when the server does not tell.
std::optional<std::vector<std::string>> IMAPStore::uidsOnServer(std::uint64_t count) {
    const ServerTurn turn(*_lock);
    if (isStandard()) return namesFound("ALL");
    if (count == 0) return std::vector<std::string>();
    if (count > kMostMessages) {
        log("The mailbox %@ has %d messages, more than %d", _mailboxName, count, kMostMessages);
        return std::nullopt;
    }
    Numbers numbers(count);
    std::iota(numbers.begin(), numbers.end(), 1U);
    return _connection->fetchUIDs(numbers);
}

/// True when the list is the server's.
bool IMAPStore::compareWithServer() {
    std::uint64_t count = 0;
    std::string uidNext;
    {
        const MutexLock lock(_stateMutex);
        count = _totalOnServer;
        uidNext = _uidNextOnServer;
    }
    showStatus("Comparing notes with server...");
    const auto uids = uidsOnServer(count);
    if (!uids || !goesOn()) return false;

    const auto before = allMessages();
    std::unordered_map<std::string, std::shared_ptr<Message>> known;
    for (const auto& message : before) known.emplace(static_cast<IMAPMessage&>(*message).uid(), message);
    Messages next;
    Numbers missing;
    std::vector<std::size_t> places;  // of the missing
    for (std::size_t i = 0; i < uids->size(); ++i) {
        const auto uid = numberIn((*uids)[i]);
        if (!uid) continue;
        // A server that names one twice has two: no message stands in a list twice.
        const auto found = known.extract((*uids)[i]);
        if (found) {
            next.push_back(found.mapped());
            continue;
        }
        places.push_back(next.size());
        missing.push_back(isStandard() ? *uid : static_cast<std::uint32_t>(i + 1));
        next.push_back(nullptr);
    }
    std::vector<std::shared_ptr<IMAPMessage>> fetched;
    if (!missing.empty()) {
        showStatus(formatText("Getting %d messages from server...", missing.size()));
        if (!_cacheMessagesWithNumbers(missing, fetched)) return false;
    }
    const auto uidAt = [&](std::uint32_t number) {
        return isStandard() ? std::to_string(number) : (*uids)[number - 1];
    };
    for (std::size_t i = 0; i < fetched.size(); ++i) {
        if (fetched[i]) fetched[i]->setUID(uidAt(missing[i]));
        next[places[i]] = fetched[i];
    }
    std::erase(next, nullptr);  // went between the question and the answer
    const bool isOther = !missing.empty() || next.size() != before.size() || !_hasLists;
    Messages added(fetched.begin(), fetched.end());
    std::erase(added, nullptr);
    return callInMainThread([=](IMAPStore& store) {
        if (isOther) store.setMessages(next, added);
        store._uidNext = uidNext;
    });
}

void IMAPStore::setProgressFormat(std::string_view format, std::size_t most) {
    const MutexLock lock(_stateMutex);
    _statusMessageFormat = format;
    _statusMessageCount = 0;
    _statusMessageMaximum = static_cast<std::int32_t>(most);
}

/// One for each number, null for a message that is there no more.  What comes for several numbers at once is
/// told apart by its order alone; when one is missing, each half is asked for by itself, since headers must not
/// come to stand over another message's text.  False when the server is gone or the store closes.
bool IMAPStore::_cacheMessagesWithNumbers(std::span<const std::uint32_t> numbers,
                                          std::vector<std::shared_ptr<IMAPMessage>>& intoArray) {
    setProgressFormat("Received %d of %d headers...", numbers.size());
    std::optional<std::vector<IMAPConnection::CacheInfo>> infos;
    bool isOpen = false;
    {
        const ServerTurn turn(*_lock);
        infos = _connection->fetchMessageCacheInfo(Numbers(numbers.begin(), numbers.end()));
        isOpen = _connection->connectionState() == IMAPConnection::State::mailboxSelected;
    }
    setProgressFormat({}, 0);
    showStatus("Done fetching headers, building message list...");
    if (infos && infos->size() == numbers.size()) {
        for (const auto& info : *infos)
            intoArray.push_back(IMAPMessage::messageWithCachedHeaders(info.envelope, std::nullopt, info.size));
        return true;
    }
    if (!isOpen || !goesOn()) return false;
    if (numbers.size() == 1) {
        intoArray.push_back(nullptr);
        return true;
    }
    const auto half = numbers.size() / 2;
    return _cacheMessagesWithNumbers(numbers.first(half), intoArray) &&
           _cacheMessagesWithNumbers(numbers.subspan(half), intoArray);
}

/// False when the server is gone or the store closes.
bool IMAPStore::synchronizeFlagsWithServer() {
    if (!_connected || !goesOn()) return false;
    const auto all = allMessages();
    const auto changes = _flagChanges.load();
    std::string greeting;
    {
        const MutexLock lock(_stateMutex);
        greeting = _connectionGreeting;
    }
    // The search of that server finds the wrong messages.
    if (greeting.find("OrrinShare") != std::string::npos) return takeAllFlags(all);

    std::unordered_set<std::string> deletedThere, unseenThere;
    {
        const ServerTurn turn(*_lock);
        const auto deleted = namesFound("DELETED"), unseen = namesFound("UNSEEN");
        // An answer that never came is not the answer that there are none.
        if (_connection->connectionState() != IMAPConnection::State::mailboxSelected) return false;
        if (isStandard() && (!deleted || !unseen)) return false;
        if (deleted) deletedThere.insert(deleted->begin(), deleted->end());
        if (unseen) unseenThere.insert(unseen->begin(), unseen->end());
    }
    Messages deleted, undeleted, read, unread;
    for (auto i = all.size(); i > 0; --i) {
        const auto& message = all[i - 1];
        const auto name = isStandard() ? static_cast<IMAPMessage&>(*message).uid() : std::to_string(i);
        const auto flags = message->messageFlags();
        const bool isUnseen = unseenThere.contains(name), isDeleted = deletedThere.contains(name);
        if (flags->isDeleted() != isDeleted) (isDeleted ? deleted : undeleted).push_back(message);
        // What is deleted here becomes read, which the server may see otherwise; the classic dialect finds that
        // the next time.
        const bool becomesRead = isStandard() && isDeleted && !flags->isDeleted();
        if (flags->isRead() == isUnseen || (becomesRead && isUnseen))
            (isUnseen ? unread : read).push_back(message);
    }
    if (deleted.empty() && undeleted.empty() && read.empty() && unread.empty()) return true;
    return callInMainThread([=](IMAPStore& store) {
        // What the user changed after the questions the answers do not tell of.
        if (store._flagChanges != changes) return store.startSynchronizing();
        // What came from the server does not go back there.
        store._pushStateToServer = false;
        if (!deleted.empty()) store.deleteMessages(deleted);
        if (!undeleted.empty()) store.undeleteMessages(undeleted);
        if (!read.empty()) store.setRead(true, MessageList(read));
        if (!unread.empty()) store.setRead(false, MessageList(unread));
        store.rebuildMessageLists();
        store.structureDidChange();
        store._pushStateToServer = true;
    });
}

bool IMAPStore::takeAllFlags(const MessageList& all) {
    std::optional<std::vector<IMAPValue>> flags;
    if (!all.empty()) {
        const ServerTurn turn(*_lock);
        flags = _connection->fetchFlags(numbersOf(all));
        if (!flags) return false;
    }
    if (flags && flags->size() == all.size()) {
        for (auto i = all.size(); i > 0; --i)
            static_cast<IMAPMessage&>(*all[i - 1]).setIMAPFlags((*flags)[i - 1]);
    }
    return callInMainThread([](IMAPStore& store) {
        store.rebuildMessageLists();
        store.structureDidChange();
    });
}

}  // namespace lorvale
