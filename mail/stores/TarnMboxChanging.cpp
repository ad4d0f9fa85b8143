/// A directory mailbox is made anew: its table after others have changed the mail, its mail without what is
/// deleted.
#include <algorithm>
#include <chrono>
#include <set>
#include <utility>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/defaults.h"
#include "lorvale/message.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/store/berkeley_mbox.h"
#include "lorvale/store/mailbox_index.h"
#include "lorvale/store/message_cache.h"
#include "lorvale/store/tarn_mbox.h"
#include "lorvale/values/format.h"
#include "mail/stores/MboxContents.h"
#include "mail/stores/MboxReplacement.h"
#include "mail/stores/OpenMbox.h"
#include "mail/stores/TableOfContents.h"
#include "mail/stores/TarnNames.h"

namespace lorvale {

namespace {

TOCMessage& listed(const std::shared_ptr<Message>& message) {
    return static_cast<TOCMessage&>(*message);
}

/// Whoever still holds a message that is gone must not read another one's bytes at its place.
void forgetPlaces(const MessageList& gone) {
    for (const auto& message : gone) listed(message).forgetPlace();
}

[[noreturn]] void throwUnwritten(std::uint64_t size, const std::string& path, std::string_view reason) {
    log("%@", reason);
    throw GenericException(formatText("Unable to write data 0x%lx to file %@", size, path));
}

/// A name from a table, which may hold anything: only a folder right in the mailbox is an attachment of it.
bool isAttachmentFolder(const std::string& mailbox, const std::string& name) {
    if (name.empty() || name.starts_with('.') || name.find('/') != std::string::npos) return false;
    const auto found = FileSystem::current().linkAttributes(mailbox + '/' + name);
    return found && found->isDirectory;
}

void _deleteAttachments(const std::string& mailbox, const std::vector<std::string>& names) {
    for (auto name = names.rbegin(); name != names.rend(); ++name)
        if (isAttachmentFolder(mailbox, *name)) deletePath(mailbox + '/' + *name);
}

}  // namespace

bool TarnMbox::_rebuildInMemory() {
    constexpr int kAttempts = 3;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        FileStatus status;
        const auto file = OpenMbox::open(_mboxPath, status);
        const auto scan = file != nullptr ? BerkeleyMbox::initWithPath(_mboxPath, /*readOnly=*/true) : nullptr;
        if (scan == nullptr) {
            if (!status) log("%@", status.text());
            return false;
        }
        auto rebuilt = _toc->rebuiltFromStore(*scan);
        const auto now = FileSystem::current().attributes(_mboxPath);
        if (!rebuilt || !now || !isUnchanged(*now, file->known)) continue;
        const auto gone = _toc->messages().removing(rebuilt->messages);
        const auto before = mbox();
        const std::uint64_t generation = before != nullptr ? before->generation + 1 : 0;
        {
            const MutexLock lock(_placesMutex);
            forgetPlaces(gone);
            _toc->adopt(std::move(*rebuilt));
            _mbox = std::make_shared<const OpenMbox>(OpenMbox{file->file, file->known, generation});
        }
        for (const auto& message : gone) message->setMessageStore(nullptr);
        _listsAreExact = false;
        return true;
    }
    log("The mailbox %@ is busy, other programs keep changing it", _storePath);
    return false;
}

bool TarnMbox::_rebuildTableOfContents() {
    log("rebuilding table of contents for %@...", _storePath);
    if (_toc == nullptr) _toc = std::make_unique<TableOfContents>(pathOf(kTableName));
    if (!_rebuildInMemory()) return false;
    // At once: the old table on the disk may fit the mail by its length and time, and would show each message
    // at another one's place.  Where this one cannot be written, its time alone tells the next opening.
    _toc->flushToFile(mbox()->known);
    return true;
}

void TarnMbox::rebuildTableOfContents() {
    if (!mayChange()) return;
    MessageCacheManager::manager().flushAllCachedData();
    if (!_rebuildTableOfContents()) return;
    invalidateDeleteStack();
    rebuildMessageLists();
    structureDidChange();
    updateIndex();
}

/// Sees to it that the table tells of the file as it is before the store changes it.  False when it cannot.
bool TarnMbox::_catchUp() {
    const auto now = FileSystem::current().attributes(_mboxPath);
    const auto known = mbox();
    if (now && known != nullptr && isUnchanged(*now, known->known)) return true;
    if (!now) {
        log("The file \"mbox\" of the mailbox %@ is gone", _storePath);
        return false;
    }
    log("The mailbox %@ was changed by another program", _storePath);
    if (!_rebuildTableOfContents()) return false;
    rebuildMessageLists();
    structureDidChange();
    updateIndex();
    return true;
}

bool TarnMbox::canCompact() const {
    return mayChange();
}

void TarnMbox::doCompact() {
    if (!mayChange() || _messagesToCompact().empty() || !_catchUp()) return;
    if (Defaults::sharedInstance().boolForKey("RiskyCompact")) {
        _newDoCompact();
    } else {
        _oldDoCompact();
    }
}

/// By location, as the table has them.
MessageList TarnMbox::_messagesToCompact() const {
    std::vector<std::shared_ptr<Message>> deleted;
    std::ranges::copy_if(_toc->messages(), std::back_inserter(deleted),
                         [](const auto& message) { return listed(message).isDeleted(); });
    return deleted;
}

/// Of messages that go, unless one that stays has it, too.
std::vector<std::string> TarnMbox::_attachmentsOf(const MessageList& deleted) const {
    std::vector<std::string> names;
    for (const auto& message : deleted)
        if (!listed(message).attachment().empty()) names.emplace_back(listed(message).attachment());
    if (names.empty()) return names;
    std::set<std::string, std::less<>> kept;
    for (const auto& message : _toc->messages())
        if (!listed(message).isDeleted()) kept.emplace(listed(message).attachment());
    std::erase_if(names, [&](const auto& name) { return kept.contains(name); });
    return names;
}

