#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "lorvale/export.h"
#include "lorvale/message/list.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/platform/user_agent.h"
#include "lorvale/values/property_list.h"

namespace lorvale {

class MailAccount;
class MessageStore;

// Notifications.
/// The object is the account, the user info its accountInfo(): a PropertyList under each key.
inline constexpr std::string_view AccountInfoDidChange = "AccountInfoDidChange";
/// The object is the AccountItem, the user info what was told: a PropertyList under each key.
inline constexpr std::string_view AccountItemStatusChanged = "AccountItemStatusChanged";

/// A mailbox or folder as an account's tree shows it.  Never changes.  As long as the tree is not read anew the
/// same one is handed out.  A null one stands for the root, which is the account itself.
struct AccountItem {
    std::weak_ptr<MailAccount> account;
    std::string path;  ///< a full path, or the name of the mailbox on its server
};
using AccountItemShare = std::shared_ptr<const AccountItem>;

/// What stands below an item: a list that never changes.  Copies share it.  It may be unknown, which is not the
/// same as empty, but walks like it.
class AccountItems {
public:
    using Items = std::vector<AccountItemShare>;
    AccountItems() = default;  ///< unknown
    explicit AccountItems(Items items) : _items(std::make_shared<const Items>(std::move(items))) {}

    bool isKnown() const { return _items != nullptr; }
    std::size_t size() const { return items().size(); }
    bool empty() const { return items().empty(); }
    const AccountItemShare& operator[](std::size_t index) const { return items()[index]; }
    Items::const_iterator begin() const { return items().begin(); }  ///< good as long as a copy of the list
    Items::const_iterator end() const { return items().end(); }

private:
    const Items& items() const {
        static const Items none;
        return _items ? *_items : none;
    }
    std::shared_ptr<const Items> _items;
};

/// How a connection to an account's server is kept from others' eyes.
enum class ConnectionSecurity {
    none,
    upgraded,  ///< begun in the open, then made secret by a command: STLS, STARTTLS
    fromStart  ///< TLS before the first byte
};

/// A named source of mail: a local directory, a dictionary of settings, a tree of mailboxes.  The base class of
/// the accounts, and the one by which stores know theirs.  As it stands it has no mailboxes and fetches
/// nothing.
///
/// Any thread may read and change the settings.  The registry, the tree and what asks the user belong to the
/// main thread, but where a class says more.
class LORVALE_EXPORT MailAccount : public TimedFetchObject, public std::enable_shared_from_this<MailAccount> {
public:
    // The registry: the user default "MailAccounts".

    /// Made from the registry when first asked for; always the same accounts from then on.
    static std::vector<std::shared_ptr<MailAccount>> mailAccounts();
    /// Makes these the accounts and writes them.  What another process has added to the registry, or changed in
    /// an account that is as it was here, stays; accounts of classes that are not known here stay too.  False,
    /// after a log line, when they could not be written; the next save tries again.
    static bool saveMailAccounts(const std::vector<std::shared_ptr<MailAccount>>& accounts);
    static bool addAccount(const std::shared_ptr<MailAccount>& account);  ///< one that is there is only written
    /// Calls deleteAccount() of an account that is in the list; another one changes nothing, and answers false.
    static bool removeAccount(const std::shared_ptr<MailAccount>& account);

    using Maker = std::function<std::shared_ptr<MailAccount>()>;
    /// Who owns the stores that are opened without an account; an empty function brings back the local account.
    /// Any thread.
    static void registerDefaultAccount(Maker make);
    static std::shared_ptr<MailAccount> defaultAccount();

    MailAccount(const MailAccount&) = delete;
    MailAccount& operator=(const MailAccount&) = delete;
    ~MailAccount() override;

    /// The name by which the registry knows the class.
    virtual std::string className() const;
    /// What is to be done before an account is forgotten: nothing here.
    virtual void deleteAccount();
    /// Writes the registry.
    bool saveAccountInfo();

    // Settings.

    /// The local directory, standardised.
    virtual std::string path() const;
    /// Posts AccountInfoDidChange, as setAccountInfo() does.
    virtual void setPath(std::string_view path);
    /// All of them, a dictionary.
    PropertyList accountInfo() const;
    virtual void setAccountInfo(PropertyList info);
    void accountInfoDidChange();

