#include "Passage.h"

#include <algorithm>
#include <set>
#include <vector>

#include "Terminal.h"
#include "lorvale/search.h"
#include "lorvale/values/text.h"

namespace mailhost {

namespace {

using lorvale::Range;

constexpr std::size_t kLength = 200;  // bytes
constexpr std::size_t kBefore = 40;   // of these, in front of the first word that was looked for

/// The first match of the stretch, of that length, that has the most different words.
std::size_t bestStart(std::string_view text, const std::vector<Range>& matches) {
    std::size_t best = 0, most = 0;
    for (std::size_t first = 0; first < matches.size(); ++first) {
        std::set<std::string> words;
        for (auto i = first;
             i < matches.size() && matches[i].location + matches[i].length < matches[first].location + kLength;
             ++i)
            words.insert(lorvale::lowercased(text.substr(matches[i].location, matches[i].length)));
        if (words.size() <= most) continue;
        best = first;
        most = words.size();
    }
    return best;
}

bool isInsideCharacter(std::string_view text, std::size_t place) {
    return place < text.size() && (static_cast<unsigned char>(text[place]) & 0xC0) == 0x80;
}

/// Where a word begins, at or after the place but near it; else where a character does.
std::size_t atWord(std::string_view text, std::size_t place) {
    if (place == 0 || place >= text.size()) return std::min(place, text.size());
    const auto blank = text.find_first_of(" \t\r\n", place);
    if (blank < place + kBefore / 2) return blank + 1;
    while (isInsideCharacter(text, place)) ++place;
    return place;
}

}  // namespace

std::string passageOf(std::string_view text, std::string_view query, bool styled) {
    const auto matches = lorvale::queryMatches(query, text);
    const auto focus = matches.empty() ? 0 : matches[bestStart(text, matches)].location;
    const auto begin = focus <= kBefore ? 0 : std::min(atWord(text, focus - kBefore), focus);
    const auto end = atWord(text, begin + kLength);
    std::string passage = begin > 0 ? "… " : "";
    auto written = begin;
    for (const auto& match : matches) {
        const auto matchEnd = match.location + match.length;
        if (match.location < written || matchEnd > end) continue;
        passage += printableLine(text.substr(written, match.location - written));
        const auto word = printableLine(text.substr(match.location, match.length));
        passage += styled ? "\033[1m" + word + "\033[0m" : "*" + word + "*";
        written = matchEnd;
    }
    passage += printableLine(text.substr(written, end - written));
    return passage + (end < text.size() ? " …" : "");
}

}  // namespace mailhost
