#include "Commands.h"

#include <algorithm>

namespace mailhost {

namespace {

constexpr auto kCommands = std::to_array<const Command*>({
    &abstractCommand,  &accountsCommand, &checkCommand,   &compactCommand, &copyCommand,    &fetchCommand,
    &flagCommand,      &forwardCommand,  &importCommand,  &indexCommand,   &infoCommand,    &listCommand,
    &mailboxesCommand, &moveCommand,     &newCommand,     &queueCommand,   &rebuildCommand, &removeCommand,
    &replyCommand,     &searchCommand,   &sendCommand,    &showCommand,    &similarCommand, &sortCommand,
    &syncCommand,      &undoCommand,     &unindexCommand, &watchCommand,
});

constexpr auto kOptions =
    std::to_array<Parameter>({kJson, kVerbose, kOffline, kDefault, kConfig, kHome, kHelp, kVersion, kGenerate});

constexpr auto kExitStatuses = std::to_array<Entry>({
    {"0", "success"},
    {"1",
     "a failure, which is told on standard error: a mailbox or a message that cannot be read, a broken rule "
     "found by check, output that cannot be written"},
    {"2", "a command line that makes no sense"},
});

constexpr auto kEnvironment = std::to_array<Entry>({
    {"COLUMNS", "how wide tables are made, in place of the terminal's width (100 where there is no terminal)"},
    {"NO_COLOR", "when it is not empty, no bold text and no colour, also on a terminal"},
    {"HOME, XDG_CONFIG_HOME",
     "where \"~\" and the files of the user defaults lie, unless --home or --config says"},
    {"TZ", "the time zone of the dates in tables, and of those that options take"},
});

constexpr auto kExamples = std::to_array<Entry>({
    {"mailhost list ~/inbox --sort received-date --reverse --limit 20", "the twenty latest messages"},
    {"mailhost list ~/inbox --from ferry --since 2004-03 --json",
     "what a sender wrote from March 2004 on, for a program"},
    {"mailhost show ~/inbox 12 --raw > letter.eml", "the very bytes of a message into a file"},
    {"mailhost check ~/inbox", "is the mailbox in order?"},
    {"mailhost send --to jane@x.example --subject Map --attach map.png --body note.txt",
     "a letter with a file"},
    {"mailhost reply ~/inbox 12 --body answer.txt --dry-run", "how an answer would look"},
    {"mailhost import ~/inbox ~/mail/inbox.mbox", "a directory mailbox, which keeps what was read"},
    {"mailhost fetch --pop mail.example --user anna --security tls --into ~/inbox.mbox",
     "new mail of a server"},
    {"mailhost index ~/mail/inbox.mbox", "from now on the mailbox keeps a search index"},
    {"mailhost search \"ferry timetable\" ~/mail/inbox.mbox", "the messages that are most about that"},
    {"mailhost mailboxes", "the tree of mailboxes, with what is unread"},
    {"mailhost move Local\\ Mailboxes/Active 3 4 7 ~/Mailboxes/Trips.mbox", "three messages go elsewhere"},
    {"mailhost similar ~/inbox 12", "what else was written about that"},
    {"mailhost sort ~/inbox --by ~/work ~/family --move", "puts each message where others like it are"},
});

}  // namespace

const Program program = {
    .name = "mailhost",
    .summary = "look at mailboxes, and keep them",
    .description =
        "Reads mailboxes: abstract, check, info, list, mailboxes, search, show, similar, and sort without "
        "--move "
        "change, lock and mark nothing. The other commands keep directory mailboxes, under their lock, and the "
        "accounts that these lie in. A mailbox is named by its path, or by ACCOUNT/NAME.",
    .commands = kCommands,
    .options = kOptions,
    .exitStatuses = kExitStatuses,
    .environment = kEnvironment,
    .examples = kExamples,
};

}  // namespace mailhost
