/// What changes the file of a flat mailbox: appending, compacting, and writing a copy.
#include <algorithm>
#include <cerrno>
#include <unordered_set>
#include <utility>

#include "base/files/FileSystem.h"
#include "lorvale/message.h"
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/store/berkeley_mbox.h"
#include "mail/stores/MboxReplacement.h"
#include "mail/stores/MboxSnapshot.h"
#include "mail/stores/TOCMessage.h"

namespace lorvale {

namespace {

// How often to begin anew when other programs write into the file while it is being copied.
constexpr int kAttempts = 3;
constexpr mode_t kMailboxPermissions = 0700;
constexpr std::uint32_t kCopyBlock = 1 << 20;

/// The whole message for a mailbox, with an envelope line; nullopt, after a log line, when it has no bytes.
std::optional<Data> dataForMailbox(Message& message) {
    const auto headers = message.headers();
    const bool wasLoaded = message.cachedDataSize() > headers->cachedDataSize() || headers->hasAllHeaders();
    std::optional<Data> data;
    try {
        headers->appendFromSpaceIfMissing();
        data = message.messageData();
        if (!data) log("A message without headers cannot be appended");
    } catch (const NamedException& exception) {
        log("A message cannot be appended: %@", exception.what());
    }
    // A whole mailbox may be on its way, so what only this has loaded goes again.
    if (!wasLoaded && !headers->headersChanged()) message.flushCachedData();
    return data;
}

/// What is left of a mailbox after compaction.
struct Survivors {
    std::vector<std::shared_ptr<Message>> messages;
    std::vector<MboxRange> ranges;  // in the new file
};

/// Copies all of the mailbox but the deleted messages.
Survivors copyWithoutDeleted(MboxReplacement& next, const MboxSnapshot& now, const MessageList& all,
                             const std::vector<MboxRange>& ranges, const MessageList& deleted) {
    const std::unordered_set<std::shared_ptr<Message>> going(deleted.begin(), deleted.end());
    Survivors left;
    std::uint64_t copied = 0;  // how far the old file is dealt with
    std::uint32_t removed = 0;
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (!going.contains(all[i])) {
            left.messages.push_back(all[i]);
            left.ranges.push_back({ranges[i].location - removed, ranges[i].length});
            continue;
        }
        next.copy(copied, ranges[i].location);
        copied = ranges[i].end();
        removed += ranges[i].length;
    }
    next.copy(copied, now.size());
    return left;
}

}  // namespace

void BerkeleyMbox::doCompact() {
    const auto deleted = lists().deleted;
    if (!mayChange() || !deleted || deleted->empty()) return;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const auto now = _takeSnapshot();
        if (now == nullptr) return;
        const auto ranges = _mboxData->rangesIn(*now, rangesOf(allMessages()));
        if (!ranges) {
            log("The mailbox %@ was changed by another program and is not compacted", _storePath);
            return;
        }
        MboxReplacement next(_storePath, *now, kMailboxPermissions);
        auto left = copyWithoutDeleted(next, *now, allMessages(), *ranges, *deleted);
        switch (next.commit()) {
            case MboxReplacement::Outcome::sourceChanged:
                continue;
            case MboxReplacement::Outcome::failed:
                log("The mailbox %@ could not be compacted: %@", _storePath, next.reason());
                return;
            case MboxReplacement::Outcome::done:
                break;
        }
        _forgetDeletedMessages();
        for (std::size_t i = 0; i < left.messages.size(); ++i)
            static_cast<TOCMessage&>(*left.messages[i]).setMboxRange(left.ranges[i]);
        _adopt(_takeSnapshot(), std::move(left.messages));
        MessageStore::doCompact();
        structureDidChange();
        return;
    }
    log("The mailbox %@ is busy and is not compacted", _storePath);
}

bool BerkeleyMbox::syncAppendMessages(const MessageList& messages, bool) {
    if (!mayChange()) return false;
    if (messages.empty()) return true;
    _appendMessages(messages);
    // The answer to a successful append has always been false.  Callers that move mail delete the originals
    // only on true, and so keep them; with a true here they would begin to lose their second copy.
    return false;
}

bool BerkeleyMbox::_appendMessages(const MessageList& messages) {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const auto now = _takeSnapshot();
        if (now == nullptr) return false;
        if (!isMbox(now->view())) {
            log("%@ is no mailbox, so nothing is appended to it", _storePath);
            return false;
        }
        MboxReplacement next(_storePath, *now, std::nullopt);
        next.copy(0, now->size());
        next.endLine();
        for (const auto& message : messages) {
            const auto data = dataForMailbox(*message);
            if (!data) continue;
            next.write(data->view());
            next.write(mboxPadding(data->view()));
        }
        switch (next.commit()) {
            case MboxReplacement::Outcome::sourceChanged:
                continue;
            case MboxReplacement::Outcome::failed:
                log("Nothing was appended to the mailbox %@: %@", _storePath, next.reason());
                return false;
            case MboxReplacement::Outcome::done:
                break;
        }
        auto survivors = _messagesStillIn(*now);
        _adopt(_takeSnapshot(), std::move(survivors));
        structureDidChange();
        return true;
    }
    log("The mailbox %@ is busy, nothing was appended to it", _storePath);
    return false;
}

bool BerkeleyMbox::writeToFile(const std::string& path) {
    if (_mboxData == nullptr) return false;
    if (_standarizedStorePath(path) == _storePath) {
        log("The mailbox %@ cannot be written over itself", _storePath);
        return false;
    }
    FileStatus status;
    const auto file =
        FileSystem::current().openForWriting(path, WriteMode::truncate, kMailboxPermissions, &status);
    const auto size = static_cast<std::uint32_t>(_mboxData->size());
    for (std::uint32_t at = 0; status && at < size;) {
        const MboxRange block{at, std::min(kCopyBlock, size - at)};
        const auto bytes = _mboxData->bytes(block);
        status = bytes ? file->write(bytes->view()) : FileStatus(EIO, _storePath + " has been cut off");
        at += block.length;
    }
    if (status) status = file->close();
    if (!status) log("%@", status.text());
    return static_cast<bool>(status);
}

}  // namespace lorvale
