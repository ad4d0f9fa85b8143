#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>
#include <utility>

#include "Commands.h"
#include "ConsoleAgent.h"
#include "Mailbox.h"
#include "MessageFilter.h"
#include "MessageIndex.h"
#include "Parts.h"
#include "Passage.h"
#include "SearchIndex.h"
#include "ServerMailbox.h"
#include "Summary.h"
#include "Table.h"
#include "Terminal.h"
#include "Work.h"
#include "lorvale/message/addresses.h"
#include "lorvale/platform/paths.h"
#include "lorvale/search.h"

namespace mailhost {

namespace {

constexpr auto kOrders = std::to_array<std::string_view>({"rank", "date"});
constexpr std::uint64_t kUsualMaximum = 100;

constexpr auto kQuery = Typed<std::string>{{.name = "QUERY",
                                            .placeholder = {},
                                            .help = "what to look for, in one word of the shell",
                                            .takes = Takes::text}};
constexpr auto kMailboxes =
    mailboxWord("MAILBOX", "the path of an indexed mailbox, or ACCOUNT/NAME", /*repeats=*/true);
constexpr auto kWords = std::to_array<Parameter>({kQuery, kMailboxes});

constexpr auto kBoolean = flag("--boolean", "the query is made of words, and, or, not and parentheses");
constexpr auto kMax = numberOption("--max", "N", "the N best at the most (100)");
constexpr auto kSort =
    choiceOption("--sort", "ORDER", kOrders, "the order of the lines; date: the latest first");
constexpr auto kShow = flag("--show", "with the passage of each message that was found");
constexpr auto kAttachments = flag("--attachments", "only messages with attachments");
constexpr auto kServer = flag("--server", "let the servers look, for mailboxes of IMAP accounts");
constexpr auto kOptions =
    joined(std::to_array<Parameter>({kServer, kBoolean, kMax, kSort, kShow, kAttachments}), kFilterOptions);

/// A message that was found, with what is told of it.
struct Found {
    const Mailbox* mailbox;
    std::shared_ptr<lorvale::Message> message;
    Summary summary;
    float score;
};

using Mailboxes = std::vector<std::unique_ptr<Mailbox>>;

bool isStale(const std::string& path) {
    std::error_code error;
    const auto mail = std::filesystem::last_write_time(path + "/mbox", error);
    const auto index = std::filesystem::last_write_time(path + "/mbox.index", error);
    return !error && index < mail;
}

bool hasIndex(const std::string& path) {
    std::error_code error;
    return std::filesystem::exists(lorvale::standardizePath(path) + "/mbox.index", error);
}

/// For mail that came while nobody kept the index, and for an index that is damaged.
void refresh(const std::string& path) {
    try {
        ChangingMailbox mailbox(path);
        bringIndexUpToDate(mailbox.store());
    } catch (const Failure& failure) {
        say("mailhost: " + std::string(failure.what()) + "; what is searched may be some letters behind");
    }
}

/// Of messages that are alike in sender, subject and date one is indexed: their number alone may look for more
/// in vain.
bool isComplete(lorvale::MessageStore& store) {
    using lorvale::IndexManager;
    return IndexManager::isSearchable(store) &&
           (IndexManager::hasAllMessages(store) || IndexManager::indexedCount(store) >= store.totalCount());
}

/// By its index where it has one; else the server looks, which the user is told.
std::unique_ptr<Mailbox> openedOnServer(const std::string& path, const Place& place,
                                        const Arguments& arguments) {
    auto mailbox = std::make_unique<Mailbox>(path);
    auto& store = dynamic_cast<lorvale::IMAPStore&>(mailbox->store());
    const std::string noIndex = path + ": has no search index";
    if (lorvale::IndexManager::indexExistsForStore(store)) {
        const bool keepsAll = configuredPolicy(*serverAccount(place)) == lorvale::IMAPCachePolicy::allMessages;
        if (keepsAll && store.isConnected()) fetchMissing(place, store);
        bringIndexUpToDate(store);
        if (!isComplete(store))
            say("mailhost: " + path + ": only the " +
                groupedNumber(lorvale::IndexManager::indexedCount(store)) +
                " messages on this machine are searched; --server lets the server look in all");
    } else if (arguments.has(kBoolean)) {
        throw Failure(noIndex + ", which --boolean needs; \"mailhost index\" makes one");
    } else if (!store.isConnected()) {
        throw Failure(noIndex + ", and there is no server that could look; \"mailhost index\" makes one");
    } else {
        say("mailhost: " + noIndex + ", so the server looks; \"mailhost index\" makes one");
    }
    return mailbox;
}

Mailboxes opened(const Arguments& arguments) {
    constexpr std::chrono::seconds kPatience(60);
    Mailboxes mailboxes;
    for (const auto& path : arguments.values(kMailboxes)) {
        if (const auto place = placeOnServer(path)) {
            mailboxes.push_back(openedOnServer(path, *place, arguments));
            continue;
        }
        if (hasIndex(path) && isStale(lorvale::standardizePath(path))) refresh(path);
        const auto open = [&] {
            auto& store = mailboxes.emplace_back(std::make_unique<Mailbox>(path))->store();
            lorvale::IndexManager::waitUntilIdle(store, std::chrono::steady_clock::now() + kPatience);
        };
        open();
        if (!isComplete(mailboxes.back()->store()) && hasIndex(path)) {
            mailboxes.pop_back();
            refresh(path);
            open();
        }
        if (!lorvale::IndexManager::isSearchable(mailboxes.back()->store()))
            throw Failure(path + ": has no search index; \"mailhost index\" makes one");
    }
    return mailboxes;
}

/// Mailboxes that nobody has to have indexed or mirrored.
Mailboxes openedOnServers(const Arguments& arguments) {
    if (arguments.has(kBoolean)) throw UsageError("--server takes words, and no --boolean");
    Mailboxes mailboxes;
    for (const auto& path : arguments.values(kMailboxes)) {
        const auto place = placeOnServer(path);
        if (!place) throw Failure(path + ": is on no server");
        mailboxes.push_back(std::make_unique<Mailbox>(path));
        needServer(*place, dynamic_cast<lorvale::IMAPStore&>(mailboxes.back()->store()));
    }
    return mailboxes;
}

class Search {
public:
    Search(const Arguments& arguments, const Mailboxes& mailboxes)
        : _arguments(arguments), _mailboxes(mailboxes), _filter(arguments) {}

