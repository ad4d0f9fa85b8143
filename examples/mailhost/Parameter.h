#pragma once
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "lorvale/values/date.h"

/// What a command line may hold, as data: the reader of command lines, `--help`, the manual page and the
/// completions of the shells all work from these tables.

namespace mailhost {

/// "KEY=VALUE".
struct Setting {
    std::string key, value;
};

/// A day, a minute, or whatever stretch of time a text such as "2004-01" names: from `begin` up to `end`, which
/// is no longer part of it.
struct Period {
    lorvale::Date begin, end;
};

/// How the text of a parameter is read, and what a shell offers for it.
enum class Takes { nothing, text, choice, number, descriptor, bytes, period, setting, mailbox, folder, file };

/// An option, or one of the words that a command needs.
struct Parameter {
    std::string_view name;         ///< "--limit", "-o"; of a word what stands for it in a help text, "MAILBOX"
    std::string_view placeholder;  ///< what stands for the value of an option, "N"; empty when it takes none
    std::string_view help;         ///< what it does, without a full stop
    Takes takes = Takes::nothing;
    std::span<const std::string_view> choices = {};  ///< the only values of Takes::choice
    std::string_view shortName = {};                 ///< "-h" beside "--help"
    std::string_view group = {};  ///< of the options that share a group one at most may be given
    bool repeats = false;         ///< an option may be given again; one of the words may be several
    bool isOptional = false;      ///< the word may be missing

    constexpr bool isOption() const { return name.starts_with('-'); }
    constexpr bool takesValue() const { return takes != Takes::nothing; }
};

/// A parameter together with the type in which Arguments gives its value.
template <class T>
struct Typed : Parameter {
    using Type = T;
};

constexpr Typed<bool> flag(std::string_view name, std::string_view help, std::string_view group = {}) {
    return {{.name = name, .placeholder = {}, .help = help, .group = group}};
}
constexpr Typed<std::string> textOption(std::string_view name, std::string_view placeholder,
                                        std::string_view help, Takes takes = Takes::text) {
    return {{.name = name, .placeholder = placeholder, .help = help, .takes = takes}};
}
constexpr Typed<std::string> choiceOption(std::string_view name, std::string_view placeholder,
                                          std::span<const std::string_view> choices, std::string_view help) {
    return {
        {.name = name, .placeholder = placeholder, .help = help, .takes = Takes::choice, .choices = choices}};
}
/// A count: 1 and up.
constexpr Typed<std::uint64_t> numberOption(std::string_view name, std::string_view placeholder,
                                            std::string_view help) {
    return {{.name = name, .placeholder = placeholder, .help = help, .takes = Takes::number}};
}
/// Of an open file: 0 is standard input.
constexpr Typed<std::uint64_t> descriptorOption(std::string_view name, std::string_view placeholder,
                                                std::string_view help, std::string_view group = {}) {
    return {
        {.name = name, .placeholder = placeholder, .help = help, .takes = Takes::descriptor, .group = group}};
}
/// "4096", "100K", "2.5M", "1G": the letters stand for powers of 1024.
constexpr Typed<std::uint64_t> bytesOption(std::string_view name, std::string_view placeholder,
                                           std::string_view help) {
    return {{.name = name, .placeholder = placeholder, .help = help, .takes = Takes::bytes}};
}
constexpr Typed<Period> periodOption(std::string_view name, std::string_view placeholder,
                                     std::string_view help) {
    return {{.name = name, .placeholder = placeholder, .help = help, .takes = Takes::period}};
}
constexpr Typed<std::string> mailboxWord(std::string_view name, std::string_view help, bool repeats = false) {
    return {{.name = name, .placeholder = {}, .help = help, .takes = Takes::mailbox, .repeats = repeats}};
}
constexpr Typed<std::uint64_t> numberWord(std::string_view name, std::string_view help) {
    return {{.name = name, .placeholder = {}, .help = help, .takes = Takes::number}};
}

/// "number, from or size".
std::string enumeration(std::span<const std::string_view> words);

/// Several tables in one, so that commands can share some of their options.
template <std::size_t... Sizes>
constexpr auto joined(const std::array<Parameter, Sizes>&... tables) {
    std::array<Parameter, (Sizes + ...)> all;
    auto* place = all.data();
    ((place = std::copy(tables.begin(), tables.end(), place)), ...);
    return all;
}

class Arguments;

struct Command {
    std::string_view name;
    std::string_view summary;      ///< half a line, without a full stop
    std::string_view description;  ///< sentences; an empty line between paragraphs
    std::span<const Parameter> words, options;
    /// Writes its answer to standard output and gives the exit status: 0 for success, 1 for a fault that was
    /// found and told.  What keeps the command from its work is thrown.
    int (*run)(const Arguments&);
};

/// A line of a list in the manual: what it is, and what there is to say of it.
struct Entry {
    std::string_view name, text;
};

struct Program {
    std::string_view name, summary, description;
    std::span<const Command* const> commands;  ///< by name
    std::span<const Parameter> options;        ///< of every command
    std::span<const Entry> exitStatuses, environment, examples;

    /// Null for a command that is not there.
    const Command* command(std::string_view named) const;
};

}  // namespace mailhost
