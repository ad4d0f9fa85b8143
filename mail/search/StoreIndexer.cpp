/// What a store asks of its index.  StoreIndexerThread.cpp has the work behind it.
#include "mail/search/StoreIndexer.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "lorvale/defaults.h"
#include "lorvale/message.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/platform/user_interface.h"
#include "lorvale/search/index_manager.h"
#include "lorvale/store/message_store.h"
#include "mail/model/RegisteredClass.h"
#include "mail/search/MboxIndex.h"
#include "mail/search/ToolkitHooks.h"

namespace lorvale {

namespace {

constexpr std::string_view kNeverCreate = "NeverCreateIndexes";

const RegisteredClass kStoreIndexer(ClassRank::withoutOrder, [] {
    MailboxIndex::registerMaker([](const auto& store) { return std::make_shared<StoreIndexer>(store); });
});

}  // namespace

StoreIndexer::StoreIndexer(const std::shared_ptr<MessageStore>& store)
    : _store(store), _identity(store.get()), _file(MboxIndexFile::pathInStore(*store)) {}

StoreIndexer::~StoreIndexer() = default;

StoreIndexer* StoreIndexer::ofStore(const MessageStore& store) {
    return dynamic_cast<StoreIndexer*>(store.index().get());
}

void StoreIndexer::storeDidOpen() {
    if (const auto store = _store.lock()) _setupIndexAfterOpening(*store);
}

void StoreIndexer::_setupIndexAfterOpening(MessageStore& store) {
    if (isIndexed() || userWantsIndex(store)) setIsIndexed(true);
}

bool StoreIndexer::userWantsIndex(MessageStore& store) {
    auto& defaults = Defaults::sharedInstance();
    if (!defaults.boolForKey("AlwaysCreateIndex") || !store.canBeIndexed() || !store.mayWriteIndex())
        return false;
    const auto path = store.storePathRelativeToAccount();
    auto never = defaults.objectForKey(kNeverCreate).value_or(PropertyList());
    const auto refused = never.strings();
    if (std::ranges::find(refused, path) != refused.end()) return false;
    if (!defaults.canUseWindowKit()) return false;
    const auto choice = currentUserInterface().runAlertPanel(
        LVLocalizedString("Create Index"),
        formatText(LVLocalizedString("%@ is not currently indexed.  Would you like to index it now?"),
                   abbreviateWithTilde(store.storePath())),
        LVLocalizedString("Yes"), LVLocalizedString("No"), LVLocalizedString("No Forever"));
    if (choice == AlertChoice::otherButton) {
        never.append(path);
        defaults.setObject(never, kNeverCreate);
    }
    return choice == AlertChoice::defaultButton;
}

void StoreIndexer::storeDidClose() {
    IndexManager::indexManager().unregisterIndexedStore(*_identity);
    endThread();
    if (_removal != 0) {
        _removeIndexFile();
    } else {
        markComplete();
    }
}

/// Of a store that has told all of its changes, and a thread that has carried them out.
void StoreIndexer::markComplete() {
    const auto store = _store.lock();
    if (store == nullptr || !_toldAt || !_isSaved || _mayDiffer || _takesOut) return;
    {
        const MutexLock lock(_workMutex);
        if (_work.done != _work.asked) return;
    }
    if (store->allMessages() == _told) _file.markComplete(*_toldAt);
}

bool StoreIndexer::isIndexed() const {
    if (!_indexLock.try_lock()) return false;
    _indexLock.unlock();
    return _file.exists();
}

void StoreIndexer::setIsIndexed(bool indexed) {
    if (indexed) {
        // One that is ending needs the lock for that.
        if (_thread.joinable() && (_thread.stopToken().stop_requested() || !threadRuns())) _thread.join();
        if (!_indexLock.try_lock()) return;
        cancelRemoval();
        const auto store = _store.lock();
        if (store != nullptr) store->setShouldProcessInBackground(true);
        const bool starts = store != nullptr && !_thread.joinable();
        if (_indexLock.condition() == kThreadEnded) {
            _indexLock.unlockWithCondition(kIdle);
        } else {
            _indexLock.unlock();
        }
        if (!starts) return;
        startThread();
        IndexManager::indexManager().registerIndexedStore(store);
        return;
    }
    stopBackgroundActivity();
    endThread();
    IndexManager::indexManager().unregisterIndexedStore(*_identity);
    const auto store = _store.lock();
    if (store == nullptr || !store->mayWriteIndex()) return;
    cancelRemoval();
    _removal = RunLoop::main()->performAfterDelay(
        [self = weak_from_this()] {
            if (const auto indexer = self.lock()) indexer->_removeIndexFile();
        },
        std::chrono::seconds(1));
}

void StoreIndexer::_removeIndexFile() {
    cancelRemoval();
    _file.remove();
}

void StoreIndexer::cancelRemoval() {
    if (const auto removal = _removal.exchange(0); removal != 0) RunLoop::main()->cancel(removal);
}

void StoreIndexer::startThread() {
    installToolkitHooks();
    if (const auto store = _store.lock(); store != nullptr && store->mayWriteIndex()) _file.unmark();
    setThreadRuns(true);
    try {
        _thread = Thread("index", Thread::kBackgroundPriority,
                         [self = shared_from_this()](const std::stop_token& stop) { self->run(stop); });
    } catch (const GenericException& exception) {
        setThreadRuns(false);
        log("%@ is not made: %@", _file.path(), exception.reason());
    }
}

void StoreIndexer::endThread() {
    if (!_thread.joinable()) return;
    _isUpdating = false;
    _thread.requestStop();
    _thread.join();
    if (_thread.id() != std::this_thread::get_id()) _thread = Thread();
}

void StoreIndexer::updateIndex() {
    if (const auto store = _store.lock()) takeNote(*store);
    wakeThread();
}

/// Whether the mailbox has only grown since the last time; else the two are compared.  The thread may also have
/// put back a message that left the index before it left the mailbox.
void StoreIndexer::takeNote(const MessageStore& store) {
    auto all = store.allMessages();
    const bool hasGrown = _told.size() <= all.size() && std::equal(_told.begin(), _told.end(), all.begin());
    if (!hasGrown || _takesOut) _mayDiffer = true;
    _takesOut = false;
    _told = std::move(all);
    _toldAt = _file.mailTime();
}

void StoreIndexer::wakeThread() {
    _indexLock.lock();
    askForWork();
    if (_index() != nullptr) _isUpdating = true;
    _indexLock.unlockWithCondition(kWorkWaiting);
}

void StoreIndexer::stopBackgroundActivity() {
    if (const auto store = _store.lock()) store->setShouldProcessInBackground(false);
    _isUpdating = false;
    if (_thread.joinable()) _thread.requestStop();
}

void StoreIndexer::addMessagesToIndex(const MessageList& messages) {
    const ConditionLockGuard lock(_indexLock);
    // Those that come before the index is open are found when it is.
    if (_index() == nullptr) return;
    _messagesToBeIndexed = _messagesToBeIndexed.value_or(MessageList()).appending(messages);
}

void StoreIndexer::removeMessagesFromIndex(const MessageList& messages) {
    if (messages.empty()) return;
    _takesOut = true;  // the thread may be adding one of these just now, and another one may have the same ID
    const auto index = _index();
    if (index == nullptr || !index->isWritable()) return;
    const ConditionLockGuard lock(_indexLock);
    if (_messagesToBeIndexed) _messagesToBeIndexed = _messagesToBeIndexed->removing(messages);
    const bool removed = runLoggingExceptions("Removing messages from an index", [&] {
        for (auto i = messages.size(); i > 0; --i) {
            const MutexLock bigLock(MboxIndex::bigIndexingLock());
            index->removeMessage(*messages[i - 1]);
        }
    });
    if (!removed) index->noteDamage();
}

/// At once, so that a kill leaves nothing of it; the thread does without what it has open.
void StoreIndexer::forgetAll() {
    _file.remove();
    _isOutdated = true;
    wakeThread();
}

void StoreIndexer::flushToDisk() {
    const auto index = _index();
    if (index == nullptr) return;
    const ConditionLockGuard lock(_indexLock);
    const MutexLock bigLock(MboxIndex::bigIndexingLock());
    if (!runLoggingExceptions("Saving an index", [&] { index->flushToDisk(); })) index->noteDamage();
}

std::shared_ptr<MboxIndex> StoreIndexer::_index() const {
    const MutexLock lock(_indexMutex);
    return _published;
}

void StoreIndexer::publish(std::shared_ptr<MboxIndex> index) {
    const MutexLock lock(_indexMutex);
    _published.swap(index);  // the old one goes without the lock
}

void StoreIndexer::askForWork() {
    const MutexLock lock(_workMutex);
    ++_work.asked;
}

std::uint64_t StoreIndexer::workAsked() const {
    const MutexLock lock(_workMutex);
    return _work.asked;
}

void StoreIndexer::workIsDone(std::uint64_t upTo) {
    {
        const MutexLock lock(_workMutex);
        _work.done = upTo;
    }
    _workEnded.notify_all();
}

void StoreIndexer::setThreadRuns(bool runs) {
    {
        const MutexLock lock(_workMutex);
        _work.threadRuns = runs;
    }
    _workEnded.notify_all();
}

bool StoreIndexer::threadRuns() const {
    const MutexLock lock(_workMutex);
    return _work.threadRuns;
}

bool StoreIndexer::waitUntilIdle(std::chrono::steady_clock::time_point deadline) const {
    const auto isIdle = [this]() LORVALE_REQUIRES(_workMutex) {
        return !_work.threadRuns || _work.done == _work.asked;
    };
    const MutexLock lock(_workMutex);
    std::unique_lock held(_workMutex.native(), std::adopt_lock);
    while (!isIdle() && _workEnded.wait_until(held, deadline) != std::cv_status::timeout) {
    }
    held.release();  // the lock above gives it back
    return isIdle();
}

}  // namespace lorvale
