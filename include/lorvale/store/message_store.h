#pragma once
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/message/headers.h"
#include "lorvale/message/list.h"
#include "lorvale/message/source.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/store/constants.h"
#include "lorvale/store/opening_failure.h"
#include "lorvale/store/store_class.h"
#include "lorvale/values/data.h"
#include "lorvale/values/property_list.h"

namespace lorvale {

class MailAccount;
class MailboxIndex;
class Message;
class MessageFlags;

struct CountAndSize {
    std::size_t count = 0;
    std::uint32_t size = 0;  ///< in bytes, modulo 2^32
    friend bool operator==(const CountAndSize&, const CountAndSize&) = default;
};

/// The abstract mailbox: the lists of its messages with their counts and sizes, filtering, focus and sorting,
/// deleting and taking back, the attributes, the lock file.  A concrete store supplies the list and the bytes.
///
/// A store is always held by a shared_ptr and is made by the initWithPath() of its class, which answers null
/// when the opening fails; nothing virtual runs in a constructor.  Messages do not keep their store alive.
///
/// Any thread may use the class operations, and of a store: its lists, counts, positions and account, what a
/// MessageSource answers, and the questions whether it is closed, read-only, filtered or shall go on in the
/// background.  A list that was handed out stays as it is; the store replaces its lists as a whole.  All else,
/// and every change of lists or attributes, belongs to one thread, the main thread as a rule.
class LORVALE_EXPORT MessageStore : public MessageSource, public std::enable_shared_from_this<MessageStore> {
public:
    // Which class opens a path.  The known classes register themselves before the first question.

    /// False, and nothing changes, for a name that is registered already.
    static bool registerStoreClass(StoreClass storeClass);
    static void unregisterStoreClass(std::string_view name);
    /// The class that makes a new mailbox where no class is willing.
    static void registerDefaultStoreClass(StoreClass storeClass);
    static std::optional<StoreClass> defaultStoreClass();
    /// The most willing class, of equal ones that registered first; nullopt where none is willing.
    static std::optional<StoreClass> storeClassForPath(std::string_view path);
    /// The answer of a class that opens nothing: 0.
    static float willingnessToOpen(std::string_view path);

    /// The open store for the path whatever else is asked for; else a new one of storeClassForPath(); else,
    /// with `create`, one of the default class.  Null when there is none or the opening fails; openingFailure()
    /// then tells why.  Any thread: one that asks while another opens the same path waits for that, its
    /// question about a locked mailbox included, and gets the same store.
    [[nodiscard]] static std::shared_ptr<MessageStore> storeForPath(std::string_view path, bool create = false,
                                                                    bool readOnly = false);
    /// Why the last storeForPath() or initWithPath() of this thread answered null; false after a success.
    static const OpeningFailure& openingFailure();
    /// Null for a path where no store is open; a closed one is never handed out.
    static std::shared_ptr<MessageStore> currentlyOpenStoreForPath(std::string_view path);
    /// Enters a store in the process-wide table, which does not keep it alive; close() takes it out.  The path
    /// is the one that led to it when it was opened, whatever the current directory is now.  Null and a closed
    /// store change nothing.
    static void registerOpenStore(const std::shared_ptr<MessageStore>& store);
    /// The attributes of a store that need not be open; nullopt when it has none.
    static std::optional<PropertyList> userInfoForPath(std::string_view path);
    /// Abstract; see abstractOperation().
    static std::optional<std::string> storeFileExtension();

    /// Closes the store; a subclass that overrides close() calls its own in its own destructor.
    ~MessageStore() override;
    std::shared_ptr<MessageStore> messageStore() override;

    // The life of a store.
    virtual void didOpen();
    virtual void willClose();
    /// Once only.  Afterwards the store is good for no more than its lists still hold, and nothing fills them
    /// again.  Also the destructor calls it, its own part of each class: what close() and willClose() call may
    /// find that weak_from_this() has no share to give.
    virtual void close();

