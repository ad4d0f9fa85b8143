#include <filesystem>

#include "Commands.h"
#include "ConsoleAgent.h"
#include "Json.h"
#include "Mailbox.h"
#include "Output.h"
#include "Terminal.h"
#include "Work.h"
#include "lorvale/platform/paths.h"

namespace mailhost {

namespace {

constexpr auto kFile = mailboxWord("FILE", "the path of any mailbox");
constexpr auto kUnread = flag("--unread", "list all of it as unread");
constexpr auto kWords = std::to_array<Parameter>({kFile, kDirectoryMailbox});
constexpr auto kOptions = std::to_array<Parameter>({kUnread});

/// Copies messages in runs of equal status, so that it stays, and gives back what was loaded of each.
void copyAll(const lorvale::MessageList& messages, lorvale::TarnMbox& target, bool allUnread) {
    constexpr std::size_t kRun = 256;
    ProgressBar progress("Importing", messages.size());
    const auto isUnread = [&](const auto& message) { return allUnread || !message->currentFlags()->isRead(); };
    for (std::size_t first = 0; first < messages.size();) {
        std::vector<std::shared_ptr<lorvale::Message>> run;
        const bool unread = isUnread(messages[first]);
        for (auto i = first; i < messages.size() && run.size() < kRun && isUnread(messages[i]) == unread; ++i)
            run.push_back(messages[i]);
        workOn("messages from " + std::to_string(first + 1) + " on", 0,
               [&] { target.syncAppendMessages(run, unread); });
        for (const auto& message : run) {
            forget(*message);
            progress.advance();
        }
        first += run.size();
    }
}

int run(const Arguments& arguments) {
    const auto file = arguments[kFile], path = arguments[kDirectoryMailbox];
    std::error_code error;
    if (std::filesystem::equivalent(lorvale::standardizePath(file), lorvale::standardizePath(path), error))
        throw Failure(file + ": a mailbox cannot be imported into itself");
    Mailbox source(file);
    ChangingMailbox target(path, ChangingMailbox::IfMissing::make);
    const auto messages = source.store().allMessages();
    const auto before = target.store().totalCount();
    copyAll(messages, target.store(), arguments.has(kUnread));
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
