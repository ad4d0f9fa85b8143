/// The settings of an account, and what an account without mailboxes answers.
#include "lorvale/store/mail_account.h"

#include <algorithm>
#include <any>
#include <array>
#include <limits>
#include <utility>

#include "base/files/PathUtils.h"
#include "base/files/PropertyListFile.h"
#include "lorvale/account/local_account.h"
#include "lorvale/platform/localization.h"
#include "lorvale/platform/notification.h"
#include "lorvale/platform/paths.h"
#include "lorvale/store/message_store.h"
#include "lorvale/values/format.h"
#include "mail/accounts/AccountKeys.h"
#include "mail/accounts/AccountRegistry.h"
#include "mail/stores/RegisteredMaker.h"

namespace lorvale {

namespace {

struct SecurityWord {
    ConnectionSecurity security;
    std::string_view word;
};
constexpr auto kSecurityWords = std::to_array<SecurityWord>({
    {ConnectionSecurity::none, "None"},
    {ConnectionSecurity::upgraded, "STARTTLS"},
    {ConnectionSecurity::fromStart, "TLS"},
});

Notification::UserInfo userInfoOf(const PropertyList& dictionary) {
    Notification::UserInfo userInfo;
    for (const auto& [key, value] : dictionary.dictionary()) userInfo.emplace(key, value);
    return userInfo;
}

}  // namespace

std::vector<std::shared_ptr<MailAccount>> MailAccount::mailAccounts() {
    return AccountRegistry::shared().accounts();
}

bool MailAccount::saveMailAccounts(const std::vector<std::shared_ptr<MailAccount>>& accounts) {
    return AccountRegistry::shared().save(accounts);
}

bool MailAccount::addAccount(const std::shared_ptr<MailAccount>& account) {
    auto accounts = mailAccounts();
    if (std::ranges::find(accounts, account) == accounts.end()) accounts.push_back(account);
    return saveMailAccounts(accounts);
}

bool MailAccount::removeAccount(const std::shared_ptr<MailAccount>& account) {
    auto accounts = mailAccounts();
    const auto found = std::ranges::find(accounts, account);
    if (found == accounts.end()) return false;
    accounts.erase(found);
    account->deleteAccount();
    return saveMailAccounts(accounts);
}

void MailAccount::registerDefaultAccount(Maker make) {
    RegisteredMaker<MailAccount>::set(std::move(make));
}

std::shared_ptr<MailAccount> MailAccount::defaultAccount() {
    if (auto account = RegisteredMaker<MailAccount>::make()) return account;
    return LocalAccount::localAccount();
}

MailAccount::~MailAccount() {
    if (_isTimed) userAgentOrAbsent().unregisterObjectForTimedFetch(*this);
}

void MailAccount::registerForTimedFetch() {
    _isTimed = true;
    userAgentOrAbsent().registerObjectForTimedFetch(*this);
}

void MailAccount::openAtPath(std::string_view path) {
    auto directory = standardizePath(path);
    auto info = readPropertyListFile(stringByAppendingPathComponent(directory, MessageStoreUserInfo));
    const MutexLock lock(_mutex);
    _path = std::move(directory);
    if (info && info->get<PropertyList::Dictionary>() != nullptr) _info = std::move(*info);
}

std::string MailAccount::className() const {
    return "MailAccount";
}

void MailAccount::deleteAccount() {}

bool MailAccount::saveAccountInfo() {
    return saveMailAccounts(mailAccounts());
}

std::string MailAccount::path() const {
    const MutexLock lock(_mutex);
    return _path;
}

void MailAccount::setPath(std::string_view path) {
    auto directory = standardizePath(path);
    {
        const MutexLock lock(_mutex);
        _path = std::move(directory);
    }
    accountInfoDidChange();
}

PropertyList MailAccount::accountInfo() const {
    const MutexLock lock(_mutex);
    return _info.isNull() ? PropertyList(PropertyList::Dictionary()) : _info;
}

void MailAccount::setAccountInfo(PropertyList info) {
    if (info.get<PropertyList::Dictionary>() == nullptr) info = PropertyList::Dictionary();
    {
        const MutexLock lock(_mutex);
        std::swap(_info, info);
    }
    accountInfoDidChange();
}

void MailAccount::accountInfoDidChange() {
    NotificationCenter::defaultCenter().postNotification(AccountInfoDidChange, weak_from_this().lock(),
                                                         userInfoOf(accountInfo()));
}

std::optional<std::string> MailAccount::textForKey(std::string_view key) const {
    const MutexLock lock(_mutex);
    auto text = _info[key].string();
    return text.empty() ? std::nullopt : std::optional(std::move(text));
}

void MailAccount::setText(std::optional<std::string_view> text, std::string_view forKey) {
    const MutexLock lock(_mutex);
    _info.set(forKey, text && !text->empty() ? PropertyList(*text) : PropertyList());
}

bool MailAccount::boolForKey(std::string_view key, bool otherwise) const {
    const MutexLock lock(_mutex);
    return _info[key].boolean(otherwise);
}

void MailAccount::setBool(bool value, std::string_view forKey) {
    const MutexLock lock(_mutex);
    _info.set(forKey, value);
}

std::string MailAccount::displayNameOr(std::string_view otherwise) const {
    return textForKey(kAccountNameKey).value_or(std::string(otherwise));
}

std::string MailAccount::displayName() const {
    return LVLocalizedString("Generic Account", "The name of an account of no class of its own");
}

void MailAccount::setDisplayName(std::optional<std::string_view> name) {
    setText(name, kAccountNameKey);
}

std::optional<std::string> MailAccount::hostname() const {
    return textForKey(kHostnameKey);
}

void MailAccount::setHostname(std::optional<std::string_view> host) {
    setText(host, kHostnameKey);
}

std::optional<std::string> MailAccount::username() const {
    return textForKey(kUsernameKey);
}

void MailAccount::setUsername(std::optional<std::string_view> user) {
    setText(user, kUsernameKey);
}

bool MailAccount::shouldAutoFetch() const {
    return boolForKey(kAutoFetchKey, /*otherwise=*/true);
}

void MailAccount::setShouldAutoFetch(bool fetch) {
    setBool(fetch, kAutoFetchKey);
}

ConnectionSecurity MailAccount::connectionSecurity() const {
    const auto word = textForKey(kSecurityKey);
    if (!word) return ConnectionSecurity::none;
    const auto* const known = std::ranges::find(kSecurityWords, std::string_view(*word), &SecurityWord::word);
    // A word of a later version: whatever it means, it does not mean that passwords may travel in the open.
    return known != kSecurityWords.end() ? known->security : ConnectionSecurity::fromStart;
}

void MailAccount::setConnectionSecurity(ConnectionSecurity security) {
    setText(std::ranges::find(kSecurityWords, security, &SecurityWord::security)->word, kSecurityKey);
}

std::optional<std::string> MailAccount::certificateAuthorities() const {
    const auto path = textForKey(kAuthoritiesKey);
    return path ? std::optional(standardizePath(*path)) : std::nullopt;
}

void MailAccount::setCertificateAuthorities(std::optional<std::string_view> path) {
    setText(path, kAuthoritiesKey);
}

std::optional<std::uint16_t> MailAccount::port() const {
    const MutexLock lock(_mutex);
    const auto number = _info[kPortKey].integer();
    if (number < 1 || number > std::numeric_limits<std::uint16_t>::max()) return std::nullopt;
    return static_cast<std::uint16_t>(number);
}

void MailAccount::setPort(std::optional<std::uint16_t> port) {
    const MutexLock lock(_mutex);
    _info.set(kPortKey, port ? PropertyList(*port) : PropertyList());
}

bool MailAccount::containsMailboxes() const {
    return false;
}

AccountItems MailAccount::mailboxesForItem(const AccountItemShare&) {
    return {};
}

std::string MailAccount::displayNameForItem(const AccountItemShare& item) const {
    return item ? std::string(lastPathComponent(item->path)) : displayName();
}

bool MailAccount::isItemExpandable(const AccountItemShare& item) {
    return item == nullptr && containsMailboxes();
}

std::optional<PropertyList> MailAccount::userInfoForItem(const AccountItemShare&) {
    return std::nullopt;
}

std::optional<PropertyList> MailAccount::userInfoForItemPath(std::string_view path) const {
    if (const auto open = MessageStore::currentlyOpenStoreForPath(path)) return open->userInfo();
    return MessageStore::userInfoForPath(path);
}

AccountItemShare MailAccount::itemForStorePath(std::string_view) {
    return nullptr;
}

AccountItemShare MailAccount::itemForStore(const MessageStore&) {
    return nullptr;
}

void MailAccount::postStatusChanged(const AccountItemShare& forItem,
                                    const std::optional<PropertyList>& userInfo) {
    if (!forItem || !userInfo) return;
    NotificationCenter::defaultCenter().postNotification(AccountItemStatusChanged, forItem,
                                                         userInfoOf(*userInfo));
}

std::shared_ptr<MessageStore> MailAccount::primaryMessageStore() {
    return nullptr;
}

std::shared_ptr<MessageStore> MailAccount::storeForItemPath(std::string_view) {
    return nullptr;
}

std::shared_ptr<MessageStore> MailAccount::storeForItem(const AccountItemShare& item) {
    if (!item) return nullptr;
    auto store = MessageStore::storeForPath(item->path);
    if (store) store->setAccount(shared_from_this());
    return store;
}

void MailAccount::openItem(const AccountItemShare& item) {
    if (const auto store = storeForItem(item)) userAgentOrAbsent().openStore(store, /*quietly=*/false);
}

AccountItemShare MailAccount::createMailboxNamed(std::string_view, const AccountItemShare&) {
    return nullptr;
}

bool MailAccount::removeMailbox(const AccountItemShare&) {
    return false;
}

bool MailAccount::transferMessages(const MessageList&, const AccountItemShare&) {
    return false;
}

bool MailAccount::doFetchNow(bool) {
    return false;
}

std::string MailAccount::relativePathForStore(const MessageStore& store) const {
    const auto whole = standardizePath(store.storePath());
    const auto directory = path() + "/";
    return whole.starts_with(directory) ? whole.substr(directory.size()) : whole;
}

std::string MailAccount::errorStringWithMessage(std::string_view message, std::string_view mailbox) const {
    const auto orNone = [](std::string text) {
        return text.empty() ? LVLocalizedString("Not specified", "No name of an account or mailbox") : text;
    };
    return formatText(LVLocalizedString("Account name: %@\nMailbox name: %@\n\n%@", "An error of an account"),
                      orNone(displayName()), orNone(std::string(mailbox)), message);
}

}  // namespace lorvale
