#include <filesystem>

#include "Commands.h"
#include "ConsoleAgent.h"
#include "Copying.h"
#include "Json.h"
#include "Mailbox.h"
#include "Output.h"
#include "Terminal.h"
#include "lorvale/platform/paths.h"

namespace mailhost {

namespace {

constexpr auto kFile = mailboxWord("FILE", "the path of any mailbox");
constexpr auto kUnread = flag("--unread", "list all of it as unread");
constexpr auto kWords = std::to_array<Parameter>({kFile, kDirectoryMailbox});
constexpr auto kOptions = std::to_array<Parameter>({kUnread});

int run(const Arguments& arguments) {
    const auto file = arguments[kFile], path = arguments[kDirectoryMailbox];
    std::error_code error;
    if (std::filesystem::equivalent(lorvale::standardizePath(file), lorvale::standardizePath(path), error))
        throw Failure(file + ": a mailbox cannot be imported into itself");
    Mailbox source(file);
    ChangingMailbox target(path, ChangingMailbox::IfMissing::make);
    const auto messages = source.store().allMessages();
    const auto before = target.store().totalCount();
    copyAll(messages, target.store(), arguments.has(kUnread), "Importing");
    const auto imported = target.store().totalCount() - before;
    const auto failed = messages.size() - std::min(messages.size(), imported);
    if (arguments.has(kJson)) {
        JsonObject object;
        object.add("imported", imported).add("failed", failed);
        LineOutput().write(object.text());
    } else {
        LineOutput().write(groupedNumber(imported) + (imported == 1 ? " message" : " messages") + " imported.");
    }
    if (failed == 0) return 0;
    say("mailhost: " + groupedNumber(failed) + (failed == 1 ? " message" : " messages") +
        " could not be imported; --verbose tells why");
    return 1;
}

}  // namespace

const Command importCommand = {
    .name = "import",
    .summary = "copies any mailbox into a directory mailbox",
    .description =
        "Appends all messages of a mailbox to a directory mailbox, which is made if it is missing; its name "
        "ends "
        "in \".mbox\". Bytes and order stay, and so does what was read or deleted, where FILE keeps that: mail "
        "of a flat mailbox counts as read. Each message is on disk before the command ends.\n\n"
        "In JSON the one line has the members imported and failed.",
    .words = kWords,
    .options = kOptions,
    .run = run,
};

}  // namespace mailhost
