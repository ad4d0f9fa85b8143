#pragma once
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/fetch/fetch_store.h"
#include "lorvale/platform/mutex.h"

namespace lorvale {

class BerkeleyMbox;

/// Takes mail from a spool, a flat mailbox file into which something else delivers.  For the length of a fetch
/// it holds the file open as a mailbox, under its lock, and shows the messages in it; they are routed, and what
/// their destinations have is then taken out of the file.  An empty file is removed.
///
/// Another program may deliver meanwhile if it honours the lock, or writes behind the end.  Belongs to the main
/// thread, but for what MessageStore allows to any.
class LORVALE_EXPORT SpoolFetchStore : public FetchStore {
public:
    /// The one for the process's own spool: what the user default "DebugFetchSource" names; with "DebugFetch"
    /// "tmp/test.spool" in the home directory; else the user's file in the spool directory of Defaults.  Null
    /// where there is none of these, or it cannot be opened; then asked for anew by the next call, and also
    /// when it has been closed.
    static std::shared_ptr<SpoolFetchStore> globalFetcher();
    /// 0.333 for a path at which something is, else 0.
    static float willingnessToOpen(std::string_view path);
    /// The file need not be there.
    static std::shared_ptr<SpoolFetchStore> initWithPath(std::string_view path, bool create, bool readOnly,
                                                         const std::shared_ptr<MailAccount>& account = nullptr);
    static std::shared_ptr<SpoolFetchStore> initWithPath(std::string_view path, bool readOnly = false);

    /// For openStore(); use initWithPath().
    SpoolFetchStore();
    ~SpoolFetchStore() override;
    void close() override;
    std::string className() const override;

    /// Takes what is in the file, and routes it.  False when a fetch is under way, the file is not there or
    /// cannot be read, or another program has locked it.  True once routing is under way, and also for a file
    /// without mail.
    bool doFetch();
    virtual bool performFetch();
    /// Messages of the last doFetch() are on their way.
    virtual bool isBusy() const { return _busy; }
    void routeMessages() override;
    void routeMessagesSynchronously() override;
    /// Always: what is on its way stays in the file until it has arrived.
    bool approveTermination() const { return true; }
    bool canBeIndexed() const override { return false; }
    /// Takes deleted messages out of the file, and the file away when no other is left.
    void doCompact() override;

    // Of the file, while it is held; empty otherwise.
    CountAndSize totalCountAndSize() const override;
    CountAndSize deletedCountAndSize() const override;
    CountAndSize unreadCountAndSize() const override;
    std::size_t count() const override { return totalCount(); }
    std::size_t totalCount() const override;
    std::size_t indexOfMessage(const Message& message) const override;
    MessageList allMessages() const override;
    bool includeDeleted() const override;
    void setIncludeDeleted(bool include) override;
    std::string sortOrder() const override;
    void setSortOrder(std::string_view order) override;
    std::shared_ptr<MessageFlags> flagsForMessage(Message& message) override;
    using MessageStore::setFlags;
    void setFlags(const MessageFlags& flags, std::span<const std::string_view> havingKeys,
                  const MessageList& forMessages) override;
    void deleteMessages(MessageList messages) override;
    void undeleteMessages(MessageList messages) override;
    std::optional<MessageList> undeleteLastDeletedMessages() override;
    CachedHeaders cachedHeadersForMessage(Message& message) override;
    std::optional<Data> allHeadersForMessage(Message& message) override;
    std::optional<Data> bodyForMessage(Message& message) override;
    bool canCompact() const override;

protected:
    void routingFinished() override;
    /// Where the spool lies, standardised.
    const std::string& spoolPath() const { return _spoolPath; }
    void setSpoolPath(std::string_view path);
    bool openAtPath(std::string_view path, bool create, bool readOnly,
                    const std::shared_ptr<MailAccount>& account) override;

private:
    bool openSpool();
    void saveCopy() const;
    std::shared_ptr<BerkeleyMbox> mbox() const;
    void setMbox(std::shared_ptr<BerkeleyMbox> mbox);

    std::string _spoolPath;  // written at opening only
    mutable Mutex _mboxMutex;
    std::shared_ptr<BerkeleyMbox> _mbox LORVALE_GUARDED_BY(_mboxMutex);  // null: no fetch is under way
    bool _postNewMail = false, _busy = false;
    std::size_t _countBeforeRouting = 0;
};

}  // namespace lorvale
