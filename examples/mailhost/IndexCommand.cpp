#include <filesystem>

#include "Commands.h"
#include "ConsoleAgent.h"
#include "Json.h"
#include "Mailbox.h"
#include "Output.h"
#include "SearchIndex.h"
#include "ServerMailbox.h"
#include "Terminal.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/search.h"

namespace mailhost {

namespace {

constexpr auto kMailboxes =
    mailboxWord("MAILBOX", "the path of a directory mailbox, or ACCOUNT/NAME", /*repeats=*/true);
constexpr auto kWords = std::to_array<Parameter>({kMailboxes});

void tell(const std::string& path, std::size_t indexed, std::uint64_t bytes, bool asJson) {
    if (asJson) {
        LineOutput().write(JsonObject().add("path", path).add("indexed", indexed).add("size", bytes).text());
        return;
    }
    LineOutput().write(printableLine(path) + ": " + groupedNumber(indexed) +
                       (indexed == 1 ? " message" : " messages") + " indexed, in " + groupedNumber(bytes) +
                       " bytes.");
}

void tellWhatIsLeftOut(const std::string& path, std::size_t count) {
    LineOutput().write(printableLine(path) + ": " + groupedNumber(count) +
                       " more cannot be told from these by sender, subject and date, or cannot be read.");
}

/// Of what the mirror has, which is filled first where the account keeps all messages.
void indexOnServer(const std::string& path, const Place& place, bool asJson) {
    Mailbox mailbox(path);
    auto& store = dynamic_cast<lorvale::IMAPStore&>(mailbox.store());
    const auto policy = configuredPolicy(*serverAccount(place));
    if (policy == lorvale::IMAPCachePolicy::noMessages)
        throw Failure(path + ": the account keeps no messages here; \"search --server\" lets the server look");
    if (!store.mayWriteIndex()) throw Failure(path + ": another program is keeping its search index");
    if (policy == lorvale::IMAPCachePolicy::allMessages && store.isConnected()) fetchMissing(place, store);
    bringIndexUpToDate(store);
    const auto indexed = lorvale::IndexManager::indexedCount(store);
    tell(path, indexed, sizeOfFile(lorvale::IndexManager::pathForIndexInStore(store)), asJson);
    if (indexed < store.totalCount())
        say("mailhost: " + path + ": " + groupedNumber(store.totalCount() - indexed) +
            " more are not on this machine; \"mailhost sync --all\" fetches them");
}

int runIndex(const Arguments& arguments) {
    const bool asJson = arguments.has(kJson);
    for (const auto& path : arguments.values(kMailboxes)) {
        if (const auto place = placeOnServer(path)) {
            indexOnServer(path, *place, asJson);
            continue;
        }
        ChangingMailbox mailbox(path);
        auto& store = mailbox.store();
        bringIndexUpToDate(store);
        const std::size_t indexed = lorvale::IndexManager::indexedCount(store), all = store.totalCount();
        tell(path, indexed, sizeOfFile(lorvale::IndexManager::pathForIndexInStore(store)), asJson);
        if (indexed < all && !asJson) tellWhatIsLeftOut(path, all - indexed);
    }
    return 0;
}

void unindex(const std::string& path, lorvale::MessageStore& store) {
    if (!store.mayWriteIndex()) throw Failure(path + ": another program is keeping its search index");
    store.setIsIndexed(false);
    lorvale::IndexManager::removeIndexForStore(store);
    if (lorvale::IndexManager::indexExistsForStore(store))
        throw Failure(path + ": the search index cannot be removed");
}

int runUnindex(const Arguments& arguments) {
    for (const auto& path : arguments.values(kMailboxes)) {
        if (placeOnServer(path)) {
            const Mailbox mailbox(path);
            unindex(path, mailbox.store());
        } else {
            ChangingMailbox mailbox(path);
            unindex(path, mailbox.store());
        }
    }
    return 0;
}

}  // namespace

void bringIndexUpToDate(lorvale::MessageStore& store) {
    constexpr std::chrono::milliseconds kTurn(20);
    store.setIsIndexed(true);
    store.updateIndex();
    ProgressBar progress("Indexing", store.totalCount());
    while (!lorvale::IndexManager::waitUntilIdle(store, std::chrono::steady_clock::now() + kTurn)) {
        progress.advanceTo(lorvale::IndexManager::progress(store).reached);
        lorvale::RunLoop::main()->dispatch();
    }
    if (!lorvale::IndexManager::isSearchable(store))
        throw Failure(store.storePath() + ": the search index cannot be made; --verbose tells why");
}

const Command indexCommand = {
    .name = "index",
    .summary = "makes the search index of mailboxes, and keeps it from then on",
    .description =
        "Turns on the search index of directory mailboxes and brings it up to date. It lies in the mailbox as "
        "\"mbox.index\", and every command that changes an indexed mailbox keeps it in line. An index that is "
        "damaged, or made with another analysis of words (-o IndexAnalysis=TAG), is made anew.\n\n"
        "Of a mailbox on an IMAP server the messages on this machine are indexed. Where the account keeps all, "
        "those missing are fetched first.\n\n"
        "In JSON a line has the members path, indexed (messages) and size (bytes of the index).",
    .words = kWords,
    .options = {},
    .run = runIndex,
};

const Command unindexCommand = {
    .name = "unindex",
    .summary = "takes the search index of mailboxes away",
    .description = "Removes the search index of directory mailboxes. The mail stays as it is.",
    .words = kWords,
    .options = {},
    .run = runUnindex,
};

}  // namespace mailhost
