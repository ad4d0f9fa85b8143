#pragma once
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "lorvale/export.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/store/mail_account.h"

namespace lorvale {

class SpoolFetchStore;

/// The mailboxes on the local disk: a directory in which each name that ends in ".mbox" is a mailbox and each
/// other directory a folder.  The path of an item is a full path.
///
/// A folder is read when its content is first asked for; changes that are made in other ways do not show before
/// setPath().  Any thread may walk the tree; all else belongs to the main thread.
class LORVALE_EXPORT LocalAccount : public MailAccount {
public:
    /// The one of this process: the first that was made, else one over defaultMailDirectory() of Defaults.  Any
    /// thread.
    static std::shared_ptr<LocalAccount> localAccount();
    static std::shared_ptr<LocalAccount> accountWithPath(std::string_view path);

    LocalAccount();  ///< for accountWithPath()
    ~LocalAccount() override;

    std::string className() const override;
    /// Also makes it the mail directory of Defaults.
    void setPath(std::string_view path) override;
    std::string displayName() const override;
    /// Where the system delivers mail, one file a user; nullopt: no mail comes that way.
    std::optional<std::string> incomingSpoolDirectory() const;
    void setIncomingSpoolDirectory(std::optional<std::string_view> path);
    /// Takes the mail that waits in the user's file there; it is routed when the main run loop turns.
    bool doFetchNow(bool automatically) override;

    bool containsMailboxes() const override { return true; }
    /// By name without regard to case, what begins with "." last.  Empty for a folder that cannot be read, and
    /// for one that a link leads back to from below.
    AccountItems mailboxesForItem(const AccountItemShare& item) override;
    /// Of a mailbox without ".mbox".
    std::string displayNameForItem(const AccountItemShare& item) const override;
    bool isItemExpandable(const AccountItemShare& item) override;
    std::optional<PropertyList> userInfoForItem(const AccountItemShare& item) override;
    AccountItemShare itemForStorePath(std::string_view path) override;
    AccountItemShare itemForStore(const MessageStore& store) override;

    /// "Active.mbox" in the directory, made if it is missing.
    std::shared_ptr<MessageStore> primaryMessageStore() override;
    /// Makes the mailbox if it is missing.
    std::shared_ptr<MessageStore> storeForItemPath(std::string_view path) override;
    /// The name may lead through folders, "work/lists/cooks"; asks before it makes one.  Null, after telling
    /// the user, also for a name that leads out of the account, or into a mailbox.
    AccountItemShare createMailboxNamed(std::string_view name, const AccountItemShare& asChildOfItem) override;
    /// A mailbox is there whole or not at all, at whatever moment the process ends.  One that another process
    /// has open is not removed, nor are the folders above it; the user is told.
    bool removeMailbox(const AccountItemShare& item) override;
    bool transferMessages(const MessageList& messages, const AccountItemShare& toMailbox) override;

private:
    friend class MailAccount;
    void closeFetcher();
    using Listings = std::map<std::string, AccountItems, std::less<>>;

    std::string directoryOfItem(const AccountItemShare& item) const;
    AccountItems readDirectory(const std::string& directory);
    AccountItems cachedListing(std::string_view directory,
                               std::uint64_t* generation = nullptr) const;  // perhaps unknown
    void forgetListing(std::string_view directory);
    void forgetPath(const std::string& path);
    bool agreesToFolder(const std::string& folder);
    bool _recursivelyRemovePath(const std::string& path);

    std::shared_ptr<SpoolFetchStore> _fetcher;  // null until needed; of the main thread
    mutable Mutex _listingMutex;
    Listings _mailboxes LORVALE_GUARDED_BY(_listingMutex);            // by directory
    std::uint64_t _generation LORVALE_GUARDED_BY(_listingMutex) = 0;  // grows when a listing is forgotten
};

}  // namespace lorvale
