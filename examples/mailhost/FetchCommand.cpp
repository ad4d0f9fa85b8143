#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>
#include <utility>

#include "Commands.h"
#include "ConsoleAgent.h"
#include "ConsoleProgress.h"
#include "FetchSource.h"
#include "Interrupts.h"
#include "Json.h"
#include "Output.h"
#include "Rules.h"
#include "Terminal.h"
#include "lorvale/platform/paths.h"
#include "lorvale/platform/run_loop.h"

namespace mailhost {

namespace {

using lorvale::RunLoop;

constexpr auto kAccount = Typed<std::string>{{.name = "ACCOUNT",
                                              .placeholder = {},
                                              .help = "an account, by its name or its host; all without one",
                                              .takes = Takes::text,
                                              .repeats = true,
                                              .isOptional = true}};
constexpr auto kWords = std::to_array<Parameter>({kAccount});
constexpr auto kInto =
    textOption("--into", "MAILBOX", "the mailbox that mail goes to (Active.mbox)", Takes::mailbox);
constexpr auto kRules =
    textOption("--rules", "FILE", "lines of \"header contains text -> mailbox\"", Takes::text);
constexpr auto kEvery = numberOption("--every", "SECONDS", "how often to look for mail (300)");
constexpr auto kFetchOptions =
    std::to_array<Parameter>({kInto, kRules, kSpool, kPop, kUser, kPasswordDescriptor, kPasswordCommand,
                              kSecurity, kAuthorities, kDelete, kAll, kState});
constexpr auto kWatchOptions = joined(std::to_array<Parameter>({kEvery}), kFetchOptions);

std::string contentsOf(const std::string& path) {
    std::ifstream file(lorvale::standardizePath(path), std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(file), {});
    if (!file.is_open() || file.bad()) throw Failure(path + ": cannot be read");
    return text;
}

std::string intoMailbox(const Arguments& arguments) {
    const auto name = arguments.value(kInto).value_or("");
    std::error_code error;
    if (!name.empty() && std::filesystem::is_regular_file(lorvale::standardizePath(name), error))
        throw Failure(name + ": a flat mailbox; fetched mail goes to a directory mailbox");
    return name.empty() ? "" : mailboxPath(name);
}

std::vector<Rule> rulesOf(const Arguments& arguments) {
    const auto path = arguments.value(kRules);
    if (!path) return {};
    try {
        return parseRules(contentsOf(*path));
    } catch (const Failure& failure) {
        throw Failure(*path + ": " + failure.what());
    }
}

std::string counted(std::size_t number, std::string_view one) {
    return groupedNumber(number) + ' ' + std::string(one) + (number == 1 ? "" : "s");
}

/// Fetches from all sources, at the same time, and tells what became of it.
class Fetch {
public:
    Fetch(const Arguments& arguments, bool byClock)
        : _json(arguments.has(kJson)),
          _routing(rulesOf(arguments), intoMailbox(arguments)),
          _sources(fetchSources(arguments, arguments.values(kAccount), byClock)),
          _interrupts([this] { interrupt(); }) {}

