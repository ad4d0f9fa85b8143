#include <algorithm>

#include "Commands.h"
#include "Mailbox.h"
#include "MessageFilter.h"
#include "Parts.h"
#include "Summary.h"
#include "Table.h"
#include "Terminal.h"
#include "Work.h"
#include "lorvale/message/addresses.h"

namespace mailhost {

namespace {

constexpr auto kSortOrders = std::to_array<std::string_view>({
    lorvale::MessageStoreSortByNumber,
    lorvale::MessageStoreSortByAuthor,
    lorvale::MessageStoreSortByTitle,
    lorvale::MessageStoreSortByCreationDate,
    lorvale::MessageStoreSortBySize,
});
constexpr auto kSort = choiceOption("--sort", "ORDER", kSortOrders, "the order of the lines");
constexpr auto kReverse = flag("--reverse", "the other way round");
constexpr auto kLimit = numberOption("--limit", "N", "end after N lines");
constexpr auto kAttachments = flag("--attachments", "mark messages with attachments, for which all are read");
constexpr auto kWords = std::to_array<Parameter>({kMailbox});
constexpr auto kOptions =
    joined(std::to_array<Parameter>({kSort, kReverse, kLimit, kAttachments}), kFilterOptions);

/// Reads what sorting asks for, under a progress bar.
void readAll(lorvale::MessageStore& store) {
    const auto messages = store.allMessages();
    ProgressBar progress("Reading", messages.size());
    std::size_t number = 0;
    for (const auto& message : messages) {
        workOn(nameOfMessage(++number), message->messageSize(), [&] { message->headers()->cachedHeaders(); });
        progress.advance();
    }
}

/// The messages in the order in which they are to be listed.
lorvale::MessageList inOrder(Mailbox& mailbox, const Arguments& arguments) {
    auto& store = mailbox.store();
    store.setIncludeDeleted(true);
    const auto order = arguments.value(kSort).value_or(store.sortOrder());
    if (order != lorvale::MessageStoreSortByNumber) readAll(store);
    workOn(mailbox.path(), store.totalCountAndSize().size, [&] { store.setSortOrder(order); });
    const auto messages = store.filteredMessages();
    if (!arguments.has(kReverse)) return messages;
    auto reversed = messages.toVector();
    std::ranges::reverse(reversed);
    return reversed;
}

std::size_t largestSize(lorvale::MessageStore& store) {
    std::size_t largest = 0;
    for (const auto& message : store.allMessages())
        largest = std::max<std::size_t>(largest, message->messageSize());
    return largest;
}

/// Where the lines go: a table for people, or JSON.
class Listing {
public:
    Listing(lorvale::MessageStore& store, bool asJson, bool marksAttachments)
        : _json(asJson),
          _marksAttachments(marksAttachments),
          _table({{.title = "No.", .numeric = true, .expected = width(std::to_string(store.totalCount()))},
                  {.title = "", .expected = 2},
                  {.title = "Date", .dispensable = 1},
                  {.title = "From", .widest = 24, .narrowest = 10},
                  {.title = "Subject", .takesRest = true},
                  {.title = "Bytes",
                   .numeric = true,
                   .dispensable = 2,
                   .expected = width(groupedNumber(largestSize(store)))}},
                 outputColumns(), outputIsStyled()) {}

    void add(lorvale::Message& message, std::size_t number) {
        Summary summary(message, number, _json ? Summary::Detail::json : Summary::Detail::row);
        if (_marksAttachments && !summary.unreadable) summary.attachments = attachmentCount(message);
        ++count;
        if (summary.unreadable) ++unreadable;
        if (_json) {
            _output.write(summary.json().text());
        } else {
            addRow(summary);
        }
    }
    void finish() { _table.finish(); }

    std::size_t count = 0, unreadable = 0;

private:
    static int width(const std::string& text) { return static_cast<int>(text.size()); }

    void addRow(const Summary& summary) {
        const std::string marks = std::string(summary.unreadable ? "!"
                                              : summary.read     ? ""
                                                                 : "U") +
                                  (summary.deleted ? "D" : "") +
                                  (summary.attachments.value_or(0) > 0 ? "A" : "");
        _table.addRow(
            {std::to_string(summary.number), marks, dateForPeople(summary.date),
             lorvale::addressComment(summary.from),
             summary.unreadable ? "(cannot be read any more)" : summary.subject, groupedNumber(summary.size)},
            /*bright=*/!summary.read);
    }

    const bool _json, _marksAttachments;
    Table _table;
    LineOutput _output;
};

int run(const Arguments& arguments) {
    Mailbox mailbox(arguments[kMailbox]);
    const MessageFilter filter(arguments);
    const auto messages = inOrder(mailbox, arguments);
    Listing listing(mailbox.store(), arguments.has(kJson), arguments.has(kAttachments));
    const auto limit = arguments.value(kLimit).value_or(messages.size());
    for (const auto& message : messages) {
        if (listing.count == limit) break;
        const auto number = mailbox.store().indexOfMessage(*message) + 1;
        workOn(nameOfMessage(number), message->messageSize(), [&] {
            if (filter.accepts(*message)) listing.add(*message, number);
        });
        forget(*message);
    }
    listing.finish();
    if (listing.count == 0 && !arguments.has(kJson))
        LineOutput().write(mailbox.count() == 0 ? "No messages." : "No such messages.");
    return mailbox.tellUnreadable(listing.unreadable);
}

}  // namespace

const Command listCommand = {
    .name = "list",
    .summary = "one line for each message",
    .description =
        "Prints one line for each message of a mailbox: its number there, marks (U unread, D deleted, A with "
        "attachments), the "
        "date of "
        "delivery, sender, subject and size. A message whose bytes cannot be had, since another program "
        "changed "
        "the mailbox meanwhile, is marked with an exclamation mark, and the exit status is 1.\n\n"
        "In JSON a line has the members number, id, from, recipients, subject, date (of delivery), size, read "
        "and "
        "deleted; attachments, their number, is there with --attachments; unreadable is there, and true, for a "
        "message whose bytes cannot be had.",
    .words = kWords,
    .options = kOptions,
    .run = run,
};

}  // namespace mailhost
