#pragma once
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/imap/account.h"
#include "lorvale/imap/connection.h"
#include "lorvale/imap/delegate.h"
#include "lorvale/imap/message.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/platform/thread.h"
#include "lorvale/platform/user_agent.h"
#include "lorvale/store/message_store.h"
#include "lorvale/values/data.h"

namespace lorvale {

class FileLock;
class MirrorFiles;
class ServerLock;
struct StoreArchive;

/// The attribute that names the mailbox on the server.
inline constexpr std::string_view IMAPMailboxPath = "IMAPMailboxPath";

/// A mailbox on a server, mirrored in a directory: the list of its messages and the texts that were fetched
/// serve without a server.  docs/imap.md tells the files.
///
/// Opening connects and starts a thread that brings the list in line with the server and, by the account's
/// policy, fetches what is missing.  Its changes of the list are made in the main thread, so the host serves
/// RunLoop::main(); an operation of the main thread that has to wait for that thread serves the loop meanwhile.
///
/// As every MessageStore it belongs to the main thread, which alone connects and asks the user; any thread may
/// ask for headers and bodies of messages.
class LORVALE_EXPORT IMAPStore : public MessageStore, public IMAPConnectionDelegate, public TimedFetchObject {
public:
    /// 1.1 for a path that ends in "imap", else 0.
    static float willingnessToOpen(std::string_view path);
    static StoreClass storeClass();
    static std::optional<std::string> storeFileExtension();
    /// Makes the directory with `create`.  Opens without a server, too.
    static std::shared_ptr<IMAPStore> initWithPath(std::string_view path, bool create, bool readOnly,
                                                   const std::shared_ptr<MailAccount>& account = nullptr);

    IMAPStore();
    ~IMAPStore() override;

    /// Connects, logs in and opens the mailbox, as far as that is still to be done.  Asks the user for a
    /// password.  False when it cannot be done now.  In another thread than the main one it only tells whether
    /// the mailbox is open.
    bool checkConnectionToServer();
    /// On the server.
    const std::string& mailboxName() const { return _mailboxName; }
    /// Whether the list was in line with the server when it was last looked at.
    bool isSynchronized() const { return _isSynchronized; }
    bool isSynchronizing() const { return _work != Work::none; }
    bool isConnected() const { return _connected; }
    /// From now on the server tells of changes as they happen (IDLE): the list follows, and unread mail posts
    /// MessageStoreNewMail.  Nothing else has to wait for that.  It lasts until the store closes, which keeps
    /// the store alive, or the connection goes.  False where the server does not do it or is not there, and in
    /// the classic dialect: then doFetchNow() has to ask now and then.  `askAnewAfter`: 28 minutes at the most;
    /// a connection that has died silently shows after that time.
    bool watch(std::chrono::milliseconds askAnewAfter = std::chrono::minutes(28));
    bool isWatched() const { return _isWatched; }
    /// Has the thread look at the mailbox again, and fetch what the account's policy wants and is missing.
    void fillMirror();
    /// Waits, serving the run loop of the main thread, until no synchronisation is under way.
    void waitUntilSynchronized();

    void willClose() override;
    void close() override;
    bool doFetchNow(bool automatically) override;
    bool canCompact() const override;
    void doCompact() override;
    void rebuildTableOfContents() override;
    void stopBackgroundActivity() override;
    std::string displayName() const override;
    std::string className() const override;

    std::shared_ptr<MessageFlags> flagsForMessage(Message& message) override;
    using MessageStore::setFlags;
    /// Read and deleted reach the server, the others nobody.
    void setFlags(const MessageFlags& flags, std::span<const std::string_view> havingKeys,
                  const MessageList& forMessages) override;
    void deleteMessages(MessageList messages) override;
    void undeleteMessages(MessageList messages) override;

