#include "UndoHistory.h"

#include <charconv>
#include <string>

#include "lorvale/values/text.h"

namespace mailhost {

namespace {

constexpr std::string_view kKey = "MailhostDeletions";  // "3,5;7": first 3 and 5, then 7

}  // namespace

void noteDeletion(lorvale::MessageStore& store, const std::vector<std::uint64_t>& numbers) {
    auto groups = store.userInfo()[kKey].string();
    if (!groups.empty()) groups += ';';
    for (std::size_t i = 0; i < numbers.size(); ++i) groups += (i > 0 ? "," : "") + std::to_string(numbers[i]);
    store.userInfo().set(kKey, groups);
}

std::optional<std::vector<std::uint64_t>> takeLastDeletion(lorvale::MessageStore& store) {
    const auto groups = store.userInfo()[kKey].string();
    if (groups.empty()) return std::nullopt;
    const auto last = groups.rfind(';');
    std::vector<std::uint64_t> numbers;
    for (const auto text :
         lorvale::split(std::string_view(groups).substr(last == groups.npos ? 0 : last + 1), ',')) {
        std::uint64_t number = 0;
        std::from_chars(text.data(), text.data() + text.size(), number);
        if (number > 0 && number <= store.totalCount()) numbers.push_back(number);
    }
    store.userInfo().set(kKey, last == groups.npos ? std::string() : groups.substr(0, last));
    return numbers;
}

void forgetDeletions(lorvale::MessageStore& store) {
    store.userInfo().set(kKey, std::string());
}

}  // namespace mailhost
