/// A directory mailbox: opening and closing, and what a message reads.
#include "lorvale/store/tarn_mbox.h"

#include <algorithm>
#include <utility>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/defaults.h"
#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/values/format.h"
#include "mail/stores/OpenMbox.h"
#include "mail/stores/TableOfContents.h"
#include "mail/stores/TarnCheck.h"
#include "mail/stores/TarnNames.h"

namespace lorvale {

struct TarnMbox::Place {
    std::shared_ptr<const OpenMbox> mbox;
    MboxRange range;
};

TarnMbox::TarnMbox() = default;

TarnMbox::~TarnMbox() {
    TarnMbox::close();
}

float TarnMbox::willingnessToOpen(std::string_view path) {
    const auto place = standardizePath(path);
    return pathExtension(place) == kTarnExtension && FileSystem::current().isDirectory(place) ? 1.1F : 0;
}

std::optional<std::string> TarnMbox::storeFileExtension() {
    return std::string(kTarnExtension);
}

StoreClass TarnMbox::storeClass() {
    return {
        "TarnMbox", [](const std::string& path) { return willingnessToOpen(path); },
        [](const std::string& path, bool create, bool readOnly, const std::shared_ptr<MailAccount>& account) {
            return initWithPath(path, create, readOnly, account);
        },
        [] { return storeFileExtension(); }};
}

std::shared_ptr<TarnMbox> TarnMbox::initWithPath(std::string_view path, bool create, bool readOnly,
                                                 const std::shared_ptr<MailAccount>& account) {
    return openStore<TarnMbox>(path, create, readOnly, account);
}

std::shared_ptr<TarnMbox> TarnMbox::initWithPath(std::string_view path, bool readOnly) {
    return initWithPath(path, false, readOnly);
}

bool TarnMbox::openAtPath(std::string_view path, bool create, bool readOnly,
                          const std::shared_ptr<MailAccount>& account) {
    _storePath = _standarizedStorePath(followLinks(standardizePath(path)));
    _mboxPath = followLinks(pathOf(kMboxName));
    if (!_openFiles(create, readOnly) || !_openTable()) return false;
    if (!MessageStore::openAtPath(path, create, readOnly, account)) return false;
    _isOpen = true;
    rebuildMessageLists();
    updateIndex();  // which compares it with the lists
    if (mayChange()) {
        _fetchObserver = NotificationCenter::defaultCenter().addObserver(
            weak_from_this(), [this](const Notification& each) { _finishedFetchingInThread(each); },
            kThreadFetchFinished);
    }
    fetchErrorRecovery();
    _attributeObserver = NotificationCenter::defaultCenter().addObserver(
        weak_from_this(),
        [this](const Notification&) {
            if (_storeAttributes()) structureDidChange();
        },
        MessageStoreAttributesChanged, shared_from_this());
    if (_storeAttributes()) structureDidChange();
    saveUserInfo();
    return true;
}

bool TarnMbox::_openFiles(bool create, bool readOnly) {
    using Reason = OpeningFailure::Reason;
    auto& files = FileSystem::current();
    if (create && readOnly) {
        return failOpening(Reason::other,
                           formatText("The mailbox %@ cannot be made by who only reads it", _storePath));
    }
    if (create) {
        const auto made = makeDirectories(_storePath, kMailboxPermissions);
        if (!made) return failOpening(Reason::unreadable, made.text());
    } else if (!files.isDirectory(_storePath)) {
        return failOpening(Reason::missing, formatText("There is no mailbox %@", _storePath));
    }
    if (!readOnly && !_acquireLock()) {
        if (_dontOpen && Defaults::sharedInstance().canUseWindowKit())
            return failOpening(Reason::locked, formatText("The mailbox %@ is locked", _storePath));
        setReadOnly(true);
        log("This mailbox is locked.  Opening in read-only mode.");
    }
    FileStatus status;
    if (!files.exists(_mboxPath)) {
        if (!create || !mayChange())
            return failOpening(Reason::missing, formatText("The mailbox %@ has no file \"mbox\"", _storePath));
        const auto made = files.openForWriting(_mboxPath, WriteMode::createNew, kMailboxPermissions, &status);
        if (made != nullptr) status = made->close();
        if (!status) return failOpening(Reason::unreadable, status.text());
    }
    setMbox(OpenMbox::open(_mboxPath, status));
    return mbox() != nullptr || failOpening(Reason::unreadable, status.text());
}

bool TarnMbox::_acquireLock() {
    const auto lockPath = pathOf(kLockName);
    if (FileSystem::current().linkAttributes(lockPath) && !shouldOpenDespiteLock(lockPath)) {
        _dontOpen = true;
        return false;
    }
    _haveLock = createLock(lockPath);
    return _haveLock;
}

void TarnMbox::_removeLock() {
    if (!_haveLock.exchange(false)) return;
    const auto removed = FileSystem::current().remove(pathOf(kLockName));
    if (!removed) log("%@", removed.text());
}

bool TarnMbox::_openTable() {
    using Reason = OpeningFailure::Reason;
    _toc = TableOfContents::initWithPath(pathOf(kTableName));
    if (_toc != nullptr && _toc->isValid() && tableFits()) {
        // Mail that a kill has left unlisted, within the second to which the stamp tells.
        const auto& listed = _toc->messages();
        const auto end = listed.empty() ? 0 : static_cast<const TOCMessage&>(*listed.back()).mboxRange().end();
        MessageList added;
        if (end == mbox()->size() || _listTail({}, /*unread=*/false, added)) return true;
    }
    if (!mayChange()) {
        return failOpening(Reason::unreadable,
                           "No table of contents present, but mailbox is locked.  Can't open this mailbox.");
    }
    return _rebuildTableOfContents() ||
           failOpening(Reason::unreadable, formatText("Could not read the mail of %@", _storePath));
}

/// Whether the places in the table can be those of messages: one behind the other up to the end of the file at
/// most, with a message where the first one and the last one begin.
bool TarnMbox::tableFits() const {
    const auto& listed = _toc->messages();
    if (listed.empty()) return true;
    std::optional<std::uint64_t> end;
    for (const auto& message : listed) {
        const auto range = static_cast<const TOCMessage&>(*message).mboxRange();
        if ((end && range.location != *end) || range.length < kEnvelopeMark.size()) return false;
        end = range.end();
    }
    const auto file = mbox();
    if (*end > file->size()) return false;
    for (const auto& message : {listed.front(), listed.back()}) {
        const auto range = static_cast<const TOCMessage&>(*message).mboxRange();
        const auto mark = file->read({range.location, static_cast<std::uint32_t>(kEnvelopeMark.size())});
        if (!mark || mark->view() != kEnvelopeMark) return false;
    }
    return true;
}

void TarnMbox::fetchErrorRecovery() {
    if (!mayChange()) return;
    auto& files = FileSystem::current();
    if (files.exists(pathOf(kIncomingMailName))) {
        debugLog("fetchErrorRecovery: finalizing");
        finalizeAsyncAppend();
    } else if (files.exists(pathOf(kIncomingTableName))) {
        // Its mail has been taken in.
        if (const auto removed = files.remove(pathOf(kIncomingTableName)); !removed) log("%@", removed.text());
    }
}

void TarnMbox::close() {
    if (isClosed()) return;
    _attributeObserver.reset();
    _fetchObserver.reset();
    _appends.clear();  // waits for those that are under way; the next opening takes their mail in
    _tellTaken(false);
    if (_isOpen) _storeAttributes();
    MessageStore::close();
    if (_isOpen && mayChange()) {
        const auto file = mbox();
        if (file != nullptr) _toc->flushToFile(file->known);
    }
    _removeLock();
    setMbox(nullptr);
}

std::string TarnMbox::displayName() const {
    return std::string(stringByDeletingPathExtension(lastPathComponent(_storePath)));
}

std::string TarnMbox::className() const {
    return "TarnMbox";
}

void TarnMbox::saveUserInfo() {
    if (mayChange()) MessageStore::saveUserInfo();
}

std::shared_ptr<const OpenMbox> TarnMbox::mbox() const {
    const MutexLock lock(_placesMutex);
    return _mbox;
}

void TarnMbox::setMbox(std::shared_ptr<const OpenMbox> mbox) {
    const MutexLock lock(_placesMutex);
    _mbox.swap(mbox);
}

std::optional<TarnMbox::Place> TarnMbox::placeOf(const Message& message) const {
    const auto* const listed = dynamic_cast<const TOCMessage*>(&message);
    // A message of another store has no place in ours.
    if (listed == nullptr || message.messageStore().get() != this) return std::nullopt;
    const MutexLock lock(_placesMutex);
    return _mbox != nullptr ? std::optional(Place{_mbox, listed->mboxRange()}) : std::nullopt;
}

bool TarnMbox::isStillAt(const Place& place, const Message& message) const {
    const auto now = placeOf(message);
    return now && now->mbox->file == place.mbox->file && now->mbox->generation == place.mbox->generation &&
           now->range == place.range;
}

/// Reads without a lock, and again if the store has moved its mail meanwhile.
template <class Read>
std::optional<Data> TarnMbox::readBytes(Message& message, std::string_view operation, Read read) const {
    constexpr int kAttempts = 3;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const auto place = placeOf(message);
        if (!place) break;
        auto bytes = read(*place->mbox, static_cast<const TOCMessage&>(message), place->range);
        if (!isStillAt(*place, message)) continue;
        if (bytes) return bytes;
        break;
    }
    log("%@: empty data!", operation);
    return std::nullopt;
}

