/// The life of a store, its attributes, its notifications, and what every concrete store must supply.
#include "lorvale/store/message_store.h"

#include <exception>
#include <filesystem>
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
    // A store that never opened has no path and nothing to close.
    if (!_path.empty()) MessageStore::close();
}

std::shared_ptr<MessageStore> MessageStore::messageStore() {
    return weak_from_this().lock();
}

bool MessageStore::openAtPath(std::string_view path, bool, bool, const std::shared_ptr<MailAccount>& account) {
    _path = path;
    _userInfo = userInfoForPath(path);
    _account = account;
    didOpen();
    return true;
}

void MessageStore::didOpen() {
    _setupIndexAfterOpening();
}

void MessageStore::willClose() {
    saveUserInfo();
    stopBackgroundActivity();
}

void MessageStore::close() {
    if (_flags.isClosed) return;
    const auto path = _standarizedStorePath(_path);
    _flags.isClosed = true;
    willClose();
    invalidateDeleteStack();
    OpenStores::table().remove(path, *this);
}

std::string MessageStore::_standarizedStorePath(std::string_view path) {
    const auto standard = standardizePath(path);
    std::error_code error;
    const auto resolved = std::filesystem::weakly_canonical(std::filesystem::absolute(standard, error), error);
    return error ? standard : resolved.string();
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
    if (!FileSystem::current().isDirectory(standardizePath(_path))) {
        // A mailbox that is one file has no place for attributes: they last as long as the store.
        debugLog("%@ is no directory, so its attributes are not saved", _path);
        return;
    }
    if (const auto saved = writePropertyListFile(attributeFile(_path), *_userInfo); !saved)
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

std::string MessageStore::storePathRelativeToAccount() const {
    return storePath();
}

bool MessageStore::canCompact() const {
    return false;
}

void MessageStore::doCompact() {
    invalidateDeleteStack();
}

void MessageStore::messagesWillBeCompacted(const MessageList& messages) {
    NotificationCenter::defaultCenter().postNotification(
        MessageStoreMessagesWillBeCompacted, shared_from_this(), {{std::string(kMessagesKey), messages}});
}

void MessageStore::structureDidChange() {
    // In its destructor a store has no share left to give, and nobody to tell.
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

// What a store answers about its index as long as there is no search.

bool MessageStore::canBeIndexed() const {
    return true;
}
bool MessageStore::isIndexed() const {
    return false;
}
void MessageStore::setIsIndexed(bool) {}
void MessageStore::updateIndex() {}
void MessageStore::updateIndexInBackground() {}
void MessageStore::stopUpdatingIndex() {}
bool MessageStore::isUpdatingIndex() const {
    return false;
}
void MessageStore::stopBackgroundActivity() {}
void MessageStore::addMessagesToIndex(const MessageList&) {}
void MessageStore::removeMessagesFromIndex(const MessageList&) {}
std::shared_ptr<MboxIndex> MessageStore::_index() {
    return nullptr;
}
void MessageStore::_removeIndexFile() {}
void MessageStore::_setupIndexAfterOpening() {}
std::string MessageStore::_statusMessageForMessage(Message&, std::size_t, std::size_t) {
    return {};
}

}  // namespace lorvale
