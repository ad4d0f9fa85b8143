/// The settings of the local account, and its tree.
#include "lorvale/account/local_account.h"

#include <algorithm>
#include <utility>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/defaults.h"
#include "lorvale/fetch/spool_fetch_store.h"
#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/store/message_store.h"
#include "lorvale/values/text.h"
#include "mail/accounts/AccountKeys.h"
#include "mail/accounts/LocalMailboxes.h"
#include "mail/accounts/SharedLocalAccount.h"

namespace lorvale {

namespace {

/// The account of this process.  Never destroyed: a store may ask for it after the end of main().
struct Shared {
    Mutex mutex;
    std::shared_ptr<LocalAccount> account LORVALE_GUARDED_BY(mutex);
};
Shared& shared() {
    static auto& instance = *new Shared;
    return instance;
}

/// Makes it the account of this process unless there is one; answers which it is.
std::shared_ptr<LocalAccount> sharedOr(const std::shared_ptr<LocalAccount>& account) {
    auto& holder = shared();
    const MutexLock lock(holder.mutex);
    if (!holder.account) holder.account = account;
    return holder.account;
}

}  // namespace

LocalAccount::LocalAccount() = default;
LocalAccount::~LocalAccount() {
    closeFetcher();
}

std::shared_ptr<LocalAccount> LocalAccount::localAccount() {
    if (auto account = localAccountIfAny()) return account;
    const auto& defaults = Defaults::sharedInstance();
    const auto account = openAccount<LocalAccount>(defaults.defaultMailDirectory());
    account->setIncomingSpoolDirectory(defaults.spoolDirectory());
    auto chosen = sharedOr(account);
    if (chosen == account) account->registerForTimedFetch();
    return chosen;
}

std::shared_ptr<LocalAccount> LocalAccount::accountWithPath(std::string_view path) {
    auto account = openAccount<LocalAccount>(path);
    account->registerForTimedFetch();
    static_cast<void>(sharedOr(account));
    return account;
}

std::shared_ptr<LocalAccount> localAccountIfAny() {
    return sharedOr(nullptr);
}

void forgetLocalAccount() {
    auto& holder = shared();
    std::shared_ptr<LocalAccount> gone;  // goes without the lock
    const MutexLock lock(holder.mutex);
    std::swap(gone, holder.account);
}

std::string LocalAccount::className() const {
    return "LocalAccount";
}

void LocalAccount::setPath(std::string_view path) {
    {
        const MutexLock lock(_listingMutex);
        _mailboxes.clear();
        ++_generation;
    }
    Defaults::sharedInstance().setDefaultMailDirectory(path);
    MailAccount::setPath(path);
}

std::string LocalAccount::displayName() const {
    return displayNameOr(LVLocalizedString("Local Mailboxes", "The name of the account on this machine"));
}

std::optional<std::string> LocalAccount::incomingSpoolDirectory() const {
    return textForKey(kIncomingSpoolKey);
}

void LocalAccount::setIncomingSpoolDirectory(std::optional<std::string_view> path) {
    setText(path, kIncomingSpoolKey);
    closeFetcher();
}

bool LocalAccount::doFetchNow(bool automatically) {
    if (automatically && !shouldAutoFetch()) return false;
    const auto directory = incomingSpoolDirectory();
    if (!_fetcher && directory) {
        // It knows the account without a share of it: the account owns it, and takes itself away before it
        // goes.
        const std::shared_ptr<MailAccount> borrowed(std::shared_ptr<void>(), this);
        _fetcher = SpoolFetchStore::initWithPath(stringByAppendingPathComponent(*directory, loginName()),
                                                 /*create=*/true, /*readOnly=*/false, borrowed);
    }
    return _fetcher && _fetcher->performFetch();
}

void LocalAccount::closeFetcher() {
    if (!_fetcher) return;
    _fetcher->close();
    _fetcher->setAccount(nullptr);
    _fetcher = nullptr;
}

std::string LocalAccount::directoryOfItem(const AccountItemShare& item) const {
    return item ? item->path : path();
}

AccountItems LocalAccount::cachedListing(std::string_view directory, std::uint64_t* generation) const {
    const MutexLock lock(_listingMutex);
    if (generation != nullptr) *generation = _generation;
    const auto found = _mailboxes.find(directory);
    return found == _mailboxes.end() ? AccountItems() : found->second;
}

AccountItems LocalAccount::mailboxesForItem(const AccountItemShare& item) {
    const auto directory = directoryOfItem(item);
    std::uint64_t generation = 0;
    if (auto cached = cachedListing(directory, &generation); cached.isKnown()) return cached;
    auto listing = readDirectory(directory);
    const MutexLock lock(_listingMutex);
    // What was read before somebody changed the tree is good for this caller only.
    if (generation != _generation) return listing;
    // Two threads that read at once hand out the same items.
    return _mailboxes.try_emplace(directory, std::move(listing)).first->second;
}

AccountItems LocalAccount::readDirectory(const std::string& directory) {
    AccountItems::Items items;
    if (leadsBackUp(directory, path())) return AccountItems(items);
    for (const auto& name : mailboxNamesIn(directory)) {
        items.push_back(std::make_shared<const AccountItem>(
            AccountItem{weak_from_this(), stringByAppendingPathComponent(directory, name)}));
    }
    return AccountItems(std::move(items));
}

void LocalAccount::forgetListing(std::string_view directory) {
    const MutexLock lock(_listingMutex);
    ++_generation;
    const auto found = _mailboxes.find(directory);
    if (found != _mailboxes.end()) _mailboxes.erase(found);
}

std::string LocalAccount::displayNameForItem(const AccountItemShare& item) const {
    if (!item || !isMailboxPath(item->path)) return MailAccount::displayNameForItem(item);
    return std::string(stringByDeletingPathExtension(lastPathComponent(item->path)));
}

bool LocalAccount::isItemExpandable(const AccountItemShare& item) {
    return item && isMailboxPath(item->path) ? MailAccount::isItemExpandable(item) : true;
}

std::optional<PropertyList> LocalAccount::userInfoForItem(const AccountItemShare& item) {
    return item ? userInfoForItemPath(item->path) : std::nullopt;
}

AccountItemShare LocalAccount::itemForStorePath(std::string_view path) {
    const auto root = this->path();
    if (path.size() <= root.size() || !path.starts_with(root)) return nullptr;
    const auto listing = cachedListing(stringByDeletingLastPathComponent(path));
    const auto found =
        std::ranges::find(listing, path, [](const auto& item) -> std::string_view { return item->path; });
    return found == listing.end() ? nullptr : *found;
}

AccountItemShare LocalAccount::itemForStore(const MessageStore& store) {
    return itemForStorePath(store.storePath());
}

std::shared_ptr<MessageStore> LocalAccount::primaryMessageStore() {
    return storeForItemPath(stringByAppendingPathComponent(path(), "Active.mbox"));
}

std::shared_ptr<MessageStore> LocalAccount::storeForItemPath(std::string_view path) {
    auto store = MessageStore::storeForPath(path, /*create=*/true, /*readOnly=*/false);
    if (store) store->setAccount(shared_from_this());
    return store;
}

}  // namespace lorvale
