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
#include "lorvale/message/source.h"
#include "lorvale/store/constants.h"
#include "lorvale/store/store_class.h"
#include "lorvale/values/data.h"
#include "lorvale/values/property_list.h"

namespace lorvale {

class MailAccount;
class MboxIndex;
class Message;
class MessageFlags;

using MessageList = std::vector<std::shared_ptr<Message>>;

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
/// The lists and attributes belong to one thread, the main thread as a rule, and are not locked; a reference to
/// a list is good until the next operation that changes lists.  Only the table of open stores, the registry of
/// classes and shouldProcessInBackground() may be used by any thread.
class LORVALE_EXPORT MessageStore : public MessageSource, public std::enable_shared_from_this<MessageStore> {
public:
    // Which class opens a path.  The known classes register themselves before the first question.

    /// False, and nothing changes, for a name that is registered already.
    static bool registerStoreClass(StoreClass storeClass);
    static void unregisterStoreClass(std::string_view name);
    /// The class that makes a new mailbox where no class is willing.
    static void registerDefaultStoreClass(StoreClass storeClass);
    static std::optional<StoreClass> defaultStoreClass();
    /// The answer of a class that opens nothing: 0.
    static float willingnessToOpen(std::string_view path);

    /// The open store for the path whatever else is asked for; else a new one of the most willing class, of
    /// equal ones that registered first; else, with `create`, one of the default class.  Null when there is
    /// none or the opening fails.
    static std::shared_ptr<MessageStore> storeForPath(std::string_view path, bool create = false,
                                                      bool readOnly = false);
    static std::shared_ptr<MessageStore> currentlyOpenStoreForPath(std::string_view path);
    /// Enters a store in the process-wide table, which does not keep it alive.  close() takes it out.
    static void registerOpenStore(const std::shared_ptr<MessageStore>& store);
    /// One name for all the paths that lead to a mailbox: standardised, symbolic links resolved as far as the
    /// path exists.
    static std::string _standarizedStorePath(std::string_view path);
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
    /// Once only.  Afterwards the store is good for no more than its lists still hold.
    virtual void close();

    // Contents.
    virtual const MessageList& allMessages() const;       ///< in mailbox order
    virtual const MessageList& filteredMessages() const;  ///< what the user sees, sorted
    const MessageList& focusedMessages() const { return filteredMessages(); }
    /// Shows these messages, in this order, until the next rebuild; nullopt ends that.
    virtual void setFocusedMessages(const std::optional<MessageList>& messages);
    bool isFocused() const { return _flags.isFocused; }
    virtual void rebuildMessageLists();
    virtual void rebuildFilteredMessageList();
    virtual void _buildUnreadList();
    virtual void _buildDeletedList();
    /// Fills _allMessages.  Abstract.
    virtual void _resetAllMessages();
    /// In allMessages(); kNotFound for a message that is not there.
    virtual std::size_t indexOfMessage(const Message& message) const;
    virtual std::size_t count() const;  ///< of filteredMessages()
    virtual std::size_t totalCount() const;
    virtual std::size_t unreadCount() const;
    virtual CountAndSize totalCountAndSize() const;
    virtual CountAndSize deletedCountAndSize() const;
    virtual CountAndSize unreadCountAndSize() const;
    std::uint32_t sizeOfMessages(const MessageList& messages) const;

    // Filtering and sorting.
    bool excludeRead() const { return _flags.excludeRead; }
    virtual void setExcludeRead(bool exclude);
    virtual bool includeDeleted() const { return _flags.includeDeleted; }
    virtual void setIncludeDeleted(bool include);
    virtual std::string sortOrder() const;
    virtual void setSortOrder(std::string_view order);
    virtual void _sortMessages();

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

    // Deleting marks; compaction removes.  Lists are taken by value, since a caller may well pass one of ours.
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

    // Compaction: taking deleted messages out of the mailbox for good.
    virtual bool canCompact() const;
    virtual void doCompact();
    void messagesWillBeCompacted(const MessageList& messages);

