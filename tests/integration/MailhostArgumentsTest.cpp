/// How mailhost reads a command line, with a table of our own: words that may be missing or be several.

#include <gmock/gmock.h>

#include "examples/mailhost/Arguments.h"
#include "examples/mailhost/Documents.h"

namespace lorvale::testing {
namespace {

using namespace lorvale::testing;
using namespace ::testing;
using namespace mailhost;

constexpr auto kFolder = Typed<std::string>{
    {.name = "FOLDER", .placeholder = {}, .help = "where", .takes = Takes::folder, .isOptional = true}};
constexpr auto kNumbers = Typed<std::uint64_t>{{.name = "N",
                                                .placeholder = {},
                                                .help = "which",
                                                .takes = Takes::number,
                                                .repeats = true,
                                                .isOptional = true}};
constexpr auto kLoud = flag("--loud", "aloud");
constexpr auto kWords = std::to_array<Parameter>({kFolder, kNumbers});
constexpr auto kOptions = std::to_array<Parameter>({kLoud});
const Command kPick = {.name = "pick",
                       .summary = "picks",
                       .description = "Picks.",
                       .words = kWords,
                       .options = kOptions,
                       .run = nullptr};
const Command* const kCommands[] = {&kPick};
const Program kProgram = {.name = "picker",
                          .summary = "picks",
                          .description = "Picks.",
                          .commands = kCommands,
                          .options = {},
                          .exitStatuses = {},
                          .environment = {},
                          .examples = {}};

TEST(MailhostArguments, TakeWordsThatMayBeMissingOrSeveral) {
    const struct {
        std::vector<const char*> line;
        std::optional<std::string> folder;
        std::vector<std::uint64_t> numbers;
    } rows[] = {
        {{"pick"}, std::nullopt, {}},
        {{"pick", "box"}, "box", {}},
        {{"pick", "box", "3", "--loud", "1"}, "box", {3, 1}},
        {{"pick", "--loud", "--", "--loud", "2"}, "--loud", {2}},
    };
    for (const auto& row : rows) {
        Arguments arguments;
        arguments.read(kProgram, row.line);
        arguments.checkComplete();
        EXPECT_EQ(arguments.value(kFolder), row.folder);
        EXPECT_EQ(arguments.values(kNumbers), row.numbers);
    }
    EXPECT_THAT(helpText(kProgram, &kPick, 80), StartsWith("usage: picker pick [FOLDER] [N...] [OPTION...]"));
}

TEST(MailhostArguments, LeaveToTheWordsBehindOneThatRepeatsWhatTheyNeed) {
    constexpr auto kPlace = mailboxWord("PLACE", "where"), kTo = mailboxWord("TO", "where to");
    static constexpr auto kMoveWords = std::to_array<Parameter>({kPlace, kNumbers, kTo});
    const Command move = {.name = "move",
                          .summary = "moves",
                          .description = "Moves.",
                          .words = kMoveWords,
                          .options = {},
                          .run = nullptr};
    const Command* const commands[] = {&move};
    auto program = kProgram;
    program.commands = commands;
    const struct {
        std::vector<const char*> line;
        std::vector<std::uint64_t> numbers;
        std::optional<std::string> to;
    } rows[] = {
        {{"move", "a", "1", "b"}, {1}, "b"},
        {{"move", "a", "1", "2", "3", "b"}, {1, 2, 3}, "b"},
        {{"move", "a", "1"}, {1}, std::nullopt},
        {{"move", "a"}, {}, std::nullopt},
    };
    for (const auto& row : rows) {
        Arguments arguments;
        arguments.read(program, row.line);
        EXPECT_EQ(arguments.value(kPlace), "a");
        EXPECT_EQ(arguments.values(kNumbers), row.numbers);
        EXPECT_EQ(arguments.value(kTo), row.to);
        if (row.to)
            arguments.checkComplete();
        else
            EXPECT_THROW(arguments.checkComplete(), UsageError);
    }
    Arguments arguments;
    EXPECT_THROW(arguments.read(program, std::vector<const char*>{"move", "a", "1", "b", "c"}), UsageError);
}

}  // namespace
}  // namespace lorvale::testing
