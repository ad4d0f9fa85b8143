#include <algorithm>
#include <vector>

#include "Documents.h"
#include "Terminal.h"

namespace mailhost {

namespace {

/// A paragraph in lines of at most so many columns, each behind an indent.
std::string wrapped(std::string_view paragraph, std::size_t indent, std::size_t columns) {
    std::string text, line;
    const auto endLine = [&] {
        text += std::string(indent, ' ') + line + "\n";
        line.clear();
    };
    while (!paragraph.empty()) {
        const auto end = std::min(paragraph.find(' '), paragraph.size());
        const auto word = paragraph.substr(0, end);
        paragraph.remove_prefix(std::min(end + 1, paragraph.size()));
        if (!line.empty() && indent + line.size() + 1 + word.size() > columns) endLine();
        line += (line.empty() ? "" : " ") + std::string(word);
    }
    endLine();
    return text;
}

struct Row {
    std::string name, text;
};

/// Names in one column, texts in another beside them, or below where a name is long.
std::string list(const std::vector<Row>& rows, std::size_t columns) {
    constexpr std::size_t kIndent = 2, kGap = 2, kWidestName = 24;
    std::size_t widest = 0;
    for (const auto& row : rows) {
        if (row.name.size() <= kWidestName) widest = std::max(widest, row.name.size());
    }
    const std::size_t textColumn = kIndent + widest + kGap;
    std::string result;
    for (const auto& [name, text] : rows) {
        auto lines = wrapped(text, textColumn, columns);
        if (name.size() <= widest) {
            lines.replace(kIndent, name.size(), name);
        } else {
            result += "  " + name + "\n";
        }
        result += lines;
    }
    return result;
}

std::string paragraphs(std::string_view description, std::size_t columns) {
    std::string text;
    while (!description.empty()) {
        const auto end = std::min(description.find("\n\n"), description.size());
        text += wrapped(description.substr(0, end), 0, columns) + "\n";
        description.remove_prefix(std::min(end + 2, description.size()));
    }
    return text;
}

std::vector<Row> rowsOf(std::span<const Parameter> parameters) {
    std::vector<Row> rows;
    for (const auto& parameter : parameters) rows.push_back({spelling(parameter), fullHelp(parameter)});
    return rows;
}

std::vector<Row> rowsOf(std::span<const Entry> entries) {
    std::vector<Row> rows;
    for (const auto& entry : entries) rows.push_back({std::string(entry.name), std::string(entry.text)});
    return rows;
}

std::string helpOfCommand(const Program& program, const Command& command, std::size_t columns) {
    std::string text = "usage: " + std::string(program.name) + " " + std::string(command.name) + " " +
                       wordsOf(command) + " [OPTION...]\n\n";
    text += paragraphs(command.description, columns);
    text += list(rowsOf(command.words), columns);
    if (!command.options.empty()) text += "\n" + list(rowsOf(command.options), columns);
    return text + "\nOptions of every command:\n" + list(rowsOf(program.options), columns);
}

std::string helpOfProgram(const Program& program, std::size_t columns) {
    const std::string name(program.name);
    std::string text = "usage: " + name + " COMMAND WORD... [OPTION...]\n\n";
    text += paragraphs(program.description, columns) + "Commands:\n";
    std::vector<Row> rows;
    for (const auto* command : program.commands) {
        rows.push_back({std::string(command->name) + " " + wordsOf(*command), std::string(command->summary)});
    }
    text += list(rows, columns) + "\nOptions of every command:\n" + list(rowsOf(program.options), columns);
    text += "\n\"" + name + " COMMAND --help\" tells the options of a command.\n";
    text += "\nExit status:\n" + list(rowsOf(program.exitStatuses), columns);
    return text + "\nEnvironment:\n" + list(rowsOf(program.environment), columns);
}

}  // namespace

std::string wordsOf(const Command& command) {
    std::string text;
    for (const auto& word : command.words) {
        std::string name = std::string(word.name) + (word.repeats ? "..." : "");
        if (word.isOptional) name = "[" + name + "]";
        text += (text.empty() ? "" : " ") + name;
    }
    return text;
}

std::string spelling(const Parameter& option) {
    std::string text(option.shortName);
    if (!text.empty()) text += ", ";
    text += option.name;
    if (!option.placeholder.empty()) text += " " + std::string(option.placeholder);
    return text;
}

std::string fullHelp(const Parameter& parameter) {
    std::string text(parameter.help);
    if (!parameter.choices.empty() && text.find(parameter.choices.front()) == std::string::npos)
        text += ": " + enumeration(parameter.choices);
    if (parameter.isOption() && parameter.repeats) text += "; may be repeated";
    return text;
}

std::string helpText(const Program& program, const Command* command, int columns) {
    constexpr int kNarrowest = 40, kWidest = 100;
    const auto width = static_cast<std::size_t>(std::clamp(columns, kNarrowest, kWidest));
    return command != nullptr ? helpOfCommand(program, *command, width) : helpOfProgram(program, width);
}

}  // namespace mailhost
