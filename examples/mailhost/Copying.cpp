#include "Copying.h"

#include <filesystem>

#include "Accounts.h"
#include "Mailbox.h"
#include "ServerMailbox.h"
#include "Terminal.h"
#include "UndoHistory.h"
#include "Work.h"

namespace mailhost {

namespace {

/// Messages of one account need no detour.  False where they do.
bool copyOnServer(const Mailbox& source, const lorvale::MessageList& messages, const std::string& to) {
    const auto here = placeOnServer(source.path()), there = placeOnServer(to);
    auto* const store = dynamic_cast<lorvale::IMAPStore*>(&source.store());
    if (!here || !there || here->account != there->account || store == nullptr || !store->isConnected())
        return false;
    if (!store->copyMessages(messages, there->name))
        throw Failure(to + ": the server has not taken the messages" + reasonOf(*store) + "; " + source.path() +
                      " is as it was");
    return true;
}

/// A flat mailbox answers false whatever came of it; its list tells.
bool append(const std::vector<std::shared_ptr<lorvale::Message>>& run, lorvale::MessageStore& target,
            bool unread) {
    const auto before = target.totalCount();
    const bool isFlat = dynamic_cast<lorvale::BerkeleyMbox*>(&target) != nullptr;
    return target.syncAppendMessages(run, unread) || (isFlat && target.totalCount() == before + run.size());
}

}  // namespace

bool copyAll(const lorvale::MessageList& messages, lorvale::MessageStore& target, bool allUnread,
             const std::string& title) {
    constexpr std::size_t kRun = 256;
    ProgressBar progress(title, messages.size());
    const auto isUnread = [&](const auto& message) { return allUnread || !message->currentFlags()->isRead(); };
    bool copied = true;
    for (std::size_t first = 0; first < messages.size();) {
        std::vector<std::shared_ptr<lorvale::Message>> run;
        const bool unread = isUnread(messages[first]);
        for (auto i = first; i < messages.size() && run.size() < kRun && isUnread(messages[i]) == unread; ++i)
            run.push_back(messages[i]);
        workOn("messages from " + std::to_string(first + 1) + " on", 0,
               [&] { copied = append(run, target, unread) && copied; });
        for (const auto& message : run) {
            forget(*message);
            progress.advance();
        }
        first += run.size();
    }
    return copied;
}

void copyInto(const std::string& to, const Mailbox& source, const lorvale::MessageList& messages) {
    std::error_code ignored;
    if (std::filesystem::equivalent(pathOfMailbox(source.path()), pathOfMailbox(to), ignored))
        throw Failure(to + ": is the same mailbox");
    if (copyOnServer(source, messages, to)) return;
    Mailbox target(to, Mailbox::Access::change);
    if (!copyAll(messages, target.store(), /*allUnread=*/false, "Copying"))
        throw Failure(to + ": not all messages could be added" + reasonOf(target.store()) + "; " +
                      source.path() + " is as it was");
}

void needServerToTakeOut(const Mailbox& mailbox) {
    if (const auto place = placeOnServer(mailbox.path()))
        needServer(*place, dynamic_cast<lorvale::IMAPStore&>(mailbox.store()));
}

void takeOut(Mailbox& mailbox, const lorvale::MessageList& messages) {
    auto& store = mailbox.store();
    const bool isOnServer = dynamic_cast<lorvale::IMAPStore*>(&store) != nullptr;
    if (isOnServer || dynamic_cast<lorvale::TarnMbox*>(&store) != nullptr) {
        needServerToTakeOut(mailbox);
        const auto fresh = notYetDeleted(messages);
        store.deleteMessages(messages);
        needServerToTakeOut(mailbox);  // else it went meanwhile, and may not know
        return noteDeletion(store, fresh);
    }
    const auto before = mailbox.count();
    store.deleteMessages(messages);
    store.doCompact();
    if (mailbox.count() != before - messages.size())
        throw Failure(mailbox.path() + ": the messages were copied, but could not be removed here");
}

}  // namespace mailhost
