/// The thread that keeps an index in line with its mailbox.
#include <algorithm>
#include <functional>
#include <stdexcept>
#include <utility>

#include "lorvale/message.h"
#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/user_agent.h"
#include "lorvale/search/index_manager.h"
#include "lorvale/store/message_store.h"
#include "mail/search/MboxCorpus.h"
#include "mail/search/MboxIndex.h"
#include "mail/search/StoreIndexer.h"
#include "mail/search/TextsAhead.h"

namespace lorvale {

namespace {

void showStatus(MessageStore& store, std::string_view status) {
    if (auto* const agent = currentUserAgent()) agent->displayStatus(status, &store);
}

}  // namespace

void StoreIndexer::updateIndexInBackground() {
    setThreadRuns(true);
    run(std::stop_token());
}

void StoreIndexer::run(const std::stop_token& stop) {
    while (const auto batch = nextBatch(stop)) {
        const auto store = _store.lock();
        if (store == nullptr) break;
        workOn(store, batch->messages);
        workIsDone(batch->asked);
    }
    _isUpdating = false;
    _isSaved = closeIndex();
    _indexLock.lock();
    _messagesToBeIndexed.reset();
    _indexLock.unlockWithCondition(kThreadEnded);
    setThreadRuns(false);
}

std::optional<StoreIndexer::Batch> StoreIndexer::nextBatch(const std::stop_token& stop) {
    if (!_indexLock.lockWhenCondition(kWorkWaiting, stop)) return std::nullopt;
    Batch batch{std::exchange(_messagesToBeIndexed, std::nullopt).value_or(MessageList()), workAsked()};
    _isUpdating = true;
    _indexLock.unlockWithCondition(kIdle);
    if (stop.stop_requested()) return std::nullopt;
    return batch;
}

bool StoreIndexer::goesOn(const MessageStore& store) const {
    return _isUpdating && store.shouldProcessInBackground() && !store.isClosed();
}

void StoreIndexer::workOn(const std::shared_ptr<MessageStore>& store, const MessageList& batch) {
    const bool done = runLoggingExceptions("Indexing", [&] {
        if (_isOutdated.exchange(false)) discard();
        // Who kept the index when it was opened may have ended since.
        if (_opened != nullptr && !_opened->isWritable() && store->mayWriteIndex()) closeIndex();
        if (_opened != nullptr && _opened->isDamaged()) throw std::runtime_error("the index is damaged");
        const bool wasOpen = _opened != nullptr;
        if (!wasOpen && !openIndex(store)) return;
        if (wasOpen && !batch.empty()) {
            if (!add(*store, batch, 0)) _mayDiffer = true;
        } else {
            catchUp(*store);
        }
        finishBatch(*store);
        _failures = 0;
    });
    if (!done) startAnew(*store);
    _isUpdating = false;
}

bool StoreIndexer::openIndex(const std::shared_ptr<MessageStore>& store) {
    const auto access = store->mayWriteIndex() ? MboxIndex::Access::write : MboxIndex::Access::read;
    const MutexLock bigLock(MboxIndex::bigIndexingLock());
    _opened = MboxIndex::initWithStore(store, access);
    if (_opened == nullptr && access == MboxIndex::Access::write) {
        // What could not be opened is gone now.
        _opened = MboxIndex::initWithStore(store, access);
        if (_opened != nullptr) IndexManager::indexManager().registerIndexedStore(store);
    }
    _mayDiffer = true;
    return _opened != nullptr;
}

/// An index that may not be written is searched as it is.
void StoreIndexer::catchUp(MessageStore& store) {
    if (!_opened->isWritable()) return;
    // Before the list is looked at: who changes that sets it afterwards.
    const bool mayDiffer = _mayDiffer.exchange(false);
    const auto all = store.allMessages();
    const auto count = _opened->count();
    if (count > all.size()) update();
    const bool done = mayDiffer ? compareAll(store, all) : count >= all.size() || add(store, all, count);
    if (!done) _mayDiffer = true;
}

void StoreIndexer::update() {
    const MutexLock bigLock(MboxIndex::bigIndexingLock());
    _opened->update();
}

/// Adds what is missing anywhere, and takes out what is in the index alone.
bool StoreIndexer::compareAll(MessageStore& store, const MessageList& all) {
    std::vector<std::size_t> found;  // digests of the IDs that are in the index
    found.reserve(all.size());
    const auto isIn = [&](std::size_t place) {
        found.push_back(std::hash<std::string>()(all[place]->messageID()));
    };
    std::vector<std::size_t> missing;
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (!goesOn(store)) return false;
        if (_opened->hasMessage(*all[i])) {
            isIn(i);
        } else if (isReady(*all[i])) {
            missing.push_back(i);
        }
    }
    if (!add(store, all, missing, isIn)) return false;
    std::ranges::sort(found);
    found.erase(std::unique(found.begin(), found.end()), found.end());
    if (_opened->count() > found.size()) update();
    // An update that is stopped ends as if the mailbox did: what comes behind that has left the index.
    return goesOn(store);
}