    // What kind of store, and where.
    virtual std::string storePath() const;
    virtual std::string displayName() const;
    virtual std::string description() const;
    virtual std::string className() const;
    /// True for a store that is locked by somebody else; not merely because it was opened for reading.
    bool isReadOnly() const { return _flags.isReadOnly; }
    bool isClosed() const { return _flags.isClosed; }
    std::shared_ptr<MailAccount> account() const { return _account; }
    void setAccount(std::shared_ptr<MailAccount> account) { _account = std::move(account); }
    std::string storePathRelativeToAccount() const;
    /// The attributes, a dictionary, for reading and changing; saveUserInfo() makes changes last.
    PropertyList& userInfo();
    void setUserInfo(PropertyList userInfo);
    virtual void saveUserInfo();
    /// False once the work in the background shall stop.
    bool shouldProcessInBackground() const { return !_stopBackgroundActivity.load(); }

    // Telling the world.
    void structureDidChange();       ///< at once
    void queueStructureDidChange();  ///< when the thread is idle
    void messageFlagsDidChange(const MessageList& messages);

    // Search.  No store is indexed yet: isIndexed() answers false and the others do nothing.
    virtual bool canBeIndexed() const;
    virtual bool isIndexed() const;
    virtual void setIsIndexed(bool indexed);
    virtual void updateIndex();
    virtual void updateIndexInBackground();
    virtual void stopUpdatingIndex();
    virtual bool isUpdatingIndex() const;
    virtual void stopBackgroundActivity();
    virtual void addMessagesToIndex(const MessageList& messages);
    virtual void removeMessagesFromIndex(const MessageList& messages);
    virtual std::shared_ptr<MboxIndex> _index();
    virtual void _removeIndexFile();
    virtual void _setupIndexAfterOpening();
    virtual std::string _statusMessageForMessage(Message& message, std::size_t current, std::size_t total);

protected:
    MessageStore();

    /// The first opening step of every store: keeps the path, reads the attributes, calls didOpen().  A
    /// subclass extends it; false makes its initWithPath() answer null.
    virtual bool openAtPath(std::string_view path, bool create, bool readOnly,
                            const std::shared_ptr<MailAccount>& account);

    /// Makes and opens a store: the body of every initWithPath().
    template <class Store>
    static std::shared_ptr<Store> openStore(std::string_view path, bool create, bool readOnly,
                                            const std::shared_ptr<MailAccount>& account) {
        auto store = std::make_shared<Store>();
        return static_cast<MessageStore&>(*store).openAtPath(path, create, readOnly, account) ? store : nullptr;
    }

    /// Whether to open although a lock file is there; a stale one is removed.  May ask the user.
    bool shouldOpenDespiteLock(const std::string& lockPath);
    /// True when this process now owns the lock file.
    bool createLock(const std::string& lockPath);

    /// The answer of an operation that a subclass must supply: a log line and an
    /// InternalInconsistencyException, but only the first time in a process for each operation.
    static void abstractOperation(std::string_view operation, std::string_view className);

    struct Flags {
        bool excludeRead : 1 = false;
        bool includeDeleted : 1 = false;
        bool isFocused : 1 = false;
        bool isReadOnly : 1 = false;
        bool isClosed : 1 = false;
    };
    Flags _flags;
    std::string _path;                          // as given
    std::shared_ptr<MessageList> _allMessages;  // null until made
    MessageList _filteredMessages;
    std::optional<MessageList> _deletedMessages;  // nullopt until made
    std::optional<MessageList> _unreadMessages;
    std::uint32_t _allMessagesSize = 0, _deletedMessagesSize = 0, _unreadMessagesSize = 0;  // bytes

private:
    std::vector<MessageList> deleteStack;  // what undeleteLastDeletedMessages() takes back, last first
    std::shared_ptr<MailAccount> _account;
    std::optional<PropertyList> _userInfo;              // nullopt until asked for, or read from the file
    std::atomic<bool> _stopBackgroundActivity = false;  // read by threads between two messages
};

}  // namespace lorvale