    CachedHeaders cachedHeadersForMessage(Message& message) override;
    std::optional<Data> allHeadersForMessage(Message& message) override;
    std::optional<Data> bodyForMessage(Message& message) override;
    /// One at a time of those who have the mailbox open, in this process or others, keeps its index.
    bool mayWriteIndex() const override;
    /// Whether header block and body are at hand without the server.  Any thread.
    bool isMirrored(const Message& message) const;
    std::string messageIDForMessage(Message& message) override;  ///< its UID
    std::shared_ptr<Message> messageForMessageID(std::string_view messageID) override;

    // Questions to the server, whether or not the texts are here.  Nullopt when it cannot be asked, and in the
    // classic dialect.

    /// The messages for which all keys hold, in the order of the list.
    std::optional<MessageList> messagesFound(const IMAPSearchKeys& keys);
    /// The parts of a message, without its text.
    std::optional<IMAPBodyPart> structureOfMessage(Message& message);

    /// On the server, without a detour; false for messages that are not of this store.
    bool copyMessages(const MessageList& messages, std::string_view toMailboxNamed);
    /// To the server, or into the queue when it is not there, from which they go up at the next
    /// synchronisation.  Whether all that was sent was taken; true for what was queued.
    bool appendMessages(const MessageList& messages);
    /// The same; what waits in the queue counts as read all the same.
    bool syncAppendMessages(const MessageList& messages, bool setUnread) override;
    /// What the server told people when it last took a copy or an append not; empty when it was not that.
    const std::string& refusal() const { return _refusal; }
    /// How many messages wait in the queue, and they themselves.
    std::size_t pendingAppendCount();
    MessageList pendingAppends();

    /// How far the mirror is filled: of so many texts that were missing so many have come.
    struct Progress {
        std::size_t done = 0, total = 0;
    };
    Progress mirrorProgress() const { return {_mirrored, _toMirror}; }

    // IMAPConnectionDelegate.
    void logResponse(std::string_view response) override;
    void connectionWasDisconnected() override;
    void newMessagesHaveArrived(std::string_view recent, std::string_view total) override;
    void messagesWereDeleted(std::span<const std::string> numbers) override;
    void receivedFlags(const IMAPValue& flags, std::string_view forMessage) override;

protected:
    void didOpen() override;
    bool openAtPath(std::string_view path, bool create, bool readOnly,
                    const std::shared_ptr<MailAccount>& account) override;
    void _resetAllMessages() override {}  // the list is what was learnt of the server

private:
    using Messages = std::vector<std::shared_ptr<Message>>;
    using Numbers = IMAPConnection::Numbers;

    // Connecting.
    bool connectNow();
    bool logInNow();
    bool openMailboxNow();
    void takeStatus(const PropertyList& status);
    void takeUIDValidity(const std::string& validity);
    void showStatus(std::string_view text);
    void _alertUserWithMessage(std::string_view message);
    IMAPStoreAccount* imapAccount() const;
    bool isStandard() const { return _connection->dialect() == MailDialect::standard; }

    // Synchronising, in a thread of its own.
    void startSynchronizing();
    bool endWork(int afterRounds);
    void synchronizeWithServer();
    void bringIntoLine();
    bool compareWithServer();
    std::optional<std::vector<std::string>> namesFound(std::string_view key);
    std::optional<std::vector<std::string>> uidsOnServer(std::uint64_t count);
    bool _cacheMessagesWithNumbers(std::span<const std::uint32_t> numbers,
                                   std::vector<std::shared_ptr<IMAPMessage>>& intoArray);
    void setProgressFormat(std::string_view format, std::size_t most);
    bool synchronizeFlagsWithServer();
    bool takeAllFlags(const MessageList& all);
    void cacheMessagesFromServer();
    bool mirrorOneByOne(const MessageList& all, const std::vector<std::size_t>& places);
    bool mirrorTogether(const MessageList& all, std::span<const std::size_t> places);
    std::span<const std::size_t> fetchInto(MirrorFiles& files, const MessageList& all,
                                           std::span<const std::size_t> places);
    void _processPendedAppendData();
    /// Runs in the main thread, and returns when it has; false when the store is told to stop first.
    bool callInMainThread(std::function<void(IMAPStore&)> call);
    bool goesOn() const { return shouldProcessInBackground(); }