bool StoreIndexer::add(MessageStore& store, const MessageList& messages, std::size_t first) {
    std::vector<std::size_t> places;
    for (auto i = first; i < messages.size(); ++i)
        if (isReady(*messages[i])) places.push_back(i);
    return add(store, messages, places, [](std::size_t) {});
}

bool StoreIndexer::isReady(const Message& message) {
    if (!_isReady || _isReady(message)) return true;
    _mayDiffer = true;
    return false;
}

bool StoreIndexer::add(MessageStore& store, const MessageList& messages, const std::vector<std::size_t>& places,
                       const std::function<void(std::size_t)>& added) {
    std::vector<std::shared_ptr<Message>> run;
    run.reserve(places.size());
    for (const auto place : places) run.push_back(messages[place]);
    TextsAhead texts(std::move(run), _opened->form());
    for (std::size_t i = 0; i < places.size(); ++i) {
        if (!goesOn(store)) return false;
        if (addOne(store, messages, places[i], [&] { return texts.textAt(i); })) added(places[i]);
    }
    return true;
}

bool StoreIndexer::addOne(MessageStore& store, const MessageList& messages, std::size_t place,
                          const std::function<std::optional<std::string>()>& text) {
    const MutexLock bigLock(MboxIndex::bigIndexingLock());
    _reached = place + 1;
    _batchSize = messages.size();
    showIndexingStatus(store, *messages[place], place + 1, messages.size());
    const bool isIn = _opened->addMessage(messages[place], text) != MboxIndex::Added::unreadable;
    if (!isIn) _mayDiffer = true;  // it is tried again
    return isIn;
}

void StoreIndexer::finishBatch(MessageStore& store) {
    showStatus(store, LVLocalizedString("Saving index..."));
    {
        const MutexLock bigLock(MboxIndex::bigIndexingLock());
        _opened->flushToDisk();
    }
    {
        const ConditionLockGuard lock(_indexLock);
        publish(_opened);
        _isUpdating = false;
    }
    showStatus(store, "");
}

/// Whether all of it is on disk.
bool StoreIndexer::closeIndex() {
    publish(nullptr);
    if (_opened == nullptr) return false;
    if (!_opened->isDamaged()) {
        const MutexLock bigLock(MboxIndex::bigIndexingLock());
        runLoggingExceptions("Saving an index", [&] { _opened->flushToDisk(); });
    }
    const bool isSaved = _opened->isWritable() && !_opened->isDamaged() && _opened->isSaved();
    _opened->close();
    _opened.reset();
    return isSaved;
}

void StoreIndexer::discard() {
    if (_opened == nullptr) return;
    _opened->noteDamage();  // so that it is not saved
    closeIndex();
    _file.remove();
}

/// After a failure of the index: it is thrown away, and made anew if this was the first in a row.
void StoreIndexer::startAnew(MessageStore& store) {
    if (_opened == nullptr) return;
    const bool isWritable = _opened->isWritable();
    _opened->noteDamage();
    closeIndex();
    if (!isWritable) return;
    log("Removing index for mailbox: %@", store.storePath());
    _file.remove();
    if (_failures++ > 0) {
        log("The mailbox %@ is not indexed any more", store.storePath());
        IndexManager::indexManager().unregisterIndexedStore(store);
        return;
    }
    wakeThread();
}

}  // namespace lorvale