CachedHeaders TarnMbox::cachedHeadersForMessage(Message& message) {
    const auto* const listed = dynamic_cast<const TOCMessage*>(&message);
    return listed != nullptr ? listed->listing() : CachedHeaders();
}

std::optional<Data> TarnMbox::allHeadersForMessage(Message& message) {
    return readBytes(message, "allHeadersForMessage", [](const auto& mbox, const auto& listed, auto range) {
        return mbox.headerOf(listed, range);
    });
}

std::optional<Data> TarnMbox::bodyForMessage(Message& message) {
    return readBytes(message, "bodyForMessage", [](const auto& mbox, const auto& listed, auto range) {
        return mbox.bodyOf(listed, range);
    });
}

std::shared_ptr<Message> TarnMbox::messageForMessageID(std::string_view messageID) {
    // Among those of the lists, which any thread may look at; the table's own belong to the main thread.
    return _toc != nullptr ? _toc->messagesByID().find(allMessages(), messageID) : nullptr;
}

std::string TarnMbox::inconsistency() const {
    FileStatus status;
    const auto file = OpenMbox::open(_mboxPath, status);
    if (file == nullptr) return status.text();
    return _toc != nullptr ? differenceFromScan(_toc->messages(), *file) : "not open";
}

}  // namespace lorvale
