#pragma once
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>

#include "lorvale/toolkit/index/inverted_index.h"
#include "lorvale/toolkit/retrieval/inverted_accessor.h"
#include "mail/search/MboxCorpus.h"
#include "mail/search/MboxIndexFile.h"
#include "mail/search/MboxMutex.h"

namespace lorvale {

class Message;
class MessageStore;

/// The search index of one mailbox: its file, the inverted index in it, the mailbox as a corpus.
///
/// Any thread may search it, holding MboxMutex::shared() from the first question to the last.  What changes it
/// comes one at a time: callers hold MboxIndex::bigIndexingLock().  What was added waits in memory for the next
/// flush, which comes by the toolkit's budget and before anybody looks.
///
/// A failure of the toolkit after the opening goes to who called.  The index is then good for nothing but to be
/// closed; who owns it removes the file and makes another.
class MboxIndex {
public:
    enum class Access {
        write,
        read,  ///< by who may not change the mailbox: another process may be writing meanwhile
    };

    /// Opens the index of a store, or makes it.  Null, after log lines, when that fails; one that cannot be
    /// opened for writing is removed, so that the next call makes it anew.  With Access::read nothing is made
    /// and nothing removed.
    static std::shared_ptr<MboxIndex> initWithStore(const std::shared_ptr<MessageStore>& store,
                                                    Access access = Access::write);
    /// Held, for as short as one message takes, by who changes an index, so that mailboxes index in turn.
    static Mutex& bigIndexingLock();
    using StorageMaker = std::function<std::unique_ptr<brindle::IAStorage>(const std::string& path)>;
    /// Makes the storages of the indexes that are opened from now on: brindle::MakeFileStorage(), unless a test
    /// has its own.  Answers the one before.
    static StorageMaker setStorageMaker(StorageMaker make);

    MboxIndex(const MboxIndex&) = delete;
    MboxIndex& operator=(const MboxIndex&) = delete;
    ~MboxIndex();

    /// Drops what is not on disk and gives the file back.  A search that comes later finds the index closed.
    void close();
    bool isOpen() const LORVALE_REQUIRES(MboxMutex::shared()) { return _mboxIndex != nullptr; }
    bool isWritable() const { return _access == Access::write; }

    /// Brings the index in line with the mailbox, and to disk: walks both side by side.
    void update();
    void flushToDisk();
    /// Whether all of it is on disk.
    bool isSaved();

    enum class Added { now, before, unreadable };
    /// The message is indexed under its ID unless something is under that already.  Its text, of this form(),
    /// is asked for when it is needed; nullopt where it cannot be had.
    Added addMessage(const std::shared_ptr<Message>& message,
                     const std::function<std::optional<std::string>()>& text);
    IndexedForm form();
    /// False, and nothing changes, for a message that is not indexed.
    bool removeMessage(Message& message);
    /// Whether a message of that ID has been added, be it this one.
    bool hasMessage(Message& message);
    /// Documents.
    std::uint32_t count();

    // What a search needs.  MboxMutex::shared() is held for as long as the results are used.

    /// Null for one that is closed or known to be damaged.  Flushes what waits, and opens anew one that is
    /// outdated, which may throw as a search may.
    brindle::InvertedIndex* _invertedIndex() LORVALE_REQUIRES(MboxMutex::shared());
    MboxCorpus& corpus() LORVALE_REQUIRES(MboxMutex::shared()) { return *_mboxCorpus; }
    static constexpr std::uint32_t kAccessorType = brindle::IATag("Inv0");
    /// The accessor of this index alone, with norms that hold until the index changes.
    brindle::InvertedAccessor& accessor() LORVALE_REQUIRES(MboxMutex::shared());
    /// Grows with each change.
    std::uint64_t generation() const LORVALE_REQUIRES(MboxMutex::shared()) { return _generation; }
    /// Whether another process has written the file since it was opened, so that what was read may be nonsense.
    bool isOutdated() const { return !isWritable() && !_file.isUnchanged(); }
    /// Tells the owner that the index is of no more use; see StoreIndexer.
    void noteDamage() { _isDamaged = true; }
    bool isDamaged() const { return _isDamaged; }

private:
    MboxIndex(const std::shared_ptr<MessageStore>& store, std::string path, Access access);
    void open(bool exists) LORVALE_REQUIRES(MboxMutex::shared());
    void drop() LORVALE_REQUIRES(MboxMutex::shared());
    void flushWaiting() LORVALE_REQUIRES(MboxMutex::shared());
    void changed() LORVALE_REQUIRES(MboxMutex::shared());
    brindle::InvertedIndex* indexToChange();
    bool isIndexed(const brindle::IADoc& doc) LORVALE_REQUIRES(MboxMutex::shared());

    const std::weak_ptr<MessageStore> _store;
    const Access _access;
    MboxIndexFile _file;
    std::atomic<bool> _isDamaged = false;

    // In this order, so that each goes before what it borrows.
    std::unique_ptr<brindle::IAStorage> _mboxStorage LORVALE_GUARDED_BY(MboxMutex::shared());
    std::unique_ptr<brindle::InvertedIndex> _mboxIndex LORVALE_GUARDED_BY(MboxMutex::shared());
    MboxCorpus* _mboxCorpus LORVALE_GUARDED_BY(MboxMutex::shared()) = nullptr;  // the index's
    std::unique_ptr<brindle::InvertedAccessor> _mboxAccessor LORVALE_GUARDED_BY(MboxMutex::shared());

    std::unordered_set<std::string> _waiting LORVALE_GUARDED_BY(MboxMutex::shared());  // IDs, not yet flushed
    bool _isSaved LORVALE_GUARDED_BY(MboxMutex::shared()) = true;                      // all of it is on disk
    std::uint64_t _generation LORVALE_GUARDED_BY(MboxMutex::shared()) = 0;
};

}  // namespace lorvale
