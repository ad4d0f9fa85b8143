#pragma once
#include "Arguments.h"

/// The table from which everything about the command line is made.  A new command is a file that defines its
/// Command, and a line in each of the two lists: here, and in Commands.cpp.

namespace mailhost {

extern const Command abstractCommand;
extern const Command accountsCommand;
extern const Command checkCommand;
extern const Command compactCommand;
extern const Command copyCommand;
extern const Command fetchCommand;
extern const Command flagCommand;
extern const Command forwardCommand;
extern const Command importCommand;
extern const Command indexCommand;
extern const Command infoCommand;
extern const Command listCommand;
extern const Command mailboxesCommand;
extern const Command moveCommand;
extern const Command newCommand;
extern const Command queueCommand;
extern const Command rebuildCommand;
extern const Command removeCommand;
extern const Command replyCommand;
extern const Command searchCommand;
extern const Command sendCommand;
extern const Command showCommand;
extern const Command similarCommand;
extern const Command sortCommand;
extern const Command syncCommand;
extern const Command undoCommand;
extern const Command unindexCommand;
extern const Command watchCommand;

inline constexpr auto kJson = flag("--json", "for programs: one JSON object a line");
inline constexpr auto kOffline = flag("--offline", "do without the servers of IMAP accounts");
inline constexpr auto kVerbose = flag("--verbose", "show the library's log lines");
inline constexpr auto kDefault = Typed<Setting>{{.name = "-o",
                                                 .placeholder = "KEY=VALUE",
                                                 .help = "set a user default for this run",
                                                 .takes = Takes::setting,
                                                 .repeats = true}};
inline constexpr auto kConfig =
    textOption("--config", "DIR", "where the files of the user defaults lie", Takes::folder);
inline constexpr auto kYes = flag("--yes", "do not ask");
inline constexpr auto kHome =
    textOption("--home", "DIR", "what stands in for the home directory", Takes::folder);
inline constexpr auto kHelp = Typed<bool>{{.name = "--help",
                                           .placeholder = {},
                                           .help = "tell how mailhost, or the command, is used",
                                           .shortName = "-h"}};
inline constexpr auto kVersion = flag("--version", "tell the version of the library");
inline constexpr auto kDocuments = std::to_array<std::string_view>({"man", "bash", "zsh"});
inline constexpr auto kGenerate = choiceOption(
    "--generate", "KIND", kDocuments, "write the manual page (man), or the completions for bash or zsh");

extern const Program program;

}  // namespace mailhost
