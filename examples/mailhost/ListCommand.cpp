#include <unistd.h>

#include <cstdio>
#include <unordered_map>

#include "Commands.h"
#include "Mailbox.h"
#include "Table.h"
#include "Terminal.h"
#include "lorvale/message/addresses.h"

namespace mailhost {

namespace {

using Numbers = std::unordered_map<const lorvale::Message*, std::size_t>;

/// Reads the headers of all messages, which sorting and printing then have at hand, under a progress bar, and
/// gives each message its number.
Numbers readAll(lorvale::MessageStore& store) {
    Numbers numbers;
    ProgressBar progress("Reading", store.allMessages().size());
    for (const auto& message : store.allMessages()) {
        numbers.emplace(message.get(), numbers.size() + 1);
        message->headers()->cachedHeaders();
        progress.advance();
    }
    return numbers;
}

std::string marks(const Summary& summary) {
    return std::string(summary.read ? "" : "U") + (summary.deleted ? "D" : "");
}

void printTable(const std::vector<Summary>& summaries) {
    Table table({{.title = "No.", .numeric = true},
                 {.title = ""},
                 {.title = "Date"},
                 {.title = "From", .widest = 24},
                 {.title = "Subject", .takesRest = true},
                 {.title = "Bytes", .numeric = true}});
    for (const auto& summary : summaries) {
        table.addRow({std::to_string(summary.number), marks(summary), dateForPeople(summary.date),
                      lorvale::addressComment(summary.from), summary.subject, groupedNumber(summary.size)});
    }
    table.print(outputColumns(), outputIsStyled());
}

}  // namespace

int runList(const Options& options) {
    Mailbox mailbox(options.path);
    auto& store = mailbox.store();
    const auto numbers = readAll(store);
    store.setIncludeDeleted(true);
    if (options.unreadOnly) store.setExcludeRead(true);
    if (options.sortOrder) store.setSortOrder(*options.sortOrder);

    std::vector<Summary> summaries;
    for (const auto& message : store.filteredMessages()) {
        const auto summary = summaryOf(*message, numbers.at(message.get()));
        message->flushCachedData();
        if (options.json) {
            std::printf("%s\n", summary.json().text().c_str());
        } else {
            summaries.push_back(summary);
        }
    }
    if (mailbox.looksLikeNoMailbox()) {
        std::fprintf(stderr, "mailhost: %s: no message found; \"mailhost check\" tells more\n",
                     printableLine(options.path).c_str());
    }
    if (options.json) return 0;
    if (summaries.empty()) {
        std::puts(options.unreadOnly ? "No unread messages." : "No messages.");
    } else {
        printTable(summaries);
    }
    return 0;
}

}  // namespace mailhost
