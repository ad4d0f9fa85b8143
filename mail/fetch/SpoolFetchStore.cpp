#include "lorvale/fetch/spool_fetch_store.h"

#include <utility>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/defaults.h"
#include "lorvale/message.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/notification.h"
#include "lorvale/platform/paths.h"
#include "lorvale/platform/user_interface.h"
#include "lorvale/store/berkeley_mbox.h"
#include "lorvale/values/range.h"

namespace lorvale {

SpoolFetchStore::SpoolFetchStore() = default;

SpoolFetchStore::~SpoolFetchStore() {
    SpoolFetchStore::close();
}

namespace {

std::string globalSpool() {
    const auto& defaults = Defaults::sharedInstance();
    std::string path = defaults.stringForKey("DebugFetchSource");
    if (!path.empty()) {
        debugLog("Fetching from %@.", path);
    } else if (defaults.boolForKey("DebugFetch")) {
        path = homeDirectory() + "/tmp/test.spool";
        debugLog("DebugFetch enabled.  Fetching from %@.", path);
    } else if (const auto folder = defaults.spoolDirectory()) {
        path = *folder + '/' + loginName();
    }
    return path;
}

}  // namespace

std::shared_ptr<SpoolFetchStore> SpoolFetchStore::globalFetcher() {
    static Mutex mutex;
    static auto& shared = *new std::shared_ptr<SpoolFetchStore>;  // guarded by mutex; never destroyed
    const MutexLock lock(mutex);
    if (shared == nullptr || shared->isClosed())
        if (const auto path = globalSpool(); !path.empty()) shared = initWithPath(path, /*readOnly=*/false);
    return shared;
}

float SpoolFetchStore::willingnessToOpen(std::string_view path) {
    return FileSystem::current().exists(standardizePath(path)) ? 0.333F : 0;
}

std::shared_ptr<SpoolFetchStore> SpoolFetchStore::initWithPath(std::string_view path, bool create,
                                                               bool readOnly,
                                                               const std::shared_ptr<MailAccount>& account) {
    return openStore<SpoolFetchStore>(path, create, readOnly, account);
}

std::shared_ptr<SpoolFetchStore> SpoolFetchStore::initWithPath(std::string_view path, bool readOnly) {
    return initWithPath(path, false, readOnly);
}

bool SpoolFetchStore::openAtPath(std::string_view path, bool create, bool readOnly,
                                 const std::shared_ptr<MailAccount>& account) {
    if (path.empty()) return failOpening(OpeningFailure::Reason::emptyPath, "An empty path names no spool");
    if (_spoolPath.empty()) setSpoolPath(path);
    return MessageStore::openAtPath(path, create, readOnly, account);
}

void SpoolFetchStore::setSpoolPath(std::string_view path) {
    _spoolPath = standardizePath(path);
}

void SpoolFetchStore::close() {
    if (isClosed()) return;
    FetchStore::close();
    setMbox(nullptr);
}

std::string SpoolFetchStore::className() const {
    return "SpoolFetchStore";
}

std::shared_ptr<BerkeleyMbox> SpoolFetchStore::mbox() const {
    const MutexLock lock(_mboxMutex);
    return _mbox;
}

void SpoolFetchStore::setMbox(std::shared_ptr<BerkeleyMbox> mbox) {
    {
        const MutexLock lock(_mboxMutex);
        _mbox.swap(mbox);
    }
    // Its lock must go now, whoever still looks at its messages.
    if (mbox != nullptr) mbox->close();
}

bool SpoolFetchStore::performFetch() {
    return doFetch();
}

bool SpoolFetchStore::doFetch() {
    if (_busy || isClosed() || isReadOnly()) return false;
    forgetLastRouting();
    if (FileSystem::current().openForReading(_spoolPath) == nullptr) return false;
    if (mbox() != nullptr) throw InternalInconsistencyException("_mbox being leaked");
    if (!openSpool()) return false;
    if (Defaults::sharedInstance().boolForKey("SaveFetchedMail")) saveCopy();
    _postNewMail = _busy = totalCount() > 0;
    routeMessages();
    return true;
}

bool SpoolFetchStore::openSpool() {
    auto opened = BerkeleyMbox::initWithPath(_spoolPath, /*readOnly=*/false);
    if (opened == nullptr) return false;
    // Without windows a locked mailbox opens for reading; what cannot be taken out must not be taken in.
    if (!opened->haveLock() || opened->isReadOnly()) {
        log("The spool %@ is locked by another program", _spoolPath);
        return false;
    }
    setMbox(std::move(opened));
    return true;
}

/// A failure stands in nobody's way.
void SpoolFetchStore::saveCopy() const {
    const auto folder = homeDirectory() + "/tmp/fetch_backup";
    const auto path = uniquePath(
        folder + (Defaults::sharedInstance().boolForKey("DebugFetch") ? "/debug_backup" : "/backup"));
    debugLog("saving a copy of fetched mail to %@", path);
    auto status = makeDirectories(folder, 0700);
    if (status) status = copyFile(_spoolPath, path, 0600);
    if (!status) log("%@", status.text());
}

void SpoolFetchStore::routeMessages() {
    _countBeforeRouting = totalCount();
    FetchStore::routeMessages();
}

void SpoolFetchStore::routeMessagesSynchronously() {
    _countBeforeRouting = totalCount();
    FetchStore::routeMessagesSynchronously();
}

void SpoolFetchStore::routingFinished() {
    const auto left = totalCount();
    if (left > 0 && left == _countBeforeRouting) {
        debugLog("Unable to route any messages (%d)", left);
        FetchStore::routingFinished();
        _busy = false;
    } else {
        if (left == 0) {
            debugLog("spool routing finished");
        } else {
            debugLog("spool routing finished with %d msgs remaining", left);
        }
        doCompact();
        FetchStore::routingFinished();
        _busy = false;
        if (std::exchange(_postNewMail, false))
            NotificationCenter::defaultCenter().postNotification(MessageStoreNewMail, weak_from_this().lock());
    }
    setMbox(nullptr);
}

void SpoolFetchStore::doCompact() {
    const auto held = mbox();
    if (held == nullptr) return;
    held->doCompact();
    if (held->totalCount() > 0) return;
    // What stands there and is no mail stays, like mail that has come this moment.
    const auto file = FileSystem::current().attributes(held->storePath());
    if (file && file->size == 0)
        if (const auto removed = FileSystem::current().remove(held->storePath()); !removed)
            log("%@", removed.text());
    setMbox(nullptr);
}

CountAndSize SpoolFetchStore::totalCountAndSize() const {
    const auto held = mbox();
    return held != nullptr ? held->totalCountAndSize() : CountAndSize();
}

CountAndSize SpoolFetchStore::deletedCountAndSize() const {
    const auto held = mbox();
    return held != nullptr ? held->deletedCountAndSize() : CountAndSize();
}

CountAndSize SpoolFetchStore::unreadCountAndSize() const {
    const auto held = mbox();
    return held != nullptr ? held->unreadCountAndSize() : CountAndSize();
}

std::size_t SpoolFetchStore::totalCount() const {
    // A message that was deleted stays in the list of the mailbox until it is compacted; here it has gone on.
    const auto held = mbox();
    return held != nullptr ? held->count() : 0;
}

std::size_t SpoolFetchStore::indexOfMessage(const Message& message) const {
    const auto held = mbox();
    return held != nullptr ? held->indexOfMessage(message) : kNotFound;
}

MessageList SpoolFetchStore::allMessages() const {
    const auto held = mbox();
    return held != nullptr ? held->allMessages() : MessageList();
}

bool SpoolFetchStore::includeDeleted() const {
    const auto held = mbox();
    return held != nullptr && held->includeDeleted();
}

void SpoolFetchStore::setIncludeDeleted(bool include) {
    if (const auto held = mbox()) held->setIncludeDeleted(include);
}

std::string SpoolFetchStore::sortOrder() const {
    const auto held = mbox();
    return held != nullptr ? held->sortOrder() : std::string();
}

void SpoolFetchStore::setSortOrder(std::string_view order) {
    if (const auto held = mbox()) held->setSortOrder(order);
}

std::shared_ptr<MessageFlags> SpoolFetchStore::flagsForMessage(Message& message) {
    const auto held = mbox();
    return held != nullptr ? held->flagsForMessage(message) : std::make_shared<MessageFlags>();
}

void SpoolFetchStore::setFlags(const MessageFlags& flags, std::span<const std::string_view> havingKeys,
                               const MessageList& forMessages) {
    if (const auto held = mbox()) held->setFlags(flags, havingKeys, forMessages);
}

void SpoolFetchStore::deleteMessages(MessageList messages) {
    if (const auto held = mbox()) held->deleteMessages(std::move(messages));
}

void SpoolFetchStore::undeleteMessages(MessageList messages) {
    if (const auto held = mbox()) held->undeleteMessages(std::move(messages));
}

std::optional<MessageList> SpoolFetchStore::undeleteLastDeletedMessages() {
    const auto held = mbox();
    return held != nullptr ? held->undeleteLastDeletedMessages() : std::nullopt;
}

CachedHeaders SpoolFetchStore::cachedHeadersForMessage(Message& message) {
    const auto held = mbox();
    return held != nullptr ? held->cachedHeadersForMessage(message) : CachedHeaders();
}

std::optional<Data> SpoolFetchStore::allHeadersForMessage(Message& message) {
    const auto held = mbox();
    return held != nullptr ? held->allHeadersForMessage(message) : std::nullopt;
}

std::optional<Data> SpoolFetchStore::bodyForMessage(Message& message) {
    const auto held = mbox();
    return held != nullptr ? held->bodyForMessage(message) : std::nullopt;
}

bool SpoolFetchStore::canCompact() const {
    const auto held = mbox();
    return held != nullptr && held->canCompact();
}

}  // namespace lorvale
