#include "mail/imap/FetchParsing.h"

#include <algorithm>
#include <cstring>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "lorvale/imap/words.h"
#include "lorvale/values/text.h"
#include "mail/imap/Digits.h"
#include "mail/imap/ListParsing.h"

namespace lorvale {

namespace {

/// What follows the word "FETCH"; the whole text without it, as scanning for it would leave it.
Data afterFetch(const Data& text) {
    Cursor cursor(text.view());
    cursor.takeWhile(isAsciiWhite);
    cursor.skipIgnoringCase("FETCH");
    return text.subdata(cursor.rest());
}

/// The second item when the first is the word.
const IMAPValue* valueBehind(const std::optional<IMAPValue>& list, std::string_view word) {
    if (!list || list->list().size() < 2 || list->list()[0].text() != word) return nullptr;
    return &list->list()[1];
}

/// The texts of the standard dialect are looked through from the last one on: it is the newest.
template <class Find>
std::optional<IMAPValue> newest(ResponseTexts texts, Find find) {
    for (auto text = texts.rbegin(); text != texts.rend(); ++text) {
        const auto items = parseRawFetchResponse(*text, MailDialect::standard);
        if (!items) continue;
        if (const auto* const found = find(items->list())) return *found;
    }
    return std::nullopt;
}

/// The value of one item, by its name.
std::optional<IMAPValue> simpleFetch(ResponseTexts texts, std::string_view word, MailDialect dialect) {
    if (texts.empty()) return std::nullopt;
    if (dialect == MailDialect::standard)
        return newest(texts, [&](auto items) { return findItem(items, word); });
    const auto list = parseRawFetchResponse(texts.back(), dialect);
    const auto* const value = valueBehind(list, word);
    return value == nullptr ? std::nullopt : std::optional(*value);
}

std::optional<std::string> simpleText(ResponseTexts texts, std::string_view word, MailDialect dialect) {
    const auto value = simpleFetch(texts, word, dialect);
    return value ? std::optional(std::string(value->text())) : std::nullopt;
}

}  // namespace

const IMAPValue* findItem(std::span<const IMAPValue> items, std::string_view name) {
    for (std::size_t i = 0; i + 1 < items.size(); i += 2)
        if (equalIgnoringAsciiCase(items[i].text(), name)) return &items[i + 1];
    return nullptr;
}

const IMAPValue* findItemBeginningWith(std::span<const IMAPValue> items, std::string_view beginning) {
    for (std::size_t i = 0; i + 1 < items.size(); i += 2)
        if (equalIgnoringAsciiCase(items[i].text().substr(0, beginning.size()), beginning))
            return &items[i + 1];
    return nullptr;
}

std::optional<IMAPValue> parseRawFetchResponse(const Data& text, MailDialect dialect) {
    const auto rest = afterFetch(text);
    if (dialect == MailDialect::classic) return parseClassicList(rest, Spaces::separateWords);
    const auto values = parseValues(rest);
    return values.empty() || !values.front().isList() ? std::nullopt : std::optional(values.front());
}

std::optional<IMAPValue> parseFlagsResponse(ResponseTexts texts, MailDialect dialect) {
    return simpleFetch(texts, IMAPDataFlags, dialect);
}

std::optional<std::string> parseUIDsResponse(ResponseTexts texts, MailDialect dialect) {
    return simpleText(texts, IMAPDataUID, dialect);
}

std::optional<std::string> parseRFC822SizeResponse(ResponseTexts texts, MailDialect dialect) {
    return simpleText(texts, IMAPDataRFC822Size, dialect);
}

std::optional<IMAPValue> parseBodyResponse(ResponseTexts texts, MailDialect dialect) {
    if (auto body = simpleFetch(texts, IMAPDataBody, dialect)) return body;
    return dialect == MailDialect::standard ? simpleFetch(texts, "BODYSTRUCTURE", dialect) : std::nullopt;
}

std::optional<Data> parseHeaderSectionResponse(ResponseTexts texts, MailDialect dialect) {
    const auto value = simpleFetch(texts, "BODY[HEADER]", dialect);
    return value ? std::optional(value->data()) : std::nullopt;
}

std::optional<Data> parseTextSectionResponse(ResponseTexts texts, MailDialect dialect) {
    if (texts.empty()) return std::nullopt;
    if (dialect == MailDialect::standard) {
        const auto value = newest(texts, [](auto items) { return findItemBeginningWith(items, "BODY["); });
        return value ? std::optional(value->data()) : std::nullopt;
    }
    const auto list = parseRawFetchResponse(texts.back(), dialect);
    if (!list) return std::nullopt;
    const auto items = list->list();
    const bool isSection = items.size() >= 2 && items[0].text().starts_with(IMAPDataBody);
    // Where it is something else, all of it counts as the text: a reader sees what the server had to say.
    return isSection ? items[1].data() : Data(list->description());
}

std::optional<std::string> parseRFC822Response(ResponseTexts texts) {
    if (texts.empty()) return std::nullopt;
    Cursor cursor(texts.front().view());
    cursor.takeUntil(IMAPDataRFC822Size);
    if (!cursor.skip(IMAPDataRFC822Size)) return std::nullopt;
    cursor.takeWhile(isAsciiWhite);
    const auto size = takeWholeNumber<std::size_t>(cursor);
    if (!size) return std::nullopt;
    cursor.takeWhile(isAsciiWhite);
    if (!cursor.skipIgnoringCase(IMAPDataRFC822)) {
        cursor.takeUntil(IMAPDataBody);
        cursor.skip("BODY");
        cursor.skip("[]");
    }
    cursor.advance();
    return withNewlines(cursor.take(*size));
}

std::string withNewlines(std::string_view text) {
    std::string converted;
    converted.reserve(text.size());
    while (true) {
        const auto end = text.find('\n');
        if (end == std::string_view::npos) return converted += text;
        converted += text.substr(0, end > 0 && text[end - 1] == '\r' ? end - 1 : end);
        converted += '\n';
        text.remove_prefix(end + 1);
    }
}

}  // namespace lorvale
