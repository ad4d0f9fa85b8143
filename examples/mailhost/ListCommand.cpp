#include <algorithm>
#include <limits>
#include <optional>

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
    Listing(const Arguments& arguments, std::optional<Table> table)
        : _filter(arguments),
          _limit(arguments.value(kLimit).value_or(std::numeric_limits<std::uint64_t>::max())),
          _marksAttachments(arguments.has(kAttachments)),
          _table(std::move(table)) {}

    /// Unless the filter holds it back.
    void add(lorvale::Message& message, std::size_t number) {
        workOn(nameOfMessage(number), message.messageSize(), [&] {
            if (_filter.accepts(message)) addAccepted(message, number);
        });
        forget(message);
    }
    bool isFull() const { return _count >= _limit; }
    /// Answers how many messages could not be read.
    std::size_t finish(bool mailboxIsEmpty) {
        if (_table) _table->finish();
        if (_table && _count == 0) LineOutput().write(mailboxIsEmpty ? "No messages." : "No such messages.");
        return _unreadable;
    }

private:
    void addAccepted(lorvale::Message& message, std::size_t number) {
        Summary summary(message, number, _table ? Summary::Detail::row : Summary::Detail::json);
        if (_marksAttachments && !summary.unreadable) summary.attachments = attachmentCount(message);
        ++_count;
        if (summary.unreadable) ++_unreadable;
        if (_table) {
            addRow(summary);
        } else {
            _output.write(summary.json().text());
        }
    }
    void addRow(const Summary& summary) {
        const std::string marks = std::string(summary.unreadable ? "!"
                                              : summary.read     ? ""
                                                                 : "U") +
                                  (summary.deleted ? "D" : "") +
                                  (summary.attachments.value_or(0) > 0 ? "A" : "");
        _table->addRow(
            {std::to_string(summary.number), marks, dateForPeople(summary.date),
             lorvale::addressComment(summary.from),
             summary.unreadable ? "(cannot be read any more)" : summary.subject, groupedNumber(summary.size)},
            /*bright=*/!summary.read);
    }

    const MessageFilter _filter;
    const std::uint64_t _limit;
    const bool _marksAttachments;
    std::optional<Table> _table;
    LineOutput _output;
    std::size_t _count = 0, _unreadable = 0;
};

int width(const std::string& text) {
    return static_cast<int>(text.size());
}

Table tableFor(lorvale::MessageStore& store) {
    return Table({{.title = "No.", .numeric = true, .expected = width(std::to_string(store.totalCount()))},
                  {.title = "", .expected = 2},
                  {.title = "Date", .dispensable = 1},
                  {.title = "From", .widest = 24, .narrowest = 10},
                  {.title = "Subject", .takesRest = true},
                  {.title = "Bytes",
                   .numeric = true,
                   .dispensable = 2,
                   .expected = width(groupedNumber(largestSize(store)))}},
                 outputColumns(), outputIsStyled());
}

int listStore(const Arguments& arguments) {
    Mailbox mailbox(arguments[kMailbox]);
    const auto messages = inOrder(mailbox, arguments);
    Listing listing(arguments, arguments.has(kJson) ? std::nullopt : std::optional(tableFor(mailbox.store())));
    for (const auto& message : messages) {
        if (listing.isFull()) break;
        listing.add(*message, mailbox.store().indexOfMessage(*message) + 1);
    }
    return tellUnreadable(mailbox.path(), listing.finish(mailbox.count() == 0));
}

/// Lines in JSON need nothing but their message: each can go out while the next ones are still looked for.
/// Nullopt, and nothing is printed, for a mailbox that has to be opened first.
std::optional<int> listWhileReading(const Arguments& arguments) {
    const auto& path = arguments[kMailbox];
    const auto reader = lorvale::MboxReader::readerForPath(path);
    if (reader == nullptr) return std::nullopt;
    Listing listing(arguments, std::nullopt);
    std::size_t number = 0;
    while (!listing.isFull()) {
        const auto message = reader->nextMessage();
        if (message == nullptr) break;
        listing.add(*message, ++number);
    }
    if (number == 0 && !reader->hasReadAll()) return std::nullopt;
    if (number == 0) checkIsMailbox(path);
    const auto unreadable = listing.finish(number == 0);
    if (listing.isFull() || reader->hasReadAll()) return tellUnreadable(path, unreadable);
    throw Failure(path + ": another program has changed the mailbox while it was read, from message " +
                  groupedNumber(number + 1) + " on");
}

int run(const Arguments& arguments) {
    const auto order = arguments.value(kSort).value_or(std::string(lorvale::MessageStoreSortByNumber));
    const bool mayStream =
        arguments.has(kJson) && !arguments.has(kReverse) && order == lorvale::MessageStoreSortByNumber;
    const auto status = mayStream ? listWhileReading(arguments) : std::nullopt;
    return status ? *status : listStore(arguments);
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
