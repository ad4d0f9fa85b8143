#include <filesystem>

#include "Commands.h"
#include "Json.h"
#include "Mailbox.h"
#include "Output.h"
#include "SearchIndex.h"
#include "Terminal.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/search.h"

namespace mailhost {

namespace {

constexpr auto kMailboxes = mailboxWord("MAILBOX", "the path of a directory mailbox", /*repeats=*/true);
constexpr auto kWords = std::to_array<Parameter>({kMailboxes});

void tell(const std::string& path, std::uint32_t indexed, std::size_t all, std::uint64_t bytes, bool asJson) {
    if (asJson) {
        LineOutput().write(JsonObject().add("path", path).add("indexed", indexed).add("size", bytes).text());
        return;
    }
    LineOutput().write(printableLine(path) + ": " + groupedNumber(indexed) +
                       (indexed == 1 ? " message" : " messages") + " indexed, in " + groupedNumber(bytes) +
                       " bytes.");
    if (indexed >= all) return;
    LineOutput().write(printableLine(path) + ": " + groupedNumber(all - indexed) +
                       " more cannot be told from these by sender, subject and date, or cannot be read.");
}

int runIndex(const Arguments& arguments) {
    for (const auto& path : arguments.values(kMailboxes)) {
        ChangingMailbox mailbox(path);
        auto& store = mailbox.store();
        bringIndexUpToDate(store);
        tell(path, lorvale::IndexManager::indexedCount(store), store.totalCount(),
             sizeOfFile(lorvale::IndexManager::pathForIndexInStore(store)), arguments.has(kJson));
    }
    return 0;
}

int runUnindex(const Arguments& arguments) {
    for (const auto& path : arguments.values(kMailboxes)) {
        ChangingMailbox mailbox(path);
        mailbox.store().setIsIndexed(false);
        lorvale::IndexManager::removeIndexForStore(mailbox.store());
        if (lorvale::IndexManager::indexExistsForStore(mailbox.store()))
            throw Failure(path + ": the search index cannot be removed");
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
