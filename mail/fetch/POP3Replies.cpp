#include "mail/fetch/POP3Replies.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace lorvale {

namespace {

constexpr std::string_view kBlanks = " \t\r\n";

}  // namespace

bool isPositive(std::string_view line) {
    return line.starts_with("+OK");
}

std::string_view wordOf(std::string_view line, std::size_t n) {
    for (;; --n) {
        line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
        const auto word = line.substr(0, line.find_first_of(kBlanks));
        if (n == 0 || word.empty()) return word;
        line.remove_prefix(word.size());
    }
}

std::optional<std::uint64_t> numberOf(std::string_view word) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (end != word.data() + word.size() || error == std::errc::invalid_argument) return std::nullopt;
    return error == std::errc() ? number : std::numeric_limits<std::uint64_t>::max();
}

std::optional<std::uint32_t> messageNumberOf(std::string_view word) {
    const auto number = numberOf(word);
    if (!number || *number == 0 || *number > std::numeric_limits<std::int32_t>::max()) return std::nullopt;
    return static_cast<std::uint32_t>(*number);
}

void forEachLine(std::string_view text, const std::function<void(std::string_view line)>& call) {
    while (!text.empty()) {
        const auto end = text.find("\r\n");
        call(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 2);
    }
}

void addCapabilities(std::string_view line, std::vector<std::string>& to) {
    std::string upper(line);
    std::ranges::transform(upper, upper.begin(),
                           [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    const std::string name(wordOf(upper, 0));
    if (name.empty()) return;
    to.push_back(name);
    for (std::size_t n = 1; n < 100; ++n) {
        const auto way = wordOf(upper, n);
        if (way.empty()) break;
        to.push_back(name + ' ' + std::string(way));
    }
}

}  // namespace lorvale
