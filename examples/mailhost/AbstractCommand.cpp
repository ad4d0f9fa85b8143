#include "Commands.h"
#include "Json.h"
#include "MessageIndex.h"
#include "OwnText.h"
#include "Terminal.h"
#include "Work.h"
#include "lorvale/platform/paths.h"

namespace mailhost {

namespace {

constexpr std::uint64_t kUsualCount = 3;

constexpr auto kNumber = numberWord("N", "the number of a message");
constexpr auto kCount = Typed<std::uint64_t>{
    {.name = "-n", .placeholder = "COUNT", .help = "so many sentences (3)", .takes = Takes::number}};
constexpr auto kWords = std::to_array<Parameter>({kMailbox, kNumber});
constexpr auto kOptions = std::to_array<Parameter>({kCount});

/// One blank for several, none at the ends.
std::string inOneLine(std::string_view text) {
    std::string line;
    for (const char c : text) {
        const bool isBlank = c == ' ' || (c >= '\t' && c <= '\r');
        if (!isBlank)
            line += c;
        else if (!line.empty() && line.back() != ' ')
            line += ' ';
    }
    while (line.ends_with(' ')) line.pop_back();
    return line;
}

int run(const Arguments& arguments) {
    Mailbox mailbox(arguments[kMailbox]);
    const auto number = arguments[kNumber];
    const auto message = mailbox.message(number);
    workOn(nameOfMessage(number), message->messageSize(), [&] {
        message->headers()->allHeaders();
        if (message->bytesAreMissing()) throwUnreadable(nameOfMessage(number));
        std::string text = ownText(wordsOf(*message));
        const auto abbreviations = lorvale::pathForResource("EnglishAbbreviations", "");
        brindle::IAANSISentenceParser parser(text, abbreviations ? abbreviations->c_str() : nullptr);
        const auto storage = brindle::IAMakeStorage(std::make_unique<brindle::RAMStoreStream>());
        const auto analysis = englishAnalysis();
        brindle::IADocumentAbstractor abstractor(storage.get(), analysis.get(), &parser);
        abstractor.Summarize();
        LineOutput output;
        const auto count = std::min<std::uint64_t>(arguments.value(kCount).value_or(kUsualCount),
                                                   brindle::IADocumentAbstractor::MostHits);
        const auto best = brindle::BestExtents(abstractor, static_cast<std::uint32_t>(count));
        for (const auto* const extent : best) {
            const auto sentence = inOneLine(extent->View());
            if (arguments.has(kJson))
                output.write(JsonObject()
                                 .add("number", extent->GetExtentNumber())
                                 .add("paragraph", extent->GetGroupNumber())
                                 .add("rank", extent->GetRank())
                                 .addJson("score", scoreText(extent->GetRankedHit()->GetScore()))
                                 .add("text", sentence)
                                 .text());
            else
                output.write(printableLine(sentence));
        }
        if (best.empty() && !arguments.has(kJson)) output.write("It says nothing in words.");
    });
    return 0;
}

}  // namespace

const Command abstractCommand = {
    .name = "abstract",
    .summary = "the most telling sentences of a message",
    .description =
        "Prints the sentences of message number N that stand best for all of its text, in their order: those "
        "that have most in common with the whole. Quotations and the signature are left out.\n\n"
        "In JSON a line is a sentence: its number and paragraph in the text, its rank, 0 for the most telling "
        "one, its score beside that one, and its text.",
    .words = kWords,
    .options = kOptions,
    .run = run,
};

}  // namespace mailhost
