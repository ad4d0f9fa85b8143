#include "mail/accounts/AccountRegistry.h"

#include <algorithm>
#include <array>
#include <utility>

#include "lorvale/account/imap_account.h"
#include "lorvale/account/local_account.h"
#include "lorvale/account/pop_account.h"
#include "lorvale/defaults.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/platform/user_defaults.h"
#include "mail/accounts/AccountKeys.h"
#include "mail/accounts/SharedLocalAccount.h"

namespace lorvale {

namespace {

/// The local account that stores have been opened with, where the entry is about that; else another one.
std::shared_ptr<MailAccount> localAccount(std::string_view path) {
    const auto shared = localAccountIfAny();
    if (shared && shared->path() == standardizePath(path)) return shared;
    return LocalAccount::accountWithPath(path);
}

/// The classes by the names under which they are stored.
struct AccountClass {
    std::string_view name;
    std::shared_ptr<MailAccount> (*accountWithPath)(std::string_view path);
};
constexpr auto kClasses = std::to_array<AccountClass>({
    {"LocalAccount", localAccount},
    {"IMAPAccount",
     [](std::string_view path) -> std::shared_ptr<MailAccount> { return IMAPAccount::accountWithPath(path); }},
    {"POPAccount",
     [](std::string_view path) -> std::shared_ptr<MailAccount> { return POPAccount::accountWithPath(path); }},
});

std::shared_ptr<MailAccount> accountOf(const AccountEntry& entry) {
    const auto* const found = std::ranges::find(kClasses, std::string_view(entry.type), &AccountClass::name);
    if (found == kClasses.end()) return nullptr;
    auto account = found->accountWithPath(entry.path);
    // An entry of the older form tells no settings: those in the account's directory stand.
    if (auto info = entry.info(); !info.dictionary().empty()) account->setAccountInfo(std::move(info));
    return account;
}

/// The registry in the file of this program, or, as long as it has none, the one that all programs share.
PropertyList registryIn(const PropertyList::Dictionary& values, const PropertyList& shared) {
    const auto found = values.find(kMailAccountsDefault);
    return found == values.end() ? shared : found->second;
}

/// Keeps what is no list of accounts, and what is no account in one, so that writing another in its place loses
/// nothing.  It cannot stay in the list: two stray texts side by side would be an entry of the older form.
void setAside(PropertyList::Dictionary& values) {
    const auto found = values.find(kMailAccountsDefault);
    if (found == values.end()) return;
    PropertyList::Array strays;
    if (found->second.get<PropertyList::Array>() == nullptr) strays.push_back(found->second);
    for (const auto& entry : readAccountEntries(found->second))
        if (!entry.isAccount()) strays.push_back(entry.element);
    for (auto& stray : strays) values[std::string(kDamagedAccountsDefault)].append(std::move(stray));
}

/// `there` with what is different in `now` from `before`, setting by setting.
AccountEntry withChanges(const AccountEntry& there, const AccountEntry& before, const AccountEntry& now) {
    auto entry = there;
    for (const auto* const side : {&before, &now}) {
        for (const auto& [key, value] : side->element.dictionary()) {
            if (before.element[key] != now.element[key]) entry.element.set(key, now.element[key]);
        }
    }
    return entry;
}

}  // namespace

AccountRegistry& AccountRegistry::shared() {
    static auto& registry = *new AccountRegistry;  // never destroyed, like the accounts it holds
    return registry;
}

std::vector<AccountRegistry::Known> AccountRegistry::read() {
    static_cast<void>(Defaults::sharedInstance());  // it names the domains in which settings are looked for
    const auto registry = UserDefaults::standard().objectForKey(kMailAccountsDefault);
    if (registry && registry->get<PropertyList::Array>() == nullptr)
        log("The user default %@ is no list of accounts; it is left alone", kMailAccountsDefault);
    std::vector<Known> known;
    for (auto& entry : readAccountEntries(registry.value_or(PropertyList()))) {
        if (auto account = accountOf(entry))
            known.push_back({std::move(account), std::move(entry)});
        else
            log("The user default %@ has an entry that is no account known here: %@", kMailAccountsDefault,
                entry.isAccount() ? entry.type : entry.element.string("without class or path"));
    }
    return known;
}

AccountRegistry::Accounts AccountRegistry::accounts() {
    {
        const MutexLock lock(_mutex);
        if (_accounts) return *_accounts;
    }
    // Not under the lock: making an account calls the host.
    auto known = read();
    const MutexLock lock(_mutex);
    if (_accounts) return *_accounts;
    _written = std::move(known);
    _accounts.emplace();
    for (const auto& one : _written) _accounts->push_back(one.account);
    return *_accounts;
}

bool AccountRegistry::save(const Accounts& accounts) {
    static_cast<void>(this->accounts());  // what was there before must be known
    std::vector<Known> now, before;
    for (const auto& account : accounts) {
        if (account)
            now.push_back(
                {account, accountEntry(account->className(), account->path(), account->accountInfo())});
    }
    {
        const MutexLock lock(_mutex);
        _accounts.emplace();
        for (const auto& one : now) _accounts->push_back(one.account);
        before = _written;
    }
    const auto shared = UserDefaults::standard().objectForKey(kMailAccountsDefault).value_or(PropertyList());
    const bool written = UserDefaults::standard().update([&](PropertyList::Dictionary& values) {
        setAside(values);
        auto current = readAccountEntries(registryIn(values, shared));
        std::erase_if(current, [](const AccountEntry& entry) { return !entry.isAccount(); });
        values.insert_or_assign(std::string(kMailAccountsDefault),
                                toPropertyList(merged(current, before, now)));
    });
    if (!written) return false;
    const MutexLock lock(_mutex);
    _written = std::move(now);
    return true;
}

std::vector<AccountEntry> AccountRegistry::merged(const std::vector<AccountEntry>& current,
                                                  const std::vector<Known>& before,
                                                  const std::vector<Known>& now) {
    std::vector<const AccountEntry*> theirs;  // of `current`, until they are found to be ours
    theirs.reserve(current.size());
    for (const auto& entry : current) theirs.push_back(&entry);
    const auto take = [&](const AccountEntry& wanted) -> const AccountEntry* {
        const auto found = std::ranges::find_if(theirs, [&](const AccountEntry* entry) {
            return entry != nullptr && entry->isOf(wanted.type, wanted.path);
        });
        return found == theirs.end() ? nullptr : std::exchange(*found, nullptr);
    };

    std::vector<AccountEntry> result;
    for (const auto& [account, entry] : now) {
        const auto known = std::ranges::find(before, account, &Known::account);
        if (known == before.end()) {  // added here
            result.push_back(entry);
            continue;
        }
        const auto* const there = take(known->entry);
        if (there != nullptr)
            result.push_back(withChanges(*there, known->entry, entry));
        else if (entry.element != known->entry.element)
            result.push_back(entry);  // removed there, but somebody here still works with it
    }
    for (const auto& [account, entry] : before) {  // removed here
        if (std::ranges::find(now, account, &Known::account) == now.end()) take(entry);
    }
    for (const auto* const entry : theirs)
        if (entry != nullptr) result.push_back(*entry);
    return result;
}

void AccountRegistry::forget() {
    std::optional<Accounts> accounts;  // go without the lock
    std::vector<Known> written;
    const MutexLock lock(_mutex);
    std::swap(accounts, _accounts);
    std::swap(written, _written);
}

}  // namespace lorvale
