/// How mailhost reads a command line, with a table of our own: words that may be missing or be several.

#include <gmock/gmock.h>

#include "examples/mailhost/Arguments.h"
#include "examples/mailhost/Documents.h"

namespace lorvale::testing {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
using namespace mailhost;

// "move PLACE [N...] TO": what stands behind the word that repeats takes what it needs.
constexpr auto kPlace = mailboxWord("PLACE", "where"), kTo = mailboxWord("TO", "where to");
constexpr auto kNumbers = Typed<std::uint64_t>{{.name = "N",
                                                .placeholder = {},
                                                .help = "which",
                                                .takes = Takes::number,
                                                .repeats = true,
                                                .isOptional = true}};
constexpr auto kLoud = flag("--loud", "aloud");
constexpr auto kMoveWords = std::to_array<Parameter>({kPlace, kNumbers, kTo});
constexpr auto kAnyPlace = Typed<std::string>{
    {.name = "PLACE", .placeholder = {}, .help = "where", .takes = Takes::folder, .isOptional = true}};
constexpr auto kPickWords = std::to_array<Parameter>({kAnyPlace, kNumbers});
constexpr auto kOptions = std::to_array<Parameter>({kLoud});

Command command(std::string_view name, std::span<const Parameter> words) {
    return {
        .name = name, .summary = "", .description = "", .words = words, .options = kOptions, .run = nullptr};
}
const Command kMove = command("move", kMoveWords), kPick = command("pick", kPickWords);
const Command* const kCommands[] = {&kMove, &kPick};
const Program kProgram = {.name = "picker",
                          .summary = "",
                          .description = "",
                          .commands = kCommands,
                          .options = {},
                          .exitStatuses = {},
                          .environment = {},
                          .examples = {}};

TEST(MailhostArguments, TakeWordsThatMayBeMissingOrSeveralAndLeaveTheRestToOthers) {
    const struct {
        std::vector<const char*> line;
        std::optional<std::string> place;
        std::vector<std::uint64_t> numbers;
        std::optional<std::string> to;
        bool isComplete = true;
    } rows[] = {
        {{"pick"}, std::nullopt, {}, std::nullopt},
        {{"pick", "box"}, "box", {}, std::nullopt},
        {{"pick", "box", "3", "--loud", "1"}, "box", {3, 1}, std::nullopt},
        {{"pick", "--loud", "--", "--loud", "2"}, "--loud", {2}, std::nullopt},
        {{"move", "a", "1", "b"}, "a", {1}, "b"},
        {{"move", "a", "1", "2", "3", "b"}, "a", {1, 2, 3}, "b"},
        {{"move", "a", "1"}, "a", {1}, std::nullopt, false},
        {{"move", "a"}, "a", {}, std::nullopt, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(PrintToString(row.line));
        Arguments arguments;
        arguments.read(kProgram, row.line);
        EXPECT_EQ(arguments.value(kPlace), row.place);
        EXPECT_EQ(arguments.values(kNumbers), row.numbers);
        EXPECT_EQ(arguments.value(kTo), row.to);
        if (row.isComplete)
            EXPECT_NO_THROW(arguments.checkComplete());
        else
            EXPECT_THROW(arguments.checkComplete(), UsageError);
    }
    Arguments arguments;
    EXPECT_THROW(arguments.read(kProgram, std::vector<const char*>{"move", "a", "1", "b", "c"}), UsageError);
    EXPECT_THAT(helpText(kProgram, &kPick, 80), StartsWith("usage: picker pick [PLACE] [N...] [OPTION...]"));
}

}  // namespace
}  // namespace lorvale::testing
