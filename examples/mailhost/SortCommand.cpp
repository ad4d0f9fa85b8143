#include <filesystem>
#include <map>
#include <memory>

#include "Accounts.h"
#include "Commands.h"
#include "Copying.h"
#include "MessageIndex.h"
#include "ServerMailbox.h"
#include "Summary.h"
#include "Table.h"
#include "Terminal.h"
#include "Work.h"
#include "lorvale/message/addresses.h"
#include "lorvale/platform/paths.h"

namespace mailhost {

namespace {

constexpr auto kBy = Typed<std::string>{{.name = "--by",
                                         .placeholder = "EXAMPLE",
                                         .help = "a mailbox whose messages show what belongs into it",
                                         .takes = Takes::mailbox,
                                         .repeats = true}};
constexpr auto kMore = Typed<std::string>{{.name = "EXAMPLE",
                                           .placeholder = {},
                                           .help = "more of them",
                                           .takes = Takes::mailbox,
                                           .repeats = true,
                                           .isOptional = true}};
constexpr auto kMove = flag("--move", "move each message into its mailbox");
constexpr auto kWords = std::to_array<Parameter>({kMailbox, kMore});
constexpr auto kOptions = std::to_array<Parameter>({kBy, kMove});

struct Place {
    std::size_t example;  // the number of its mailbox
    float score;
    bool moves = false;
};

std::vector<std::string> examplePaths(const Arguments& arguments) {
    auto paths = arguments.values(kBy);
    for (auto& more : arguments.values(kMore)) paths.push_back(std::move(more));
    if (paths.size() < 2)
        throw UsageError("sort needs two or more mailboxes to choose from: --by EXAMPLE EXAMPLE...");
    return paths;
}

/// The direction of all messages of a mailbox together, each of which counts alike.  An IARouter would give the
/// later ones more weight, as for mail that changes its subject with time; examples have no such order.
brindle::TWVector centroidOf(brindle::VectorAccessor& accessor, std::size_t first, std::size_t end) {
    brindle::TWVectorAdder adder;
    for (auto number = first; number < end; ++number)
        adder.Add(accessor.GetTWVector(MessageIndex::documentOf(number).get()));
    return adder.Sum();
}

/// Of two mailboxes at the same distance the first one.
Place nearest(const brindle::TWVector& message, const std::vector<brindle::TWVector>& centroids) {
    Place best{0, 0, false};
    for (std::size_t i = 0; i < centroids.size(); ++i) {
        const float score = centroids[i].Similarity(message);
        if (score > best.score) best = {i, score, false};
    }
    return best;
}

/// Where each message of the mailbox belongs.
std::vector<Place> placesFor(Mailbox& mailbox, const std::vector<std::string>& paths, std::size_t& unreadable) {
    MessageIndex messages;
    std::vector<std::size_t> begins;
    for (const auto& path : paths) {
        Mailbox example(path);
        if (example.count() == 0) throw Failure(path + ": has no messages to learn from");
        begins.push_back(messages.count());
        messages.add(example, Extent::whole);
    }
    begins.push_back(messages.count());
    unreadable = messages.add(mailbox, Extent::whole);
    brindle::VectorAccessor accessor(&messages.index());
    accessor.InitializeAnew();
    std::vector<brindle::TWVector> centroids;
    for (std::size_t i = 0; i < paths.size(); ++i)
        centroids.push_back(centroidOf(accessor, begins[i], begins[i + 1]));
    std::vector<Place> places;
    for (auto number = begins.back(); number < messages.count(); ++number)
        places.push_back(nearest(*accessor.GetTWVector(MessageIndex::documentOf(number).get()), centroids));
    return places;
}

void refuseItself(const Mailbox& mailbox, const std::vector<std::string>& paths) {
    const auto file = pathOfMailbox(mailbox.path());
    std::error_code ignored;
    for (const auto& path : paths) {
        if (std::filesystem::equivalent(file, pathOfMailbox(path), ignored))
            throw Failure(path + ": cannot be sorted into itself");
    }
}

using Messages = std::vector<std::shared_ptr<lorvale::Message>>;

/// First into the others, then out of this one: whatever goes wrong, a message is in one of the two or in both.
void move(Mailbox& mailbox, const std::vector<std::string>& paths, const std::vector<Place>& places,
          const Messages& all) {
    std::map<std::size_t, Messages> byTarget;
    Messages moved;
    for (std::size_t i = 0; i < places.size(); ++i) {
        if (!places[i].moves) continue;
        byTarget[places[i].example].push_back(all[i]);
        moved.push_back(all[i]);
    }
    for (const auto& [example, messages] : byTarget) copyInto(paths[example], mailbox, messages);
    takeOut(mailbox, moved);
}

/// Opens a mailbox on a server to be changed, and finds what was read of it.  One that is open so from the
/// start has counted as read what was only compared.
void openAnew(std::unique_ptr<Mailbox>& mailbox, Messages& all, std::vector<Place>& places) {
    std::map<std::string, std::shared_ptr<lorvale::Message>, std::less<>> byID;
    std::vector<std::string> ids;
    for (const auto& message : all) ids.push_back(message->messageID());
    const auto path = mailbox->path();
    mailbox.reset();
    mailbox = std::make_unique<Mailbox>(path, Mailbox::Access::change);
    for (const auto& message : mailbox->store().allMessages()) byID.emplace(message->messageID(), message);
    for (std::size_t i = 0; i < places.size(); ++i) {
        all[i] = byID[ids[i]];
        places[i].moves = places[i].moves && all[i] != nullptr;
    }
}

void print(const std::vector<Summary>& summaries, const std::vector<Place>& places,
           const std::vector<std::string>& paths, bool asJson) {
    LineOutput output;
    Table table({{.title = "No.", .numeric = true},
                 {.title = "Belongs to", .widest = 30, .narrowest = 10},
                 {.title = "Score", .numeric = true},
                 {.title = "From", .widest = 24, .narrowest = 10},
                 {.title = "Subject", .takesRest = true}},
                outputColumns(), outputIsStyled());
    for (std::size_t i = 0; i < places.size(); ++i) {
        const auto& summary = summaries[i];
        const auto& place = places[i];
        const auto score = scoreText(place.score);
        if (asJson) {
            auto line = summary.json();
            if (place.score > 0) line.add("mailbox", paths[place.example]);
            output.write(line.addJson("score", score).add("moved", place.moves).text());
        } else {
            table.addRow({std::to_string(i + 1), place.score > 0 ? paths[place.example] : "-", score,
                          lorvale::addressComment(summary.from), summary.subject});
        }
    }
    table.finish();
    if (places.empty() && !asJson) output.write("No messages.");
}

int run(const Arguments& arguments) {
    const auto paths = examplePaths(arguments);
    const bool moves = arguments.has(kMove);
    const bool isOnServer = placeOnServer(arguments[kMailbox]).has_value();
    auto mailbox = std::make_unique<Mailbox>(
        arguments[kMailbox], moves && !isOnServer ? Mailbox::Access::change : Mailbox::Access::read);
    refuseItself(*mailbox, paths);
    if (moves) needServerToTakeOut(*mailbox);
    std::size_t unreadable = 0;
    auto places = placesFor(*mailbox, paths, unreadable);

    const bool asJson = arguments.has(kJson);
    std::vector<Summary> summaries;  // taken before the messages go
    const auto list = mailbox->store().allMessages();
    Messages all(list.begin(), list.end());
    for (std::size_t i = 0; i < places.size(); ++i) {
        summaries.emplace_back(*all[i], i + 1, asJson ? Summary::Detail::json : Summary::Detail::row);
        places[i].moves = moves && places[i].score > 0 && !all[i]->bytesAreMissing();
        forget(*all[i]);
    }
    if (moves && isOnServer) openAnew(mailbox, all, places);
    if (moves) move(*mailbox, paths, places, all);
    print(summaries, places, paths, asJson);
    return mailbox->tellUnreadable(unreadable);
}

}  // namespace

const Command sortCommand = {
    .name = "sort",
    .summary = "which mailbox each message belongs to, by example",
    .description =
        "Tells for each message of MAILBOX to which of the mailboxes behind --by it belongs: to the one whose "
        "messages it has most in common with. The score is 1 for a message that is like all of them together, "
        "and 0 for one that shares no word; the latter belongs nowhere.\n\n"
        "With --move the messages are then moved there as by \"move\": first all are added to their mailboxes, "
        "then marked as deleted in this one, or taken out of it where it keeps no marks, so that none is lost "
        "whatever goes wrong between.\n\n"
        "In JSON a line has the members of list, and score, moved, and mailbox for a message that belongs "
        "somewhere.",
    .words = kWords,
    .options = kOptions,
    .run = run,
};

}  // namespace mailhost
