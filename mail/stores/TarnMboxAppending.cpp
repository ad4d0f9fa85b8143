/// A directory mailbox takes mail: at once, from the background, and what a crash has left.
#include <utility>

#include "base/files/FileSystem.h"
#include "base/files/PathUtils.h"
#include "lorvale/message.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/thread.h"
#include "lorvale/platform/user_agent.h"
#include "lorvale/store/tarn_mbox.h"
#include "lorvale/values/text.h"
#include "mail/stores/AppendableBytes.h"
#include "mail/stores/FetchLog.h"
#include "mail/stores/MboxAppender.h"
#include "mail/stores/OpenMbox.h"
#include "mail/stores/TableOfContents.h"
#include "mail/stores/TarnConversion.h"
#include "mail/stores/TarnNames.h"

namespace lorvale {

namespace {

/// Appends messages and makes their records.
class Batch {
public:
    using Listed = std::vector<std::shared_ptr<TOCMessage>>;

    Batch(MboxAppender& file, std::string mailbox, bool unread)
        : _file(file), _mailbox(std::move(mailbox)), _unread(unread) {}

    void add(const std::shared_ptr<Message>& message) {
        auto record = recordOf(message);
        _all = _all && record != nullptr;
        if (record != nullptr) _waiting.emplace_back(message, std::move(record));
        if (_file.isFull()) flush();
    }
    void flush() {
        const bool written = _file.flush();
        for (auto& [message, record] : _waiting) {
            if (_fetchLog != nullptr) _fetchLog->add(*message, written);
            if (written) {
                records.push_back(std::move(record));
                taken.push_back(message);
            } else {
                tellFailure(*message);
            }
        }
        _waiting.clear();
        _all = _all && written;
    }
    /// Whether every message is on disk, after the last flush().
    bool all() const { return _all; }
    void logTo(FetchLog* fetchLog) { _fetchLog = fetchLog; }

    Listed records;                               // of the messages that are on disk
    std::vector<std::shared_ptr<Message>> taken;  // those messages

private:
    /// Null, after a log line, when a message cannot be had or finds no room.
    std::shared_ptr<TOCMessage> recordOf(const std::shared_ptr<Message>& shared) {
        auto& message = *shared;
        auto bytes = convertedForMailbox(shared, _mailbox);
        if (!bytes) bytes = AppendableBytes::ofMessage(message);
        const auto range = bytes ? _file.append(bytes->header.view(), bytes->body.view()) : std::nullopt;
        if (!range) {
            if (bytes) tellFailure(message);
            if (_fetchLog != nullptr) _fetchLog->add(message, false);
            return nullptr;
        }
        auto record = std::make_shared<TOCMessage>(*range, TOCListing::ofHeaderBlock(bytes->header.view()));
        record->setIsRead(!_unread);
        record->setIsDeleted(message.currentFlags()->isDeleted());
        return record;
    }
    void tellFailure(Message& message) const {
        log("failed to append message %@ (%@)", message.description(), _file.status().text());
    }

