#include "Arguments.h"

#include <algorithm>

namespace mailhost {

namespace {

std::string quoted(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

std::string withName(std::string_view name, std::string_view rest) {
    return std::string(name) + std::string(rest);
}

const Parameter* findOption(std::span<const Parameter> options, std::string_view name) {
    const auto found = std::ranges::find_if(options, [&](const Parameter& option) {
        return option.name == name || (!option.shortName.empty() && option.shortName == name);
    });
    return found != options.end() ? &*found : nullptr;
}

/// "--name=value" and "-nvalue" taken apart.
struct Spelled {
    explicit Spelled(std::string_view argument) : name(argument) {
        const bool isLong = argument.starts_with("--");
        const auto end = isLong ? argument.find('=') : std::min<std::size_t>(2, argument.size());
        if (end >= argument.size()) return;
        name = argument.substr(0, end);
        value = argument.substr(end + (isLong ? 1 : 0));
    }
    std::string_view name;
    std::optional<std::string_view> value;
};

}  // namespace

const Command* Program::command(std::string_view named) const {
    const auto found = std::ranges::find(commands, named, [](const Command* command) { return command->name; });
    return found != commands.end() ? *found : nullptr;
}

void Arguments::read(const Program& program, std::span<const char* const> line) {
    _words.clear();
    bool onlyWords = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const std::string_view argument = line[i];
        if (onlyWords || argument.size() < 2 || argument[0] != '-') {
            addWord(program, argument);
            continue;
        }
        if (argument == "--") {
            onlyWords = true;
            continue;
        }
        const Spelled spelled(argument);
        const Parameter& option = optionNamed(program, spelled.name);
        if (!option.takesValue()) {
            if (spelled.value) throw UsageError(withName(spelled.name, " takes no value"));
            addOption(option, true);
            continue;
        }
        if (!spelled.value && ++i == line.size()) throw UsageError(withName(spelled.name, " needs a value"));
        addOption(option, valueOf(option, spelled.value ? *spelled.value : std::string_view(line[i])));
    }
    if (_chosen != nullptr) takeWords();
}

const Parameter& Arguments::optionNamed(const Program& program, std::string_view name) const {
    if (const auto* const option = findOption(program.options, name)) return *option;
    if (_chosen == nullptr)
        throw UsageError("there is no option " + quoted(name) + " before the command's name");
    if (const auto* const option = findOption(_chosen->options, name)) return *option;
    throw UsageError(withName(_chosen->name, " has no option ") + quoted(name));
}

void Arguments::addOption(const Parameter& option, Value value) {
    if (!option.group.empty() && _chosen != nullptr) {
        for (const auto& other : _chosen->options) {
            if (other.group != option.group || other.name == option.name || !has(other)) continue;
            throw UsageError(withName(other.name, " and ") + withName(option.name, " exclude each other"));
        }
    }
    _given.push_back({option.name, std::move(value)});
}

void Arguments::addWord(const Program& program, std::string_view text) {
    if (_chosen == nullptr) {
        _chosen = program.command(text);
        if (_chosen == nullptr) throw UsageError("there is no command " + quoted(text));
        return;
    }
    const auto& words = _chosen->words;
    if (_words.size() >= words.size() && std::ranges::none_of(words, &Parameter::repeats))
        throw UsageError(quoted(text) + " is one word too many");
    _words.push_back(text);
}

/// Gives each word its parameter.  One that repeats takes what those before and behind it leave.
void Arguments::takeWords() {
    const auto& words = _chosen->words;
    const auto repeating =
        static_cast<std::size_t>(std::ranges::find_if(words, &Parameter::repeats) - words.begin());
    for (std::size_t i = 0; i < _words.size(); ++i) {
        const auto left = _words.size() - i;  // this one and those behind it
        const auto place =
            i <= repeating ? i : std::max(repeating, words.size() - std::min(left, words.size()));
        _given.push_back({words[place].name, valueOf(words[place], _words[i])});
    }
    _words.clear();
}

void Arguments::checkComplete() const {
    if (_chosen == nullptr) throw UsageError("a command is missing");
    for (const auto& word : _chosen->words) {
        if (!word.isOptional && !has(word))
            throw UsageError(withName(_chosen->name, " needs ") + std::string(word.name) + ", " +
                             std::string(word.help));
    }
}

const Value* Arguments::last(const Parameter& parameter) const {
    const auto found = std::ranges::find(_given.rbegin(), _given.rend(), parameter.name, &Given::name);
    return found != _given.rend() ? &found->value : nullptr;
}

}  // namespace mailhost
