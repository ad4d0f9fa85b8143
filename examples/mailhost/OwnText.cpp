#include "OwnText.h"

#include <algorithm>
#include <span>
#include <vector>

namespace mailhost {

namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::size_t kShortestRule = 10, kLongestFooter = 12;  // in characters, in lines
constexpr std::string_view kOpening = "to unsubscribe";

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

/// A line drawn across, as lists set it before what they add to each letter.
bool isRule(std::string_view line) {
    return line.size() >= kShortestRule && line.find_first_not_of(line[0]) == std::string_view::npos &&
           std::string_view("_-=*~").find(line[0]) != std::string_view::npos;
}

bool holds(std::string_view line, std::string_view word) {
    const auto same = [](char a, char b) { return a == b || (a >= 'A' && a <= 'Z' && a - 'A' + 'a' == b); };
    return std::search(line.begin(), line.end(), word.begin(), word.end(), same) != line.end();
}

/// What a list tells of itself and a writer hardly ever.
bool tellsOfList(std::string_view line) {
    constexpr std::string_view words[] = {"unsubscribe",   "mailing list", "mailman/",  "list archive",
                                          "list-archives", "-request@",    "://lists.", "@lists."};
    return std::ranges::any_of(words, [line](std::string_view word) { return holds(line, word); });
}

/// The first line of what a mailing list added: a rule with little behind it that tells of the list, or such a
/// line alone.
std::size_t footerOf(std::span<const std::string_view> lines) {
    std::size_t count = 0;
    bool isOfList = false;
    for (auto i = lines.size(); i-- > 0 && count <= kLongestFooter;) {
        if (lines[i].empty()) continue;
        isOfList = isOfList || tellsOfList(lines[i]);
        if (isOfList && (isRule(lines[i]) || holds(lines[i].substr(0, kOpening.size()), kOpening))) return i;
        count += !isRule(lines[i]);
    }
    return lines.size();
}

/// The lines up to the signature, a letter below, or the footer of a list.
std::vector<std::string_view> linesOf(std::string_view body) {
    std::vector<std::string_view> lines;
    while (!body.empty()) {
        const auto end = std::min(body.find('\n'), body.size());
        const auto line = trimmed(body.substr(0, end));
        body.remove_prefix(std::min(end + 1, body.size()));
        if (endsOwnText(line)) break;
        lines.push_back(line);
    }
    // Lists that pass on each other's letters each add their own.
    for (auto end = footerOf(lines); end < lines.size(); end = footerOf(lines)) lines.resize(end);
    return lines;
}

}  // namespace

std::string ownText(std::string_view body) {
    std::vector<std::string_view> lines;  // of what was kept; an empty one for what was left out
    for (const auto line : linesOf(body)) {
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
