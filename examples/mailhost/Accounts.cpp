#include "Accounts.h"

#include <algorithm>
#include <filesystem>

#include "Output.h"
#include "lorvale/platform/paths.h"
#include "lorvale/values/text.h"

namespace mailhost {

namespace {

using lorvale::MailAccount;

bool isOffline = false;  // main thread

/// A program that runs for one command mirrors no mailbox by the way.
void prepare(lorvale::MailAccount& account) {
    auto* const onServer = dynamic_cast<lorvale::IMAPAccount*>(&account);
    if (onServer == nullptr) return;
    if (isOffline) onServer->setOffline(true);
    if (onServer->cachePolicy() == lorvale::IMAPCachePolicy::allMessages)
        onServer->useCachePolicy(lorvale::IMAPCachePolicy::messagesAsRead);
}

bool isThere(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::exists(std::filesystem::symlink_status(path, ignored));
}

/// What of a text stands behind a prefix and one or more slashes; empty when it does not begin so.
std::string_view behind(std::string_view text, std::string_view prefix) {
    if (!text.starts_with(prefix) || !text.substr(prefix.size()).starts_with('/')) return {};
    text.remove_prefix(prefix.size());
    text.remove_prefix(std::min(text.find_first_not_of('/'), text.size()));
    return text;
}

}  // namespace

void workOffline() {
    isOffline = true;
}

std::string nameOf(const MailAccount& account) {
    constexpr std::string_view kOffline = " (Offline)";
    auto name = account.displayName();
    const bool marked =
        dynamic_cast<const lorvale::IMAPAccount*>(&account) != nullptr && name.ends_with(kOffline);
    return marked ? name.substr(0, name.size() - kOffline.size()) : name;
}

lorvale::IMAPCachePolicy configuredPolicy(const lorvale::IMAPAccount& account) {
    using lorvale::IMAPCachePolicy;
    const auto word = account.accountInfo()["CachePolicy"].string();
    if (word == "CacheNoMessages") return IMAPCachePolicy::noMessages;
    return word == "CacheMessagesAsRead" ? IMAPCachePolicy::messagesAsRead : IMAPCachePolicy::allMessages;
}

std::vector<std::shared_ptr<MailAccount>> registeredAccounts() {
    auto accounts = MailAccount::mailAccounts();
    for (const auto& account : accounts) prepare(*account);
    return accounts;
}

std::vector<std::shared_ptr<MailAccount>> allAccounts() {
    auto accounts = registeredAccounts();
    const auto local = lorvale::LocalAccount::localAccount();
    if (std::ranges::find(accounts, local) == accounts.end()) accounts.insert(accounts.begin(), local);
    return accounts;
}

std::shared_ptr<MailAccount> accountNamed(std::string_view name) {
    const auto accounts = allAccounts();
    const auto found = std::ranges::find(accounts, name, [](const auto& each) { return nameOf(*each); });
    if (found == accounts.end()) throw Failure("there is no account \"" + std::string(name) + "\"");
    return *found;
}

std::optional<Place> placeInAccount(const std::string& typed) {
    const auto path = lorvale::standardizePath(typed);
    const auto whole = lorvale::standardizePath(
        path.starts_with('/') ? path : std::filesystem::current_path().string() + "/" + path);
    std::optional<Place> best;
    for (const auto& account : allAccounts()) {
        if (!account->containsMailboxes()) continue;
        // A path says exactly what it means; of names that contain one another the longest is meant.
        auto name = behind(whole, account->path());
        const bool isPath = !name.empty();
        if (!isPath) name = behind(typed, nameOf(*account));
        if (name.empty() || (best && !isPath && best->name.size() <= name.size())) continue;
        best = Place{account, std::string(name), account->path() + "/" + std::string(name)};
        if (isPath) return best;
    }
    return best;
}

std::string pathOfMailbox(const std::string& typed) {
    const auto path = lorvale::standardizePath(typed);
    if (typed.find('/') == std::string::npos || typed.starts_with('/') || isThere(path)) return path;
    const auto place = placeInAccount(typed);
    if (!place) return path;
    if (dynamic_cast<const lorvale::IMAPAccount*>(place->account.get()) != nullptr) return place->path;
    return isThere(place->path) ? place->path : place->path + ".mbox";
}

}  // namespace mailhost
