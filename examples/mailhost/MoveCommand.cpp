/// Moving and copying messages between mailboxes.
#include <filesystem>
#include <utility>

#include "Accounts.h"
#include "Commands.h"
#include "Copying.h"
#include "Json.h"
#include "Mailbox.h"
#include "Output.h"
#include "ServerMailbox.h"
#include "Terminal.h"
#include "UndoHistory.h"

namespace mailhost {

namespace {

constexpr auto kTo = mailboxWord("TO", "the mailbox that they go to");
constexpr auto kWords = std::to_array<Parameter>({kMailbox, kNumbers, kTo});

struct Picked {
    std::vector<std::uint64_t> numbers;  // each once, ascending
    lorvale::MessageList messages;
};

Picked pick(const Mailbox& mailbox, const Arguments& arguments) {
    auto numbers = givenNumbers(arguments);
    auto messages = mailbox.messages(numbers);
    return {std::move(numbers), std::move(messages)};
}

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

/// All of them are in the other mailbox, on the disk, when it returns.
void append(const Mailbox& source, const lorvale::MessageList& messages, const std::string& to) {
    std::error_code ignored;
    if (std::filesystem::equivalent(pathOfMailbox(source.path()), pathOfMailbox(to), ignored))
        throw Failure(to + ": is the same mailbox");
    if (copyOnServer(source, messages, to)) return;
    Mailbox target(to, Mailbox::Access::change);
    if (!copyAll(messages, target.store(), /*allUnread=*/false, "Copying"))
        throw Failure(to + ": not all messages could be added" + reasonOf(target.store()) + "; " +
                      source.path() + " is as it was");
}

/// Takes out of the mailbox what is in the other one now.
void takeOut(Mailbox& mailbox, const Picked& picked) {
    auto& store = mailbox.store();
    if (dynamic_cast<lorvale::IMAPStore*>(&store) != nullptr) {
        needServer(*placeOnServer(mailbox.path()), dynamic_cast<lorvale::IMAPStore&>(store));
        const auto fresh = notYetDeleted(picked.messages);
        store.deleteMessages(picked.messages);
        needServer(*placeOnServer(mailbox.path()), dynamic_cast<lorvale::IMAPStore&>(store));
        return noteDeletion(store, fresh);
    }
    if (dynamic_cast<lorvale::TarnMbox*>(&store) != nullptr) {
        const auto fresh = notYetDeleted(picked.messages);
        store.deleteMessages(picked.messages);
        return noteDeletion(store, fresh);
    }
    // A flat mailbox keeps no marks.
    const auto before = mailbox.count();
    store.deleteMessages(picked.messages);
    store.doCompact();
    if (mailbox.count() != before - picked.numbers.size())
        throw Failure(mailbox.path() + ": the messages were copied, but could not be removed here");
}

int report(const Arguments& arguments, const char* what, std::size_t count) {
    const auto to = arguments[kTo];
    if (arguments.has(kJson)) {
        JsonObject object;
        object.add(what, count).add("to", to);
        LineOutput().write(object.text());
    } else {
        LineOutput().write(groupedNumber(count) + (count == 1 ? " message " : " messages ") + what + ".");
    }
    return 0;
}

int runCopy(const Arguments& arguments) {
    const Mailbox mailbox(arguments[kMailbox]);
    const auto picked = pick(mailbox, arguments);
    append(mailbox, picked.messages, arguments[kTo]);
    return report(arguments, "copied", picked.numbers.size());
}

int runMove(const Arguments& arguments) {
    Mailbox mailbox(arguments[kMailbox], Mailbox::Access::change);
    const auto picked = pick(mailbox, arguments);
    if (const auto place = placeOnServer(mailbox.path()))
        needServer(*place, dynamic_cast<lorvale::IMAPStore&>(mailbox.store()));
    append(mailbox, picked.messages, arguments[kTo]);
    takeOut(mailbox, picked);
    return report(arguments, "moved", picked.numbers.size());
}

}  // namespace

const Command copyCommand = {
    .name = "copy",
    .summary = "copies messages into another mailbox",
    .description =
        "Appends copies of messages to another mailbox, which must be there. What was unread stays unread.\n\n"
        "In JSON the one line has the members copied and to.",
    .words = kWords,
    .options = {},
    .run = runCopy,
};

const Command moveCommand = {
    .name = "move",
    .summary = "moves messages into another mailbox",
    .description =
        "Appends messages to another mailbox, which must be there, and when they are on the disk marks them as "
        "deleted in this one, as \"flag --delete\" does; \"undo\" takes the marks back. Out of a flat mailbox, "
        "which "
        "keeps no marks, they are taken at once. Whatever goes wrong between, a message is in one of the two "
        "or "
        "in both.\n\n"
        "In JSON the one line has the members moved and to.",
    .words = kWords,
    .options = {},
    .run = runMove,
};

}  // namespace mailhost
