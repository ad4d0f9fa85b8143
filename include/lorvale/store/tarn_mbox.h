#pragma once
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/platform/notification.h"
#include "lorvale/platform/thread.h"
#include "lorvale/store/message_store.h"
#include "lorvale/values/data.h"

namespace lorvale {

class TableOfContents;
class TOCMessage;
struct OpenMbox;

/// The everyday mailbox: a directory "NAME.mbox" with the mail in one flat file and a table of contents beside
/// it (docs/mailboxes.md tells the files).  It opens by the table alone, keeps which messages are read and
/// deleted, and takes mail from any thread.
///
/// Nothing is changed without the lock.  Appended mail is on disk when the append returns; status, and the
/// table with it, when the store is closed, compacted or rebuilt.  Whatever moment a crash hits, the next
/// opening finds every message that was there or whose append was reported; mail from the background may then
/// be there twice.  Other programs may change the files at any moment: a message whose bytes are not there any
/// more is refused, with a log line, and never reads as another.
///
/// An open store holds one file descriptor.
class LORVALE_EXPORT TarnMbox : public MessageStore {
public:
    /// 1.1 for a directory whose name ends in ".mbox", else 0.
    static float willingnessToOpen(std::string_view path);
    static StoreClass storeClass();
    static std::optional<std::string> storeFileExtension();

    /// Null, after a log line: for a mailbox that is missing without `create`, for `create` together with
    /// `readOnly`, for one that the user would not open despite its lock, and for one that cannot be read.
    /// Without the lock, which `readOnly` never takes, also when the table of contents does not match the mail:
    /// making it anew is a change.
    static std::shared_ptr<TarnMbox> initWithPath(std::string_view path, bool create, bool readOnly,
                                                  const std::shared_ptr<MailAccount>& account = nullptr);
    static std::shared_ptr<TarnMbox> initWithPath(std::string_view path, bool readOnly = false);

    /// For openStore(); use initWithPath().
    TarnMbox();
    ~TarnMbox() override;

    /// Waits for background appends, writes attributes and table, and gives up the lock.  Messages marked
    /// deleted stay: compact first.
    void close() override;
    /// Standardised, symbolic links resolved.
    std::string storePath() const override { return _storePath; }
    /// The last part of the path without its extension.
    std::string displayName() const override;
    std::string className() const override;
    /// Whether this store holds the lock, and so may change the mailbox.
    bool haveLock() const { return _haveLock; }

    void rebuildMessageLists() override;
    std::shared_ptr<MessageFlags> flagsForMessage(Message& message) override;
    using MessageStore::setFlags;
    /// Read and deleted last; the others are kept by the messages as long as those live.
    void setFlags(const MessageFlags& flags, std::span<const std::string_view> havingKeys,
                  const MessageList& forMessages) override;
    void deleteMessages(MessageList messages) override;
    void undeleteMessages(MessageList messages) override;
    /// By what the table lists of it: see Message::messageID().
    std::shared_ptr<Message> messageForMessageID(std::string_view messageID) override;

    /// From the table; no file is touched.
    CachedHeaders cachedHeadersForMessage(Message& message) override;
    bool keepsCachedHeaders() const override { return true; }
    std::optional<Data> allHeadersForMessage(Message& message) override;
    std::optional<Data> bodyForMessage(Message& message) override;

    /// True when every one of them is in the mailbox and on disk.  One whose header or body cannot be had is
    /// left out, with a log line, and does not stop the others.
    bool syncAppendMessages(const MessageList& messages, bool setUnread) override {
        return syncAppendMessages(messages, setUnread, {});
    }
    /// Told, once for each append and in the main thread, which of its messages are in the mailbox for good.
    /// That comes before MessageStoreAppendDone, which is not posted where an append failed as a whole.
    using Taken = std::function<void(const MessageList& taken)>;
    bool syncAppendMessages(const MessageList& messages, bool setUnread, const Taken& taken);
    /// The same in a thread of its own; the messages are listed, unread, when the main run loop has turned
    /// after that.  Belongs to the main thread.
    void asyncAppendMessages(const MessageList& messages, bool setUnread, Taken taken = {});
    /// Puts the messages on disk, where finalizeAsyncAppend() takes them in when the main run loop turns.  Any
    /// thread.
    bool safeAppendMessages(const MessageList& messages) override;
    /// Takes in what safeAppendMessages() has put down.
    void finalizeAsyncAppend();
    /// A plain file of the bytes of these messages, "CopyOfSpoolFile" in the mailbox, for a host that keeps a
    /// copy of what it fetched.
    bool _createSpoolCopyFromMessages(const MessageList& messages);

