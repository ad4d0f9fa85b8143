#include "lorvale/store/berkeley_mbox.h"

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/defaults.h"
#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/values/format.h"
#include "mail/stores/CachedHeaderReading.h"
#include "mail/stores/MboxContents.h"
#include "mail/stores/TOCMessage.h"

namespace lorvale {

struct BerkeleyMbox::Place {
    std::shared_ptr<const MboxContents> contents;
    const MboxEntry* entry;
};

BerkeleyMbox::BerkeleyMbox() = default;

BerkeleyMbox::~BerkeleyMbox() {
    BerkeleyMbox::close();
}

float BerkeleyMbox::willingnessToOpen(std::string_view path) {
    const auto place = standardizePath(path);
    const auto file = FileSystem::current().attributes(place);
    if (!file || file->isDirectory) return 0;
    return lastPathComponent(place) == "mbox" ? 0.667F : 0.333F;
}

StoreClass BerkeleyMbox::storeClass() {
    return {
        "BerkeleyMbox", [](const std::string& path) { return willingnessToOpen(path); },
        [](const std::string& path, bool create, bool readOnly, const std::shared_ptr<MailAccount>& account) {
            return initWithPath(path, create, readOnly, account);
        }};
}

std::shared_ptr<BerkeleyMbox> BerkeleyMbox::initWithPath(std::string_view path, bool create, bool readOnly,
                                                         const std::shared_ptr<MailAccount>& account) {
    return openStore<BerkeleyMbox>(path, create, readOnly, account);
}

std::shared_ptr<BerkeleyMbox> BerkeleyMbox::initWithPath(std::string_view path, bool readOnly) {
    return initWithPath(path, false, readOnly);
}

bool BerkeleyMbox::openAtPath(std::string_view path, bool create, bool readOnly,
                              const std::shared_ptr<MailAccount>& account) {
    if (path.empty()) return failOpening(OpeningFailure::Reason::missing, "An empty path names no mailbox");
    // Also where a link leads to a file that is not there yet.
    _storePath = _standarizedStorePath(followLinks(standardizePath(path)));
    if (!MessageStore::openAtPath(path, create, readOnly, account)) return false;
    if (!readOnly && !_acquireLock()) {
        if (Defaults::sharedInstance().canUseWindowKit()) {
            return failOpening(OpeningFailure::Reason::locked,
                               formatText("The mailbox %@ is locked", _storePath));
        }
        setReadOnly(true);
        log("This mailbox is locked.  Opening in read-only mode.");
    }
    if (!create && !FileSystem::current().exists(_storePath)) {
        return failOpening(OpeningFailure::Reason::missing, formatText("There is no mailbox %@", _storePath));
    }
    std::string reason;
    const auto contents = MboxContents::ofFile(_storePath, reason);
    if (contents == nullptr) {
        return failOpening(OpeningFailure::Reason::unreadable,
                           formatText("Could not read the mailbox %@: %@", _storePath, reason));
    }
    _adopt(contents, {});
    return true;
}

bool BerkeleyMbox::_acquireLock() {
    const auto lockPath = _storePath + ".lock";
    if (FileSystem::current().linkAttributes(lockPath) && !shouldOpenDespiteLock(lockPath)) return false;
    _haveLock = createLock(lockPath);
    return _haveLock;
}

void BerkeleyMbox::_removeLock() {
    if (!_haveLock) return;
    _haveLock = false;
    const auto removed = FileSystem::current().remove(_storePath + ".lock");
    if (!removed) log("%@", removed.text());
}

void BerkeleyMbox::close() {
    if (isClosed()) return;
    MessageStore::close();
    if (_haveLock) {
        _removeLock();
        // Without the lock this does nothing, so messages marked deleted survive a close.  Callers rely on
        // that: they compact when the user wants it, and quitting must not make a deletion final.
        doCompact();
    }
    setLists({});
    const MutexLock lock(_placesMutex);
    _contents.reset();
    _lastEntry = nullptr;
    _lastHeader = {};
}

std::string BerkeleyMbox::storePath() const {
    return _storePath;
}

std::string BerkeleyMbox::className() const {
    return "BerkeleyMbox";
}

bool BerkeleyMbox::canCompact() const {
    return true;
}

bool BerkeleyMbox::canBeIndexed() const {
    return false;
}

std::shared_ptr<const MboxContents> BerkeleyMbox::contents() const {
    const MutexLock lock(_placesMutex);
    return _contents;
}

void BerkeleyMbox::_adopt(const std::shared_ptr<const MboxContents>& contents, const MessageList& survivors) {
    const auto entries = contents->entries();
    const auto gone = allMessages().removing(survivors);
    {
        const MutexLock lock(_placesMutex);
        // Whoever still holds a message that is gone must not read another one's bytes at its place.
        for (const auto& message : gone) static_cast<TOCMessage&>(*message).forgetPlace();
        for (std::size_t i = 0; i < survivors.size(); ++i)
            static_cast<TOCMessage&>(*survivors[i]).setMboxRange(entries[i].range);
        _contents = contents;
        _lastEntry = nullptr;
    }
    for (const auto& message : gone) message->setMessageStore(nullptr);
    if (survivors.empty()) _forgetDeletedMessages();
    setAllMessages(survivors.appending(_messagesAt(entries.subspan(survivors.size()))));
    rebuildFilteredMessageList();
}

MessageList BerkeleyMbox::_messagesAt(std::span<const MboxEntry> entries) {
    std::vector<std::shared_ptr<Message>> messages;
    messages.reserve(entries.size());
    const auto self = shared_from_this();
    for (const auto& entry : entries)
        messages.push_back(Message::messageInStore<TOCMessage>(self, entry.range));
    return messages;
}

void BerkeleyMbox::_forgetDeletedMessages() {
    auto next = lists();
    next.deleted.reset();
    next.deletedSize = 0;
    setLists(std::move(next));
    invalidateDeleteStack();
}

MessageList BerkeleyMbox::_messagesStillIn(const MboxContents& later) const {
    const auto known = contents();
    return known != nullptr && known->leadsTo(later) ? allMessages() : MessageList();
}

void BerkeleyMbox::_resetAllMessages() {
    const auto known = contents();
    if (known == nullptr) return;  // a closed store stays closed
    std::string reason;
    const auto now = MboxContents::ofFile(_storePath, reason);
    if (now == nullptr) {
        log("The mailbox %@ stays listed as it was read before: %@", _storePath, reason);
    } else if (!now->exists() && known->exists()) {
        // Perhaps between two names, and its messages can still be read.
        log("The mailbox %@ is gone, and stays listed as it was read before", _storePath);
    } else {
        _adopt(now, _messagesStillIn(*now));
    }
}

std::shared_ptr<MessageFlags> BerkeleyMbox::flagsForMessage(Message&) {
    return std::make_shared<MessageFlags>();
}

void BerkeleyMbox::setFlags(const MessageFlags&, std::span<const std::string_view>, const MessageList&) {}

void BerkeleyMbox::deleteMessages(MessageList messages) {
    if (!mayChange()) return;
    MessageStore::deleteMessages(messages);
    // They are in the list already and so stand there twice, which the count of deleted messages has always
    // shown; compaction takes a message that comes out twice as one.
    auto next = lists();
    next.deleted = next.deleted->appending(messages);
    next.filtered = next.filtered.removing(messages);
    setLists(std::move(next));
    structureDidChange();
}

void BerkeleyMbox::undeleteMessages(MessageList messages) {
    if (mayChange()) MessageStore::undeleteMessages(std::move(messages));
}

CachedHeaders BerkeleyMbox::cachedHeadersForMessage(Message& message) {
    return readCachedHeaders(message, allHeadersForMessage(message), HeaderSpelling::capitalised);
}

std::optional<BerkeleyMbox::Place> BerkeleyMbox::placeOf(const Message& message) const {
    const auto* const listed = dynamic_cast<const TOCMessage*>(&message);
    // A message of another store has no place in ours.
    if (listed == nullptr || message.messageStore().get() != this) return std::nullopt;
    const MutexLock lock(_placesMutex);
    const auto* const entry = _contents != nullptr ? _contents->entryAt(listed->mboxRange()) : nullptr;
    return entry != nullptr ? std::optional(Place{_contents, entry}) : std::nullopt;
}

std::optional<Data> BerkeleyMbox::allHeadersForMessage(Message& message) {
    const auto place = placeOf(message);
    if (!place) return std::nullopt;
    {
        const MutexLock lock(_placesMutex);
        if (_lastEntry == place->entry) return _lastHeader;
    }
    auto bytes = place->contents->headerOf(*place->entry);
    if (!bytes) {
        log("The headers of %@ were cut off or overwritten by another program",
            place->contents->nameOf(*place->entry));
        return std::nullopt;
    }
    const MutexLock lock(_placesMutex);
    if (_contents == place->contents) {
        _lastEntry = place->entry;
        _lastHeader = *bytes;
    }
    return bytes;
}

std::optional<Data> BerkeleyMbox::bodyForMessage(Message& message) {
    const auto place = placeOf(message);
    if (!place) return std::nullopt;
    auto bytes = place->contents->bodyOf(*place->entry);
    if (!bytes) {
        log("The body of %@ was cut off or overwritten by another program",
            place->contents->nameOf(*place->entry));
    }
    return bytes;
}

}  // namespace lorvale