    // Watching, in a thread of its own.
    void idleUntil(const std::stop_token& stop, std::chrono::milliseconds askAnewAfter);
    void askForConnection();
    void tellOfNewMail();

    // Lists.
    void setMessages(const Messages& messages, const Messages& added);
    void _flushAllData();
    void contentsDidChange();
    void removeExpunged(std::span<const std::string> numbers);
    void appendNew(std::size_t total);
    Messages _fetchMessagesWithNumbers(const Numbers& numbers);
    void scheduleFlagsChanged();
    void messageFlagsChanged();
    /// What the server calls these messages.
    Numbers numbersOf(const MessageList& messages) const;

    // Texts.
    std::optional<Data> _dataForMessage(Message& message);
    std::optional<std::string> _stringForMessage(Message& message);
    void noteRead(IMAPMessage& message);
    std::optional<std::string> fetchText(IMAPMessage& message, bool setSeenFlag);
    std::string cacheFileOf(const std::string& uid) const;
    std::string pathOf(std::string_view name) const;

    // The queue.
    using StatusText = std::function<std::string(std::string_view format)>;
    bool appendWithFlags(const MessageList& messages, const std::vector<std::string>& flags);
    bool appendOrQueue(Message& message, const std::vector<std::string>& flags, const StatusText& status,
                       std::vector<Data>& queued);
    std::vector<Data> readQueue();
    std::vector<Data> lockedQueue();
    bool writeQueue(const std::vector<Data>& queue);
    bool addToQueue(std::vector<Data> messages);
    bool removeFromQueue(const std::vector<Data>& messages);

    void readArchive();
    void writeArchive();

    enum class Work : std::uint8_t { none, running, runningAndWantedAgain };

    const std::unique_ptr<ServerLock> _lock;      // over each exchange; taken before any mutex
    std::shared_ptr<IMAPConnection> _connection;  // never replaced once open
    std::atomic<Work> _work = Work::none;         // of _thread
    std::atomic<bool> _connected = false, _stayOffline = false, _isSynchronized = false;
    std::atomic<bool> _pushStateToServer = false, _hasLists = false;
    std::atomic<bool> _isWatched = false, _isIdling = false;
    std::atomic<std::uint64_t> _flagChanges = 0;  // that the user made
    std::atomic<std::uint64_t> _contentChanges =
        0;  // of which the server told by itself; counts in the main thread
    std::atomic<std::size_t> _mirrored = 0, _toMirror = 0;

    mutable Mutex _stateMutex;
    std::string _connectionGreeting LORVALE_GUARDED_BY(_stateMutex);
    // By the last STATUS.
    std::uint64_t _totalOnServer LORVALE_GUARDED_BY(_stateMutex) = 0;
    std::string _uidNextOnServer LORVALE_GUARDED_BY(_stateMutex);
    mutable std::unique_ptr<FileLock> _indexLock LORVALE_GUARDED_BY(_stateMutex);  // null: not asked for yet
    std::string _statusMessageFormat LORVALE_GUARDED_BY(_stateMutex);  // empty: no progress is shown
    std::int32_t _statusMessageCount LORVALE_GUARDED_BY(_stateMutex) = 0;
    std::int32_t _statusMessageMaximum LORVALE_GUARDED_BY(_stateMutex) = 0;

    // Of the main thread.
    std::string _mailboxName, _uidValidity;  // the first never changes once open, nor does _opensReadOnly
    std::string _uidNext;                    // when the list and the server's were the same
    std::string _refusal;
    Messages _arrived;             // found by the last look, when it was not the first
    std::uint32_t _toldTotal = 0;  // the last number of messages that the server told of itself
    std::uint64_t _flagsCall = 0;  // of the run loop
    bool _opensReadOnly = false, _isRegistered = false;

    Thread _thread, _watcher;  // last: they use all of them
};

}  // namespace lorvale