    /// By the indexes, best first, and for mailboxes without one by their servers, the latest first.
    std::vector<Found> run(bool asksServers) {
        std::vector<Found> found;
        if (!asksServers) found = runOnIndexes();
        auto others = runOnServers(asksServers);
        std::ranges::move(others, std::back_inserter(found));
        if (_arguments.value(kSort) == "date") sortByDate(found);
        const auto most = _arguments.value(kMax).value_or(kUsualMaximum);
        while (found.size() > most) found.pop_back();
        return found;
    }

private:
    std::vector<Found> runOnIndexes() const {
        std::vector<std::shared_ptr<lorvale::MessageStore>> stores;
        std::size_t all = 0;
        for (const auto& mailbox : _mailboxes) {
            if (!lorvale::IndexManager::isSearchable(mailbox->store())) continue;
            stores.push_back(mailbox->store().shared_from_this());
            all += mailbox->count();
        }
        if (stores.empty()) return {};
        const auto most = _arguments.value(kMax).value_or(kUsualMaximum);
        // Who filters needs all of them, since any of them may be among the best that pass.
        const auto wanted =
            std::min<std::uint64_t>(isFiltered() ? std::max<std::size_t>(all, 1) : most, UINT32_MAX);
        const auto result = lorvale::IndexManager::indexManager().search(
            stores, {_arguments[kQuery], _arguments.has(kBoolean), static_cast<std::uint32_t>(wanted)});
        if (!result.error.empty()) throw Failure("the query cannot be used: " + result.error);
        std::vector<Found> found;
        for (const auto& hit : *result.hits) {
            if (found.size() == most) break;
            if (hit.message != nullptr && accepts(*hit.message)) found.push_back(describe(hit));
        }
        return found;
    }

    /// Those whose headers or texts hold what was asked for, as it stands; the latest first.
    std::vector<Found> runOnServers(bool all) const {
        std::vector<Found> found;
        for (const auto& mailbox : _mailboxes) {
            if (!all && lorvale::IndexManager::isSearchable(mailbox->store())) continue;
            auto& store = dynamic_cast<lorvale::IMAPStore&>(mailbox->store());
            const auto keys = lorvale::IMAPSearchKeys().add("TEXT", _arguments[kQuery]);
            const auto messages = store.messagesFound(keys);
            if (!messages) throw Failure(mailbox->path() + ": the server cannot search for that");
            for (const auto& message : *messages)
                if (accepts(*message)) found.push_back(describe({message, store.shared_from_this(), 1}));
        }
        sortByDate(found);
        return found;
    }

    static void sortByDate(std::vector<Found>& found) {
        std::ranges::stable_sort(found, std::ranges::greater(), [](const Found& each) {
            return each.summary.date ? each.summary.date->secondsSince1970() : INT64_MIN;
        });
    }

