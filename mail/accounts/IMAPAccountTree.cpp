/// The tree of mailboxes on an IMAP server, and their directories here.
#include <algorithm>
#include <utility>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "base/files/PropertyListFile.h"
#include "lorvale/account/imap_account.h"
#include "lorvale/imap/words.h"
#include "lorvale/platform/log.h"
#include "mail/accounts/AccountKeys.h"
#include "mail/accounts/OneAtATime.h"
#include "mail/imap/ServerLock.h"
#include "mail/imap/StoreNames.h"
#include "mail/search/MboxIndexFile.h"

namespace lorvale {

namespace {

constexpr unsigned kFolderMode = 0700;
constexpr std::string_view kCountsAsked[] = {IMAPResponseMessages, IMAPResponseUnseen};

OneAtATime::Place listing;

std::vector<std::string> componentsOf(std::string_view name, std::string_view separator) {
    std::vector<std::string> components;
    while (true) {
        const auto end = separator.empty() ? std::string_view::npos : name.find(separator);
        components.emplace_back(name.substr(0, end));
        if (end == std::string_view::npos) return components;
        name.remove_prefix(end + separator.size());
    }
}

std::vector<std::string> textsOf(const PropertyList& list) {
    std::vector<std::string> texts;
    for (const auto& text : list.array()) texts.push_back(text.string());
    return texts;
}

bool has(const std::vector<std::string>& attributes, std::string_view word) {
    return std::ranges::find(attributes, word) != attributes.end();
}

bool isMailbox(const std::string& directory) {
    return pathExists(stringByAppendingPathComponent(directory, MessageStoreUserInfo));
}

std::vector<std::string> foldersIn(const std::string& directory) {
    auto names = FileSystem::current().namesInFolder(directory).value_or(std::vector<std::string>());
    std::erase_if(names, [&](const auto& name) {
        return !FileSystem::current().isDirectory(stringByAppendingPathComponent(directory, name));
    });
    return names;
}

/// Whether a mailbox lies here or below: a mailbox has folders of its own, which are none.
bool holdsMailbox(const std::string& directory, int depth = 0) {
    constexpr int kMostLevels = 100;
    if (isMailbox(directory)) return true;
    return depth < kMostLevels && std::ranges::any_of(foldersIn(directory), [&](const auto& name) {
               return holdsMailbox(stringByAppendingPathComponent(directory, name), depth + 1);
           });
}

std::string nameOf(const AccountItemShare& item) {
    return item ? item->path : std::string();
}

}  // namespace

std::string IMAPAccount::separator() const {
    const MutexLock lock(_stateMutex);
    // As long as no server was asked the directories tell the names.
    return _separatorChar.empty() ? "/" : _separatorChar;
}

std::string IMAPAccount::displayNameForItem(const AccountItemShare& item) const {
    return item ? componentsOf(item->path, separator()).back() : displayName();
}

std::string IMAPAccount::_parentPathForItemPath(std::string_view name) const {
    const auto end = name.rfind(separator());
    return std::string(name.substr(0, end == std::string_view::npos ? 0 : end));
}

std::string IMAPAccount::childName(const AccountItemShare& parent, std::string_view name) const {
    return parent ? parent->path + separator() + std::string(name) : std::string(name);
}

AccountItemShare IMAPAccount::itemNamed(std::string name) const {
    auto self = std::const_pointer_cast<MailAccount>(shared_from_this());
    return std::make_shared<const AccountItem>(AccountItem{self, std::move(name)});
}

std::optional<std::string> IMAPAccount::_storePathForName(std::string_view name) const {
    // The server chooses the names; none of them leads out of the account, or into what is not a mailbox.
    const auto isBad = [](const std::string& component) {
        return component == "." || component == ".." || component.find('\0') != std::string::npos ||
               component == kMirrorName || component == kArchiveName || component == kQueueName ||
               component == kSendingName || component.starts_with(kIndexName) ||
               component == MessageStoreUserInfo;
    };
    if (!name.empty() && std::ranges::none_of(componentsOf(name, "/"), isBad))
        return path() + '/' + std::string(name);
    log("A mailbox called %@ has no place on this machine", name);
    return std::nullopt;
}

/// Of this account's, one that can be asked; null without a server.
std::shared_ptr<IMAPConnection> IMAPAccount::usableConnection() {
    auto found = connection();
    return found && found->connectionState() >= IMAPConnection::loggedIn ? found : nullptr;
}

/// What stands below a mailbox, each name with what the server tells of it; nullopt without a server.
std::optional<PropertyList> IMAPAccount::listingForMailbox(const std::string& name) {
    const auto connection = usableConnection();
    if (!connection) return std::nullopt;
    {
        auto learnt = connection->separatorChar();
        const MutexLock lock(_stateMutex);
        _separatorChar = std::move(learnt);
    }
    const auto pattern = name.empty() ? "%" : '"' + name + separator() + "%\"";
    auto tree = connection->list("\"\"", pattern);
    if (connection->connectionState() < IMAPConnection::loggedIn) return std::nullopt;
    PropertyList below = tree.value_or(PropertyList(PropertyList::Dictionary()));
    if (name.empty()) return below;
    for (const auto& component : componentsOf(name, separator())) below = below[component][IMAPMailboxChildren];
    return below;
}

std::optional<IMAPAccount::Listing> IMAPAccount::listingFromServer(const AccountItemShare& item) {
    const auto below = listingForMailbox(nameOf(item));
    if (!below) return std::nullopt;
    Listing made;
    AccountItems::Items items;
    for (const auto& [name, mailbox] : below->dictionary()) {  // sorted
        auto attributes = textsOf(mailbox[IMAPMailboxAttributes]);
        items.push_back(itemNamed(childName(item, name)));
        const auto connection = usableConnection();
        const bool isFolder = has(attributes, IMAPMailboxAttributeNoSelect) || has(attributes, "\\nonexistent");
        made.attributes.push_back(std::move(attributes));
        if (!connection || (isFolder && connection->dialect() == MailDialect::standard)) continue;
        if (auto status = connection->status(items.back()->path, kCountsAsked))
            _status.insert_or_assign(items.back()->path, *std::move(status));
    }
    made.items = AccountItems(std::move(items));
    return made;
}

IMAPAccount::Listing IMAPAccount::listingFromDirectory(const AccountItemShare& item) const {
    const auto directory = item ? _storePathForName(item->path).value_or("") : path();
    Listing made;
    AccountItems::Items items;
    for (const auto& name : foldersIn(directory)) {
        // The classic dialect takes every directory for a mailbox, that of the mirrored texts included.
        if (mailDialect() == MailDialect::standard &&
            !holdsMailbox(stringByAppendingPathComponent(directory, name)))
            continue;
        items.push_back(itemNamed(childName(item, name)));
    }
    made.attributes.resize(items.size());
    made.items = AccountItems(std::move(items));
    return made;
}

AccountItems IMAPAccount::mailboxesForItem(const AccountItemShare& item) {
    return mailboxesForItem(item, nullptr);
}

AccountItems IMAPAccount::mailboxesForItem(const AccountItemShare& item, Attributes* attributes) {
    const OneAtATime attempt(listing);
    if (!attempt) return {};
    const ServerTurn turn(*_lock);
    auto found = _mailboxes.find(nameOf(item));
    if (found == _mailboxes.end()) {
        auto fromServer = listingFromServer(item);
        // What the directories tell is told again from the server as soon as it can be asked.
        const bool isLasting = fromServer.has_value() || mailDialect() == MailDialect::classic;
        auto made = fromServer ? *std::move(fromServer) : listingFromDirectory(item);
        if (!isLasting) {
            if (attributes != nullptr) *attributes = std::move(made.attributes);
            return made.items;
        }
        found = _mailboxes.insert_or_assign(nameOf(item), std::move(made)).first;
    }
    if (attributes != nullptr) *attributes = found->second.attributes;
    return found->second.items;
}

/// As its parent's listing has them.
std::vector<std::string> IMAPAccount::attributesOf(const AccountItemShare& item) {
    const auto above = _parentPathForItemPath(item->path);
    Attributes attributes;
    const auto siblings = mailboxesForItem(above.empty() ? nullptr : itemNamed(above), &attributes);
    for (std::size_t i = 0; i < siblings.size() && i < attributes.size(); ++i)
        if (siblings[i]->path == item->path) return attributes[i];
    return {};
}

bool IMAPAccount::isItemExpandable(const AccountItemShare& item) {
    if (!item) return true;
    const auto connection = usableConnection();
    if (!connection) {
        const auto directory = _storePathForName(item->path).value_or("");
        const bool isStandard = mailDialect() == MailDialect::standard;
        return std::ranges::any_of(foldersIn(directory), [&](const auto& name) {
            const auto child = stringByAppendingPathComponent(directory, name);
            // The classic dialect looks for folders that are no mailboxes.
            return isStandard ? holdsMailbox(child) : !isMailbox(child);
        });
    }
    const auto attributes = attributesOf(item);
    if (connection->dialect() == MailDialect::standard) {
        if (const auto known = knownBelow(item->path); known.isKnown()) return !known.empty();
        if (has(attributes, "\\hasnochildren") || has(attributes, IMAPMailboxAttributeNoInferiors))
            return false;
        return has(attributes, "\\haschildren") || !mailboxesForItem(item).empty();
    }
    // Those that can have none count as well in the classic dialect: hosts show them as folders.
    return !mailboxesForItem(item).empty() || has(attributes, IMAPMailboxAttributeNoInferiors);
}

AccountItems IMAPAccount::knownBelow(std::string_view name) const {
    const ServerTurn turn(*_lock);
    const auto found = _mailboxes.find(name);
    return found == _mailboxes.end() ? AccountItems() : found->second.items;
}

std::optional<PropertyList> IMAPAccount::takeStatus(const std::string& name) {
    const ServerTurn turn(*_lock);
    if (auto kept = _status.extract(name)) return std::move(kept.mapped());
    const auto connection = usableConnection();
    return connection ? connection->status(name, kCountsAsked) : std::nullopt;
}

std::optional<PropertyList> IMAPAccount::userInfoForItem(const AccountItemShare& item) {
    if (!item) return std::nullopt;
    const auto place = _storePathForName(item->path);
    if (!place) return std::nullopt;
    auto info = userInfoForItemPath(*place);
    if (MessageStore::currentlyOpenStoreForPath(*place)) return info;
    if (const auto status = takeStatus(item->path)) {
        if (!info) info = PropertyList::Dictionary();
        info->set(MessageStoreTotalCount, (*status)[IMAPResponseMessages]);
        info->set(MessageStoreUnreadCount, (*status)[IMAPResponseUnseen]);
    }
    return info;
}

AccountItemShare IMAPAccount::itemForStorePath(std::string_view path) {
    const auto items = knownBelow(_parentPathForItemPath(path));
    const auto item = std::ranges::find_if(items, [&](const auto& each) { return each->path == path; });
    return item == items.end() ? nullptr : *item;
}

AccountItemShare IMAPAccount::itemForStore(const MessageStore& store) {
    const auto* const mailbox = dynamic_cast<const IMAPStore*>(&store);
    return mailbox != nullptr ? itemForStorePath(mailbox->mailboxName()) : nullptr;
}

std::shared_ptr<MessageStore> IMAPAccount::primaryMessageStore() {
    return storeForItemPath(kInboxName);
}

std::shared_ptr<MessageStore> IMAPAccount::storeForItemPath(std::string_view path) {
    return storeForItemPath(path, /*readOnly=*/false);
}

std::shared_ptr<IMAPStore> IMAPAccount::storeForItemPath(std::string_view path, bool readOnly) {
    const auto place = _storePathForName(path);
    if (!place) return nullptr;
    if (const auto open = MessageStore::currentlyOpenStoreForPath(*place))
        return std::dynamic_pointer_cast<IMAPStore>(open);
    if (!isMailbox(*place)) {
        PropertyList info = PropertyList::Dictionary();
        info.set(IMAPMailboxPath, path);
        auto status = makeDirectories(*place, kFolderMode);
        if (status)
            status = writePropertyListFile(stringByAppendingPathComponent(*place, MessageStoreUserInfo), info);
        if (!status) {
            log("%@", status.text());
            return nullptr;
        }
    }
    auto store = IMAPStore::initWithPath(*place, /*create=*/true, readOnly, shared_from_this());
    MessageStore::registerOpenStore(store);
    return store;
}

std::shared_ptr<MessageStore> IMAPAccount::storeForItem(const AccountItemShare& item) {
    return item ? storeForItemPath(item->path) : nullptr;
}

}  // namespace lorvale
