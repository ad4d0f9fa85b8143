#include "mail/imap/AskedItems.h"

#include <algorithm>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"

namespace lorvale {

namespace {

constexpr std::string_view kPeek = ".PEEK";

bool endsWord(char c) {
    return c == ' ' || c == '(' || c == ')' || c == '[';
}

std::string_view withoutPeek(std::string_view word) {
    const auto length = word.size() - std::min(word.size(), kPeek.size());
    return equalIgnoringAsciiCase(word.substr(length), kPeek) ? word.substr(0, length) : word;
}

}  // namespace

AskedItems::AskedItems(std::string_view items) {
    for (Cursor cursor(items); !cursor.atEnd();) {
        const auto word = cursor.takeUntil(endsWord);
        if (!word.empty()) _stems.emplace_back(withoutPeek(word));
        if (cursor.peek() == '[') cursor.takeUntil(']');
        cursor.advance();
    }
}

bool AskedItems::areIn(std::span<const IMAPValue> answer) const {
    for (std::size_t i = 0; i + 1 < answer.size(); i += 2) {
        const auto name = answer[i].text();
        const auto stem = name.substr(0, name.find('['));
        if (std::ranges::any_of(_stems, [&](const auto& each) { return equalIgnoringAsciiCase(each, stem); }))
            return true;
    }
    return false;
}

}  // namespace lorvale
