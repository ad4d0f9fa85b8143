#pragma once
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "lorvale/platform/mutex.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/platform/thread.h"
#include "lorvale/search/index_manager.h"
#include "lorvale/store/mailbox_index.h"
#include "mail/search/MboxIndexFile.h"

namespace lorvale {

class MboxIndex;

/// Keeps the index of one store in line with it, on a thread of its own.
///
/// The store's thread hands over work under the condition lock; the thread takes it from there, a batch at a
/// time, and adds one message after the other.  What was not handed over, or was interrupted, it finds by
/// comparing the mailbox with the index, which it does when the index is opened and after messages have left.
///
/// Locks nest in the order _indexLock, MboxIndex::bigIndexingLock(), MboxMutex::shared().
class StoreIndexer final : public MailboxIndex, public std::enable_shared_from_this<StoreIndexer> {
public:
    explicit StoreIndexer(const std::shared_ptr<MessageStore>& store);
    ~StoreIndexer() override;

    /// Null for a store that cannot be indexed.
    static StoreIndexer* ofStore(const MessageStore& store);

    void storeDidOpen() override;
    void storeDidClose() override;
    /// False also while the lock is taken, as it is when a batch ends.
    bool isIndexed() const override;
    /// Turning on does nothing while the lock is taken; updateIndex() then starts the work.  Turning off waits
    /// for the message at hand; the file goes a second later.
    void setIsIndexed(bool indexed) override;
    void updateIndex() override;
    /// The body of the index thread, for who has one of his own: returns when the work is to end.
    void updateIndexInBackground() override;
    void stopUpdatingIndex() override { _isUpdating = false; }
    bool isUpdatingIndex() const override { return _isUpdating; }
    void stopBackgroundActivity() override;
    void addMessagesToIndex(const MessageList& messages) override;
    void removeMessagesFromIndex(const MessageList& messages) override;
    void indexOnly(std::function<bool(const Message&)> isReady) override { _isReady = std::move(isReady); }
    void forgetAll() override;
    void flushToDisk() override;

    /// Null while there is none that can be searched.  Any thread.
    std::shared_ptr<MboxIndex> _index() const;
    /// Has the thread look at the index again.  Any thread.
    void wakeThread();
    /// False when the deadline came first.
    bool waitUntilIdle(std::chrono::steady_clock::time_point deadline) const;
    /// Of the batch at hand.  Any thread.
    IndexManager::Progress progress() const { return {_reached, _batchSize}; }

private:
    enum Condition : int { kIdle = 0, kWorkWaiting = 1, kThreadEnded = 2 };

    // Of the store's thread.
    void _setupIndexAfterOpening(MessageStore& store);
    bool userWantsIndex(MessageStore& store);
    void startThread();
    void endThread();
    void takeNote(const MessageStore& store);
    void markComplete();
    void _removeIndexFile();
    void cancelRemoval();

    // Of the index thread.
    struct Batch {
        MessageList messages;
        std::uint64_t asked;  // how often work had been asked for when it was taken
    };
    void run(const std::stop_token& stop);
    /// Nullopt when the thread is to end.
    std::optional<Batch> nextBatch(const std::stop_token& stop);
    void workOn(const std::shared_ptr<MessageStore>& store, const MessageList& batch);
    bool openIndex(const std::shared_ptr<MessageStore>& store);
    bool isReady(const Message& message);
    bool addOne(MessageStore& store, const MessageList& messages, std::size_t place,
                const std::function<std::optional<std::string>()>& text);
    void catchUp(MessageStore& store);
    void update();
    // False when they were interrupted.
    bool add(MessageStore& store, const MessageList& messages, std::size_t first);
    bool add(MessageStore& store, const MessageList& messages, const std::vector<std::size_t>& places,
             const std::function<void(std::size_t place)>& added);
    bool compareAll(MessageStore& store, const MessageList& all);
    void finishBatch(MessageStore& store);
    bool closeIndex();
    void startAnew(MessageStore& store);
    void discard();
    void publish(std::shared_ptr<MboxIndex> index);
    bool goesOn(const MessageStore& store) const;
    void askForWork();
    std::uint64_t workAsked() const;  // under _indexLock, under which it grows
    void workIsDone(std::uint64_t upTo);
    void setThreadRuns(bool runs);
    bool threadRuns() const;

    const std::weak_ptr<MessageStore> _store;
    const MessageStore* const _identity;  // never followed
    const MboxIndexFile _file;
    std::function<bool(const Message&)> _isReady;  // null: each is; not changed once the thread runs

    mutable ConditionLock _indexLock;
    std::optional<MessageList> _messagesToBeIndexed LORVALE_GUARDED_BY(_indexLock);

    std::atomic<bool> _isUpdating = false;
    std::atomic<std::size_t> _reached = 0, _batchSize = 0;
    std::atomic<bool> _mayDiffer = true;  // the index and the mailbox, by more than messages at the end
    std::atomic<bool> _isSaved = false;   // by the thread when it ended
    std::atomic<bool> _isOutdated = false;

    /// Work by the number of times that it was asked for; nobody waits where no thread runs.
    struct Work {
        std::uint64_t asked = 0, done = 0;
        bool threadRuns = false;
    };
    mutable Mutex _workMutex;
    mutable std::condition_variable _workEnded;
    Work _work LORVALE_GUARDED_BY(_workMutex);

    mutable Mutex _indexMutex;  // held for no longer than it takes to copy a share
    std::shared_ptr<MboxIndex> _published LORVALE_GUARDED_BY(_indexMutex);

    // Of the index thread.
    std::shared_ptr<MboxIndex> _opened;
    int _failures = 0;  // in a row

    // Of the store's thread.
    MessageList _told;                           // what the store had at the last updateIndex()
    std::optional<MboxIndexFile::Time> _toldAt;  // when that mail was written
    bool _takesOut = false;                      // messages, since then
    std::atomic<RunLoop::CallID> _removal = 0;   // pending; 0 for none
    Thread _thread;                              // last: joined before the rest goes
};

}  // namespace lorvale
