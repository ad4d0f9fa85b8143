/// Commands that change the messages of the selected mailbox, or put some into another.
#include <utility>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "lorvale/imap/connection.h"
#include "lorvale/imap/words.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/text.h"
#include "mail/imap/CommandFailure.h"
#include "mail/imap/Engine.h"
#include "mail/imap/ListParsing.h"
#include "mail/imap/MessageSets.h"

namespace lorvale {

namespace {

using Kind = CommandArgument::Kind;
using Numbers = IMAPConnection::Numbers;

std::string_view wordOf(IMAPConnection::FlagChange change) {
    using Change = IMAPConnection::FlagChange;
    return change == Change::add      ? "+FLAGS.SILENT"
           : change == Change::remove ? "-FLAGS.SILENT"
                                      : "FLAGS.SILENT";
}

/// What a key in brackets at the start of an answer tells, word by word; none where it is another key.
std::vector<std::string_view> wordsBehind(std::string_view key, std::string_view answer) {
    const auto told = responseValue(answer, MailDialect::standard);
    return equalIgnoringAsciiCase(told.key, key) && told.value ? split(*told.value, ' ')
                                                               : std::vector<std::string_view>();
}

/// "APPENDUID 38505 3955", "COPYUID 38505 304,319:320 3956:3958".  Sets that are no pairs tell nothing.
void learnPlaces(IMAPPlaces& places, std::string_view answer, std::size_t most) {
    auto words = wordsBehind("COPYUID", answer);
    const bool isCopy = words.size() == 3;
    if (!isCopy) words = wordsBehind("APPENDUID", answer);
    if (!isCopy && words.size() != 2) return;
    const auto validity = numbersOfSet(words[0], 1);
    const auto from = isCopy ? numbersOfSet(words[1], most) : Numbers(), to = numbersOfSet(words.back(), most);
    if (validity.size() != 1 || to.empty() || (isCopy && from.size() != to.size())) return;
    places.uidValidity = validity.front();
    places.from.insert(places.from.end(), from.begin(), from.end());
    places.to.insert(places.to.end(), to.begin(), to.end());
}

/// Whether the header of a message holds more than ASCII.
bool hasInternationalHeader(std::string_view message) {
    return !isAscii(Cursor(message).takeUntil("\r\n\r\n"));
}

}  // namespace

std::optional<std::string> IMAPConnection::expunge() {
    std::optional<std::string> reason;
    _engine->run("EXPUNGE", {}, [&](const auto& answer) {
        if (answer.result != Result::no) return;
        const auto text = _engine->takeLast("NO");
        if (text)
            reason = text->toString();
        else if (_engine->isStandard())
            reason = reasonForPeople(answer.text.value_or(""));
    });
    return reason;
}

void IMAPConnection::storeFlag(std::string_view flag, bool state, const Numbers& forMessageNumbers) {
    if (forMessageNumbers.empty()) return;
    const auto item = state ? "+FLAGS.SILENT" : "-FLAGS.SILENT";
    const auto flags = formatText("(%@)", flag);
    for (const auto& set : setsOf(forMessageNumbers, dialect())) {
        const CommandArgument arguments[] = {set, item, flags};
        _engine->run(numbered("STORE"), arguments);
    }
}

bool IMAPConnection::changeFlags(FlagChange change, std::span<const std::string_view> flags,
                                 const Numbers& forMessages, std::optional<std::uint64_t> unchangedSince,
                                 Numbers* refused) {
    if (!_engine->isStandard() || forMessages.empty()) return false;
    const auto list = parenthesizedString(std::vector<std::string>(flags.begin(), flags.end()));
    bool done = true;
    for (const auto& set : setsOf(forMessages, dialect())) {
        std::vector<CommandArgument> arguments{set};
        if (unchangedSince) arguments.emplace_back(formatText("(UNCHANGEDSINCE %d)", *unchangedSince));
        arguments.emplace_back(wordOf(change));
        arguments.emplace_back(list);
        _engine->run(numbered("STORE"), arguments, [&](const auto& answer) {
            done = done && answer.isOK();
            if (refused == nullptr || !answer.text) return;
            for (const auto word : wordsBehind("MODIFIED", *answer.text)) {
                const auto numbers = numbersOfSet(word, forMessages.size());
                refused->insert(refused->end(), numbers.begin(), numbers.end());
            }
        });
    }
    return done;
}

bool IMAPConnection::copyMessageNumbers(const Numbers& numbers, std::string_view toMailboxNamed,
                                        IMAPPlaces* places) {
    return copyOrMove("COPY", numbers, toMailboxNamed, places);
}

bool IMAPConnection::copyOrMove(std::string_view command, const Numbers& numbers,
                                std::string_view toMailboxNamed, IMAPPlaces* places) {
    if (numbers.empty()) return false;
    bool done = true;
    for (const auto& set : setsOf(numbers, dialect())) {
        const CommandArgument arguments[] = {set, {Kind::mailbox, toMailboxNamed}};
        _engine->run(numbered(command), arguments, [&](const auto& answer) {
            done = answer.isOK();
            if (!done) {
                logRefusedCopy(answer.text.value_or(""));
            } else if (places != nullptr) {
                // A move tells it in front of the numbers that go.
                for (const auto& line : _engine->take("OK")) learnPlaces(*places, line.view(), numbers.size());
                learnPlaces(*places, answer.text.value_or(""), numbers.size());
            }
        });
        if (!done) break;
    }
    return done;
}

void IMAPConnection::logRefusedCopy(std::string_view answer) const {
    std::string told;
    for (const auto& [key, texts] : _engine->untagged())
        for (const auto& text : texts) told += formatText("%@ %@; ", key, text.view());
    log("Copy messages failed because: %@", told + std::string(answer));
}

bool IMAPConnection::moveMessageNumbers(const Numbers& numbers, std::string_view toMailboxNamed,
                                        IMAPPlaces* places) {
    if (!_engine->isStandard() || numbers.empty()) return false;
    if (hasCapability("MOVE")) return copyOrMove("MOVE", numbers, toMailboxNamed, places);
    const std::string_view deleted[] = {IMAPFlagDeleted};
    if (!copyMessageNumbers(numbers, toMailboxNamed, places) || !changeFlags(FlagChange::add, deleted, numbers))
        return false;
    if (_numbersAreUIDs) (void)expungeUIDs(numbers);  // else they go with the next expunge
    return true;
}

bool IMAPConnection::expungeUIDs(const Numbers& uids) {
    if (!_engine->isStandard() || uids.empty() || !hasCapability("UIDPLUS")) return false;
    bool done = true;
    for (const auto& set : setsOf(uids, dialect())) {
        const CommandArgument arguments[] = {set};
        done = done && _engine->run("UID EXPUNGE", arguments).isOK();
    }
    return done;
}

bool IMAPConnection::appendData(std::string_view data, std::string_view toMailboxNamed,
                                const std::optional<std::vector<std::string>>& flags, IMAPPlaces* places) {
    const auto manner = _engine->manner();
    const bool isFree = manner.freeLiteral > 0 && data.size() <= manner.freeLiteral;
    const bool isUtf8 = manner.utf8 && hasInternationalHeader(data);
    std::vector<CommandArgument> arguments{{Kind::mailbox, toMailboxNamed}};
    if (flags) arguments.emplace_back(parenthesizedString(*flags));
    auto prefix = prefixForLiteralStringOfSize(data.size());
    if (isFree) prefix.insert(prefix.size() - 1, "+");
    arguments.emplace_back((isUtf8 ? "UTF8 (~" : "") + prefix);
    const std::string_view end = isUtf8 ? ")\r\n" : "\r\n";

    const auto tag = _engine->send("APPEND", arguments);
    bool isSent = isFree, done = false;
    if (isFree) _engine->write({data, end});
    while (true) {
        const auto result = _engine->wait(tag);
        done = result == Result::ok;
        if (done) break;
        if (result == Result::continuation) {
            // Only the first time: a message is not sent twice, however often a server asks for it.
            if (!std::exchange(isSent, true)) _engine->write({data, end});
        } else if (!_engine->isWaitedFor(tag)) {
            break;
        }
    }
    if (done && places != nullptr) learnPlaces(*places, _engine->answer(tag, Result::ok).text.value_or(""), 1);
    _engine->finish(tag);
    return done;
}

}  // namespace lorvale
