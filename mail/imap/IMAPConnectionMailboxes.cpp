/// Commands on mailboxes.
#include <algorithm>
#include <utility>

#include "lorvale/imap/connection.h"
#include "lorvale/imap/words.h"
#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/text.h"
#include "mail/imap/CommandFailure.h"
#include "mail/imap/Engine.h"
#include "mail/imap/ListParsing.h"
#include "mail/imap/MailboxListing.h"

namespace lorvale {

namespace {

using Kind = CommandArgument::Kind;

PropertyList textsOf(const std::optional<IMAPValue>& list) {
    PropertyList::Array texts;
    if (list)
        for (const auto text : list->texts()) texts.emplace_back(text);
    return texts;
}

std::optional<IMAPValue> parseFlagList(std::string_view text, MailDialect dialect) {
    const auto data = Data::copyOf(text);
    if (dialect == MailDialect::classic) return parseClassicList(data, Spaces::separateWords);
    const auto values = parseValues(data);
    return values.empty() ? std::nullopt : std::optional(values.front());
}

/// Names and values in turn; the list behind the name of the mailbox.
std::optional<PropertyList> statusItems(const Data& text, MailDialect dialect) {
    std::optional<IMAPValue> list;
    if (dialect == MailDialect::classic) {
        list = parseClassicList(text, Spaces::separateWords);
    } else {
        const auto values = parseValues(text);
        if (values.size() >= 2 && values[1].isList()) list = values[1];
    }
    if (!list) return std::nullopt;
    PropertyList items = PropertyList::Dictionary();
    for (std::size_t i = 0; i + 1 < list->list().size(); i += 2) {
        const auto name = list->list()[i].text();
        items.set(dialect == MailDialect::classic ? std::string(name) : asciiUppered(name),
                  list->list()[i + 1].text());
    }
    return items;
}

}  // namespace

std::string reasonForPeople(std::string_view answer) {
    constexpr std::string_view kTiming = " secs)";
    const auto end = answer.starts_with('[') ? answer.find(']') : std::string_view::npos;
    if (end != std::string_view::npos) answer.remove_prefix(end + 1);
    const auto last = answer.find_last_not_of(". ");
    if (last != std::string_view::npos && answer.substr(0, last + 1).ends_with(kTiming))
        answer = answer.substr(0, answer.rfind('('));
    return std::string(trimmed(answer));
}

void fillCommandFailure(std::string& text, std::string_view command, const IMAPEngine::Answer& answer,
                        MailDialect dialect) {
    using Result = IMAPConnection::Result;
    if (answer.result != Result::no && answer.result != Result::bad) return;
    auto status = answer.text.value_or(LVLocalizedString("no additional information available"));
    if (dialect == MailDialect::standard) status = reasonForPeople(status);
    text = formatText(LVLocalizedString("IMAP command %@ failed with status: %@"), command, status);
}

std::optional<PropertyList> IMAPConnection::list(std::string_view reference, std::string_view mailbox) {
    // Callers of both dialects hand in "\"\"" and patterns in quotes of their own.
    const auto argument = [&](std::string_view text) {
        const bool isQuoted = text.size() >= 2 && text.starts_with('"') && text.ends_with('"');
        if (!_engine->isStandard()) return CommandArgument(text);
        return CommandArgument(Kind::mailbox, isQuoted ? text.substr(1, text.size() - 2) : text);
    };
    const CommandArgument arguments[] = {argument(reference), argument(mailbox)};
    std::optional<PropertyList> tree;
    _engine->run("LIST", arguments, [&](const auto& answer) {
        if (!answer.isOK()) return;
        auto lines = _engine->take("LIST");
        std::ranges::reverse(lines);
        for (const auto& line : lines) {
            const auto listed = parseListLine(line, dialect(), _engine->manner().utf8);
            if (!listed) continue;
            if (!_separatorChar) _separatorChar = listed->separator;
            if (!tree) tree = PropertyList::Dictionary();
            addToTree(*tree, *listed, listed->separator.value_or(""));
        }
    });
    return tree;
}

std::string IMAPConnection::separatorChar() {
    if (!_separatorChar) (void)list("\"\"", "\"\"");
    return _separatorChar.value_or("");
}

std::optional<PropertyList> IMAPConnection::status(std::string_view forMailbox,
                                                   std::span<const std::string_view> args) {
    const auto separator = separatorChar();
    if (!separator.empty() && forMailbox.starts_with(separator)) forMailbox.remove_prefix(separator.size());
    const std::vector<std::string> items(args.begin(), args.end());
    const CommandArgument arguments[] = {{Kind::mailbox, forMailbox}, parenthesizedString(items)};
    std::optional<PropertyList> found;
    _engine->run("STATUS", arguments, [&](const auto& answer) {
        const auto text = _engine->takeLast("STATUS");
        if (answer.isOK() && text) found = statusItems(*text, dialect());
    });
    return found;
}

std::optional<PropertyList> IMAPConnection::selectMailbox(std::string_view name, std::string* errorMessage) {
    return openMailbox("SELECT", name, errorMessage);
}

std::optional<PropertyList> IMAPConnection::examineMailbox(std::string_view name, std::string* errorMessage) {
    return openMailbox("EXAMINE", name, errorMessage);
}

std::optional<PropertyList> IMAPConnection::openMailbox(std::string_view command, std::string_view name,
                                                        std::string* errorMessage) {
    std::vector<CommandArgument> arguments{{Kind::mailbox, name}};
    if (_engine->isStandard() && isKnownToHave("CONDSTORE")) arguments.emplace_back("(CONDSTORE)");
    std::optional<PropertyList> data;
    _engine->forgetMessageCount();
    _engine->run(command, arguments, [&](const auto& answer) {
        if (!answer.isOK()) {
            _engine->setStateIfConnected(State::loggedIn);
            if (errorMessage != nullptr) fillCommandFailure(*errorMessage, command, answer, dialect());
            return;
        }
        _engine->setStateIfConnected(State::mailboxSelected);
        _selectedMailbox = std::string(name);
        data = takeSelectData(answer.text);
    });
    return data;
}

PropertyList IMAPConnection::takeSelectData(const std::optional<std::string>& answer) {
    PropertyList data = PropertyList::Dictionary();
    if (const auto flags = _engine->takeLast(IMAPResponseFlags))
        data.set(IMAPResponseFlags, textsOf(parseFlagList(flags->view(), dialect())));
    if (const auto exist = _engine->look(IMAPResponseExist); _engine->isStandard() && !exist.empty())
        data.set(IMAPResponseExist, exist.back().view());
    if (const auto unseen = _engine->takeLast(IMAPResponseUnseen)) data.set(IMAPResponseUnseen, unseen->view());
    for (const auto& line : _engine->take("OK")) {
        const auto [key, value] = responseValue(line.view(), dialect());
        if (!value) continue;
        const auto word = _engine->isStandard() ? asciiUppered(key) : std::string(key);
        if (word == IMAPResponsePermanentFlags)
            data.set(word, textsOf(parseFlagList(*value, dialect())));
        else if (word == IMAPResponseUIDValidity || _engine->isStandard())
            data.set(word, *value);
    }
    const auto opened = responseValue(answer ? std::string_view(*answer) : "", dialect());
    const auto word = _engine->isStandard() ? asciiUppered(opened.key) : std::string(opened.key);
    if (!word.empty()) data.set(word, word);
    return data;
}

std::optional<std::string> IMAPConnection::selectedMailbox() const {
    return _selectedMailbox;
}

bool IMAPConnection::commandOnMailboxes(std::string_view command,
                                        std::initializer_list<std::string_view> names) {
    std::vector<CommandArgument> arguments;
    for (const auto name : names) arguments.emplace_back(Kind::mailbox, name);
    return _engine->run(command, arguments).isOK();
}

bool IMAPConnection::createMailbox(std::string_view name) {
    return commandOnMailboxes("CREATE", {name});
}

bool IMAPConnection::deleteMailbox(std::string_view name) {
    return commandOnMailboxes("DELETE", {name});
}

bool IMAPConnection::renameMailbox(std::string_view name, std::string_view toMailbox) {
    return commandOnMailboxes("RENAME", {name, toMailbox});
}

void IMAPConnection::close() {
    if (!_engine->run("CLOSE", {}).isOK()) return;
    _engine->setStateIfConnected(State::loggedIn);
    _selectedMailbox.reset();
}

}  // namespace lorvale
