/// Searches on the server.
#include <algorithm>

#include "base/text/Ascii.h"
#include "lorvale/imap/connection.h"
#include "lorvale/values/text.h"
#include "mail/imap/Engine.h"
#include "mail/imap/ListParsing.h"
#include "mail/imap/MessageSets.h"

namespace lorvale {

namespace {

using Kind = CommandArgument::Kind;
using Numbers = IMAPConnection::Numbers;

/// "(TAG "7") UID ALL 4:18,21"; without "ALL" where nothing was found.
void addFromExtended(Numbers& numbers, const Data& line) {
    const auto values = parseValues(line);
    for (std::size_t i = 0; i + 1 < values.size(); ++i) {
        if (!equalIgnoringAsciiCase(values[i].text(), "ALL")) continue;
        const auto found = numbersOfSet(values[i + 1].text());
        numbers.insert(numbers.end(), found.begin(), found.end());
        return;
    }
}

/// "2 5 6", behind which a "(MODSEQ 9)" may stand.
void addFromPlain(Numbers& numbers, const Data& line) {
    const auto words = split(line.view().substr(0, line.view().find('(')), ' ');
    for (const auto word : words) {
        const auto found = numbersOfSet(word, 1);
        numbers.insert(numbers.end(), found.begin(), found.end());
    }
}

}  // namespace

IMAPSearchKeys& IMAPSearchKeys::add(std::string_view word) {
    _pieces.push_back({false, std::string(word)});
    return *this;
}

IMAPSearchKeys& IMAPSearchKeys::add(std::string_view word, std::string_view text) {
    add(word);
    _pieces.push_back({true, std::string(text)});
    return *this;
}

bool IMAPSearchKeys::isAscii() const {
    return std::ranges::all_of(_pieces, [](const Piece& piece) { return lorvale::isAscii(piece.value); });
}

std::optional<std::vector<std::string>> IMAPConnection::search(std::string_view keys,
                                                               std::string_view charset) {
    std::vector<CommandArgument> arguments;
    if (_engine->isStandard() && !charset.empty()) {
        arguments.emplace_back("CHARSET");
        arguments.emplace_back(charset);
    }
    arguments.emplace_back(keys);
    std::optional<std::vector<std::string>> words;
    _engine->run(numbered("SEARCH"), arguments, [&](const auto&) {
        const auto line = _engine->takeLast("SEARCH");
        if (!line) return;
        words.emplace();
        for (const auto word : split(line->view(), ' '))
            if (!word.empty()) words->emplace_back(word);
    });
    return words;
}

std::optional<IMAPConnection::Numbers> IMAPConnection::searchNumbers(const IMAPSearchKeys& keys) {
    if (!_engine->isStandard() || keys.pieces().empty()) return std::nullopt;
    std::vector<CommandArgument> arguments;
    if (hasCapability("ESEARCH")) arguments.emplace_back("RETURN (ALL)");
    // Where names and texts are UTF-8 anyway a server refuses to be told so (RFC 6855, section 3).
    if (!keys.isAscii() && !_engine->manner().utf8) arguments.emplace_back("CHARSET UTF-8");
    for (const auto& piece : keys.pieces())
        arguments.emplace_back(piece.isText ? Kind::text : Kind::wire, piece.value);
    std::optional<Numbers> numbers;
    _engine->run(numbered("SEARCH"), arguments, [&](const auto& answer) {
        if (!answer.isOK()) return;
        numbers.emplace();
        for (const auto& line : _engine->take("ESEARCH")) addFromExtended(*numbers, line);
        for (const auto& line : _engine->take("SEARCH")) addFromPlain(*numbers, line);
        std::ranges::sort(*numbers);
        numbers->erase(std::unique(numbers->begin(), numbers->end()), numbers->end());
    });
    return numbers;
}

}  // namespace lorvale
