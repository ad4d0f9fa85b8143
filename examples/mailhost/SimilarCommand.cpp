#include "Commands.h"
#include "MessageIndex.h"
#include "Summary.h"
#include "Table.h"
#include "Terminal.h"
#include "Work.h"
#include "lorvale/message/addresses.h"

namespace mailhost {

namespace {

constexpr std::uint64_t kUsualLimit = 10;
constexpr std::uint32_t kTerms = 5;

constexpr auto kNumber = numberWord("N", "the number of a message");
constexpr auto kLimit = numberOption("--limit", "N", "at most N messages (10)");
constexpr auto kWords = std::to_array<Parameter>({kMailbox, kNumber});
constexpr auto kOptions = std::to_array<Parameter>({kLimit});

std::vector<std::string> termsOf(const brindle::RankedHit& hit) {
    std::vector<std::string> terms;
    for (const auto& term : hit.GetMatchingTerms()) terms.emplace_back(term->View());
    return terms;
}

/// The best hits but the example itself; their scores are relative to it, which is most like itself.
brindle::RankedHits hitsFor(MessageIndex& messages, std::size_t number, std::uint32_t most) {
    brindle::InVecAccessor accessor(&messages.index());
    accessor.InitializeAnew();
    const auto example = MessageIndex::documentOf(number);
    const brindle::RankedQueryDoc query{example.get(), &messages.index()};
    auto hits = accessor.RankedSearch("", std::span(&query, 1), most + 1, kTerms);
    std::erase_if(hits, [&](const auto& hit) { return hit->GetDocument()->Equal(example.get()); });
    if (hits.size() > most) hits.resize(most);
    return hits;
}

int run(const Arguments& arguments) {
    Mailbox mailbox(arguments[kMailbox]);
    const auto number = arguments[kNumber];
    if (mailbox.message(number)->bytesAreMissing()) throwUnreadable(nameOfMessage(number));
    MessageIndex messages;
    const auto unreadable = messages.add(mailbox, Extent::own);
    const auto most = std::min<std::uint64_t>(arguments.value(kLimit).value_or(kUsualLimit), mailbox.count());
    const auto hits = hitsFor(messages, number - 1, static_cast<std::uint32_t>(most));

    const bool asJson = arguments.has(kJson);
    LineOutput output;
    Table table({{.title = "Score", .numeric = true},
                 {.title = "No.", .numeric = true},
                 {.title = "From", .widest = 24, .narrowest = 10},
                 {.title = "Subject", .takesRest = true},
                 {.title = "In common", .widest = 40, .narrowest = 12, .dispensable = 1}},
                outputColumns(), outputIsStyled());
    for (const auto& hit : hits) {
        const auto found = MessageIndex::numberOf(*hit->GetDocument()) + 1;
        const Summary summary(*mailbox.message(found), found,
                              asJson ? Summary::Detail::json : Summary::Detail::row);
        std::vector<std::string> jsonTerms;
        std::string terms;
        for (const auto& term : termsOf(*hit)) {
            jsonTerms.push_back(jsonText(term));
            terms += (terms.empty() ? "" : " ") + term;
        }
        if (asJson)
            output.write(summary.json()
                             .addJson("score", scoreText(hit->GetScore()))
                             .addJson("terms", jsonArray(jsonTerms))
                             .text());
        else
            table.addRow({scoreText(hit->GetScore()), std::to_string(found),
                          lorvale::addressComment(summary.from), summary.subject, terms});
    }
    table.finish();
    if (hits.empty() && !asJson) output.write("No message is like it.");
    return mailbox.tellUnreadable(unreadable);
}

}  // namespace

const Command similarCommand = {
    .name = "similar",
    .summary = "the messages most like one",
    .description =
        "Prints the messages of a mailbox that have most in common with message number N: with its subject, "
        "its "
        "sender and what its writer wrote; quotations and signatures do not count. The score is 1 for the "
        "message itself. Nothing is kept: the mailbox is read and indexed in memory each time.\n\n"
        "In JSON a line has the members of list, and score and terms, the stems that weigh most of what both "
        "have in common.",
    .words = kWords,
    .options = kOptions,
    .run = run,
};

}  // namespace mailhost
