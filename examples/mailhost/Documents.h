#pragma once
#include <string>
#include <string_view>

#include "Parameter.h"

/// What is written from the table of a program.  Each is complete text, ending in a line end.

namespace mailhost {

/// Of the whole program, or of one command.
std::string helpText(const Program& program, const Command* command, int columns);
/// A page of section 1 for man(1).
std::string manualPage(const Program& program, std::string_view source);
/// A script to be sourced by bash.
std::string bashCompletion(const Program& program);
/// A function file for zsh's $fpath.
std::string zshCompletion(const Program& program);

// What they share.

/// "MAILBOX N", "[FILE...]".
std::string wordsOf(const Command& command);
/// "-h, --help", "--limit N".
std::string spelling(const Parameter& option);
/// The help with what the names alone do not tell: values to choose from, whether it may be repeated.
std::string fullHelp(const Parameter& parameter);

}  // namespace mailhost
