#include "OwnText.h"

#include <algorithm>
#include <vector>

namespace mailhost {

namespace {

constexpr std::string_view kBlanks = " \t";

std::string_view trimmed(std::string_view line) {
    while (!line.empty() && line.find_last_of(" \t\r") == line.size() - 1) line.remove_suffix(1);
    const auto begin = line.find_first_not_of(kBlanks);
    return begin == std::string_view::npos ? std::string_view() : line.substr(begin);
}

/// Of programs that quote with a mark, and of people who put their initials before it.
bool isQuoted(std::string_view line) {
    const auto mark = line.find_first_of(">|");
    if (mark == std::string_view::npos || mark > 3) return false;
    for (const char c : line.substr(0, mark))
        if (c < 'A' || c > 'Z') return false;
    return true;
}

bool endsOwnText(std::string_view line) {
    return line == "--" || line.starts_with("-----Original Message") ||
           line.starts_with("----- Original Message") || line.starts_with("----- Forwarded message");
}

}  // namespace

std::string ownText(std::string_view body) {
    std::vector<std::string_view> lines;  // of what was kept; an empty one for what was left out
    while (!body.empty()) {
        const auto end = std::min(body.find('\n'), body.size());
        const auto line = trimmed(body.substr(0, end));
        body.remove_prefix(std::min(end + 1, body.size()));
        if (endsOwnText(line)) break;
        if (!isQuoted(line)) {
            lines.push_back(line);
            continue;
        }
        // What announces the quotation may take two lines.
        const std::size_t before = lines.size();
        while (!lines.empty() && lines.back().empty()) lines.pop_back();
        if (!lines.empty() && lines.back().ends_with(':')) {
            const bool goesOn =
                !lines.back().starts_with("On ") && lines.back().find("wrote") != std::string_view::npos;
            lines.pop_back();
            if (goesOn && !lines.empty() && lines.back().starts_with("On ")) lines.pop_back();
        }
        if (before > 0) lines.emplace_back();
    }
    std::string text;
    for (const auto line : lines) (text += line) += '\n';
    return text;
}

}  // namespace mailhost
