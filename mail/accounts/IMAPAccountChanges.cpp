/// Making and removing mailboxes on an IMAP server, and moving mail into them.
#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

#include "base/files/PathUtils.h"
#include "lorvale/account/imap_account.h"
#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/format.h"
#include "mail/imap/ServerLock.h"

namespace lorvale {

namespace {

/// As the end of a sentence for people.
std::string refusalOf(const IMAPConnection& connection) {
    const auto told = connection.refusal();
    return told.empty() ? "" : " (" + told + ")";
}

}  // namespace

AccountItemShare IMAPAccount::createMailboxNamed(std::string_view name, const AccountItemShare& asChildOfItem) {
    bool made = false;
    std::string whole, reason;
    {
        const ServerTurn turn(*_lock);
        const auto connection = usableConnection();
        whole = childName(asChildOfItem, name);
        made = connection && !name.empty() && connection->createMailbox(whole);
        if (made) _mailboxes.erase(asChildOfItem ? asChildOfItem->path : "");
        if (connection) reason = refusalOf(*connection);
    }
    if (!made) {
        userAgentOrAbsent().alertUserWithMessage(
            formatText(LVLocalizedString("Could not create mailbox named %@.", "A failure"), name) + reason,
            LVLocalizedString("Mailbox creation failed", "A title"));
        return nullptr;
    }
    for (const auto& item : mailboxesForItem(asChildOfItem))
        if (item->path == whole) return item;
    // One that lies deeper stands in no listing that was read.
    return mailDialect() == MailDialect::standard ? itemNamed(whole) : nullptr;
}

bool IMAPAccount::removeMailbox(const AccountItemShare& item) {
    if (!item) return true;
    const auto text =
        mailboxesForItem(item).empty()
            ? LVLocalizedString("Permanently delete mailbox %@?", "A question")
            : LVLocalizedString("Permanently delete folder %@ and all of the mailboxes in it?", "A question");
    const bool agrees = userAgentOrAbsent().queryUserForYesNoWithMessage(
        formatText(text, item->path), LVLocalizedString("Delete Mailbox", "A title"),
        LVLocalizedString("Delete", "A button"), LVLocalizedString("Cancel", "A button"));
    std::string reason;
    if (agrees && !deleteOnServer(item, reason))
        userAgentOrAbsent().alertUserWithMessage(
            formatText(LVLocalizedString("Unable to delete %@", "A failure"), item->path) + reason,
            LVLocalizedString("Delete Mailbox", "A title"));
    return true;
}

/// In the classic dialect the one mailbox, whose directory goes whatever the server says; in the standard one
/// first those below it, and the directory only with the mailbox: messages may wait in it for the server.
bool IMAPAccount::deleteOnServer(const AccountItemShare& item, std::string& reason) {
    const bool isStandard = mailDialect() == MailDialect::standard;
    bool isGone = true;
    if (isStandard)
        for (const auto& child : mailboxesForItem(item)) isGone = deleteOnServer(child, reason) && isGone;
    if (!isGone) return false;
    const auto place = _storePathForName(item->path);
    if (const auto store = place ? MessageStore::currentlyOpenStoreForPath(*place) : nullptr) {
        userAgentOrAbsent().closeStore(store);
        store->close();
    }
    const ServerTurn turn(*_lock);
    const auto connection = usableConnection();
    if (!connection) return false;
    isGone = connection->deleteMailbox(item->path);
    if (!isGone) reason = refusalOf(*connection);
    if (isGone) forgetItem(item->path);
    if (place && (isGone || !isStandard)) (void)deletePath(*place);
    return isGone;
}

/// Takes a name out of the tree as it was read.
void IMAPAccount::forgetItem(const std::string& name) {
    _mailboxes.erase(name);
    const auto parent = _mailboxes.find(_parentPathForItemPath(name));
    if (parent == _mailboxes.end()) return;
    Listing others;
    AccountItems::Items items;
    for (std::size_t i = 0; i < parent->second.items.size(); ++i) {
        if (parent->second.items[i]->path == name) continue;
        items.push_back(parent->second.items[i]);
        others.attributes.push_back(parent->second.attributes[i]);
    }
    others.items = AccountItems(std::move(items));
    parent->second = std::move(others);
}

bool IMAPAccount::transferMessages(const MessageList& messages, const AccountItemShare& toMailbox) {
    if (!toMailbox || messages.empty()) return false;
    std::vector<std::shared_ptr<Message>> fromElsewhere;
    std::map<std::shared_ptr<IMAPStore>, std::vector<std::shared_ptr<Message>>> fromHere;
    for (const auto& message : messages) {
        auto source = std::dynamic_pointer_cast<IMAPStore>(message->messageStore());
        if (source && source->account().get() == this)
            fromHere[std::move(source)].push_back(message);
        else
            fromElsewhere.push_back(message);
    }
    bool done = true;
    for (const auto& [source, theirs] : fromHere)
        done = source->copyMessages(MessageList(theirs), toMailbox->path) && done;
    const auto target = std::dynamic_pointer_cast<IMAPStore>(storeForItem(toMailbox));
    if (!target) return false;
    if (!fromElsewhere.empty()) done = target->appendMessages(MessageList(fromElsewhere)) && done;
    if (!fromHere.empty()) target->doFetchNow(/*automatically=*/false);
    return done;
}

}  // namespace lorvale
