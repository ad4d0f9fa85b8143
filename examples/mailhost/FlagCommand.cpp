#include "Commands.h"
#include "Json.h"
#include "Mailbox.h"
#include "Output.h"
#include "ServerMailbox.h"
#include "Terminal.h"
#include "UndoHistory.h"

namespace mailhost {

namespace {

constexpr auto kRead = flag("--read", "mark as read", "reading");
constexpr auto kUnread = flag("--unread", "mark as unread", "reading");
constexpr auto kDelete = flag("--delete", "mark as deleted, and with that as read", "deleting");
constexpr auto kUndelete = flag("--undelete", "take the mark away", "deleting");
constexpr auto kFlagWords = std::to_array<Parameter>({kDirectoryMailbox, kNumbers});
constexpr auto kFlagOptions = std::to_array<Parameter>({kRead, kUnread, kDelete, kUndelete});
constexpr auto kUndoWords = std::to_array<Parameter>({kDirectoryMailbox});

/// How the messages stand now.
void print(lorvale::MessageStore& store, const lorvale::MessageList& messages, bool asJson) {
    LineOutput output;
    for (const auto& message : messages) {
        const auto flags = message->currentFlags();
        const auto number = store.numberOfMessage(*message);
        if (asJson) {
            JsonObject object;
            object.add("number", number).add("read", flags->isRead()).add("deleted", flags->isDeleted());
            output.write(object.text());
        } else {
            output.write(nameOfMessage(number) + ": " + (flags->isRead() ? "read" : "unread") +
                         (flags->isDeleted() ? ", deleted" : ""));
        }
    }
}

void mark(lorvale::MessageStore& store, const lorvale::MessageList& messages, const Arguments& arguments) {
    if (arguments.has(kDelete)) store.deleteMessages(messages);
    if (arguments.has(kUndelete)) store.undeleteMessages(messages);
    if (arguments.has(kRead) || arguments.has(kUnread)) store.setRead(arguments.has(kRead), messages);
}

int runFlag(const Arguments& arguments) {
    const bool marksReading = arguments.has(kRead) || arguments.has(kUnread);
    const bool marksDeleting = arguments.has(kDelete) || arguments.has(kUndelete);
    if (!marksReading && !marksDeleting)
        throw UsageError("flag needs one of --read, --unread, --delete and --undelete");
    const auto numbers = givenNumbers(arguments);
    const auto typed = arguments[kDirectoryMailbox];
    if (const auto place = placeOnServer(typed)) {
        Mailbox mailbox(typed, Mailbox::Access::change);
        auto& store = dynamic_cast<lorvale::IMAPStore&>(mailbox.store());
        needServer(*place, store);
        const auto messages = mailbox.messages(numbers);
        const auto fresh = notYetDeleted(messages);
        mark(store, messages, arguments);
        needServer(*place, store);  // else it went meanwhile, and may not know
        if (arguments.has(kDelete)) noteDeletion(store, fresh);
        print(store, messages, arguments.has(kJson));
        return 0;
    }
    ChangingMailbox mailbox(typed);
    auto& store = mailbox.store();
    const auto messages = mailbox.messages(numbers);
    const auto fresh = notYetDeleted(messages);
    mark(store, messages, arguments);
    if (arguments.has(kDelete)) noteDeletion(store, fresh);
    print(store, messages, arguments.has(kJson));
    return 0;
}

lorvale::MessageList undo(lorvale::MessageStore& store) {
    const auto messages = takeLastDeletion(store);
    if (!messages) throw Failure("there is nothing to take back");
    store.undeleteMessages(*messages);
    return *messages;
}

int runUndo(const Arguments& arguments) {
    const auto typed = arguments[kDirectoryMailbox];
    if (const auto place = placeOnServer(typed)) {
        Mailbox mailbox(typed, Mailbox::Access::change);
        auto& store = dynamic_cast<lorvale::IMAPStore&>(mailbox.store());
        needServer(*place, store);
        const auto messages = undo(store);
        needServer(*place, store);
        print(store, messages, arguments.has(kJson));
        return 0;
    }
    ChangingMailbox mailbox(typed);
    print(mailbox.store(), undo(mailbox.store()), arguments.has(kJson));
    return 0;
}

}  // namespace

const Command flagCommand = {
    .name = "flag",
    .summary = "marks messages as read, unread or deleted",
    .description =
        "Sets marks on messages of a directory mailbox, by their numbers. A deleted message stays in the "
        "mailbox "
        "until that is compacted.\n\n"
        "In JSON there is a line for each message, with the members number, read and deleted.",
    .words = kFlagWords,
    .options = kFlagOptions,
    .run = runFlag,
};

const Command undoCommand = {
    .name = "undo",
    .summary = "takes the last deletion back",
    .description =
        "Takes back what the last \"flag --delete\" has marked, and the time after that what the one before "
        "it did. The messages stay marked as read. What was compacted is gone.\n\n"
        "In JSON there is a line for each message, with the members number, read and deleted.",
    .words = kUndoWords,
    .options = {},
    .run = runUndo,
};

}  // namespace mailhost
