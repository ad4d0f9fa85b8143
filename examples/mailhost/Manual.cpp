#include <algorithm>

#include "Documents.h"
#include "lorvale/values/text.h"

namespace mailhost {

namespace {

/// Text as man(7) prints it: a "-" that can be copied, and nothing taken for a command of the formatter.
std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : text) {
        if (c == '-') {
            result += "\\-";
        } else if (c == '\\') {
            result += "\\e";
        } else if (c == '~') {
            result += "\\(ti";
        } else if (c == '\'') {
            result += "\\(aq";
        } else {
            result += c;
        }
    }
    if (result.starts_with('.')) result.insert(0, "\\&");
    return result;
}

std::string sentence(std::string_view text) {
    std::string result(text);
    if (result.empty()) return result;
    if (result[0] >= 'a' && result[0] <= 'z') result[0] = static_cast<char>(result[0] - 'a' + 'A');
    return result + (result.ends_with('?') ? "" : ".");
}

std::string bold(std::string_view text) {
    return "\\fB" + escaped(text) + "\\fR";
}

std::string italic(std::string_view text) {
    return "\\fI" + escaped(text) + "\\fR";
}

std::string item(const std::string& heading, std::string_view text) {
    return ".TP\n" + heading + "\n" + escaped(sentence(text)) + "\n";
}

std::string item(const Parameter& parameter) {
    if (!parameter.isOption()) return item(italic(parameter.name), fullHelp(parameter));
    std::string heading;
    if (!parameter.shortName.empty()) heading = bold(parameter.shortName) + ", ";
    heading += bold(parameter.name);
    if (parameter.takesValue()) heading += " " + italic(parameter.placeholder);
    return item(heading, fullHelp(parameter));
}

std::string paragraphs(std::string_view description) {
    std::string text;
    for (const auto paragraph : lorvale::split(description, std::string_view("\n\n"))) {
        text += (text.empty() ? "" : ".PP\n") + escaped(paragraph) + "\n";
    }
    return text;
}

std::string section(std::string_view title, std::span<const Entry> entries) {
    std::string text = ".SH " + std::string(title) + "\n";
    for (const auto& entry : entries) text += item(bold(entry.name), entry.text);
    return text;
}

std::string commandSection(const Command& command) {
    std::string text = ".SS " + escaped(command.name) + " " + escaped(wordsOf(command)) + "\n";
    text += paragraphs(command.description);
    for (const auto& word : command.words) text += item(word);
    for (const auto& option : command.options) text += item(option);
    return text;
}

}  // namespace

std::string manualPage(const Program& program, std::string_view source) {
    std::string title(program.name);
    std::ranges::transform(title, title.begin(),
                           [](char c) { return c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c; });
    const auto name = escaped(program.name);
    // Without a date the page is the same whenever it is made.
    std::string text = ".TH " + title + " 1 \"\" \"" + escaped(source) + "\" \"User Commands\"\n";
    text += ".SH NAME\n" + name + " \\- " + escaped(program.summary) + "\n.SH SYNOPSIS\n";
    for (const auto* command : program.commands) {
        if (command != program.commands.front()) text += ".br\n";
        text += bold(program.name) + " " + bold(command->name) + " " + italic(wordsOf(*command)) + " [" +
                italic("OPTION") + "...]\n";
    }
    text += ".SH DESCRIPTION\n" + paragraphs(program.description) + ".SH COMMANDS\n";
    for (const auto* command : program.commands) text += commandSection(*command);
    text += ".SH OPTIONS OF EVERY COMMAND\n";
    for (const auto& option : program.options) text += item(option);
    text += section("EXIT STATUS", program.exitStatuses) + section("ENVIRONMENT", program.environment);
    return text + section("EXAMPLES", program.examples);
}

}  // namespace mailhost
