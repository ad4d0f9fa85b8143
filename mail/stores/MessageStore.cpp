/// The life of a store, its attributes, its notifications, and what every concrete store must supply.
#include "lorvale/store/message_store.h"

#include <exception>
#include <set>
#include <utility>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "base/files/PropertyListFile.h"
#include "lorvale/message.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/platform/notification.h"
#include "lorvale/platform/paths.h"
#include "lorvale/store/mail_account.h"
#include "lorvale/store/mailbox_index.h"
#include "lorvale/store/message_cache.h"
#include "lorvale/values/format.h"
#include "mail/stores/OpenStores.h"
#include "mail/stores/StoreLock.h"

namespace lorvale {

namespace {

std::string attributeFile(std::string_view storePath) {
    return stringByAppendingPathComponent(standardizePath(storePath), MessageStoreUserInfo);
}

}  // namespace

MessageStore::MessageStore() = default;

MessageStore::~MessageStore() {
    MessageStore::close();
}

std::shared_ptr<MessageStore> MessageStore::messageStore() {
    return weak_from_this().lock();
}

namespace {

OpeningFailure& lastFailure() {
    thread_local OpeningFailure failure;
    return failure;
}

}  // namespace

const OpeningFailure& MessageStore::openingFailure() {
    return lastFailure();
}

void MessageStore::noteOpening(OpeningFailure failure) {
    lastFailure() = std::move(failure);
}

bool MessageStore::openOrClose(MessageStore& store, std::string_view path, bool create, bool readOnly,
                               const std::shared_ptr<MailAccount>& account) {
    struct Abandonment {
        ~Abandonment() {
            if (store != nullptr) store->close();
        }
        MessageStore* store;
    } abandonment{&store};
    bool opened = false;
    if (path.empty()) {
        store.failOpening(OpeningFailure::Reason::emptyPath, "A mailbox without a path cannot be opened");
    } else {
        opened = store.openAtPath(path, create, readOnly, account);
    }
    if (opened) {
        abandonment.store = nullptr;
        store._openingFailure = {};
    } else if (!store._openingFailure) {
        store._openingFailure = {OpeningFailure::Reason::other,
                                 formatText("The mailbox %@ could not be opened", path)};
    }
    // Last, since a store may well open others on its way.
    noteOpening(store._openingFailure);
    return opened;
}

bool MessageStore::openAtPath(std::string_view path, bool, bool, const std::shared_ptr<MailAccount>& account) {
    _path = path;
    _standardPath = _standarizedStorePath(path);
    _userInfo = userInfoForPath(path);
    setAccount(account ? account : MailAccount::defaultAccount());
    if (canBeIndexed()) _index = MailboxIndex::indexForStore(shared_from_this());
    didOpen();
    return true;
}

bool MessageStore::failOpening(OpeningFailure::Reason reason, std::string_view text) {
    _openingFailure = {reason, std::string(text)};
    log("%@", text);
    return false;
}

void MessageStore::didOpen() {
    if (_index) _index->storeDidOpen();
}

void MessageStore::willClose() {
    saveUserInfo();
    stopBackgroundActivity();
}

void MessageStore::close() {
    if (_isClosed.exchange(true)) return;
    if (_standardPath.empty()) return;  // never opened: nothing to save, and in no table
    willClose();
    invalidateDeleteStack();
    if (_index) _index->storeDidClose();
    MessageCacheManager::manager().removeObjectsFromCacheForStore(*this);
    OpenStores::table().remove(_standardPath, *this);
}

std::string MessageStore::_standarizedStorePath(std::string_view path) {
    return standardStorePath(path);
}

std::optional<PropertyList> MessageStore::userInfoForPath(std::string_view path) {
    return readPropertyListFile(attributeFile(path));
}

PropertyList& MessageStore::userInfo() {
    if (!_userInfo) _userInfo = PropertyList::Dictionary();
    return *_userInfo;
}

void MessageStore::setUserInfo(PropertyList userInfo) {
    _userInfo = std::move(userInfo);
}

void MessageStore::saveUserInfo() {
    if (!_userInfo) return;
    if (!FileSystem::current().isDirectory(_standardPath)) {
        // A mailbox that is one file has no place for attributes: they last as long as the store.
        debugLog("%@ is no directory, so its attributes are not saved", _path);
        return;
    }
    if (const auto saved = writePropertyListFile(attributeFile(_standardPath), *_userInfo); !saved)
        log("%@", saved.text());
}

std::string MessageStore::sortOrder() const {
    if (!_userInfo) return std::string(MessageStoreSortByNumber);
    return (*_userInfo)[MessageStoreSortOrder].string(MessageStoreSortByNumber);
}

void MessageStore::setSortOrder(std::string_view order) {
    try {
        if (order == sortOrder()) return;
        userInfo().set(MessageStoreSortOrder, std::string(order));
        userInfo().set(MessageStoreIsDirty, "Yes");
        rebuildFilteredMessageList();
        structureDidChange();
    } catch (const std::exception& exception) {
        debugLog("MB error: setSortOrder failed");
        debugLog("%@", exception.what());
    }
}

std::string MessageStore::storePath() const {
    return _path;
}

std::string MessageStore::displayName() const {
    return storePath();
}

std::string MessageStore::description() const {
    return _path;
}

std::string MessageStore::className() const {
    return "MessageStore";
}

std::shared_ptr<MailAccount> MessageStore::account() const {
    const MutexLock lock(_mutex);
    return _account;
}

void MessageStore::setAccount(std::shared_ptr<MailAccount> account) {
    const MutexLock lock(_mutex);
    _account.swap(account);  // the old one goes without the lock
}

std::string MessageStore::storePathRelativeToAccount() const {
    const auto owner = account();
    return owner ? owner->relativePathForStore(*this) : storePath();
}

bool MessageStore::syncAppendMessages(const MessageList&, bool) {
    log("%@ takes no messages", description());
    return false;
}

bool MessageStore::safeAppendMessages(const MessageList&) {
    log("%@ takes no messages", description());
    return false;
}

void MessageStore::rebuildTableOfContents() {
    rebuildMessageLists();
    structureDidChange();
}

bool MessageStore::canCompact() const {
    return false;
}

void MessageStore::doCompact() {
    invalidateDeleteStack();
}

void MessageStore::messagesWillBeCompacted(const MessageList& messages) {
    // In its destructor a store has no share left to give, and nobody to tell.
    const auto self = weak_from_this().lock();
    if (!self) return;
    NotificationCenter::defaultCenter().postNotification(MessageStoreMessagesWillBeCompacted, self,
                                                         {{std::string(kMessagesKey), messages}});
}

void MessageStore::structureDidChange() {
    const auto self = weak_from_this().lock();
    if (!self) return;
    NotificationQueue::defaultQueue().enqueueNotification({std::string(MessageStoreStructureChanged), self, {}},
                                                          PostingStyle::now);
}

void MessageStore::queueStructureDidChange() {
    const auto self = weak_from_this().lock();
    if (!self) return;
    NotificationQueue::defaultQueue().enqueueNotification({std::string(MessageStoreStructureChanged), self, {}},
                                                          PostingStyle::whenIdle);
}

void MessageStore::messageFlagsDidChange(const MessageList& messages) {
    NotificationQueue::defaultQueue().enqueueNotification(
        {std::string(MessageStoreMessageFlagsChanged), std::make_shared<const MessageList>(messages), {}},
        PostingStyle::now);
}

bool MessageStore::shouldOpenDespiteLock(const std::string& lockPath) {
    return shouldOpenDespiteLockFile(lockPath);
}

bool MessageStore::createLock(const std::string& lockPath) {
    return createLockFile(lockPath);
}

void MessageStore::abstractOperation(std::string_view operation, std::string_view className) {
    static Mutex mutex;
    static auto& told = *new std::set<std::string, std::less<>>;  // guarded by mutex
    {
        const MutexLock lock(mutex);
        if (!told.emplace(operation).second) return;
    }
    log("****** ALERT: %@ Must be implemented by the subclass %@.", operation, className);
    throw InternalInconsistencyException("method must be implemented in subclass");
}

std::optional<std::string> MessageStore::storeFileExtension() {
    abstractOperation("MessageStore::storeFileExtension", "MessageStore");
    return std::nullopt;
}

void MessageStore::_resetAllMessages() {
    abstractOperation("MessageStore::_resetAllMessages", className());
}

std::shared_ptr<MessageFlags> MessageStore::flagsForMessage(Message&) {
    abstractOperation("MessageStore::flagsForMessage", className());
    return nullptr;
}

void MessageStore::setFlags(const MessageFlags&, std::span<const std::string_view>, const MessageList&) {
    abstractOperation("MessageStore::setFlags:havingKeys:forMessages", className());
}

CachedHeaders MessageStore::cachedHeadersForMessage(Message&) {
    abstractOperation("MessageStore::cachedHeadersForMessage", className());
    return {};
}

std::optional<Data> MessageStore::allHeadersForMessage(Message&) {
    abstractOperation("MessageStore::allHeadersForMessage", className());
    return std::nullopt;
}

std::optional<Data> MessageStore::bodyForMessage(Message&) {
    abstractOperation("MessageStore::bodyForMessage", className());
    return std::nullopt;
}

}  // namespace lorvale
