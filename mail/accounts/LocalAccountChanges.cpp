/// Making and removing mailboxes of the local account, and moving mail into them.
#include <algorithm>
#include <exception>
#include <iterator>
#include <vector>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/account/local_account.h"
#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/store/tarn_mbox.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"
#include "mail/accounts/LocalMailboxes.h"
#include "mail/accounts/MailboxRemoval.h"

namespace lorvale {

namespace {

constexpr unsigned kFolderMode = 0700;

std::string deleteTitle() {
    return LVLocalizedString("Delete Mailbox", "A title");
}

struct Place {
    std::string folder, path;
};

/// Where a mailbox of that name lies; nullopt for a name of nothing.
std::optional<Place> placeOfMailbox(const std::string& base, std::string_view name) {
    while (name.ends_with('/')) name.remove_suffix(1);
    if (name.empty() || name.find('\0') != std::string_view::npos) return std::nullopt;
    std::string last(lastPathComponent(name));
    if (pathExtension(last) != "mbox") last += ".mbox";
    const auto above = stringByDeletingLastPathComponent(name);
    auto folder = standardizePath(stringByAppendingPathComponent(base, above));
    auto path = stringByAppendingPathComponent(folder, last);
    return Place{std::move(folder), std::move(path)};
}

/// Whether the folder is a mailbox of the account, or in one.
bool isInMailbox(std::string_view folder, std::string_view root) {
    while (folder.size() > root.size() && !isMailboxPath(folder)) folder = folder.substr(0, folder.rfind('/'));
    return folder.size() > root.size();
}

bool makeMailbox(const std::string& path) {
    try {
        if (MessageStore::currentlyOpenStoreForPath(path)) return true;
        const auto store = TarnMbox::storeForPath(path, /*create=*/true, /*readOnly=*/false);
        // Notifications that wait for the run loop still hold it, and with it the lock.
        if (store) store->close();
        return store != nullptr;
    } catch (const std::exception& failure) {
        log("Exception happened while creating mailbox");
        log("%@", failure.what());
        return false;
    }
}

}  // namespace

/// Whether the folder of a new mailbox is there, made if the user would have it.
bool LocalAccount::agreesToFolder(const std::string& folder) {
    if (FileSystem::current().exists(folder)) return true;
    const auto question =
        formatText(LVLocalizedString("The path %@ does not exist, create it?", "A question"), folder);
    if (!userAgentOrAbsent().queryUserForYesNoWithMessage(question, LVLocalizedString("New Mailbox", "A title"),
                                                          LVLocalizedString("Create", "A button"),
                                                          LVLocalizedString("Cancel", "A button")))
        return false;
    makeDirectoryWithMode(folder, kFolderMode);
    return true;
}

AccountItemShare LocalAccount::createMailboxNamed(std::string_view name,
                                                  const AccountItemShare& asChildOfItem) {
    const auto root = path();
    const auto base = directoryOfItem(asChildOfItem);
    const auto place = placeOfMailbox(base, name);
    bool made = false;
    if (place && place->folder != root && !place->folder.starts_with(root + '/')) {
        log("The mailbox %@ would lie outside of the account", place->path);
    } else if (place && isInMailbox(place->folder, root)) {
        log("The mailbox %@ would lie in another mailbox", place->path);
    } else if (place) {
        if (place->folder != base && !agreesToFolder(place->folder)) return nullptr;
        made = makeMailbox(place->path);
    }
    if (!made) {
        userAgentOrAbsent().alertUserWithMessage(
            formatText(LVLocalizedString("Could not create mailbox named %@.", "A failure"), name),
            LVLocalizedString("Mailbox creation failed", "A title"));
        return nullptr;
    }
    // Folders on the way may be new as well.
    for (auto above = place->folder; above.starts_with(root); above = folderOf(above)) forgetListing(above);
    const auto parent = std::make_shared<const AccountItem>(AccountItem{weak_from_this(), place->folder});
    static_cast<void>(mailboxesForItem(parent));
    return itemForStorePath(place->path);
}

bool LocalAccount::removeMailbox(const AccountItemShare& item) {
    if (!item || !pathExists(item->path)) {
        if (item) forgetPath(item->path);
        return true;
    }
    const auto text =
        isMailboxPath(item->path)
            ? LVLocalizedString("Permanently delete mailbox %@?", "A question")
            : LVLocalizedString("Permanently delete folder %@ and all of the mailboxes in it?", "A question");
    if (userAgentOrAbsent().queryUserForYesNoWithMessage(formatText(text, abbreviateWithTilde(item->path)),
                                                         deleteTitle(), LVLocalizedString("Delete", "A button"),
                                                         LVLocalizedString("Cancel", "A button")))
        _recursivelyRemovePath(item->path);
    return true;
}

bool LocalAccount::_recursivelyRemovePath(const std::string& path) {
    const auto attributes = FileSystem::current().linkAttributes(path);
    bool removed = true;
    // What stands behind a link is not in this folder.
    if (!isMailboxPath(path) && attributes && !attributes->isLink) {
        const auto self = std::make_shared<const AccountItem>(AccountItem{weak_from_this(), path});
        for (const auto& child : mailboxesForItem(self))
            removed = _recursivelyRemovePath(child->path) && removed;
        // With a mailbox left in it that could not be removed, and was told of, the folder stays.
        if (!removed) return false;
    }
    if (isMailboxPath(path)) {
        if (const auto store = MessageStore::currentlyOpenStoreForPath(path)) {
            userAgentOrAbsent().closeStore(store);
            store->close();
        }
    }
    if (!removeMailboxFiles(path)) {
        userAgentOrAbsent().alertUserWithMessage(
            formatText(LVLocalizedString("Unable to delete %@", "A failure"), path), deleteTitle());
        return false;
    }
    forgetPath(path);
    return true;
}

/// Takes a path out of the tree as it was read.
void LocalAccount::forgetPath(const std::string& path) {
    forgetListing(path);
    const MutexLock lock(_listingMutex);
    const auto parent = _mailboxes.find(stringByDeletingLastPathComponent(path));
    if (parent == _mailboxes.end()) return;
    AccountItems::Items others;
    std::ranges::copy_if(parent->second, std::back_inserter(others),
                         [&](const auto& item) { return item->path != path; });
    parent->second = AccountItems(std::move(others));
}

bool LocalAccount::transferMessages(const MessageList& messages, const AccountItemShare& toMailbox) {
    if (!toMailbox) return false;
    const auto store = MessageStore::storeForPath(toMailbox->path);
    return store && store->syncAppendMessages(messages, /*setUnread=*/false);
}

}  // namespace lorvale
