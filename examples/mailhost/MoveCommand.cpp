/// Moving and copying messages between mailboxes.
#include <utility>

#include "Commands.h"
#include "Copying.h"
#include "Json.h"
#include "Mailbox.h"
#include "Output.h"
#include "Terminal.h"

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
    copyInto(arguments[kTo], mailbox, picked.messages);
    return report(arguments, "copied", picked.numbers.size());
}

int runMove(const Arguments& arguments) {
    Mailbox mailbox(arguments[kMailbox], Mailbox::Access::change);
    const auto picked = pick(mailbox, arguments);
    needServerToTakeOut(mailbox);
    copyInto(arguments[kTo], mailbox, picked.messages);
    takeOut(mailbox, picked.messages);
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
