/// The headers of a listing, from an envelope or from a few lines of the header itself.
#include <algorithm>
#include <array>

#include "base/text/Ascii.h"
#include "base/text/Cursor.h"
#include "lorvale/imap/words.h"
#include "lorvale/message/dates.h"
#include "lorvale/mime.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/text.h"
#include "mail/encoding/MimeHeaderEncoding.h"
#include "mail/imap/Digits.h"
#include "mail/imap/FetchParsing.h"
#include "mail/imap/ListParsing.h"
#include "mail/model/HeaderDecoding.h"

namespace lorvale {

namespace {

/// Without a date that can be read the classic dialect has the message come now, and the standard one says
/// nothing.
void setDate(CachedHeaders& headers, std::string_view text, MailDialect dialect) {
    auto date = dateInCommonFormatsWithString(text);
    if (!date && dialect == MailDialect::classic) {
        log("Couldn't parse date header value: %@", text);
        date = Date::now();
    }
    if (date) headers.set("date", *date);
}

std::string_view textAt(std::span<const IMAPValue> list, std::size_t index) {
    return index < list.size() ? list[index].text() : std::string_view();
}

/// A name as it may stand in front of an address: words of RFC 2047 bare, so that they are read.
std::string phraseOfName(std::string_view name) {
    if (name.find("=?") != std::string_view::npos) return std::string(name);
    std::string quoted = "\"";
    for (const char c : name) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted += '"';
}

/// The entries of an address list joined by ", ": name, route, mailbox and host each.
std::string textOfAddresses(std::span<const IMAPValue> addresses, MailDialect dialect) {
    std::string all;
    for (const auto& each : addresses) {
        const auto address = each.list();
        const auto name = textAt(address, 0), mailbox = textAt(address, 2), host = textAt(address, 3);
        // A group of RFC 3501 has no host; its name is no sender.
        if (dialect == MailDialect::standard && host.empty()) continue;
        if (!all.empty()) all += ", ";
        if (name.empty() || name == "NIL")
            all += formatText("%@@%@", mailbox, host);
        else if (dialect == MailDialect::classic)
            all += formatText("\"%@\" <%@@%@>", name, mailbox, host);
        else
            all += formatText("%@ <%@@%@>", phraseOfName(name), mailbox, host);
    }
    return all;
}

std::string decodedText(std::string_view text, MailDialect dialect) {
    return dialect == MailDialect::classic ? decodeMimeHeaderValue(decodeCString(text), dialect)
                                           : decodeMimeHeaderValue(text, dialect);
}

std::string parseFromFromAddress(std::span<const IMAPValue> addresses, MailDialect dialect) {
    const auto text = textOfAddresses(addresses, dialect);
    return dialect == MailDialect::classic ? decodedText(text, dialect) : decodeAddressHeader(text);
}

/// The envelope of the classic reading, in which a blank does not end a word.
IMAPValue classicEnvelope(ResponseTexts texts) {
    if (texts.empty()) return IMAPValue();
    Cursor cursor(texts.back().view());
    cursor.takeWhile(isAsciiWhite);
    cursor.skipIgnoringCase("FETCH");
    const auto rest = texts.back().subdata(cursor.rest());
    const auto list = parseClassicList(rest, Spaces::joinWords);
    if (!list || list->list().size() < 2 || list->list()[0].text() != IMAPDataEnvelope) return IMAPValue();
    return list->list()[1];
}

IMAPValue standardItem(ResponseTexts texts, std::string_view beginning) {
    for (auto text = texts.rbegin(); text != texts.rend(); ++text) {
        const auto items = parseRawFetchResponse(*text, MailDialect::standard);
        const auto* const found = items ? findItemBeginningWith(items->list(), beginning) : nullptr;
        if (found != nullptr) return *found;
    }
    return IMAPValue();
}

CachedHeaders headersOfBlock(std::string_view block, MailDialect dialect) {
    static constexpr auto kKeys = std::to_array<std::string_view>({"date", "from", "subject"});
    const auto bytes = bytesOfServerText(withNewlines(block), dialect);
    const auto values = firstValuesInBlock(bytes.view(), kKeys, dialect);
    CachedHeaders headers;
    for (std::size_t i = 0; i < kKeys.size(); ++i) {
        if (!values[i]) continue;
        if (kKeys[i] == "date")
            setDate(headers, *values[i], dialect);
        else
            headers.set(kKeys[i], *values[i]);
    }
    return headers;
}

/// Size first, then the one literal, of which only the line that announces it is looked at: the header ends by
/// its empty line.
std::optional<IMAPConnection::CacheInfo> classicCacheInfo(std::string_view text) {
    Cursor cursor(text);
    cursor.takeUntil(IMAPDataRFC822Size);
    if (!cursor.skip(IMAPDataRFC822Size)) return std::nullopt;
    cursor.takeWhile(isAsciiWhite);
    const auto size = takeWholeNumber(cursor);
    cursor.takeUntil("\r\n");
    if (!size || !cursor.skip("\r\n")) return std::nullopt;
    return IMAPConnection::CacheInfo{*size, headersOfBlock(cursor.rest(), MailDialect::classic)};
}

}  // namespace

Data bytesOfServerText(std::string text, MailDialect dialect) {
    if (dialect == MailDialect::standard || isAscii(text)) return Data(std::move(text));
    const auto characters = decodeCString(text);
    return encode(characters, bestMIMEStringEncoding(characters), Lossy::yes).value_or(Data());
}

CachedHeaders headersOfEnvelope(const IMAPValue& envelope, MailDialect dialect) {
    const auto items = envelope.list();
    if (items.size() <= 2) return {};
    CachedHeaders headers;
    setDate(headers, items[0].text(), dialect);
    const auto subject = items[1].text();
    // The classic dialect shows it as the server sent it.
    headers.set("subject",
                dialect == MailDialect::classic ? decodeCString(subject) : decodedText(subject, dialect));
    headers.set("from", items[2].isList() ? parseFromFromAddress(items[2].list(), dialect) : std::string());
    return headers;
}

std::optional<IMAPConnection::CacheInfo> cacheInfoOfItems(const IMAPValue& items) {
    const auto* const size = findItem(items.list(), IMAPDataRFC822Size);
    const auto* const block = findItemBeginningWith(items.list(), "BODY[HEADER");
    if (size == nullptr || !size->number() || block == nullptr || block->isNil()) return std::nullopt;
    return IMAPConnection::CacheInfo{*size->number(), headersOfBlock(block->text(), MailDialect::standard)};
}

CachedHeaders parseEnvelopeResponse(ResponseTexts texts, MailDialect dialect) {
    const auto envelope =
        dialect == MailDialect::classic ? classicEnvelope(texts) : standardItem(texts, IMAPDataEnvelope);
    return headersOfEnvelope(envelope, dialect);
}

std::optional<IMAPConnection::CacheInfo> parseMessageCacheInfoResponse(ResponseTexts texts,
                                                                       MailDialect dialect) {
    if (texts.empty()) return std::nullopt;
    if (dialect == MailDialect::classic) return classicCacheInfo(texts.back().view());
    const auto size = standardItem(texts, IMAPDataRFC822Size).number();
    const auto block = standardItem(texts, "BODY[HEADER");
    if (!size || block.isNil()) return std::nullopt;
    return IMAPConnection::CacheInfo{*size, headersOfBlock(block.text(), dialect)};
}

}  // namespace lorvale