    /// What the user called the account, else what the class makes of it.
    virtual std::string displayName() const;
    void setDisplayName(std::optional<std::string_view> name);
    // Null and empty texts are the same: no such setting.
    virtual std::optional<std::string> hostname() const;
    void setHostname(std::optional<std::string_view> host);
    virtual std::optional<std::string> username() const;
    void setUsername(std::optional<std::string_view> user);
    /// Whether the clock may make it fetch; true unless set otherwise.
    virtual bool shouldAutoFetch() const;
    void setShouldAutoFetch(bool fetch);
    /// None unless set otherwise.
    ConnectionSecurity connectionSecurity() const;
    void setConnectionSecurity(ConnectionSecurity security);
    /// A file of the authorities to trust for a secured connection, in PEM form; nullopt: those of the system.
    std::optional<std::string> certificateAuthorities() const;
    void setCertificateAuthorities(std::optional<std::string_view> path);
    /// nullopt: the one that the protocol has by custom.
    std::optional<std::uint16_t> port() const;
    void setPort(std::optional<std::uint16_t> port);

    // The password.  It is stored as base64, which keeps it from the eye and from nothing else.

    /// The stored one, else that of this session, else, with `mayAsk`, what the user answers now.
    virtual std::optional<std::string> password(bool mayAsk);
    std::optional<std::string> password() { return password(/*mayAsk=*/true); }
    void setPassword(std::optional<std::string_view> password);
    /// Asks, and keeps the answer for this session, or for good if the user says so.  nullopt: refused.
    virtual std::optional<std::string> promptUserForPassword();
    /// That of this session only.
    virtual void forgetRememberedPassword();

    // The tree.

    virtual bool containsMailboxes() const;  ///< false here
    /// What stands below an item; unknown where the account cannot say, as here.
    virtual AccountItems mailboxesForItem(const AccountItemShare& item);
    virtual std::string displayNameForItem(const AccountItemShare& item) const;
    /// Whether there may be anything below it.
    virtual bool isItemExpandable(const AccountItemShare& item);
    /// The attributes of a mailbox that need not be open; see userInfo() of MessageStore.  nullopt here.
    virtual std::optional<PropertyList> userInfoForItem(const AccountItemShare& item);
    std::optional<PropertyList> userInfoForItemPath(std::string_view path) const;
    /// Null when the tree, as far as it was read, has no such mailbox.
    virtual AccountItemShare itemForStorePath(std::string_view path);
    virtual AccountItemShare itemForStore(const MessageStore& store);
    void postStatusChanged(const AccountItemShare& forItem, const std::optional<PropertyList>& userInfo);

    // Its mailboxes.

    /// Where new mail goes; null here.
    virtual std::shared_ptr<MessageStore> primaryMessageStore();
    /// Null here.
    virtual std::shared_ptr<MessageStore> storeForItemPath(std::string_view path);
    /// Opens the mailbox; null for the root, and where that fails.
    virtual std::shared_ptr<MessageStore> storeForItem(const AccountItemShare& item);
    /// Has the user agent show the mailbox, where it can be opened.
    void openItem(const AccountItemShare& item);
    /// Null when it was not made; the user has been told then.  Here nothing is made.
    virtual AccountItemShare createMailboxNamed(std::string_view name, const AccountItemShare& asChildOfItem);
    /// Asks the user first.  False only where nothing can be removed, as here.
    virtual bool removeMailbox(const AccountItemShare& item);
    /// Appends copies; whether they are in the mailbox, for good.
    virtual bool transferMessages(const MessageList& messages, const AccountItemShare& toMailbox);
    bool doFetchNow(bool automatically) override;  ///< false here

    /// The path of a store less that of the account; the whole path for a store elsewhere.
    virtual std::string relativePathForStore(const MessageStore& store) const;
    /// A message for the user that says where it comes from.
    virtual std::string errorStringWithMessage(std::string_view message, std::string_view mailbox) const;

protected:
    MailAccount() = default;

    /// The body of every accountWithPath(): makes an account over the directory, with the settings of its
    /// "Info.plist" where there is one.
    template <class Account>
    static std::shared_ptr<Account> openAccount(std::string_view path) {
        auto account = std::make_shared<Account>();
        account->openAtPath(path);
        return account;
    }
    /// From now on until it goes the account is asked for doFetchNow() by the user agent's clock.
    void registerForTimedFetch();

    // One setting.
    std::optional<std::string> textForKey(std::string_view key) const;  ///< nullopt for an empty one
    void setText(std::optional<std::string_view> text, std::string_view forKey);
    bool boolForKey(std::string_view key, bool otherwise = false) const;
    void setBool(bool value, std::string_view forKey);
    /// The name that the user gave it, else this.
    std::string displayNameOr(std::string_view otherwise) const;

private:
    void openAtPath(std::string_view path);

    bool _isTimed = false;
    mutable Mutex _mutex;  // held for no longer than a look takes
    PropertyList _info LORVALE_GUARDED_BY(_mutex);
    std::string _path LORVALE_GUARDED_BY(_mutex);
};

}  // namespace lorvale
