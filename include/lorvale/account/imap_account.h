#pragma once
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/imap/account.h"
#include "lorvale/imap/store.h"

namespace lorvale {

class ServerLock;

/// The mailboxes of a user on an IMAP server.  The path of an item is the name of the mailbox there, with the
/// server's separator.  Each mailbox has a directory below the account's, which mirrors it; docs/imap.md tells
/// what stands there.
///
/// The tree is asked for over a connection of its own, which is made when it is needed and closed when it has
/// not been for 15 minutes; without a server the directories tell what is known.  A listing is remembered; what
/// others change on the server shows after setPath().
///
/// Any thread may walk the tree, but only one at a time talks to a server: the others get no answer, which is
/// to say AccountItems that are not known, and ask again later.  All else belongs to the main thread.
class LORVALE_EXPORT IMAPAccount : public IMAPStoreAccount {
public:
    static std::shared_ptr<IMAPAccount> accountWithPath(std::string_view path);

    IMAPAccount();  ///< for accountWithPath()
    ~IMAPAccount() override;

    // Settings.
    std::string className() const override;
    /// With " (Offline)" behind it when the account does without its server.
    std::string displayName() const override;
    void setPath(std::string_view path) override;
    bool compactWhenClosingMailboxes() const override;
    void setCompactWhenClosingMailboxes(bool compact);
    IMAPCachePolicy cachePolicy() const override;
    void setCachePolicy(IMAPCachePolicy policy);
    void prepareConnection(IMAPConnection& connection) const override;

    // For this process alone.
    bool isOffline() const override { return _stayOffline; }
    void setOffline(bool offline);
    /// What holds in place of the setting; nullopt: that.  A program that looks at one message and ends has no
    /// need of all.
    void useCachePolicy(std::optional<IMAPCachePolicy> policy);

    // The listing connection.

    /// Logged in if that could be done; asks the user for a password.  Null when one is being made, when the
    /// user gave no password, and then for as long as the account stays offline.
    std::shared_ptr<IMAPConnection> connection();
    /// Logs out; one that was replaced meanwhile leaves the new one alone.
    void closeConnection(const std::shared_ptr<IMAPConnection>& connection);

    // The tree.
    bool containsMailboxes() const override { return true; }
    AccountItems mailboxesForItem(const AccountItemShare& item) override;
    /// And the words by which the server describes each, in lower case.
    using Attributes = std::vector<std::vector<std::string>>;
    AccountItems mailboxesForItem(const AccountItemShare& item, Attributes* attributes);
    std::string displayNameForItem(const AccountItemShare& item) const override;
    bool isItemExpandable(const AccountItemShare& item) override;
    /// The counts as the server tells them, where it can be asked.
    std::optional<PropertyList> userInfoForItem(const AccountItemShare& item) override;
    /// By the name on the server.
    AccountItemShare itemForStorePath(std::string_view path) override;
    AccountItemShare itemForStore(const MessageStore& store) override;

    // Mailboxes.
    /// The one called "INBOX".
    std::shared_ptr<MessageStore> primaryMessageStore() override;
    /// Makes the directory if it is missing; the mailbox opens without a server, too.
    std::shared_ptr<MessageStore> storeForItemPath(std::string_view path) override;
    /// `readOnly`: looks at the mailbox without marking what is read, and leaves the queue alone.
    std::shared_ptr<IMAPStore> storeForItemPath(std::string_view path, bool readOnly);
    std::shared_ptr<MessageStore> storeForItem(const AccountItemShare& item) override;
    AccountItemShare createMailboxNamed(std::string_view name, const AccountItemShare& asChildOfItem) override;
    bool removeMailbox(const AccountItemShare& item) override;
    /// Messages of this account are copied on the server, without a detour.
    bool transferMessages(const MessageList& messages, const AccountItemShare& toMailbox) override;
    /// Tells anew how many messages wait in the inbox, unless it is open; false.
    bool doFetchNow(bool automatically) override;

private:
    struct Listing {
        AccountItems items;
        Attributes attributes;
    };

    std::shared_ptr<IMAPConnection> connectNow();
    void setConnection(std::shared_ptr<IMAPConnection> connection);
    void scheduleClosing();
    std::shared_ptr<IMAPConnection> usableConnection();
    std::string separator() const;
    std::string _parentPathForItemPath(std::string_view name) const;
    std::string childName(const AccountItemShare& parent, std::string_view name) const;
    std::optional<PropertyList> listingForMailbox(const std::string& name);
    Listing listingFromDirectory(const AccountItemShare& item) const;
    std::optional<Listing> listingFromServer(const AccountItemShare& item);
    AccountItems knownBelow(std::string_view name) const;  // perhaps unknown
    std::vector<std::string> attributesOf(const AccountItemShare& item);
    std::optional<PropertyList> takeStatus(const std::string& name);
    /// nullopt for a name that would lead elsewhere.
    std::optional<std::string> _storePathForName(std::string_view name) const;
    AccountItemShare itemNamed(std::string name) const;
    bool deleteOnServer(const AccountItemShare& item, std::string& reason);
    void forgetItem(const std::string& name);

    std::atomic<bool> _stayOffline = false;
    std::atomic<std::int32_t> _policyInUse = -1;  // below 0: the setting
    const std::unique_ptr<ServerLock> _lock;      // over what follows and each exchange; taken before any mutex
    std::shared_ptr<IMAPConnection> _connection;
    std::map<std::string, Listing, std::less<>> _mailboxes;    // by name; the root is ""
    std::map<std::string, PropertyList, std::less<>> _status;  // each is used once

    mutable Mutex _stateMutex;
    std::string _separatorChar LORVALE_GUARDED_BY(_stateMutex);
    std::shared_ptr<IMAPConnection> _listing LORVALE_GUARDED_BY(_stateMutex);  // as _connection
    std::uint64_t _closing LORVALE_GUARDED_BY(_stateMutex) = 0;                // a call of the main run loop
};

}  // namespace lorvale
