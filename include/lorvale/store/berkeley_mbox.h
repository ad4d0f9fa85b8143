#pragma once
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/store/message_store.h"

namespace lorvale {

class MboxSnapshot;
struct MboxRange;

/// A store over one flat mailbox file: messages one after the other, each beginning with a line "From "
/// (docs/mailboxes.md tells the format).  A scan at opening finds all messages; there is no index file and no
/// status, every message counts as read.  A file above 4 GB is refused.
///
/// The store works on the file as it was at opening.  It changes the file only while it holds the lock, by
/// writing a new one beside it and renaming that over it, so that a crash leaves the old mailbox or the new
/// one.
class LORVALE_EXPORT BerkeleyMbox : public MessageStore {
public:
    /// 0.667 for a file named "mbox", 0.333 for any other file, 0 for what is none.
    static float willingnessToOpen(std::string_view path);
    static StoreClass storeClass();

    /// Null, after a log line, when the file cannot be read, is missing without `create`, or is locked and
    /// there are windows to tell the user.  Without windows a locked mailbox opens read-only.
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

    CachedHeaders cachedHeadersForMessage(Message& message) override;
    bool readsCachedHeaders() const override { return true; }
    std::optional<Data> allHeadersForMessage(Message& message) override;
    std::optional<Data> bodyForMessage(Message& message) override;

    bool canCompact() const override;
    void doCompact() override;
    bool canBeIndexed() const override;

    /// Writes the messages at the end of the file, with an envelope line for those that have none.  False also
    /// after success; see the definition.
    bool syncAppendMessages(const MessageList& messages, bool setUnread) override;
    /// Writes the whole mailbox as it was at opening to a file, not atomically.
    bool writeToFile(const std::string& path);

    /// Whether this store holds the lock, and so may change the file.
    bool haveLock() const { return _haveLock; }

protected:
    bool openAtPath(std::string_view path, bool create, bool readOnly,
                    const std::shared_ptr<MailAccount>& account) override;
    void _resetAllMessages() override;

private:
    bool mayChange() const { return _haveLock && !isReadOnly(); }
    bool _acquireLock();
    void _removeLock();
    /// The file as it is now; null, after a log line, when it cannot be read.
    std::unique_ptr<MboxSnapshot> _takeSnapshot() const;
    /// Lists the messages of the file.  The first of them are `survivors`, known messages that stay the same
    /// objects; the others are made.
    void _createAllMessages(const std::vector<MboxRange>& ranges, const MessageList& survivors);
    /// Goes on with another state of the file (null: nothing), in which the survivors stand first and know
    /// their places.  Known messages that do not survive lose their store.
    void _adopt(std::unique_ptr<MboxSnapshot> snapshot, MessageList survivors);
    /// All our messages if they stand in a later state of the file as they do in ours, none otherwise.
    MessageList _messagesStillIn(const MboxSnapshot& later) const;
    void _forgetDeletedMessages();
    bool _appendMessages(const MessageList& messages);
    std::optional<MboxRange> _rangeHere(const Message& message) const;

    std::string _storePath;                   // see storePath()
    std::unique_ptr<MboxSnapshot> _mboxData;  // the bytes of the file, null once the store is closed
    bool _haveLock = false;
};

}  // namespace lorvale