    /// Makes the table anew from the mail; status stays with the messages that had a record.
    void rebuildTableOfContents() override;
    bool canCompact() const override;
    bool mayWriteIndex() const override { return mayChange(); }
    /// Throws GenericException, with the mailbox as it was, when the new file cannot be written.  With the user
    /// default "RiskyCompact" it writes over the mailbox from the first deleted message on: quicker for a large
    /// one, but a crash meanwhile damages what stands there.
    void doCompact() override;
    /// Attributes are saved only with the lock.
    void saveUserInfo() override;

    /// What in the table is not as a scan of the mail finds it; empty for a mailbox in order.  Reads all of it.
    std::string inconsistency() const;

protected:
    bool openAtPath(std::string_view path, bool create, bool readOnly,
                    const std::shared_ptr<MailAccount>& account) override;
    void _resetAllMessages() override;
    void _buildUnreadList() override;
    void _buildDeletedList() override;

private:
    using Listed = std::vector<std::shared_ptr<TOCMessage>>;
    struct Place;

    bool mayChange() const { return _haveLock && !isReadOnly(); }
    std::string pathOf(std::string_view name) const { return _storePath + '/' + std::string(name); }

    // Opening.
    bool _openFiles(bool create, bool readOnly);
    bool _acquireLock();
    void _removeLock();
    bool _openTable();
    void fetchErrorRecovery();
    bool tableFits() const;

    // The file as it is known, and what other programs did to it.
    std::shared_ptr<const OpenMbox> mbox() const;
    void setMbox(std::shared_ptr<const OpenMbox> mbox);
    bool _rebuildTableOfContents();
    bool _rebuildInMemory();
    bool _catchUp();
    /// Lists what stands behind the message listed last: each by the one of these that has its place, else by
    /// its bytes.  False when the file is not as the table says.
    bool _listTail(const Listed& expected, bool unread, MessageList& added);
    void _listAppended(const MessageList& added);
    void _appendDone(const MessageList& added);

    std::optional<Place> placeOf(const Message& message) const;
    bool isStillAt(const Place& place, const Message& message) const;
    template <class Read>
    std::optional<Data> readBytes(Message& message, std::string_view operation, Read read) const;
    std::shared_ptr<TOCMessage> _TOCMessageForMessage(const std::shared_ptr<Message>& message) const;

    bool _unpackSpoolCopy(const MessageList& messages, MessageList& onDisk) LORVALE_REQUIRES(_lock);
    bool _safeAppend(const MessageList& messages, MessageList& onDisk);
    void _tellTaken(bool listed);
    bool _takeInSpool(MessageList& added) LORVALE_REQUIRES(_lock);
    void _finishedFetchingInThread(const Notification& notification);

    MessageList _messagesToCompact() const;
    void _oldDoCompact();
    void _newDoCompact();
    void _replaceFile(const MessageList& deleted);
    void _rewriteInPlace(const MessageList& deleted);
    void _finishCompaction(const MessageList& deleted);
    std::vector<std::string> _attachmentsOf(const MessageList& deleted) const;

    void _updateStoreAttributes();
    bool _storeAttributes();

    std::string _storePath, _mboxPath;  // written at opening only
    std::atomic<bool> _haveLock = false;

    mutable Mutex _placesMutex;  // held while the file and the places of messages change together
    std::shared_ptr<const OpenMbox> _mbox LORVALE_GUARDED_BY(_placesMutex);  // null while it is rewritten

    Mutex _lock;  // of the incoming files; held while they are written, which is what it is for

    // Of the main thread.
    std::unique_ptr<TableOfContents> _toc;  // null until opened
    bool _isOpen = false, _dontOpen = false;
    bool _listsAreExact = false;  // unread and deleted list are as a rebuild would make them
    int _numberOfAppends = 0;
    ObserverToken _attributeObserver, _fetchObserver;
    // The background appends of which nobody has been told yet, by their numbers, and what they put on disk.
    std::map<std::uint64_t, Taken> _untold;
    std::uint64_t _lastAppend = 0;
    std::map<std::uint64_t, MessageList> _onDisk LORVALE_GUARDED_BY(_lock);
    std::vector<Thread> _appends;  // last: joined before the rest goes
};

}  // namespace lorvale
