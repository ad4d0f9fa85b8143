#include "mail/imap/MessageSets.h"

#include <algorithm>

#include "base/text/Cursor.h"
#include "mail/imap/Digits.h"

namespace lorvale {

namespace {

struct Run {
    std::uint32_t first, last;
};

std::string classicSet(std::span<const std::uint32_t> numbers) {
    if (numbers.empty()) return {};
    std::string set = std::to_string(numbers.front());
    bool runIsOpen = false;
    for (std::size_t i = 1; i < numbers.size(); ++i) {
        const bool follows = numbers[i] == numbers[i - 1] + 1;
        if (follows && i + 1 < numbers.size()) {
            runIsOpen = true;
            continue;
        }
        if (runIsOpen) set += ':' + std::to_string(numbers[i - 1]);
        set += ',' + std::to_string(numbers[i]);
        runIsOpen = false;
    }
    return set;
}

std::vector<Run> runsOf(std::span<const std::uint32_t> numbers) {
    std::vector<std::uint32_t> sorted(numbers.begin(), numbers.end());
    std::ranges::sort(sorted);
    std::vector<Run> runs;
    for (const auto number : sorted) {
        if (!runs.empty() && number - runs.back().last <= 1)
            runs.back().last = number;
        else
            runs.push_back({number, number});
    }
    return runs;
}

std::string textOf(const Run& run) {
    const auto first = std::to_string(run.first);
    return run.first == run.last ? first : first + ':' + std::to_string(run.last);
}

}  // namespace

std::string messageSet(std::span<const std::uint32_t> numbers, MailDialect dialect) {
    if (dialect == MailDialect::classic) return classicSet(numbers);
    std::string set;
    for (const auto& run : runsOf(numbers)) set += (set.empty() ? "" : ",") + textOf(run);
    return set;
}

std::vector<std::string> messageSets(std::span<const std::uint32_t> numbers, std::size_t mostBytes) {
    std::vector<std::string> sets;
    for (const auto& run : runsOf(numbers)) {
        const auto text = textOf(run);
        if (sets.empty() || sets.back().size() + 1 + text.size() > mostBytes)
            sets.push_back(text);
        else
            sets.back() += ',' + text;
    }
    return sets;
}

std::vector<std::string> setsOf(std::span<const std::uint32_t> numbers, MailDialect dialect) {
    // RFC 7162, section 4, has servers take lines of 8,192 bytes.
    constexpr std::size_t kSetBytes = 7'500;
    return dialect == MailDialect::classic ? std::vector{classicSet(numbers)} : messageSets(numbers, kSetBytes);
}

std::vector<std::uint32_t> numbersOfSet(std::string_view set, std::size_t most) {
    std::vector<std::uint32_t> numbers;
    Cursor cursor(set);
    do {
        const auto first = takeWholeNumber(cursor);
        if (!first) break;
        const auto last = cursor.skip(':') ? takeWholeNumber(cursor) : first;
        if (!last || most - numbers.size() <= std::max(*first, *last) - std::min(*first, *last)) break;
        // The smaller one may stand behind: "5:3" is "3:5".
        for (std::uint64_t n = std::min(*first, *last); n <= std::max(*first, *last); ++n)
            numbers.push_back(static_cast<std::uint32_t>(n));
    } while (cursor.skip(','));
    return numbers;
}

}  // namespace lorvale