    MboxAppender& _file;
    const std::string _mailbox;
    const bool _unread;
    FetchLog* _fetchLog = nullptr;
    bool _all = true;
    std::vector<std::pair<std::shared_ptr<Message>, std::shared_ptr<TOCMessage>>> _waiting;
};

/// Whether mail stands in an incoming file.  A kill may have left a piece that is not even the mark of a
/// message.
enum class Spool { mail, nothing, strange };
Spool lookAtSpool(ReadableFile& file) {
    const auto start = file.read(0, 4096);
    if (!start) return Spool::strange;
    const auto first = trimmed(start->view());
    if (first.starts_with(trimmed(kEnvelopeMark))) return Spool::mail;
    return kEnvelopeMark.starts_with(first) ? Spool::nothing : Spool::strange;
}

FileStatus removeIfThere(const std::string& path) {
    auto& files = FileSystem::current();
    return files.linkAttributes(path) ? files.remove(path) : FileStatus();
}

}  // namespace

bool TarnMbox::syncAppendMessages(const MessageList& messages, bool setUnread, const Taken& taken) {
    const auto tell = [&](const MessageList& which) {
        if (taken) taken(which);
    };
    if (!mayChange() || messages.empty() || !_catchUp()) {
        tell({});
        return mayChange() && messages.empty();
    }
    std::optional<FetchLog> fetchLog;
    if (setUnread) fetchLog.emplace(messages.size(), displayName());
    MboxAppender file(_mboxPath);
    if (!file.status()) log("%@", file.status().text());
    Batch batch(file, _storePath, setUnread);
    if (fetchLog) batch.logTo(&*fetchLog);
    for (const auto& message : messages) batch.add(message);
    batch.flush();
    tell(batch.taken);
    MessageList added;
    if (_listTail(batch.records, setUnread, added)) {
        _appendDone(added);
    } else if (_rebuildTableOfContents()) {
        rebuildMessageLists();
        structureDidChange();
        updateIndex();
    }
    return batch.all();
}

/// The table learns what the file holds from the file itself, so that the two agree whatever became of an
/// append, and whoever else has written there.
bool TarnMbox::_listTail(const Listed& expected, bool unread, MessageList& added) {
    const auto before = mbox();
    const auto now = before != nullptr ? before->changed() : nullptr;
    if (now == nullptr || now->size() > kLargestMbox) return false;
    const auto last =
        _toc->count() > 0 ? std::static_pointer_cast<TOCMessage>(_toc->messages().back()) : nullptr;
    MboxRange lastRange = last != nullptr ? last->mboxRange() : MboxRange();
    std::vector<std::shared_ptr<Message>> fresh;
    auto next = expected.begin();
    bool isFirst = last != nullptr, readable = true;
    const bool scanned = now->scan(lastRange.location, [&](const MboxEntry& entry) {
        if (std::exchange(isFirst, false)) {
            lastRange = entry.range;
            return;
        }
        while (next != expected.end() && (*next)->mboxRange().location < entry.range.location) ++next;
        if (next != expected.end() && (*next)->mboxRange() == entry.range) {
            fresh.push_back(*next);
            return;
        }
        const auto header = now->read(entry.header());
        readable = readable && header;
        if (!header) return;
        auto found = std::make_shared<TOCMessage>(entry.range, TOCListing::ofHeaderBlock(header->view()));
        found->setIsRead(!unread);
        fresh.push_back(std::move(found));
    });
    // The last message may have grown by what closes a line, never shrunk.
    if (!scanned || !readable || isFirst || (last && lastRange.length < last->mboxRange().length)) return false;
    for (const auto& message : fresh) message->setMessageStore(shared_from_this());
    {
        const MutexLock lock(_placesMutex);
        if (last != nullptr && last->mboxRange() != lastRange) {
            last->setMboxRange(lastRange);
            _listsAreExact = false;
        }
        _mbox = now;
    }
    added = MessageList(std::move(fresh));
    _toc->addMessages(added);
    return true;
}

void TarnMbox::_appendDone(const MessageList& added) {
    _listAppended(added);
    structureDidChange();
    addMessagesToIndex(added);
    updateIndex();
    _updateStoreAttributes();
    NotificationCenter::defaultCenter().postNotification(MessageStoreAppendDone, weak_from_this().lock());
}

void TarnMbox::asyncAppendMessages(const MessageList& messages, bool, Taken taken) {
    if (taken && (!mayChange() || messages.empty())) std::exchange(taken, nullptr)({});
    if (!mayChange()) return;
    // Without messages nothing ever counts this down again, so that mail from the background waits for the next
    // opening.  Callers never append nothing; a count that is too high loses no mail, one that is too low would
    // take it in too early.
    ++_numberOfAppends;
    const auto number = ++_lastAppend;
    if (taken) _untold[number] = std::move(taken);
    const auto append = [this, messages, number] {
        MessageList onDisk;
        _safeAppend(messages, onDisk);
        const MutexLock lock(_lock);
        _onDisk[number] = std::move(onDisk);
    };
    const auto tellMain = [path = _storePath] {
        userAgentOrAbsent().postNotificationNameInMainThread(kThreadFetchFinished,
                                                             std::make_shared<const std::string>(path));
    };
    try {
        _appends.emplace_back("append", [append, tellMain, any = !messages.empty()](const std::stop_token&) {
            append();
            if (any) tellMain();
        });
    } catch (const GenericException& exception) {
        log("%@", exception.reason());
        append();  // no thread is left, so in this one
        if (!messages.empty()) tellMain();
    }
}

bool TarnMbox::safeAppendMessages(const MessageList& messages) {
    if (!mayChange()) return false;
    if (messages.empty()) return true;
    MessageList onDisk;
    const bool done = _safeAppend(messages, onDisk);
    userAgentOrAbsent().postNotificationNameInMainThread(kThreadFetchFinished,
                                                         std::make_shared<const std::string>(_storePath));
    return done;
}

bool TarnMbox::_safeAppend(const MessageList& messages, MessageList& onDisk) {
    if (!mayChange() || messages.empty()) return false;
    const MutexLock lock(_lock);
    try {
        return _unpackSpoolCopy(messages, onDisk);
    } catch (const std::exception& exception) {
        log("fatal exception during append: %@", exception.what());
        return false;
    }
}

/// Tells those who wait for their appends, of which all mail on disk has been listed or none.
void TarnMbox::_tellTaken(bool listed) {
    const auto untold = std::exchange(_untold, {});
    std::map<std::uint64_t, MessageList> onDisk;
    {
        const MutexLock lock(_lock);
        onDisk.swap(_onDisk);
    }
    for (const auto& [number, taken] : untold)
        runLoggingExceptions("telling of an append",
                             [&, &tell = taken, &all = onDisk[number]] { tell(listed ? all : MessageList()); });
}

bool TarnMbox::_unpackSpoolCopy(const MessageList& messages, MessageList& onDisk) {
    const auto mailPath = pathOf(kIncomingMailName), tablePath = pathOf(kIncomingTableName);
    auto& files = FileSystem::current();
    const bool isNew = !files.exists(mailPath);
    // A table without its mail tells of mail that has been taken in.
    if (auto removed = isNew ? removeIfThere(tablePath) : FileStatus(); !removed) {
        log("%@", removed.text());
        return false;
    }
    auto table = isNew ? nullptr : TableOfContents::initWithPath(tablePath);
    if (table == nullptr) table = std::make_unique<TableOfContents>(tablePath);
    MboxAppender file(mailPath);
    if (!file.status()) log("%@", file.status().text());
    Batch batch(file, _storePath, /*unread=*/true);
    for (const auto& message : messages) batch.add(message);
    batch.flush();
    table->addMessages(std::vector<std::shared_ptr<Message>>(batch.records.begin(), batch.records.end()));
    const auto status = isNew ? files.syncFolder(_storePath) : FileStatus();
    if (!status) log("%@", status.text());
    // The mail is on disk; without its table it is found by a scan.
    table->flushToFile();
    if (status) onDisk = batch.taken;
    return batch.all() && status;
}

void TarnMbox::_finishedFetchingInThread(const Notification& notification) {
    const auto path = std::static_pointer_cast<const std::string>(notification.object);
    if (path == nullptr || *path != _storePath) return;
    if (_numberOfAppends > 0) --_numberOfAppends;
    if (_numberOfAppends > 0) return;
    _appends.clear();  // they have ended or are about to
    runLoggingExceptions("taking in fetched mail", [this] { finalizeAsyncAppend(); });
}

void TarnMbox::finalizeAsyncAppend() {
    MessageList added;
    bool done = false;
    runLoggingExceptions("taking in fetched mail", [&] {
        if (!mayChange() || !FileSystem::current().exists(pathOf(kIncomingMailName)) || !_catchUp()) return;
        // No thread may add to the incoming files between their being read and removed.
        const MutexLock lock(_lock);
        done = _takeInSpool(added);
    });
    // Before anybody else hears of it: who does may append again.
    if (_numberOfAppends == 0) _tellTaken(done);
    if (done) _appendDone(added);
}

bool TarnMbox::_takeInSpool(MessageList& added) {
    const auto mailPath = pathOf(kIncomingMailName), tablePath = pathOf(kIncomingTableName);
    auto& files = FileSystem::current();
    FileStatus status;
    const auto mail = files.openForReading(mailPath, &status);
    const auto contents = mail != nullptr ? lookAtSpool(*mail) : Spool::strange;
    if (contents == Spool::nothing) {
        for (const auto& path : {tablePath, mailPath})
            if (const auto removed = removeIfThere(path); !removed) log("%@", removed.text());
        return false;
    }
    if (mail != nullptr && contents == Spool::strange) {
        // Whatever it is, it must stand neither in the mailbox nor in the way of mail to come.
        const auto aside = uniquePath(mailPath + ".unreadable");
        log("%@ holds no mail, and goes to %@", mailPath, aside);
        if (const auto moved = files.rename(mailPath, aside); !moved) log("%@", moved.text());
        return false;
    }
    MboxAppender file(_mboxPath);
    const auto range = mail != nullptr ? file.appendFile(*mail) : std::nullopt;
    if (!range) {
        if (mail != nullptr) status = file.status();
        // It stays where it is, and is taken in the next time.
        log("%@", status.text());
        MessageList unlisted;
        if (!_listTail({}, false, unlisted) && _rebuildTableOfContents()) rebuildMessageLists();
        _listAppended(unlisted);
        return false;
    }
    Listed records;
    if (const auto table = TableOfContents::initWithPath(tablePath)) {
        for (const auto& message : table->messages()) {
            auto record = std::static_pointer_cast<TOCMessage>(message);
            const auto place = record->mboxRange();
            record->setMboxRange({place.location + range->location, place.length});
            records.push_back(std::move(record));
        }
    }
    if (!_listTail(records, /*unread=*/true, added)) {
        if (!_rebuildTableOfContents()) return false;
        rebuildMessageLists();
    }
    // Only when the status is on disk the place from which it could be had again may go; the table first, since
    // it must not outlive its mail.
    _toc->flushToFile(mbox()->known);
    for (const auto& path : {tablePath, mailPath})
        if (const auto removed = removeIfThere(path); !removed) log("%@", removed.text());
    if (const auto synced = files.syncFolder(_storePath); !synced) log("%@", synced.text());
    return true;
}

bool TarnMbox::_createSpoolCopyFromMessages(const MessageList& messages) {
    if (!mayChange()) return false;
    FileStatus status;
    const auto file = FileSystem::current().openForWriting(pathOf(kSpoolCopyName), WriteMode::truncate,
                                                           kMailboxPermissions, &status);
    for (const auto& message : messages) {
        const auto bytes = status ? message->messageData() : std::nullopt;
        if (bytes) status = file->write(bytes->view());
    }
    if (status) status = file->sync();
    if (status) status = file->close();
    if (!status) log("%@", status.text());
    return static_cast<bool>(status);
}

}  // namespace lorvale
