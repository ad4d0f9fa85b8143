#include "Options.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "lorvale/store.h"

namespace mailhost {

namespace {

constexpr std::string_view kUsage =
    R"(usage: mailhost check PATH
       mailhost list  PATH [--sort ORDER] [--unread]
       mailhost show  PATH N [--headers | --raw | --text]
       mailhost info  PATH

Reads mailboxes.  Nothing is ever changed, locked or marked as read.

  check   names every broken rule of the mailbox file; fails when reading suffers
  list    one line for each message; ORDER is number, from, subject, received-date or size
  show    message number N of the mailbox: its main headers and its text,
          or with --headers all headers, with --raw its very bytes, with --text its text alone
  info    what the mailbox holds

  --json          for programs: one JSON object a line
  -o KEY=VALUE    sets a user default for this run; may be repeated
  --config DIR    where the files of the user defaults lie
  --home DIR      what stands in for the home directory
  --verbose       shows the library's log lines
  --help          this text

The exit status is 0 for success, 1 for a failure (a mailbox that cannot be read, a message that is
not there, a broken rule found by check) and 2 for a command line that makes no sense.
)";

constexpr auto kCommands = std::to_array<std::pair<std::string_view, Command>>({
    {"check", Command::check},
    {"info", Command::info},
    {"list", Command::list},
    {"show", Command::show},
});
constexpr auto kSortOrders = std::to_array<std::string_view>({
    lorvale::MessageStoreSortByNumber,
    lorvale::MessageStoreSortByAuthor,
    lorvale::MessageStoreSortByTitle,
    lorvale::MessageStoreSortByCreationDate,
    lorvale::MessageStoreSortBySize,
});

std::string quoted(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

void setSortOrder(Options& options, std::string_view value) {
    if (std::ranges::find(kSortOrders, value) == kSortOrders.end()) {
        throw UsageError("there is no sort order " + quoted(value));
    }
    options.sortOrder = value;
}

void setPart(Options& options, ShowPart part) {
    if (options.part != ShowPart::summary && options.part != part) {
        throw UsageError("--headers, --raw and --text exclude each other");
    }
    options.part = part;
}

void addDefault(Options& options, std::string_view value) {
    const auto equals = value.find('=');
    if (equals == std::string_view::npos || equals == 0) {
        throw UsageError("-o takes KEY=VALUE, not " + quoted(value));
    }
    options.defaults.emplace_back(value.substr(0, equals), value.substr(equals + 1));
}

struct Flag {
    std::string_view name;
    bool takesValue;
    std::optional<Command> onlyFor;
    void (*apply)(Options&, std::string_view value);
};
constexpr auto kFlags = std::to_array<Flag>({
    {"--config", true, {}, [](Options& o, std::string_view v) { o.configDirectory = v; }},
    {"--headers", false, Command::show, [](Options& o, std::string_view) { setPart(o, ShowPart::headers); }},
    {"--help", false, {}, [](Options& o, std::string_view) { o.help = true; }},
    {"--home", true, {}, [](Options& o, std::string_view v) { o.homeDirectory = v; }},
    {"--json", false, {}, [](Options& o, std::string_view) { o.json = true; }},
    {"--raw", false, Command::show, [](Options& o, std::string_view) { setPart(o, ShowPart::raw); }},
    {"--sort", true, Command::list, setSortOrder},
    {"--text", false, Command::show, [](Options& o, std::string_view) { setPart(o, ShowPart::text); }},
    {"--unread", false, Command::list, [](Options& o, std::string_view) { o.unreadOnly = true; }},
    {"--verbose", false, {}, [](Options& o, std::string_view) { o.verbose = true; }},
    {"-h", false, {}, [](Options& o, std::string_view) { o.help = true; }},
    {"-o", true, {}, addDefault},
});

const Flag& flagNamed(std::string_view name) {
    const auto found = std::ranges::find(kFlags, name, &Flag::name);
    if (found == kFlags.end()) throw UsageError("there is no option " + quoted(name));
    return *found;
}

std::size_t messageNumber(std::string_view text) {
    std::size_t number = 0;
    const auto end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end || number == 0) {
        throw UsageError(quoted(text) + " is not the number of a message");
    }
    return number;
}

void takeWords(Options& options, const std::vector<std::string_view>& words) {
    if (words.empty()) throw UsageError("a command is missing");
    const auto command = std::ranges::find(kCommands, words[0], &std::pair<std::string_view, Command>::first);
    if (command == kCommands.end()) throw UsageError("there is no command " + quoted(words[0]));
    options.command = command->second;
    const std::size_t wanted = options.command == Command::show ? 3 : 2;
    if (words.size() < 2) throw UsageError("the path of a mailbox is missing");
    if (words.size() < wanted) throw UsageError("the number of a message is missing");
    if (words.size() > wanted) throw UsageError(quoted(words[wanted]) + " is one word too many");
    options.path = words[1];
    if (options.path.empty()) throw UsageError("the path of a mailbox is empty");
    if (wanted == 3) options.number = messageNumber(words[2]);
}

}  // namespace

Options parseOptions(std::span<const char* const> arguments) {
    Options options;
    std::vector<std::string_view> words;
    std::vector<const Flag*> flags;
    bool onlyWords = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string_view argument = arguments[i];
        if (onlyWords || argument.size() < 2 || argument[0] != '-') {
            words.push_back(argument);
            continue;
        }
        if (argument == "--") {
            onlyWords = true;
            continue;
        }
        const auto equals = argument.starts_with("--") ? argument.find('=') : std::string_view::npos;
        const Flag& flag = flagNamed(argument.substr(0, equals));
        std::string_view value;
        if (equals != std::string_view::npos) {
            if (!flag.takesValue) throw UsageError(std::string(flag.name) + " takes no value");
            value = argument.substr(equals + 1);
        } else if (flag.takesValue) {
            if (++i == arguments.size()) throw UsageError(std::string(flag.name) + " needs a value");
            value = arguments[i];
        }
        flag.apply(options, value);
        flags.push_back(&flag);
    }
    if (options.help) return options;
    takeWords(options, words);
    for (const Flag* flag : flags) {
        if (flag->onlyFor && *flag->onlyFor != options.command) {
            throw UsageError(std::string(flag->name) + " does not go with this command");
        }
    }
    return options;
}

std::string_view usageText() {
    return kUsage;
}

}  // namespace mailhost