void TarnMbox::_oldDoCompact() {
    const auto deleted = _messagesToCompact();
    if (deleted.empty()) return;
    const auto attachments = _attachmentsOf(deleted);
    messagesWillBeCompacted(deleted);
    removeMessagesFromIndex(deleted);
    _replaceFile(deleted);
    _finishCompaction(deleted);
    RunLoop::main()->perform([path = _storePath, attachments] { _deleteAttachments(path, attachments); });
    updateIndex();
}

void TarnMbox::_newDoCompact() {
    const auto deleted = _messagesToCompact();
    if (deleted.empty()) return;
    const auto attachments = _attachmentsOf(deleted);
    if (listed(deleted.front()).mboxRange().location == 0) {
        _replaceFile(deleted);
    } else {
        _rewriteInPlace(deleted);
    }
    removeMessagesFromIndex(deleted);
    _finishCompaction(deleted);
    RunLoop::main()->performAfterDelay(
        [path = _storePath, attachments] { _deleteAttachments(path, attachments); }, std::chrono::seconds(1));
}

/// Puts a new file without the deleted messages in the place of the old one, and the table right.
void TarnMbox::_replaceFile(const MessageList& deleted) {
    std::string reason;
    const auto contents = MboxContents::ofFile(_mboxPath, reason);
    const auto& all = _toc->messages();
    const auto copyWithoutDeleted = [&](const MboxContents& now, MboxReplacement& next) {
        const auto entries = now.entries();
        const bool asListed = std::ranges::equal(entries, all, {}, &MboxEntry::range, [](const auto& message) {
            return listed(message).mboxRange();
        });
        if (!asListed) {
            reason = "it was changed by another program";
            return false;
        }
        next.copyStart();
        std::size_t first = 0;  // of the messages that stay, up to the next one that goes
        for (std::size_t i = 0; i < all.size(); ++i) {
            if (!listed(all[i]).isDeleted()) continue;
            next.copy(entries.subspan(first, i - first));
            first = i + 1;
        }
        next.copy(entries.subspan(first));
        if (!_toc->flushAsStale(mbox()->known)) {
            reason = "The table cannot be written";
            return false;
        }
        return true;
    };
    MboxRewriting done;
    if (contents != nullptr) done = contents->rewrite(std::nullopt, copyWithoutDeleted);
    if (done.after == nullptr)
        throwUnwritten(mbox()->size(), _mboxPath, done.reason.empty() ? reason : done.reason);
    const auto file = done.after->file();
    const auto attributes = file->attributes();
    const auto before = mbox();
    const MutexLock lock(_placesMutex);
    _toc->removeMessages(deleted);
    forgetPlaces(deleted);
    _mbox = std::make_shared<const OpenMbox>(
        OpenMbox{file, attributes.value_or(FileAttributes()), before->generation + 1});
}

/// Writes what stays behind the first deleted message over that, and cuts the rest off.
void TarnMbox::_rewriteInPlace(const MessageList& deleted) {
    const auto before = mbox();
    const auto start = listed(deleted.front()).mboxRange().location;
    ByteBuffer rest;
    for (const auto& message : _toc->messages()) {
        const auto range = listed(message).mboxRange();
        if (range.location < start || listed(message).isDeleted()) continue;
        const auto bytes = before->read(range);
        if (!bytes) throwUnwritten(rest.size(), _mboxPath, "A message cannot be read any more");
        rest.append(*bytes);
    }
    // From here on a crash leaves mail that no table fits.
    if (!_toc->flushAsStale(before->known))
        throwUnwritten(rest.size(), _mboxPath, "The table cannot be written");
    setMbox(nullptr);  // nobody reads meanwhile
    FileStatus status;
    const auto file =
        FileSystem::current().openForWriting(_mboxPath, WriteMode::keep, kMailboxPermissions, &status);
    if (file == nullptr) {
        setMbox(before);
        log("%@", status.text());
        throw GenericException(formatText("Unable to open file %@", _mboxPath));
    }
    status = file->seek(start);
    if (status) status = file->write(rest.view());
    if (status) status = file->truncate(start + rest.size());
    if (status) status = file->sync();
    if (status) status = file->close();
    const auto now = before->changed(/*placesToo=*/true);
    if (!status || now == nullptr) {
        // What stands there now is nobody's guess: the table follows the file.
        if (_rebuildTableOfContents()) rebuildMessageLists();
        throwUnwritten(rest.size(), _mboxPath, status.text());
    }
    debugLog("Appended %u bytes to file %@", rest.size(), _mboxPath);
    const MutexLock lock(_placesMutex);
    _toc->removeMessages(deleted);
    forgetPlaces(deleted);
    _mbox = now;
}

/// What follows once the deleted messages are out of the file.
void TarnMbox::_finishCompaction(const MessageList& deleted) {
    _toc->flushToFile(mbox()->known);
    for (const auto& message : deleted) message->setMessageStore(nullptr);
    if (index() != nullptr) index()->flushToDisk();
    auto next = lists();
    next.all = _toc->messages();
    next.allSize = sizeOfMessages(next.all);
    next.deleted = MessageList();
    next.deletedSize = 0;
    next.filtered = next.filtered.removing(deleted);
    if (next.unread) next.unread = next.unread->removing(deleted);
    setLists(std::move(next));
    MessageStore::doCompact();
    _updateStoreAttributes();
    structureDidChange();
}

}  // namespace lorvale