    // Contents.
    virtual MessageList allMessages() const;       ///< in mailbox order
    virtual MessageList filteredMessages() const;  ///< what the user sees, sorted
    MessageList focusedMessages() const { return filteredMessages(); }
    /// Shows these messages, in this order, until the next rebuild; nullopt ends that.
    virtual void setFocusedMessages(const std::optional<MessageList>& messages);
    bool isFocused() const { return _isFocused; }
    virtual void rebuildMessageLists();
    virtual void rebuildFilteredMessageList();
    /// In allMessages(); kNotFound for a message that is not there.  In constant time; see MessageList.
    virtual std::size_t indexOfMessage(const Message& message) const;
    /// What people call a message: 1 for the first of the mailbox, 0 for one that is not there.
    std::size_t numberOfMessage(const Message& message) const;
    /// Null when there is none; of several the last one.  Reads all messages unless a subclass knows better.
    virtual std::shared_ptr<Message> messageForMessageID(std::string_view messageID);
    virtual std::size_t count() const;  ///< of filteredMessages()
    virtual std::size_t totalCount() const;
    virtual std::size_t unreadCount() const;
    virtual CountAndSize totalCountAndSize() const;
    // Counted from the flags as long as no list of these has been made.
    virtual CountAndSize deletedCountAndSize() const;
    virtual CountAndSize unreadCountAndSize() const;
    std::uint32_t sizeOfMessages(const MessageList& messages) const;

    // Filtering and sorting.
    bool excludeRead() const { return _excludeRead; }
    virtual void setExcludeRead(bool exclude);
    virtual bool includeDeleted() const { return _includeDeleted; }
    virtual void setIncludeDeleted(bool include);
    virtual std::string sortOrder() const;
    virtual void setSortOrder(std::string_view order);

    // Flags.  `havingKeys` are names of flags (lorvale/message/flags.h): those of `flags` that count.
    /// Abstract.
    std::shared_ptr<MessageFlags> flagsForMessage(Message& message) override;
    /// Abstract.
    virtual void setFlags(const MessageFlags& flags, std::span<const std::string_view> havingKeys,
                          const MessageList& forMessages);
    void setFlags(const MessageFlags& flags, std::span<const std::string_view> havingKeys,
                  const std::shared_ptr<Message>& forMessage);
    /// Only for a message that is not yet read; see the definition.
    void setRead(bool read, const std::shared_ptr<Message>& forMessage);
    void setRead(bool read, const MessageList& forMessages);
    void setRepliedTo(bool repliedTo, const std::shared_ptr<Message>& forMessage);
    void setRepliedTo(bool repliedTo, const MessageList& forMessages);
    void setPriority(std::uint32_t priority, const std::shared_ptr<Message>& forMessage);
    void setPriority(std::uint32_t priority, const MessageList& forMessages);

    // Deleting marks; compaction removes.
    void deleteMessage(const std::shared_ptr<Message>& message);
    virtual void deleteMessages(MessageList messages);
    void undeleteMessage(const std::shared_ptr<Message>& message);
    virtual void undeleteMessages(MessageList messages);
    /// Takes back the last deleteMessages() and answers its messages; with nothing to take back beeps and
    /// answers nullopt.
    virtual std::optional<MessageList> undeleteLastDeletedMessages();
    void invalidateDeleteStack();

    // The bytes of a message, as MessageSource says.  Abstract.
    CachedHeaders cachedHeadersForMessage(Message& message) override;
    std::optional<Data> allHeadersForMessage(Message& message) override;
    std::optional<Data> bodyForMessage(Message& message) override;

    // Adding messages.  A store that takes none answers false, after a log line.
    /// Whether they are in the mailbox, for good, when it returns.
    virtual bool syncAppendMessages(const MessageList& messages, bool setUnread);
    /// The same in the background: may be called by any thread, and does not touch the lists.
    virtual bool safeAppendMessages(const MessageList& messages);
    /// Makes anew what the store keeps beside the mail to find it quickly, and the lists.
    virtual void rebuildTableOfContents();

    // Compaction: taking deleted messages out of the mailbox for good.
    virtual bool canCompact() const;
    virtual void doCompact();
    void messagesWillBeCompacted(const MessageList& messages);

    // What kind of store, and where.
    std::string storePath() const override;
    virtual std::string displayName() const;
    virtual std::string description() const;
    virtual std::string className() const;
    /// True for a store that is locked by somebody else; not merely because it was opened for reading.
    bool isReadOnly() const override { return _isReadOnly; }
    bool isClosed() const { return _isClosed; }
    /// That of the local machine for a store that was opened without one; null as long as there is none.
    std::shared_ptr<MailAccount> account() const;
    void setAccount(std::shared_ptr<MailAccount> account);
    std::string storePathRelativeToAccount() const;
    /// The attributes, a dictionary, for reading and changing; saveUserInfo() makes changes last.
    PropertyList& userInfo();
    void setUserInfo(PropertyList userInfo);
    virtual void saveUserInfo();
    /// False once the work in the background shall stop.
    bool shouldProcessInBackground() const { return !_stopBackgroundActivity; }
    void setShouldProcessInBackground(bool process) { _stopBackgroundActivity = !process; }

    // Telling the world.
    void structureDidChange();       ///< at once
    void queueStructureDidChange();  ///< when the thread is idle
    void messageFlagsDidChange(const MessageList& messages);

