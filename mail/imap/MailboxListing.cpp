#include "mail/imap/MailboxListing.h"

#include <algorithm>
#include <utility>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "lorvale/imap/words.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/text.h"
#include "mail/imap/ListParsing.h"
#include "mail/imap/MailboxNames.h"

namespace lorvale {

namespace {

/// Deeper names are nobody's: a tree of them would be too deep to take down.
constexpr std::size_t kMostLevelsOfNames = 200;

/// What stands between the next two double quotes; nullopt without a first one, the place then stays.
std::optional<std::string_view> takeQuoted(Cursor& cursor) {
    auto ahead = cursor;
    ahead.takeUntil('"');
    if (!ahead.skip('"')) return std::nullopt;
    const auto text = ahead.takeUntil('"');
    ahead.skip('"');
    cursor = ahead;
    return text;
}

/// Anything between two quotes counts as the separator and the next such as the name, wherever they stand.
std::optional<ListedMailbox> parseClassicLine(std::string_view line) {
    Cursor cursor(line);
    cursor.takeUntil('(');
    cursor.skip('(');
    ListedMailbox mailbox;
    for (const auto word : split(cursor.takeUntil(')'), ' ')) {
        if (!word.empty()) mailbox.attributes.push_back(asciiLowered(word));
    }
    if (const auto separator = takeQuoted(cursor)) {
        mailbox.separator = std::string(*separator);
    } else {
        cursor.takeUntil("NIL");
        cursor.skip("NIL");
    }
    if (const auto name = takeQuoted(cursor)) {
        mailbox.name = decodeCString(*name);
    } else {
        cursor.takeWhile(isAsciiWhite);
        mailbox.name = decodeCString(cursor.takeUntil("\r\n"));
    }
    return mailbox;
}

std::optional<ListedMailbox> parseStandardLine(const Data& line, bool utf8) {
    const auto values = parseValues(line);
    if (values.size() < 3 || !values[0].isList() || values[1].isList() || values[2].isList())
        return std::nullopt;
    ListedMailbox mailbox;
    for (const auto attribute : values[0].texts()) mailbox.attributes.push_back(asciiLowered(attribute));
    if (!values[1].isNil()) mailbox.separator = std::string(values[1].text());
    // A mailbox may well be called NIL.
    const auto name = values[2].isNil() ? "NIL" : values[2].text();
    mailbox.name = utf8 ? std::string(name) : fromModifiedUtf7(name);
    return mailbox;
}

/// The dictionary under a key, made if need be.
PropertyList& dictionaryAt(PropertyList& parent, std::string_view key) {
    if (!parent.get<PropertyList::Dictionary>()) parent = PropertyList::Dictionary();
    auto& entries = *parent.get<PropertyList::Dictionary>();
    auto& entry = entries.try_emplace(std::string(key)).first->second;
    if (!entry.get<PropertyList::Dictionary>()) entry = PropertyList::Dictionary();
    return entry;
}

}  // namespace

std::optional<ListedMailbox> parseListLine(const Data& line, MailDialect dialect, bool utf8) {
    return dialect == MailDialect::classic ? parseClassicLine(line.view()) : parseStandardLine(line, utf8);
}

void addToTree(PropertyList& tree, const ListedMailbox& mailbox, std::string_view separator) {
    const std::string_view name = mailbox.name;
    if (name.empty() || (!separator.empty() && name.ends_with(separator))) return;
    const auto components = separator.empty() ? std::vector{name} : split(name, separator);
    if (components.size() > kMostLevelsOfNames) return;
    PropertyList* level = &tree;
    PropertyList* last = nullptr;
    for (const auto component : components) {
        last = &dictionaryAt(*level, component);
        level = &dictionaryAt(*last, IMAPMailboxChildren);
    }
    PropertyList::Array attributes(mailbox.attributes.begin(), mailbox.attributes.end());
    last->set(IMAPMailboxAttributes, std::move(attributes));
}

}  // namespace lorvale