    /// Whether every source could be fetched.  `tellsNothing`: also of those without mail.
    bool run(bool tellsNothing) {
        std::vector<FetchSource*> all;
        for (const auto& source : _sources) all.push_back(source.get());
        return run(all, tellsNothing);
    }
    /// Sources that can tell of mail shall do so; runOnNewsUntil() fetches that, until an interrupt at most.
    void watch(std::chrono::seconds every) {
        for (const auto& source : _sources)
            source->watch([this, each = source.get()] { _haveNews.insert(each); }, every);
    }
    void runOnNewsUntil(RunLoop::Clock::time_point end) {
        while (RunLoop::Clock::now() < end && !_wasInterrupted) {
            RunLoop::main()->runOnce(end);
            const auto news = std::exchange(_haveNews, {});
            run({news.begin(), news.end()}, /*tellsNothing=*/false);
        }
    }
    bool wasInterrupted() const { return _wasInterrupted; }

private:
    bool run(const std::vector<FetchSource*>& sources, bool tellsNothing) {
        for (auto* const source : sources) source->start();
        while (isUnderWay()) RunLoop::main()->runOnce(RunLoop::Clock::now() + std::chrono::seconds(1));
        ProgressBar::clear();
        bool good = true;
        for (const auto* const source : sources) {
            const auto outcome = source->outcome();
            if (tellsNothing || outcome.routed + outcome.left > 0 || !outcome.failures.empty())
                tell(*source, outcome);
            good = good && outcome.failures.empty() && outcome.left == 0;
        }
        return good;
    }
    bool isUnderWay() const {
        return std::ranges::any_of(_sources, [](const auto& source) { return source->isUnderWay(); });
    }
    void interrupt() {
        _wasInterrupted = true;
        for (const auto& source : _sources) source->cancel();
    }
    void tell(const FetchSource& source, const FetchSource::Outcome& outcome) {
        if (_json) {
            std::vector<std::string> failures;
            for (const auto& failure : outcome.failures) failures.push_back(jsonText(failure));
            JsonObject object;
            object.add("source", source.name()).add("messages", outcome.routed).add("left", outcome.left);
            object.addJson("failures", jsonArray(failures));
            return _output.write(object.text());
        }
        auto line = source.name() + ": " + counted(outcome.routed, "message");
        if (outcome.left > 0) line += ", " + groupedNumber(outcome.left) + " could not be put into a mailbox";
        _output.write(printableLine(line));
        for (const auto& failure : outcome.failures) say("mailhost: " + source.name() + ": " + failure);
    }

    const bool _json;
    const ConsoleProgress _progress;
    const Routing _routing;
    const FetchSources _sources;
    LineOutput _output;
    std::set<FetchSource*> _haveNews;
    bool _wasInterrupted = false;
    const Interrupts _interrupts;  // last: uses the sources
};

int runFetch(const Arguments& arguments) {
    const QuietAlerts quiet;  // each is told once, with its source
    return Fetch(arguments, /*byClock=*/false).run(/*tellsNothing=*/true) ? 0 : 1;
}

int runWatch(const Arguments& arguments) {
    const QuietAlerts quiet;
    const std::chrono::seconds every(std::min<std::uint64_t>(arguments.value(kEvery).value_or(300), 1'000'000));
    Fetch fetch(arguments, /*byClock=*/true);
    fetch.watch(every);
    while (!fetch.wasInterrupted()) {
        fetch.run(/*tellsNothing=*/false);
        fetch.runOnNewsUntil(RunLoop::Clock::now() + every);
    }
    return 0;
}

}  // namespace

const Command fetchCommand = {
    .name = "fetch",
    .summary = "brings new mail",
    .description =
        "Takes new mail from where it waits, puts it into its mailboxes, and writes a line for each source: "
        "how many "
        "messages came. An interrupt ends it; mail that has come stays. The exit status is 1 where a source "
        "failed or a "
        "message found no mailbox.\n\n"
        "Without --spool and --pop, mail comes from the accounts. The mail of a POP3 server goes first to a "
        "file on this "
        "machine, and from there into its mailbox; what was fetched is remembered, and fetched once. The "
        "password is "
        "asked for on the terminal, unless an option says where to get it.\n\n"
        "A line of the rules such as \"subject contains invoice -> bills\" sends mail with that word in its "
        "subject to "
        "the mailbox bills.mbox in the mail directory. The first rule that fits counts; lines that begin with "
        "\"#\" say "
        "nothing.\n\n"
        "In JSON a line has the members source, messages, left (what could not be put into a mailbox) and "
        "failures.",
    .words = kWords,
    .options = kFetchOptions,
    .run = runFetch,
};

const Command watchCommand = {
    .name = "watch",
    .summary = "brings new mail from time to time",
    .description =
        "Fetches like \"mailhost fetch\", at once and then now and again, until it is interrupted, and writes "
        "a line when mail has come or something is wrong. Of an IMAP account the mailbox INBOX is looked at; "
        "where its server tells of new mail by itself (IDLE), that shows at once. It takes the same options. "
        "An account that is not to fetch by itself is left out, unless it is named.",
    .words = kWords,
    .options = kWatchOptions,
    .run = runWatch,
};

}  // namespace mailhost
