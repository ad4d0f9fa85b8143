#include <algorithm>
#include <cstdio>
#include <map>

#include "Commands.h"
#include "Json.h"
#include "Mailbox.h"
#include "Parts.h"
#include "Terminal.h"
#include "Work.h"
#include "lorvale/message/addresses.h"
#include "lorvale/values/text.h"

namespace mailhost {

namespace {

using Tally = std::map<std::string, std::size_t>;

/// What a look at every message gives.
struct Statistics {
    std::optional<lorvale::Date> oldest, newest;
    Tally senders, types, charsets;
    std::size_t unreadable = 0;  // messages
};

void add(lorvale::Message& message, Statistics& statistics) {
    const auto headers = message.headers();
    headers->allHeaders();
    if (message.bytesAreMissing()) {
        ++statistics.unreadable;
        return;
    }
    if (const auto date = headers->knownDateReceived()) {
        if (!statistics.oldest || *date < *statistics.oldest) statistics.oldest = date;
        if (!statistics.newest || *date > *statistics.newest) statistics.newest = date;
    }
    if (const auto sender = headers->sender(); !sender.empty()) {
        ++statistics.senders[lorvale::asciiLowered(lorvale::uncommentedAddress(sender))];
    }
    const auto part = partOfHeaders(*headers);
    ++statistics.types[typeOf(*part)];
    if (const auto charset = part->mimeParameterForKey("charset"))
        ++statistics.charsets[lorvale::asciiLowered(*charset)];
}

Statistics gather(lorvale::MessageStore& store) {
    Statistics statistics;
    ProgressBar progress("Reading", store.allMessages().size());
    std::size_t number = 0;
    for (const auto& message : store.allMessages()) {
        workOn(nameOfMessage(++number), message->messageSize(), [&] { add(*message, statistics); });
        forget(*message);
        progress.advance();
    }
    return statistics;
}

/// The most frequent first, of equal ones by name.
std::vector<std::pair<std::string, std::size_t>> ranked(const Tally& tally) {
    std::vector<std::pair<std::string, std::size_t>> list(tally.begin(), tally.end());
    std::ranges::stable_sort(list, std::greater<>(), &std::pair<std::string, std::size_t>::second);
    return list;
}

std::string tallyForPeople(const Tally& tally) {
    constexpr std::size_t kShown = 5;
    const auto list = ranked(tally);
    std::string text;
    for (std::size_t i = 0; i < std::min(kShown, list.size()); ++i) {
        text += (i > 0 ? ", " : "") + list[i].first + " (" + groupedNumber(list[i].second) + ")";
    }
    if (list.size() > kShown) text += ", " + groupedNumber(list.size() - kShown) + " more";
    return text;
}

std::string tallyAsJson(const Tally& tally) {
    JsonObject object;
    for (const auto& [name, count] : ranked(tally)) object.add(name, count);
    return object.text();
}

void printLine(const char* name, const std::string& value) {
    if (value.empty()) return;
    std::printf(outputIsStyled() ? "\033[1m%-10s\033[0m%s\n" : "%-10s%s\n", name, printableLine(value).c_str());
}

std::string counted(const lorvale::CountAndSize& what, const char* name) {
    return groupedNumber(what.count) + " " + name +
           (what.count == 0 ? "" : ", " + groupedNumber(what.size) + " bytes");
}

void printForPeople(const std::string& path, lorvale::MessageStore& store, const Statistics& statistics) {
    const auto total = store.totalCountAndSize();
    printLine("Mailbox", path);
    printLine("Format", store.className());
    printLine("Messages", groupedNumber(total.count) + " (" + counted(store.unreadCountAndSize(), "unread") +
                              "; " + counted(store.deletedCountAndSize(), "deleted") + ")");
    printLine("Size", groupedNumber(total.size) + " bytes");
    if (statistics.oldest) {
        printLine("Dates", dateForPeople(statistics.oldest) + " to " + dateForPeople(statistics.newest));
    }
    printLine("Senders", tallyForPeople(statistics.senders));
    printLine("Bodies", tallyForPeople(statistics.types));
    printLine("Charsets", tallyForPeople(statistics.charsets));
}

std::string infoAsJson(lorvale::MessageStore& store, const Statistics& statistics) {
    const auto total = store.totalCountAndSize(), unread = store.unreadCountAndSize(),
               deleted = store.deletedCountAndSize();
    JsonObject object;
    object.add("path", store.storePath()).add("name", store.displayName()).add("format", store.className());
    object.add("messages", total.count).add("size", total.size);
    object.add("unread", unread.count).add("unreadSize", unread.size);
    object.add("deleted", deleted.count).add("deletedSize", deleted.size);
    object.add("sortOrder", store.sortOrder());
    const auto addDate = [&](std::string_view key, const std::optional<lorvale::Date>& date) {
        if (date) {
            object.add(key, date->iso8601());
        } else {
            object.addNull(key);
        }
    };
    addDate("oldest", statistics.oldest);
    addDate("newest", statistics.newest);
    object.addJson("senders", tallyAsJson(statistics.senders)).addJson("types", tallyAsJson(statistics.types));
    return object.addJson("charsets", tallyAsJson(statistics.charsets)).text();
}

constexpr auto kWords = std::to_array<Parameter>({kMailbox});

int run(const Arguments& arguments) {
    Mailbox mailbox(arguments[kMailbox]);
    auto& store = mailbox.store();
    const auto statistics = gather(store);
    if (arguments.has(kJson)) {
        LineOutput().write(infoAsJson(store, statistics));
    } else {
        printForPeople(mailbox.path(), store, statistics);
    }
    return mailbox.tellUnreadable(statistics.unreadable);
}

}  // namespace

const Command infoCommand = {
    .name = "info",
    .summary = "what a mailbox holds",
    .description =
        "Tells the format of a mailbox, how many messages it holds and of which size, from when to when, and "
        "its "
        "most frequent senders, types of bodies and charsets. In JSON all of them are told.",
    .words = kWords,
    .options = {},
    .run = run,
};

}  // namespace mailhost