    // Search.  Without an index isIndexed() answers false and the others do nothing.
    virtual bool canBeIndexed() const;
    /// Whether the store may write beside its mail, where its index lies; one that may not is searched with the
    /// index that is there.  Any thread.
    virtual bool mayWriteIndex() const;
    /// What is behind these; null without search.  Any thread.
    const std::shared_ptr<MailboxIndex>& index() const { return _index; }
    virtual bool isIndexed() const;
    virtual void setIsIndexed(bool indexed);
    virtual void updateIndex();
    virtual void updateIndexInBackground();
    virtual void stopUpdatingIndex();
    virtual bool isUpdatingIndex() const;
    virtual void stopBackgroundActivity();
    virtual void addMessagesToIndex(const MessageList& messages);
    virtual void removeMessagesFromIndex(const MessageList& messages);

protected:
    MessageStore();

    /// The first opening step of every store: keeps the path, reads the attributes, calls didOpen().  A
    /// subclass extends it; false, best by way of failOpening(), makes its initWithPath() answer null.  close()
    /// is then called, so that what was taken before that, a lock or a list, is given back in one place.
    [[nodiscard]] virtual bool openAtPath(std::string_view path, bool create, bool readOnly,
                                          const std::shared_ptr<MailAccount>& account);
    /// Keeps the reason for openingFailure(), logs it, and answers false.
    bool failOpening(OpeningFailure::Reason reason, std::string_view text);

    /// Makes and opens a store: the body of every initWithPath().
    template <class Store>
    static std::shared_ptr<Store> openStore(std::string_view path, bool create, bool readOnly,
                                            const std::shared_ptr<MailAccount>& account) {
        auto store = std::make_shared<Store>();
        return openOrClose(*store, path, create, readOnly, account) ? store : nullptr;
    }

    /// One name for all the paths that lead to a mailbox.
    static std::string _standarizedStorePath(std::string_view path);

    /// The lists of a store with their sums, as they are at one moment.
    struct Lists {
        MessageList all, filtered;
        std::optional<MessageList> deleted, unread;                  // nullopt until made
        std::uint32_t allSize = 0, deletedSize = 0, unreadSize = 0;  // bytes, modulo 2^32
    };
    Lists lists() const;
    /// Replaces them as a whole, for all threads at once.  Only the thread that changes lists calls it.
    void setLists(Lists lists);
    /// Replaces the list of all messages, which become this store's, and its size; leaves the others.
    void setAllMessages(MessageList messages);
    /// Fills the list of all messages, by setAllMessages().  Abstract.
    virtual void _resetAllMessages();
    virtual void _buildUnreadList();
    virtual void _buildDeletedList();
    virtual MessageList _sortMessages(const MessageList& messages) const;

    void setReadOnly(bool readOnly) { _isReadOnly = readOnly; }
    /// As given to openAtPath(); empty before that.
    const std::string& path() const { return _path; }

    /// Whether to open although a lock file is there; a stale one is removed.  May ask the user.
    bool shouldOpenDespiteLock(const std::string& lockPath);
    /// True when this process now owns the lock file.
    bool createLock(const std::string& lockPath);

    /// The answer of an operation that a subclass must supply: a log line and an
    /// InternalInconsistencyException, but only the first time in a process for each operation.
    static void abstractOperation(std::string_view operation, std::string_view className);

private:
    static bool openOrClose(MessageStore& store, std::string_view path, bool create, bool readOnly,
                            const std::shared_ptr<MailAccount>& account);
    static void noteOpening(OpeningFailure failure);
    CountAndSize countMessages(bool (*counts)(const MessageFlags&)) const;

    // Written at opening only.
    std::string _path;          // as given
    std::string _standardPath;  // the key in the table of open stores; empty: never opened
    std::shared_ptr<MailboxIndex> _index;
    OpeningFailure _openingFailure;

    std::atomic<bool> _excludeRead = false, _includeDeleted = false, _isFocused = false;
    std::atomic<bool> _isReadOnly = false, _isClosed = false;
    std::atomic<bool> _stopBackgroundActivity = false;

    mutable Mutex _mutex;  // held for no longer than it takes to copy a share
    std::shared_ptr<const Lists> _lists LORVALE_GUARDED_BY(_mutex);  // null: empty
    std::shared_ptr<MailAccount> _account LORVALE_GUARDED_BY(_mutex);

    // Of the thread that changes lists.
    std::vector<MessageList> deleteStack;   // what undeleteLastDeletedMessages() takes back, last first
    std::optional<PropertyList> _userInfo;  // nullopt until asked for, or read from the file
};

}  // namespace lorvale