    bool isFiltered() const {
        return _arguments.has(kAttachments) ||
               std::ranges::any_of(kFilterOptions,
                                   [&](const Parameter& option) { return _arguments.has(option); });
    }

    bool accepts(lorvale::Message& message) const {
        if (!_filter.accepts(message)) return false;
        return !_arguments.has(kAttachments) || attachmentCount(message).value_or(0) > 0;
    }

    Found describe(const lorvale::MessageHit& hit) const {
        const auto mailbox =
            std::ranges::find(_mailboxes, hit.store.get(), [](const auto& each) { return &each->store(); });
        const auto detail = _arguments.has(kJson) ? Summary::Detail::json : Summary::Detail::listed;
        return {mailbox->get(), hit.message,
                Summary(*hit.message, hit.store->numberOfMessage(*hit.message), detail), hit.score};
    }

    const Arguments& _arguments;
    const Mailboxes& _mailboxes;
    const MessageFilter _filter;
};

std::string passage(const Found& found, const std::string& query, bool styled) {
    std::string text;
    workOn(nameOfMessage(found.summary.number), found.summary.size,
           [&] { text = passageOf(wordsOf(*found.message), query, styled); });
    forget(*found.message);
    return text;
}

void printJson(const std::vector<Found>& all, const Arguments& arguments) {
    LineOutput output;
    for (const auto& found : all) {
        auto object = found.summary.json();
        object.add("mailbox", found.mailbox->path()).addJson("score", scoreText(found.score));
        if (arguments.has(kShow)) object.add("passage", passage(found, arguments[kQuery], false));
        output.write(object.text());
    }
}

std::vector<std::string> cellsOf(const Found& found) {
    return {scoreText(found.score),
            std::filesystem::path(found.mailbox->path()).stem().string(),
            std::to_string(found.summary.number),
            dateForPeople(found.summary.date),
            lorvale::addressComment(found.summary.from),
            found.summary.subject};
}

/// A line each, or with --show a line and the passage below it.
void printForPeople(const std::vector<Found>& all, const Arguments& arguments) {
    const bool showsPassages = arguments.has(kShow);
    LineOutput output;
    Table table({{.title = "Score", .numeric = true},
                 {.title = "Mailbox", .widest = 16, .narrowest = 6, .dispensable = 2},
                 {.title = "No.", .numeric = true},
                 {.title = "Date", .dispensable = 1},
                 {.title = "From", .widest = 24, .narrowest = 10},
                 {.title = "Subject", .takesRest = true}},
                outputColumns(), outputIsStyled());
    for (const auto& found : all) {
        if (!showsPassages) {
            table.addRow(cellsOf(found));
            continue;
        }
        std::string line;
        for (const auto& cell : cellsOf(found)) line += (line.empty() ? "" : "  ") + printableLine(cell);
        output.write(line);
        output.write("    " + passage(found, arguments[kQuery], outputIsStyled()));
    }
    table.finish();
    if (all.empty()) output.write("No message was found.");
}

int run(const Arguments& arguments) {
    const bool onServers = arguments.has(kServer);
    const auto mailboxes = onServers ? openedOnServers(arguments) : opened(arguments);
    const auto found = Search(arguments, mailboxes).run(onServers);
    if (arguments.has(kJson)) {
        printJson(found, arguments);
    } else {
        printForPeople(found, arguments);
    }
    return 0;
}

}  // namespace

const Command searchCommand = {
    .name = "search",
    .summary = "the messages that are most about something",
    .description =
        "Looks for words in mailboxes that are indexed and prints the messages that fit best, the best one "
        "first: its score (1 for the best), mailbox, number, date, sender and subject. Of several mailboxes it "
        "makes one list. Words count in any form: \"running\" finds \"runs\". With --boolean the query is of "
        "words with \"and\", \"or\" and \"not\" (or &, | and !) between them, as in \"ferry not train\", and "
        "parentheses.\n\n"
        "With --server the servers of IMAP accounts look for the words as they stand, in headers and texts, "
        "whether or not these are mirrored here; the latest message comes first, and every score is 1. They "
        "also "
        "do that for their mailboxes that are not indexed.\n\n"
        "The options that pick messages narrow what was found; --sort date puts the N best in the order of "
        "their dates, the latest first. Mail that came while nobody kept the index is indexed first, if the "
        "mailbox is not in use.\n\n"
        "In JSON a line has the members of list, and mailbox, score and, with --show, passage.",
    .words = kWords,
    .options = kOptions,
    .run = run,
};

}  // namespace mailhost
