/// What changes the file of a flat mailbox: appending, compacting, and writing a copy.
#include <cerrno>
#include <utility>

#include "base/files/FileSystem.h"
#include "lorvale/message.h"
#include "lorvale/platform/log.h"
#include "lorvale/store/berkeley_mbox.h"
#include "mail/stores/AppendableBytes.h"
#include "mail/stores/MboxContents.h"
#include "mail/stores/MboxReplacement.h"

namespace lorvale {

void BerkeleyMbox::doCompact() {
    const auto all = allMessages();
    const auto deleted = lists().deleted;
    if (!mayChange() || !deleted || deleted->empty()) return;
    const auto known = contents();
    const auto left = all.removing(*deleted);
    const auto copyWithoutDeleted = [&](const MboxContents& now, MboxReplacement& next) {
        if (!known->leadsTo(now)) {
            log("The mailbox %@ was changed by another program and is not compacted", _storePath);
            return false;
        }
        const auto entries = now.entries();
        next.copyStart();
        std::size_t first = 0;  // of the messages that stay, up to the next one that goes
        for (std::size_t i = 0, kept = 0; i < all.size(); ++i) {
            if (kept < left.size() && all[i] == left[kept]) {
                ++kept;
                continue;
            }
            next.copy(entries.subspan(first, i - first));
            first = i + 1;
        }
        next.copy(entries.subspan(first));
        return true;
    };
    const auto done = known->rewrite(kMailboxPermissions, copyWithoutDeleted);
    if (done.after == nullptr) {
        if (!done.reason.empty()) log("The mailbox %@ is not compacted: %@", _storePath, done.reason);
        return;
    }
    _forgetDeletedMessages();
    _adopt(done.after, left);
    MessageStore::doCompact();
    structureDidChange();
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
    const auto appended = [&](const MboxContents& now, MboxReplacement& next) {
        if (!now.isMbox()) {
            log("%@ is no mailbox, so nothing is appended to it", _storePath);
            return false;
        }
        next.copyStart();
        next.copy(now.entries());
        next.endLine();
        bool any = false;
        for (const auto& message : messages) {
            const auto bytes = AppendableBytes::ofMessage(*message);
            if (!bytes) continue;
            next.writeMessage(bytes->header.view(), bytes->body.view());
            any = true;
        }
        return any;
    };
    const auto done = contents()->rewrite(std::nullopt, appended);
    if (done.after == nullptr) {
        if (!done.reason.empty()) log("Nothing was appended to the mailbox %@: %@", _storePath, done.reason);
        return false;
    }
    _adopt(done.after, _messagesStillIn(*done.before));
    structureDidChange();
    return true;
}

bool BerkeleyMbox::writeToFile(const std::string& path) {
    const auto contents = this->contents();
    if (contents == nullptr) return false;
    if (_standarizedStorePath(path) == _storePath) {
        log("The mailbox %@ cannot be written over itself", _storePath);
        return false;
    }
    FileStatus status;
    const auto file =
        FileSystem::current().openForWriting(path, WriteMode::truncate, kMailboxPermissions, &status);
    if (file != nullptr) status = contents->copyTo(*file);
    if (status) status = file->close();
    if (!status) log("%@", status.text());
    return static_cast<bool>(status);
}

}  // namespace lorvale
