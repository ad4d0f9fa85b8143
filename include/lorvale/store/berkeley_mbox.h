#pragma once
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/store/message_store.h"
#include "lorvale/values/data.h"

namespace lorvale {

class MboxContents;
struct MboxEntry;

/// A store over one flat mailbox file: messages one after the other, each beginning with a line "From "
/// (docs/mailboxes.md tells the format).  A scan at opening finds all messages; there is no index file and no
/// status, every message counts as read.  A file above 4 GB is refused.
///
/// The store works on the file as it was at opening.  Other programs may change it at any moment: a message
/// whose bytes are not there any more is refused, with a log line that names it, and never reads as another.
/// The store changes the file only while it holds the lock, by writing a new one beside it and renaming that
/// over it, so that a crash leaves the old mailbox or the new one.  The bytes of messages may be asked for by
/// any thread.  An open store holds one file descriptor.
class LORVALE_EXPORT BerkeleyMbox : public MessageStore {
public:
    /// 0.667 for a file named "mbox", 0.333 for any other file, 0 for what is none.
    static float willingnessToOpen(std::string_view path);
    static StoreClass storeClass();

    /// Null, after a log line, when the file cannot be read, is missing without `create`, or is locked and
    /// there are windows to tell the user; null for an empty path.  Without windows a locked mailbox opens
    /// read-only.
    static std::shared_ptr<BerkeleyMbox> initWithPath(std::string_view path, bool create, bool readOnly,
                                                      const std::shared_ptr<MailAccount>& account = nullptr);
    static std::shared_ptr<BerkeleyMbox> initWithPath(std::string_view path, bool readOnly = false);

    /// For openStore(); use initWithPath().
    BerkeleyMbox();
    ~BerkeleyMbox() override;

    /// Gives up the lock and the lists.  Messages marked deleted stay in the file: compact first.
    void close() override;
    /// Standardised, symbolic links resolved: the file itself, beside which lock and temporary file lie.
    std::string storePath() const override;
    std::string className() const override;

    using MessageStore::setFlags;
    std::shared_ptr<MessageFlags> flagsForMessage(Message& message) override;
    /// Does nothing: flags of a flat mailbox live nowhere.
    void setFlags(const MessageFlags& flags, std::span<const std::string_view> havingKeys,
                  const MessageList& forMessages) override;
    void deleteMessages(MessageList messages) override;
    void undeleteMessages(MessageList messages) override;

    // Nullopt, or no headers, after a log line when another program has cut the message off or overwritten it;
    // nullopt for a message of another store and from a closed one.
    CachedHeaders cachedHeadersForMessage(Message& message) override;
    bool readsCachedHeaders() const override { return true; }
    std::optional<Data> allHeadersForMessage(Message& message) override;
    std::optional<Data> bodyForMessage(Message& message) override;

    bool canCompact() const override;
    void doCompact() override;
    bool canBeIndexed() const override;

    /// Writes the messages at the end of the file, with an envelope line for those that have none.  One whose
    /// header or body cannot be had is left out, with a log line.  False also after success; see the
    /// definition.
    bool syncAppendMessages(const MessageList& messages, bool setUnread) override;
    /// Writes the whole mailbox as it was at opening to a file, not atomically.
    bool writeToFile(const std::string& path);

    /// Whether this store holds the lock, and so may change the file.
    bool haveLock() const { return _haveLock; }

protected:
    bool openAtPath(std::string_view path, bool create, bool readOnly,
                    const std::shared_ptr<MailAccount>& account) override;
    /// Reads the file again.  Where that fails, or the file is gone, the store stays as it was.
    void _resetAllMessages() override;

private:
    bool mayChange() const { return _haveLock && !isReadOnly(); }
    bool _acquireLock();
    void _removeLock();
    struct Place;
    /// Where a message lies; nullopt for one that is not in our file.
    std::optional<Place> placeOf(const Message& message) const;
    /// The state of the file that the store works on; null once it is closed.
    std::shared_ptr<const MboxContents> contents() const;
    /// Goes on with another state of the file, in which the first messages are the survivors.  All others that
    /// were known lose their store.
    void _adopt(const std::shared_ptr<const MboxContents>& contents, const MessageList& survivors);
    /// New messages for these places.
    MessageList _messagesAt(std::span<const MboxEntry> entries);
    void _forgetDeletedMessages();
    /// All our messages if a later state of the file begins with them, none otherwise.
    MessageList _messagesStillIn(const MboxContents& later) const;
    bool _appendMessages(const MessageList& messages);

    std::string _storePath;  // see storePath()
    bool _haveLock = false;

    mutable Mutex _placesMutex;  // held while contents and the places of messages change together
    std::shared_ptr<const MboxContents> _contents LORVALE_GUARDED_BY(_placesMutex);
    // The header block read last: cached headers, date and identifier of one message are asked for in a row.
    const MboxEntry* _lastEntry LORVALE_GUARDED_BY(_placesMutex) = nullptr;
    Data _lastHeader LORVALE_GUARDED_BY(_placesMutex);
};

}  // namespace lorvale
