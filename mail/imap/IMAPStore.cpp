/// A mailbox on a server: opening, connecting, closing.
#include "lorvale/imap/store.h"

#include <cerrno>
#include <cstdlib>
#include <thread>
#include <utility>

#include "base/files/FileLock.h"
#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/imap/words.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/store/mailbox_index.h"
#include "lorvale/values/format.h"
#include "lorvale/values/text.h"
#include "mail/imap/ServerLock.h"
#include "mail/imap/StoreArchive.h"
#include "mail/imap/StoreNames.h"
#include "mail/model/RegisteredClass.h"

namespace lorvale {

namespace {

const RegisteredClass kIMAPStore(ClassRank::remote,
                                 [] { MessageStore::registerStoreClass(IMAPStore::storeClass()); });

}  // namespace

IMAPStoreAccount::~IMAPStoreAccount() = default;

IMAPCachePolicy IMAPStoreAccount::cachePolicy() const {
    return IMAPCachePolicy::allMessages;
}

bool IMAPStoreAccount::compactWhenClosingMailboxes() const {
    return false;
}

bool IMAPStoreAccount::isOffline() const {
    return false;
}

void IMAPStoreAccount::prepareConnection(IMAPConnection&) const {}

IMAPStore::IMAPStore() : _lock(std::make_unique<ServerLock>()) {}

IMAPStore::~IMAPStore() {
    IMAPStore::close();
}

float IMAPStore::willingnessToOpen(std::string_view path) {
    return path.ends_with("imap") ? 1.1F : 0;
}

std::optional<std::string> IMAPStore::storeFileExtension() {
    return "imap";
}

StoreClass IMAPStore::storeClass() {
    return {
        "IMAPStore", [](const std::string& path) { return willingnessToOpen(path); },
        [](const std::string& path, bool create, bool readOnly, const std::shared_ptr<MailAccount>& account) {
            return initWithPath(path, create, readOnly, account);
        },
        [] { return storeFileExtension(); }};
}

std::shared_ptr<IMAPStore> IMAPStore::initWithPath(std::string_view path, bool create, bool readOnly,
                                                   const std::shared_ptr<MailAccount>& account) {
    return openStore<IMAPStore>(path, create, readOnly, account);
}

std::string IMAPStore::className() const {
    return "IMAPStore";
}

std::string IMAPStore::displayName() const {
    const auto owner = account();
    return formatText("%@ on %@%@", storePathRelativeToAccount(), owner ? owner->hostname().value_or("") : "",
                      "");
}

std::string IMAPStore::pathOf(std::string_view name) const {
    return stringByAppendingPathComponent(path(), name);
}

IMAPStoreAccount* IMAPStore::imapAccount() const {
    return dynamic_cast<IMAPStoreAccount*>(account().get());
}

bool IMAPStore::openAtPath(std::string_view path, bool create, bool readOnly,
                           const std::shared_ptr<MailAccount>& account) {
    using Reason = OpeningFailure::Reason;
    auto& files = FileSystem::current();
    const std::string place(path);
    if (!files.isDirectory(place)) {
        if (!create) return failOpening(Reason::missing, formatText("There is no mailbox %@", place));
        if (const auto made = makeDirectories(place, kMirrorFolderMode); !made)
            return failOpening(Reason::unreadable, made.text());
    }
    if (!MessageStore::openAtPath(path, create, readOnly, account)) return false;
    const auto& info = userInfo();
    _mailboxName = info[IMAPMailboxPath].string(lastPathComponent(place));
    _uidValidity = info[IMAPResponseUIDValidity].string();
    _opensReadOnly = readOnly || equalIgnoringAsciiCase(info["ReadOnly"].string(), "YES");
    readArchive();
    _connection = IMAPConnection::imapConnection();
    _connection->setDelegate(std::weak_ptr<IMAPConnectionDelegate>(
        std::dynamic_pointer_cast<IMAPConnectionDelegate>(shared_from_this())));
    _connection->setNumbersAreUIDs(true);
    _lock->setAsking([this] { askForConnection(); });
    if (const auto* const owner = imapAccount()) owner->prepareConnection(*_connection);
    checkConnectionToServer();
    userAgentOrAbsent().registerObjectForTimedFetch(*this);
    _isRegistered = true;
    setIncludeDeleted(false);
    return true;
}

/// What cannot be used is set aside, and the server is asked for everything again.
void IMAPStore::readArchive() {
    auto& files = FileSystem::current();
    const auto file = pathOf(kArchiveName);
    FileStatus status;
    const auto bytes = files.readFile(file, &status);
    if (status.code() == ENOENT || (bytes && bytes->empty())) return;
    std::string why = status.text();
    auto archive = bytes ? storeArchiveFromBytes(bytes->view(), &why) : std::nullopt;
    // The two files are written one after the other.
    if (archive && archive->uidValidity != _uidValidity) {
        why = formatText("it is of a mailbox %@ and not %@", archive->uidValidity, _uidValidity);
        archive.reset();
    }
    if (!archive) {
        const auto aside = uniquePath(file + ".damaged");
        log("The list of messages in %@ cannot be used and is made anew; it is kept as %@: %@", file, aside,
            why);
        if (const auto moved = files.rename(file, aside); !moved) log("%@", moved.text());
        return;
    }
    const auto self = shared_from_this();
    for (const auto& message : archive->all) message->setMessageStore(self);
    Lists next;
    next.all = std::move(archive->all);
    next.filtered = std::move(archive->filtered);
    next.deleted = std::move(archive->deleted);
    next.unread = std::move(archive->unread);
    next.allSize = archive->totalSize;
    next.deletedSize = archive->deletedSize;
    setLists(std::move(next));
    _buildUnreadList();
    _uidNext = std::move(archive->uidNext);
    _hasLists = true;
}

void IMAPStore::writeArchive() {
    if (!_hasLists) return;
    const auto now = lists();
    const StoreArchive archive{.uidValidity = _uidValidity,
                               .uidNext = _uidNext,
                               .all = now.all,
                               .deleted = now.deleted.value_or(MessageList()),
                               .filtered = now.filtered,
                               .unread = now.unread.value_or(MessageList()),
                               .totalSize = now.allSize,
                               .deletedSize = now.deletedSize};
    const auto file = pathOf(kArchiveName);
    const auto bytes = bytesOf(archive);
    // Where nothing has changed, the disk need not be waited for.
    if (const auto before = FileSystem::current().readFile(file); before && before->view() == bytes) return;
    const auto saved = writeFileAtomically(file, bytes, kMirrorFileMode);
    if (!saved) log("%@", saved.text());
}

bool IMAPStore::checkConnectionToServer() {
    if (_stayOffline || isClosed() || !_connection) return false;
    if (const auto* const owner = imapAccount(); owner != nullptr && owner->isOffline()) return false;
    // Connecting changes lists and asks the user.
    if (!RunLoop::isMainThread()) return _connected;
    const ServerTurn turn(*_lock);
    return connectNow();
}

/// Goes on from whatever state the connection is in.
bool IMAPStore::connectNow() {
    using State = IMAPConnection::State;
    if (_connection->connectionState() == State::notConnected) {
        const auto host = account() ? account()->hostname().value_or("") : "";
        showStatus(formatText("Connecting to %@...", host));
        const auto greeting = _connection->connectToServer(host);
        const MutexLock lock(_stateMutex);
        _connectionGreeting = greeting.value_or("");
    }
    switch (_connection->connectionState()) {
        case State::connected:
            return logInNow() && openMailboxNow();
        case State::loggedIn:
            return openMailboxNow();
        case State::mailboxSelected:
            _connected = true;
            return true;
        case State::notConnected:
            return false;
        default:
            _connected = false;
            return false;
    }
}

bool IMAPStore::logInNow() {
    const auto owner = account();
    if (!owner) return false;
    auto password = owner->password(/*mayAsk=*/true);
    showStatus(formatText("Logging in as %@...", owner->username().value_or("")));
    std::string error;
    while (password) {
        if (_connection->login(owner->username().value_or(""), *password, &error)) return true;
        if (_connection->connectionState() == IMAPConnection::State::notConnected) return false;
        _alertUserWithMessage(error);
        password = owner->promptUserForPassword();
    }
    return false;
}

bool IMAPStore::openMailboxNow() {
    showStatus(formatText("Checking status of mailbox %@...", _mailboxName));
    const std::string_view items[] = {IMAPResponseMessages, IMAPResponseUnseen, IMAPResponseUIDNext,
                                      IMAPResponseUIDValidity};
    const auto status = _connection->status(_mailboxName, items);
    // A server that tells nothing of the mailbox is there all the same; one that has gone is not.
    if (!status) return _connected = _connection->connectionState() != IMAPConnection::State::notConnected;
    takeStatus(*status);
    showStatus(formatText("Opening mailbox %@...", _mailboxName));
    std::string error;
    const auto opened = _opensReadOnly ? _connection->examineMailbox(_mailboxName, &error)
                                       : _connection->selectMailbox(_mailboxName, &error);
    if (!opened) {
        if (!error.empty()) _alertUserWithMessage(error);
        return false;
    }
    setReadOnly((*opened)[IMAPResponseReadWrite].isNull());
    // Another mailbox may have come under the name since its status was asked for.
    takeUIDValidity((*opened)[IMAPResponseUIDValidity].string(_uidValidity));
    _connected = true;
    showStatus("");
    startSynchronizing();
    return true;
}

/// Compares what the server tells of the mailbox with what is known of it.
void IMAPStore::takeStatus(const PropertyList& status) {
    takeUIDValidity(status[IMAPResponseUIDValidity].string());
    const auto next = status[IMAPResponseUIDNext].string();
    const auto count = std::strtoul(status[IMAPResponseMessages].string().c_str(), nullptr, 10);
    _isSynchronized = _hasLists && _uidNext == next && count == totalCount();
    {
        const MutexLock lock(_stateMutex);
        _uidNextOnServer = next;
        _totalOnServer = count;
    }
    auto& info = userInfo();
    info.set(MessageStoreTotalCount, status[IMAPResponseMessages].string());
    info.set(MessageStoreUnreadCount, status[IMAPResponseUnseen].string());
    info.set(IMAPResponseUIDNext, next);
}

/// UIDs of another validity name other messages: nothing that is kept under the old ones may be seen again, and
/// that it belongs to the new ones is written down only when the old is gone.
void IMAPStore::takeUIDValidity(const std::string& validity) {
    if (validity == _uidValidity) return;
    _flushAllData();
    _isSynchronized = false;
    auto& files = FileSystem::current();
    const auto remove = [&](const std::string& path) {
        if (const auto removed = files.remove(path); !removed && removed.code() != ENOENT)
            log("%@", removed.text());
    };
    remove(pathOf(kArchiveName));
    const auto folder = pathOf(kMirrorName);
    for (const auto& name : files.namesInFolder(folder).value_or(std::vector<std::string>()))
        remove(stringByAppendingPathComponent(folder, name));
    if (index()) index()->forgetAll();
    if (files.isDirectory(folder)) (void)files.syncFolder(folder);
    (void)files.syncFolder(path());
    _uidValidity = validity;
    userInfo().set(IMAPResponseUIDValidity, validity);
    saveUserInfo();
}

/// An index that would fetch what it reads would fetch the whole mailbox, and in that mark it as read: in the
/// standard dialect it waits for what the mirror gets.
void IMAPStore::didOpen() {
    if (index() && mailDialect() == MailDialect::standard) {
        const auto self = std::static_pointer_cast<IMAPStore>(shared_from_this());
        index()->indexOnly([weak = std::weak_ptr(self)](const Message& message) {
            const auto store = weak.lock();
            return store && store->isMirrored(message);
        });
    }
    MessageStore::didOpen();
}

bool IMAPStore::mayWriteIndex() const {
    const MutexLock lock(_stateMutex);
    // Whoever had it may have ended since.
    if (!_indexLock || _indexLock->isTaken()) _indexLock = std::make_unique<FileLock>(pathOf(kIndexLockName));
    return !_indexLock->isTaken();
}

void IMAPStore::showStatus(std::string_view text) {
    userAgentOrAbsent().displayStatus(text, this);
}

void IMAPStore::_alertUserWithMessage(std::string_view message) {
    const auto owner = account();
    userAgentOrAbsent().alertUserWithMessage(
        owner ? owner->errorStringWithMessage(message, _mailboxName) : std::string(message), "IMAP Message");
}

void IMAPStore::willClose() {
    if (std::exchange(_isRegistered, false)) userAgentOrAbsent().unregisterObjectForTimedFetch(*this);
    stopBackgroundActivity();
    writeArchive();
    MessageStore::willClose();
}

void IMAPStore::stopBackgroundActivity() {
    setShouldProcessInBackground(false);
    MessageStore::stopBackgroundActivity();
    _watcher.requestStop();
    const auto self = std::this_thread::get_id();
    if (_thread.id() == self || _watcher.id() == self) return;
    // What the threads are just reading may end by itself; what a silent server owes them never comes.
    const auto isBusy = [this] { return isSynchronizing() || _isWatched; };
    const auto patience = RunLoop::Clock::now() + kPatienceAtClosing;
    while (isBusy() && RunLoop::Clock::now() < patience)
        RunLoop::current()->runOnce(RunLoop::Clock::now() + std::chrono::milliseconds(10));
    if (isBusy() && _connection) _connection->interrupt();
    _thread.join();
    _watcher.join();
}

void IMAPStore::close() {
    if (isClosed()) return;
    MessageStore::close();
    {
        const MutexLock lock(_stateMutex);
        _indexLock.reset();
    }
    if (!_connection) return;
    const ServerTurn turn(*_lock);
    const auto* const owner = imapAccount();
    _connection->setTimeout(kPatienceAtClosing);
    if (!isReadOnly() && owner != nullptr && owner->compactWhenClosingMailboxes()) _connection->close();
    if (_connected) (void)_connection->logout();
    _connected = false;
    _connection->setDelegate({});
}

bool IMAPStore::doFetchNow(bool automatically) {
    if (automatically && account() && !account()->shouldAutoFetch()) return false;
    if (isStandard() && !_isSynchronized && checkConnectionToServer() && !isSynchronizing())
        startSynchronizing();  // the last look was cut short
    if (!_isSynchronized || !checkConnectionToServer()) return false;
    const auto before = unreadCount();
    {
        const ServerTurn turn(*_lock);
        _connection->noop();
    }
    // In the standard dialect what is new is known, and told, when the list was compared.
    if (isStandard() || unreadCount() <= before) return false;
    NotificationCenter::defaultCenter().postNotification(MessageStoreNewMail, shared_from_this());
    return true;
}

void IMAPStore::fillMirror() {
    if (checkConnectionToServer()) startSynchronizing();
}

void IMAPStore::waitUntilSynchronized() {
    while (isSynchronizing()) {
        if (RunLoop::isMainThread())
            RunLoop::current()->runOnce(RunLoop::Clock::now() + std::chrono::milliseconds(10));
        else
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

bool IMAPStore::canCompact() const {
    const auto now = lists();
    return !isReadOnly() && _isSynchronized && now.deleted && !now.deleted->empty();
}

void IMAPStore::doCompact() {
    if (!_isSynchronized || !checkConnectionToServer()) return;
    std::optional<std::string> error;
    {
        const ServerTurn turn(*_lock);
        error = _connection->expunge();
    }
    if (error) _alertUserWithMessage(*error);
    MessageStore::doCompact();
}

void IMAPStore::rebuildTableOfContents() {
    const ServerTurn turn(*_lock);
    _flushAllData();
    rebuildMessageLists();
    _isSynchronized = false;
    startSynchronizing();
}

}  // namespace lorvale
