/// Mirrors of mailboxes on servers: filling them, and what waits in them for the server.
#include <filesystem>
#include <memory>
#include <utility>

#include "Commands.h"
#include "ConsoleAgent.h"
#include "Json.h"
#include "Mailbox.h"
#include "Output.h"
#include "ServerMailbox.h"
#include "Summary.h"
#include "Table.h"
#include "Terminal.h"
#include "lorvale/message/addresses.h"

namespace mailhost {

namespace {

using lorvale::IMAPAccount;
using lorvale::IMAPCachePolicy;

constexpr auto kWhat = Typed<std::string>{{.name = "WHAT",
                                           .placeholder = {},
                                           .help = "an IMAP account, or ACCOUNT/NAME; all accounts without one",
                                           .takes = Takes::text,
                                           .isOptional = true}};
constexpr auto kWords = std::to_array<Parameter>({kWhat});
constexpr auto kHeaders = flag("--headers", "the lists alone", "how much");
constexpr auto kAll = flag("--all", "all messages, whatever the account keeps", "how much");
constexpr auto kOptions = std::to_array<Parameter>({kHeaders, kAll});

/// The mailboxes that a user means.
std::vector<Place> placesOf(const std::optional<std::string>& what) {
    std::vector<Place> places;
    const auto addAll = [&](const std::shared_ptr<IMAPAccount>& account) {
        forEachMailbox(*account, [&](const std::string& name) {
            places.push_back({account, name, account->path() + "/" + name});
        });
    };
    if (const auto place = what ? placeOnServer(*what) : std::nullopt) return {*place};
    if (what) {
        const auto account = std::dynamic_pointer_cast<IMAPAccount>(accountNamed(*what));
        if (!account) throw Failure(*what + ": is no IMAP account");
        addAll(account);
        return places;
    }
    for (const auto& account : allAccounts())
        if (const auto onServer = std::dynamic_pointer_cast<IMAPAccount>(account)) addAll(onServer);
    return places;
}

struct Outcome {
    std::size_t messages = 0, fetched = 0, missing = 0, queued = 0;
};

Outcome synchronize(const Place& place, IMAPCachePolicy policy) {
    // The list first, so that a mailbox that is not there is told at once.
    auto store = openOnServer(place, ServerAccess::change);
    needServer(place, *store);
    if (policy == IMAPCachePolicy::allMessages) fetchMissing(place, *store);
    settle(*store);
    const auto progress = store->mirrorProgress();
    const Outcome outcome{store->totalCount(), progress.done, progress.total - progress.done,
                          store->pendingAppendCount()};
    store->close();
    return outcome;
}

int runSync(const Arguments& arguments) {
    LineOutput output;
    bool good = true;
    for (const auto& place : placesOf(arguments.value(kWhat))) {
        const auto shown = nameOf(*place.account) + "/" + place.name;
        try {
            const auto policy = arguments.has(kAll)       ? IMAPCachePolicy::allMessages
                                : arguments.has(kHeaders) ? IMAPCachePolicy::messagesAsRead
                                                          : configuredPolicy(*serverAccount(place));
            const auto outcome = synchronize(place, policy);
            good = good && outcome.missing == 0 && outcome.queued == 0;
            if (arguments.has(kJson)) {
                JsonObject object;
                object.add("mailbox", shown).add("messages", outcome.messages).add("fetched", outcome.fetched);
                object.add("missing", outcome.missing).add("queued", outcome.queued);
                output.write(object.text());
                continue;
            }
            auto line = shown + ": " + groupedNumber(outcome.messages) +
                        (outcome.messages == 1 ? " message, " : " messages, ") +
                        groupedNumber(outcome.fetched) + " fetched";
            if (outcome.missing > 0) line += ", " + groupedNumber(outcome.missing) + " could not be fetched";
            if (outcome.queued > 0) line += ", " + groupedNumber(outcome.queued) + " still wait in the queue";
            output.write(printableLine(line));
        } catch (const Failure& failure) {
            good = false;
            say(std::string("mailhost: ") + failure.what());
        }
    }
    return good ? 0 : 1;
}

int runQueue(const Arguments& arguments) {
    workOffline();
    LineOutput output;
    Table table({{.title = "Mailbox", .widest = 30},
                 {.title = "From", .widest = 24},
                 {.title = "Subject", .takesRest = true},
                 {.title = "Bytes", .numeric = true}},
                outputColumns(), outputIsStyled());
    std::size_t count = 0;
    for (const auto& place : placesOf(arguments.value(kWhat))) {
        const auto shown = nameOf(*place.account) + "/" + place.name;
        std::error_code ignored;
        if (!std::filesystem::exists(place.path + "/DataToBeAppended", ignored)) continue;
        const auto store = serverAccount(place)->storeForItemPath(place.name, /*readOnly=*/true);
        if (!store) throw Failure(shown + ": could not be opened");
        for (const auto& message : store->pendingAppends()) {
            ++count;
            const Summary summary(*message, count, Summary::Detail::row);
            const auto size = message->messageData().value_or(lorvale::Data()).size();
            if (arguments.has(kJson)) {
                JsonObject object;
                object.add("mailbox", shown).add("from", summary.from).add("subject", summary.subject);
                output.write(object.add("size", size).text());
            } else {
                table.addRow(
                    {shown, lorvale::addressComment(summary.from), summary.subject, groupedNumber(size)});
            }
        }
        store->close();
    }
    table.finish();
    if (!arguments.has(kJson) && count == 0) output.write("Nothing waits.");
    return 0;
}

}  // namespace

const Command syncCommand = {
    .name = "sync",
    .summary = "brings mirrors of mailboxes on servers in line",
    .description =
        "Compares the mailboxes of IMAP accounts on this machine with their servers: what was queued goes up, "
        "new messages are listed, what is gone there goes here. Texts are fetched as the account keeps them: "
        "\"accounts set ACCOUNT --keep\". They can then be read with --offline. Nothing is marked as read.\n\n"
        "The exit status is 1 where a mailbox failed, a message could not be fetched or the server did not "
        "take "
        "one from the queue.\n\n"
        "In JSON a line has the members mailbox, messages, fetched, missing and queued.",
    .words = kWords,
    .options = kOptions,
    .run = runSync,
};

const Command queueCommand = {
    .name = "queue",
    .summary = "messages that wait for a server",
    .description =
        "Lists the messages that were copied into mailboxes of IMAP accounts without their servers. They go up "
        "when the mailbox is next opened to be changed, by \"sync\" or another command.\n\n"
        "In JSON a line has the members mailbox, from, subject and size.",
    .words = kWords,
    .options = {},
    .run = runQueue,
};

}  // namespace mailhost
