#include <vector>

#include "Documents.h"

namespace mailhost {

namespace {

std::string joined(std::span<const std::string_view> words, std::string_view separator) {
    std::string text;
    for (const auto word : words) text += (text.empty() ? "" : std::string(separator)) + std::string(word);
    return text;
}

std::vector<std::string_view> namesOf(std::span<const Parameter> options) {
    std::vector<std::string_view> names;
    for (const auto& option : options) {
        if (!option.shortName.empty()) names.push_back(option.shortName);
        names.push_back(option.name);
    }
    return names;
}

// bash

std::string namesOfCommands(const Program& program) {
    std::vector<std::string_view> names;
    for (const auto* command : program.commands) names.push_back(command->name);
    return joined(names, " ");
}

/// The options whose value is the next word, as a pattern of `case`.
std::string valueTakers(const Program& program) {
    std::string pattern;
    const auto add = [&pattern](std::span<const Parameter> options) {
        for (const auto& option : options) {
            if (option.takesValue()) pattern += (pattern.empty() ? "" : "|") + std::string(option.name);
        }
    };
    add(program.options);
    for (const auto* command : program.commands) add(command->options);
    return pattern;
}

/// What completes the value of an option in bash; empty when there is nothing to offer.
std::string bashAction(const Parameter& option) {
    switch (option.takes) {
        case Takes::choice:
            return "_mailhost_words '" + joined(option.choices, " ") + "'; ";
        case Takes::mailbox:
        case Takes::file:
            return "compopt -o default 2>/dev/null; ";
        case Takes::folder:
            return "compopt -o dirnames 2>/dev/null; ";
        default:
            return {};
    }
}

/// The branches of `case $command:$previous` for options that take a value.
std::string bashValues(std::string_view command, std::span<const Parameter> options) {
    std::string text, withoutAction;
    for (const auto& option : options) {
        if (!option.takesValue()) continue;
        const auto pattern = std::string(command) + ":" + std::string(option.name);
        if (const auto action = bashAction(option); !action.empty()) {
            text += "        " + pattern + ") " + action + "return ;;\n";
        } else {
            withoutAction += (withoutAction.empty() ? "" : "|") + pattern;
        }
    }
    return withoutAction.empty() ? text : text + "        " + withoutAction + ") return ;;\n";
}

// zsh

/// Text inside single quotes in an entry of _arguments.
std::string zshText(std::string_view text) {
    std::string result;
    for (const char c : text) {
        if (c == '\'') {
            result += "'\\''";
        } else {
            if (c == ':' || c == '[' || c == ']' || c == '\\') result += '\\';
            result += c;
        }
    }
    return result;
}

/// ":message:action": what stands for a value, and what completes it.
std::string zshValue(const Parameter& parameter) {
    std::string text = ":" + zshText(parameter.isOption() ? parameter.placeholder : parameter.name) + ":";
    if (parameter.takes == Takes::choice) text += "(" + joined(parameter.choices, " ") + ")";
    if (parameter.takes == Takes::mailbox) text += "_files";
    if (parameter.takes == Takes::folder) text += "_files -/";
    return text;
}

/// The options that are not offered any more once this one stands there.
std::string excludedBy(const Parameter& option, std::span<const Parameter> all) {
    std::vector<Parameter> excluded;
    for (const auto& other : all) {
        const bool same = other.name == option.name;
        if (same ? !option.repeats : !option.group.empty() && other.group == option.group)
            excluded.push_back(other);
    }
    return joined(namesOf(excluded), " ");
}

/// One entry for each name of the option.
std::vector<std::string> zshOption(const Parameter& option, std::span<const Parameter> all) {
    std::vector<std::string> entries;
    for (const auto name : namesOf({&option, 1})) {
        std::string text = option.repeats ? "'*" : "'(" + excludedBy(option, all) + ")";
        text += std::string(name) + (option.takesValue() && name.starts_with("--") ? "=" : "");
        text += "[" + zshText(fullHelp(option)) + "]";
        if (option.takesValue()) text += zshValue(option);
        entries.push_back(text + "'");
    }
    return entries;
}

std::string zshWord(const Parameter& word) {
    return (word.repeats ? "'*" : word.isOptional ? "':" : "'") + zshValue(word) + "'";
}

constexpr std::string_view kNextLine = " \\\n                ";

std::string zshCommand(const Command& command) {
    std::string text = "            " + std::string(command.name) + ")\n                _arguments -s $general";
    for (const auto& option : command.options) {
        for (const auto& line : zshOption(option, command.options)) text += std::string(kNextLine) + line;
    }
    for (const auto& word : command.words) {
        text += std::string(kNextLine) + zshWord(word);
        if (word.repeats) break;  // zsh takes all that follows for it
    }
    return text + " ;;\n";
}

}  // namespace

std::string bashCompletion(const Program& program) {
    const std::string name(program.name);
    std::string text = "# Completion of " + name + " in bash, written by \"" + name + " --generate bash\".\n";
    text += R"(_mailhost_words() { mapfile -t COMPREPLY < <(compgen -W "$1" -- "$current"); }
_mailhost() {
    local current=${COMP_WORDS[COMP_CWORD]} previous= command= i
    COMPREPLY=()
    ((COMP_CWORD > 0)) && previous=${COMP_WORDS[COMP_CWORD - 1]}
    # bash takes "--name=value" for three words.
    if [[ $previous == = ]] && ((COMP_CWORD > 1)); then previous=${COMP_WORDS[COMP_CWORD - 2]}; fi
    if [[ $current == = ]]; then current=; fi
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
)";
    text += "            " + valueTakers(program) + ")\n";
    text += R"(                [[ ${COMP_WORDS[i + 1]-} == = ]] && ((++i))
                ((++i)) ;;
            -*) ;;
            *) command=${COMP_WORDS[i]}; break ;;
        esac
    done
    case $command:$previous in
)";
    for (const auto* command : program.commands) text += bashValues(command->name, command->options);
    text += bashValues("*", program.options);
    text +=
        "    esac\n    local options='" + joined(namesOf(program.options), " ") + "'\n    case $command in\n";
    for (const auto* command : program.commands) {
        if (command->options.empty()) continue;
        text += "        " + std::string(command->name) + ") options+=' " +
                joined(namesOf(command->options), " ") + "' ;;\n";
    }
    text += R"(    esac
    if [[ $current == -* ]]; then
        _mailhost_words "$options"
    elif [[ -z $command ]]; then
)";
    text += "        _mailhost_words '" + namesOfCommands(program) + "'\n";
    return text + "    else\n        compopt -o default 2>/dev/null\n    fi\n}\ncomplete -F _mailhost " + name +
           "\n";
}

std::string zshCompletion(const Program& program) {
    const std::string name(program.name);
    std::string text = "#compdef " + name + "\n# Written by \"" + name + " --generate zsh\".\n";
    text += "_mailhost() {\n    local curcontext=$curcontext state line\n    typeset -A opt_args\n";
    text += "    local -a general=(\n";
    for (const auto& option : program.options) {
        for (const auto& line : zshOption(option, program.options)) text += "        " + line + "\n";
    }
    text += "    )\n    local -a commands=(\n";
    for (const auto* command : program.commands) {
        text += "        '" + zshText(command->name) + ":" + zshText(command->summary) + "'\n";
    }
    text += R"(    )
    _arguments -C -s $general '1:command:->command' '*::word:->word'
    case $state in
        command) _describe command commands ;;
        word)
            case $words[1] in
)";
    for (const auto* command : program.commands) text += zshCommand(*command);
    return text + "            esac ;;\n    esac\n}\n_mailhost \"$@\"\n";
}

}  // namespace mailhost
