#include "lorvale/store/berkeley_mbox.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/defaults.h"
#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/paths.h"
#include "lorvale/values/format.h"
#include "mail/stores/CachedHeaderReading.h"
#include "mail/stores/MboxSnapshot.h"
#include "mail/stores/TOCMessage.h"

namespace lorvale {

namespace {

/// Whether the messages of the file begin where these do.
bool beginWith(const std::vector<MboxRange>& ranges, const std::vector<MboxRange>& known) {
    return known.size() <= ranges.size() &&
           std::equal(known.begin(), known.end(), ranges.begin(),
                      [](const MboxRange& a, const MboxRange& b) { return a.location == b.location; });
}

}  // namespace

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
    _storePath = _standarizedStorePath(path);
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
    auto snapshot = MboxSnapshot::ofFile(_storePath, reason);
    if (snapshot == nullptr) {
        return failOpening(OpeningFailure::Reason::unreadable,
                           formatText("Could not read the mailbox %@: %@", _storePath, reason));
    }
    _adopt(std::move(snapshot), {});
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
    _mboxData.reset();
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

std::unique_ptr<MboxSnapshot> BerkeleyMbox::_takeSnapshot() const {
    std::string reason;
    auto snapshot = MboxSnapshot::ofFile(_storePath, reason);
    if (snapshot == nullptr) log("Could not read the mailbox %@: %@", _storePath, reason);
    return snapshot;
}

void BerkeleyMbox::_createAllMessages(const std::vector<MboxRange>& ranges, const MessageList& survivors) {
    std::vector<std::shared_ptr<Message>> all;
    all.reserve(ranges.size());
    const auto self = shared_from_this();
    for (std::size_t i = 0; i < ranges.size(); ++i) {
        if (i < survivors.size()) {
            static_cast<TOCMessage&>(*survivors[i]).setMboxRange(ranges[i]);
            all.push_back(survivors[i]);
        } else {
            all.push_back(Message::messageInStore<TOCMessage>(self, ranges[i]));
        }
    }
    setAllMessages(std::move(all));
}

void BerkeleyMbox::_adopt(std::unique_ptr<MboxSnapshot> snapshot, MessageList survivors) {
    const auto before = allMessages();
    _mboxData = std::move(snapshot);
    const auto ranges = _mboxData != nullptr ? mboxRanges(_mboxData->view()) : std::vector<MboxRange>();
    if (!beginWith(ranges, rangesOf(survivors))) survivors = {};
    if (!before.empty()) {
        // Whoever still holds a message that is gone must not read another one's bytes through it.
        const std::unordered_set<std::shared_ptr<Message>> kept(survivors.begin(), survivors.end());
        for (const auto& message : before) {
            if (!kept.contains(message)) message->setMessageStore(nullptr);
        }
        if (survivors.empty()) _forgetDeletedMessages();
    }
    _createAllMessages(ranges, survivors);
    rebuildFilteredMessageList();
}

void BerkeleyMbox::_forgetDeletedMessages() {
    auto next = lists();
    next.deleted.reset();
    next.deletedSize = 0;
    setLists(std::move(next));
    invalidateDeleteStack();
}

MessageList BerkeleyMbox::_messagesStillIn(const MboxSnapshot& later) const {
    if (_mboxData == nullptr || !_mboxData->rangesIn(later, rangesOf(allMessages()))) return {};
    return allMessages();
}

void BerkeleyMbox::_resetAllMessages() {
    auto now = _takeSnapshot();
    auto survivors = now != nullptr ? _messagesStillIn(*now) : MessageList();
    _adopt(std::move(now), std::move(survivors));
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

std::optional<MboxRange> BerkeleyMbox::_rangeHere(const Message& message) const {
    const auto* const listed = dynamic_cast<const TOCMessage*>(&message);
    // A closed store has given up the bytes, and a message of another store has no place in ours.
    if (_mboxData == nullptr || listed == nullptr || message.messageStore().get() != this) return std::nullopt;
    return listed->mboxRange();
}

std::optional<Data> BerkeleyMbox::allHeadersForMessage(Message& message) {
    const auto range = _rangeHere(message);
    if (!range) return std::nullopt;
    auto bytes = _mboxData->headerBytes(*range);
    if (!bytes) log("The mailbox %@ has been cut off by another program", _storePath);
    return bytes;
}

std::optional<Data> BerkeleyMbox::bodyForMessage(Message& message) {
    const auto range = _rangeHere(message);
    if (!range) return std::nullopt;
    auto bytes = _mboxData->bodyBytes(*range);
    if (!bytes) log("The mailbox %@ has been cut off by another program", _storePath);
    return bytes;
}

}  // namespace lorvale
